// The queue manager's state: queues and their messages, sessions, the
// store, and the primitives that sessions (session.hpp) and the
// administration calls (administration.hpp) are built from.
//
// One thread runs everything. Work that changes durable state joins the
// transaction of the current loop turn; endTurn commits it, and replies are
// held until then, so a put returns only once it is durable and all
// clients served in one turn share one commit.
//
// When that commit fails (or SQLite gives the transaction up), nothing of
// the turn's durable work may seem done: each in-memory change made with
// durable work is journaled with the change that takes it back, and the
// replies of the sessions whose durable work it was are held back by their
// connections and turned into 2102 (queue_manager.cpp, held_replies.hpp).
#pragma once

#include <jx/jxqm.h>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "attributes.hpp"
#include "qm_protocol.hpp"
#include "store.hpp"

namespace jxqm {

// Who does something: the authenticated user, in full, and what they may do.
struct Identity {
  std::string user;
  int32_t authority = kAuthNone;
};

struct Message {
  JXMD md{};
  std::string data;
  int64_t expiresMs = 0;  // 0: never
  int64_t putMs = 0;      // when it was put
  int64_t dbId = 0;       // row of a stored persistent message
  uint64_t turn = 0;      // the turn whose commit made it available
  uint32_t lockedBy = 0;  // session whose unit of work holds it
  // Read ahead to its reader's client, which has not yet said that it took
  // it: no other get sees it meanwhile.
  bool lent = false;
  bool persistent = false;
  // Who put it. md.UserIdentifier holds the first JX_USER_IDENTIFIER_LENGTH
  // characters of the same name.
  std::string putter;
  int32_t authority = kAuthNone;
};

// Counted from the start of the queue manager or the last reset.
struct QueueStats {
  int64_t puts = 0, gets = 0;
  int32_t highDepth = 0;
  int64_t resetMs = 0;
  int64_t lastPutMs = 0, lastGetMs = 0;  // 0: none
};

struct Queue {
  QueueDef def;
  bool temporary = false;
  uint32_t owner = 0;  // creating session of a temporary dynamic queue
  bool deleted = false;
  std::map<uint64_t, Message> msgs;  // by arrival sequence
  int32_t openInput = 0, openOutput = 0, exclusiveInput = 0;
  int32_t handles = 0;      // every open handle, inquire and set ones too
  int32_t uncommitted = 0;  // messages held by units of work
  QueueStats stats;
  std::list<uint32_t> waiters;  // sessions blocked in a get, oldest first

  template <int32_t S>
  int32_t get() const {
    return def.settings.get<S>();
  }
  int32_t depth() const { return static_cast<int32_t>(msgs.size()); }
};
using QueuePtr = std::shared_ptr<Queue>;

// A get's answer and the message data it carries (the reply's data is a
// view that encoding fills in from here).
struct LentMessage {
  JXMD md;
  std::string data;
};
struct GetResult {
  jxqp::GetReply reply;
  std::string data;
  std::vector<LentMessage> ahead;  // read ahead, for the reply's `ahead`
  // Who put the message, for a reader inside the queue manager that
  // checks authority by it.
  std::string putter;
  int32_t authority = kAuthNone;
};

// The side of a session that is not the queue manager: a client's
// connection, or a part of the queue manager reading a queue itself.
class Peer {
 public:
  // A get that waited has its answer.
  virtual void getAnswered(GetResult &&result) = 0;
  // The queue manager ended the session (an administrator stopped it); the
  // session is gone when this returns.
  virtual void ended() = 0;

 protected:
  ~Peer() = default;
};

class Session;
class Events;

class QueueManager {
 public:
  QueueManager(std::string name, Store &store);
  ~QueueManager();
  QueueManager(const QueueManager &) = delete;
  QueueManager &operator=(const QueueManager &) = delete;

  // Loads definitions, settings and persistent messages; false (with a log
  // line) on failure.
  bool load();
  const std::string &name() const { return name_; }
  int64_t startMs() const { return startMs_; }
  const char *name48() const { return name48_; }
  // The queue manager's own identity, for the messages it puts.
  const Identity &identity() const { return self_; }
  Store &store() { return store_; }
  Events &events() { return *events_; }

  // ---- sessions ----
  struct SessionInfo {
    Identity who;
    int32_t transport = JXTRANSPORT_LOCAL;
    uint32_t pid = 0;
    std::string applName;
  };
  Session &startSession(SessionInfo info, Peer *peer);
  // Backs out the session's unit of work, closes its handles and deletes
  // its temporary dynamic queues.
  void endSession(uint32_t id);
  Session *session(uint32_t id);
  const std::map<uint32_t, std::unique_ptr<Session>> &sessions() const { return sessions_; }
  // Ends a session from the queue manager's side: its peer is told.
  bool stopSession(uint32_t id);

  // ---- objects ----
  QueuePtr findQueue(std::string_view name) const;
  const std::map<std::string, QueuePtr, std::less<>> &queues() const { return queues_; }
  // Adds a queue (stored unless temporary); a reason.
  int32_t addQueue(QueueDef def, bool temporary, uint32_t owner, QueuePtr &out);
  // Gives a queue a new definition (stored unless temporary); a reason.
  int32_t redefineQueue(Queue &q, const QueueDef &def);
  // Deletes a queue with its messages; a reason.
  int32_t deleteQueue(const QueuePtr &q);
  // Takes every message off a queue; a reason.
  int32_t clearQueue(Queue &q);
  const QMgrSettings &settings() const { return settings_; }
  int32_t changeSettings(const QMgrSettings &s);
  std::string uniqueQueueName(const std::string &prefix);

