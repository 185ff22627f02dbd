// The commands the command server serves: one row each, with the
// parameters it takes and how they are checked, the authority it needs,
// its handler and the configuration event it causes. Adding a command is
// adding a row and a handler (command_handlers.cpp).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "administration.hpp"
#include "pcf_codec.hpp"

namespace jxqm {

enum class ParmType : uint8_t { Integer, String, IntegerList };
enum class Need : uint8_t { Mandatory, Optional };
// Names are checked as queue names; Generic also allows "ABC*" and "*".
enum class NameRule : uint8_t { None, Name, Generic };

// The attributes an attribute list may name.
enum class ListOf : uint8_t { None, Queue, QueueStatus, QMgr };

struct ParmRule {
  int32_t selector;
  ParmType type;
  Need need;
  int32_t min = 1, max = 0;  // an integer's range; min > max: any value
  NameRule name = NameRule::None;
  ListOf listOf = ListOf::None;
};

// The object attributes a command takes besides its own parameters.
enum class AttrSet : uint8_t {
  None,
  QueueSettable,    // what a change may give
  QueueDefinition,  // also what is fixed when a queue is made
  QMgrSettable,
};

// A command's parameters as checked: each selector once.
struct CommandInput {
  std::map<int32_t, PcfParameter> parms;
  AttrList attributes;  // the object attributes given, in order

  bool has(int32_t selector) const { return parms.count(selector) != 0; }
  int32_t number(int32_t selector, int32_t fallback = 0) const;
  std::string text(int32_t selector, const std::string &fallback = {}) const;
  std::vector<int32_t> numbers(int32_t selector) const;
};

// One reply: its completion code, reason and parameters.
struct CommandReply {
  int32_t compCode = JXCC_OK, reason = JXRC_NONE;
  AttrList values;
};

// What a handler works with: the queue manager, who sent the command and
// what it asked, and the replies it adds.
struct CommandContext {
  QueueManager &qm;
  Administration admin;
  const Identity &who;
  const CommandInput &input;
  std::vector<CommandReply> replies;

  CommandContext(QueueManager &q, const Identity &w, const CommandInput &i)
      : qm(q), admin(q), who(w), input(i) {}
  // A reply for a result: its values when it succeeded, else the failure
  // (with the parameter in error for 4002-4006).
  void answer(const AdminResult &r, AttrList values = {});
};

// A command that answers once runs `run`. A command that answers per
// object lists its objects with `select` (when it starts) and answers for
// each with `each`, a bounded number of objects a loop turn; `each` returns
// false for an object that went meanwhile, which then has no reply.
using RunHandler = void (*)(CommandContext &);
using SelectHandler = AdminResult (*)(CommandContext &, std::vector<std::string> &);
using EachHandler = bool (*)(CommandContext &, const std::string &);

struct CommandRow {
  int32_t code;
  const char *name;  // as in JXCMD_*, for logs and events
  std::span<const ParmRule> parms;
  AttrSet attributes;
  int32_t authority;  // kAuthConnect or kAuthAdmin
  RunHandler run;
  SelectHandler select;
  EachHandler each;
  int32_t configEvent;  // JXRCEV_* when it succeeds and the switch is on; 0: none
  int32_t eventName;    // the parameter naming the object of that event
};

const CommandRow *findCommand(int32_t code);

// Whether an attribute list may name the selector.
bool listTakes(ListOf list, int32_t selector);

// Checks a request's parameters against its row; the first failure wins:
// parameters in their order (not taken 4003, given twice 4006, of the
// wrong type or a list for a single value 4005), then the mandatory ones
// (4002), then values (4004).
AdminResult checkParameters(const CommandRow &row, const std::vector<PcfParameter> &given,
                            CommandInput &out);

namespace handlers {
void changeQMgr(CommandContext &);
void inquireQMgr(CommandContext &);
void changeQueue(CommandContext &);
void clearQueue(CommandContext &);
void copyQueue(CommandContext &);
void createQueue(CommandContext &);
void deleteQueue(CommandContext &);
AdminResult selectQueues(CommandContext &, std::vector<std::string> &);
AdminResult selectLocalQueues(CommandContext &, std::vector<std::string> &);
bool inquireQueue(CommandContext &, const std::string &);
bool resetQueueStats(CommandContext &, const std::string &);
void inquireQueueNames(CommandContext &);
void ping(CommandContext &);
bool inquireQueueStatus(CommandContext &, const std::string &);
AdminResult selectConnections(CommandContext &, std::vector<std::string> &);
bool inquireConnection(CommandContext &, const std::string &);
void stopConnection(CommandContext &);
}  // namespace handlers

}  // namespace jxqm
