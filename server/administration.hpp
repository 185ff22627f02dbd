// Administration without a connection: what the control tool, the
// protocol's administration request and the command server do to objects,
// messages and connections. Every call answers as a command reply does:
// a completion code, a reason and, for the parameter reasons 4002-4006, the
// selector in error. Durable changes join the turn's transaction, which
// QueueManager::endTurn commits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "attributes.hpp"
#include "queue_manager.hpp"

namespace jxqm {

struct AdminResult {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  int32_t parameter = 0;  // the selector in error, for reasons 4002-4006
  bool ok() const { return cc == JXCC_OK; }
};

// "ABC*" matches every name that starts with ABC, "*" all of them, any
// other name itself.
bool validGenericName(std::string_view generic);
bool matchesGeneric(std::string_view name, std::string_view generic);

class Administration {
 public:
  explicit Administration(QueueManager &qm) : qm_(qm) {}

  // ---- queues ----
  // type: JXQT_LOCAL or JXQT_MODEL. Attributes not given take their
  // defaults; with `replace` an existing queue of the same type is
  // redefined so, keeping its messages.
  AdminResult createQueue(std::string_view name, int32_t type, const AttrList &attributes,
                          bool replace);
  // `type` must be the queue's own (0: whatever it is).
  AdminResult changeQueue(std::string_view name, int32_t type, const AttrList &attributes);
  // A new queue `to` with the definition of `from`, changed by `attributes`.
  AdminResult copyQueue(std::string_view from, std::string_view to, int32_t type,
                        const AttrList &attributes);
  // Refused while any handle has the queue open, for a queue that holds
  // messages unless `purge`, and for the system queues.
  AdminResult deleteQueue(std::string_view name, bool purge);
  // Takes every message off; refused while any handle has the queue open.
  AdminResult clearQueue(std::string_view name);
  // The names a generic name matches, in order; type 0 for any.
  AdminResult queueNames(std::string_view generic, int32_t type, std::vector<std::string> &out);
  // Attribute values of one queue, definition and status alike: those of
  // `selectors` in their order, or every one when it is empty.
  AdminResult inquireQueue(std::string_view name, const std::vector<int32_t> &selectors,
                           AttrList &out);
  // The statistics (messages put and got, high depth, seconds since the
  // last reset) as they were, and then they start again.
  AdminResult resetQueueStatistics(std::string_view name, AttrList &before);

  // ---- messages ----
  // Puts a message as the queue manager itself (its identity in the
  // descriptor), outside any unit of work; md is completed as by a put.
  AdminResult putMessage(std::string_view queue, JXMD &md, std::string_view data);

  // ---- the queue manager ----
  AdminResult inquireQueueManager(const std::vector<int32_t> &selectors, AttrList &out);
  AdminResult changeQueueManager(const AttrList &attributes);

  // ---- connections ----
  // Every connection's attributes (identifier, user, process, application,
  // transport, open handles, connected since), in the order they came.
  std::vector<AttrList> connections() const;
  // Ends a connection: its unit of work is backed out and its next call
  // fails with 2009.
  AdminResult stopConnection(std::string_view connectionId);

 private:
  template <Object O>
  AdminResult apply(Settings<O> &settings, const AttrList &attributes, bool creating);
  AdminResult checkDefinition(const QueueDef &def, int32_t type);

  QueueManager &qm_;
};

}  // namespace jxqm