  // ---- attribute values ----
  // The value of an attribute of a queue, of the queue manager, or of a
  // session's connection.
  AttrValue value(const Attribute &a, const Queue &q) const;
  AttrValue value(const Attribute &a) const;
  AttrValue value(const Attribute &a, const Session &s) const;

  // ---- messages ----
  // Puts into q as the session's user, or as the queue manager itself
  // (null: outside any unit of work); completes md (message identifier,
  // user identifier, put date and time). A reason.
  int32_t putMessage(Session *session, const QueuePtr &q, int32_t options, JXMD &md,
                     std::string_view data);
  // Takes a message off its queue; `got` counts it as a get. A reason: on
  // failure the message stays.
  int32_t removeMessage(const QueuePtr &q, std::map<uint64_t, Message>::iterator it, bool got);
  // Whether taking the message off needs the store, or waits for the turn's
  // commit to exist at all (so its data must be kept to be put back).
  bool removalJournaled(const Message &m) const { return m.dbId || pendingInTurn(m); }
  // Answers the blocked gets on q that a message can now serve.
  void serveWaiters(const QueuePtr &q);
  // A reason; when the store fails the unit of work is backed out.
  int32_t commitUnitOfWork(Session &s);
  void backoutUnitOfWork(Session &s);

  // ---- turns ----
  // Answers blocked gets whose wait has run out; returns the next deadline
  // (-1 when none).
  int64_t expireWaits(int64_t nowMs);
  void addTimedWait(int64_t deadlineMs, uint32_t session) {
    timedWaits_.emplace(deadlineMs, session);
  }
  void removeTimedWait(int64_t deadlineMs, uint32_t session) {
    timedWaits_.erase({deadlineMs, session});
  }
  // Starts the turn's transaction if needed; false when the store failed
  // or the turn's durable work is already lost.
  bool dbWork();
  // Commits the turn's transaction. False when the commit failed: every
  // change journaled in the turn has been taken back, and the replies held
  // for it must become 2102.
  bool endTurn();
  // Whether the turn has durable work waiting for endTurn's commit.
  bool commitPending() const { return txnOpen_; }
  // The number of the turn whose transaction is open or next.
  uint64_t turn() const { return turn_; }

  // Durable work is done for the session that acts (0: the queue manager
  // itself) while one of these lives.
  class Acting {
   public:
    Acting(QueueManager &qm, uint32_t session) : qm_(qm), was_(qm.actor_) { qm.actor_ = session; }
    ~Acting() { qm_.actor_ = was_; }
    Acting(const Acting &) = delete;
    Acting &operator=(const Acting &) = delete;

   private:
    QueueManager &qm_;
    uint32_t was_;
  };
  // Records how to take back an in-memory change that joined the turn's
  // transaction; the acting session's next reply waits for the commit.
  void journal(std::function<void()> undo);
  // The acting session saw what the turn's commit makes true (a message
  // put in it): its next reply waits for the commit too.
  void dependsOnTurn();
  bool pendingInTurn(const Message &m) const { return txnOpen_ && m.turn == turn_; }
  // Whether the session's replies since it last asked wait for the turn's
  // commit; it is asked once a reply.
  bool takeHeld(uint32_t session) { return held_.erase(session) > 0; }

  void genId(uint8_t out[JX_MSG_ID_LENGTH]);
  void log(const std::string &line) const;
  static int64_t nowMs();

 private:
  int64_t startMs_;
  int64_t createdMs_ = 0;  // read once at load: it never changes
  std::string name_;
  char name48_[JX_Q_MGR_NAME_LENGTH] = {};
  Identity self_;
  Store &store_;
  std::unique_ptr<Events> events_;
  QMgrSettings settings_;
  // A store failure: logs it, and when SQLite gave the turn's transaction
  // up, loses the turn. Returns 2102.
  int32_t storeFailed(const std::string &what);
  // Rolls the turn's transaction back and takes back its journaled changes.
  void loseTurn();
  // Takes a queue out of the queue manager; its waiting gets fail.
  void dropQueue(const QueuePtr &q);

  bool txnOpen_ = false;
  bool turnLost_ = false;  // until endTurn: refuse more durable work
  bool fullReported_ = false;
  uint64_t turn_ = 1;
  uint32_t actor_ = 0;
  std::vector<std::function<void()>> undo_;
  std::set<uint32_t> held_;
  std::map<std::string, QueuePtr, std::less<>> queues_;
  std::map<uint32_t, std::unique_ptr<Session>> sessions_;
  std::set<std::pair<int64_t, uint32_t>> timedWaits_;  // blocked gets by deadline
  uint32_t nextSessionId_ = 1;
  uint64_t nextSeq_ = 1;
  uint64_t idCounter_ = 0;
  uint8_t idPrefix_[16] = {};
};

}  // namespace jxqm
