// The handlers of the command table's rows: each turns a checked request
// into administration calls and replies.
#include <algorithm>
#include <cctype>

#include "command_table.hpp"
#include "session.hpp"

namespace jxqm {

namespace handlers {

namespace {

// The status a queue-status inquiry answers with when no list is given.
const std::vector<int32_t> kQueueStatus = {
    JXCA_Q_NAME,           JXIA_CURRENT_Q_DEPTH, JXIA_OPEN_INPUT_COUNT, JXIA_OPEN_OUTPUT_COUNT,
    JXIA_UNCOMMITTED_MSGS, JXIA_OLDEST_MSG_AGE,  JXCA_LAST_PUT_DATE,    JXCA_LAST_PUT_TIME,
    JXCA_LAST_GET_DATE,    JXCA_LAST_GET_TIME};

// Replies about a queue start with its name, asked for or not.
std::vector<int32_t> withName(std::vector<int32_t> selectors) {
  if (!selectors.empty() &&
      std::find(selectors.begin(), selectors.end(), JXCA_Q_NAME) == selectors.end())
    selectors.insert(selectors.begin(), JXCA_Q_NAME);
  return selectors;
}

// One reply per queue; false when the queue went since the command began.
bool queueReply(CommandContext &c, const std::string &name, const std::vector<int32_t> &selectors) {
  AttrList values;
  AdminResult r = c.admin.inquireQueue(name, withName(selectors), values);
  if (r.rc == JXRC_UNKNOWN_OBJECT_NAME) return false;
  c.answer(r, std::move(values));
  return true;
}

}  // namespace

void changeQMgr(CommandContext &c) {
  c.answer(c.admin.changeQueueManager(c.input.attributes));
}

void inquireQMgr(CommandContext &c) {
  AttrList values;
  AdminResult r = c.admin.inquireQueueManager(c.input.numbers(JXSEL_QMGR_ATTRS), values);
  c.answer(r, std::move(values));
}

void changeQueue(CommandContext &c) {
  c.answer(c.admin.changeQueue(c.input.text(JXCA_Q_NAME), c.input.number(JXIA_Q_TYPE),
                               c.input.attributes));
}

void clearQueue(CommandContext &c) {
  c.answer(c.admin.clearQueue(c.input.text(JXCA_Q_NAME)));
}

void copyQueue(CommandContext &c) {
  c.answer(c.admin.copyQueue(c.input.text(JXSEL_FROM_QUEUE_NAME), c.input.text(JXSEL_TO_QUEUE_NAME),
                             c.input.number(JXIA_Q_TYPE), c.input.attributes));
}

void createQueue(CommandContext &c) {
  c.answer(c.admin.createQueue(c.input.text(JXCA_Q_NAME), c.input.number(JXIA_Q_TYPE),
                               c.input.attributes, c.input.number(JXSEL_REPLACE) == 1));
}

void deleteQueue(CommandContext &c) {
  c.answer(c.admin.deleteQueue(c.input.text(JXCA_Q_NAME), c.input.number(JXSEL_PURGE) == 1));
}

AdminResult selectQueues(CommandContext &c, std::vector<std::string> &names) {
  return c.admin.queueNames(c.input.text(JXCA_Q_NAME, "*"), c.input.number(JXIA_Q_TYPE), names);
}

// Only local queues hold messages and have a status.
AdminResult selectLocalQueues(CommandContext &c, std::vector<std::string> &names) {
  return c.admin.queueNames(c.input.text(JXCA_Q_NAME, "*"), JXQT_LOCAL, names);
}

bool inquireQueue(CommandContext &c, const std::string &name) {
  return queueReply(c, name, c.input.numbers(JXSEL_QUEUE_ATTRS));
}

bool resetQueueStats(CommandContext &c, const std::string &name) {
  AttrList before;
  AdminResult r = c.admin.resetQueueStatistics(name, before);
  if (r.rc == JXRC_UNKNOWN_OBJECT_NAME) return false;
  if (r.ok())
    before.insert(before.begin(),
                  c.qm.value(*findAttribute(Object::Queue, JXCA_Q_NAME), *c.qm.findQueue(name)));
  c.answer(r, std::move(before));
  return true;
}

void inquireQueueNames(CommandContext &c) {
  std::vector<std::string> names;
  AdminResult r = c.admin.queueNames(c.input.text(JXCA_Q_NAME), c.input.number(JXIA_Q_TYPE), names);
  AttrList values;
  for (std::string &n : names) values.push_back({JXSEL_QUEUE_NAMES, 0, std::move(n)});
  c.answer(r, std::move(values));
}

void ping(CommandContext &c) {
  c.answer({});
}

bool inquireQueueStatus(CommandContext &c, const std::string &name) {
  std::vector<int32_t> selectors = c.input.numbers(JXSEL_Q_STATUS_ATTRS);
  return queueReply(c, name, selectors.empty() ? kQueueStatus : selectors);
}

// Connections go by their session numbers, which are never reused while
// the queue manager runs.
AdminResult selectConnections(CommandContext &c, std::vector<std::string> &ids) {
  for (const auto &[id, s] : c.qm.sessions()) ids.push_back(std::to_string(id));
  return {};
}

bool inquireConnection(CommandContext &c, const std::string &id) {
  const Session *s = c.qm.session(static_cast<uint32_t>(std::stoul(id)));
  if (!s) return false;
  AttrList values;
  for (const Attribute *a : attributesOf(Object::Connection)) values.push_back(c.qm.value(*a, *s));
  c.answer({}, std::move(values));
  return true;
}

void stopConnection(CommandContext &c) {
  const std::string id = c.input.text(JXCA_CONNECTION_ID);
  const bool hex = id.size() == JX_CONNECTION_ID_LENGTH &&
                   std::all_of(id.begin(), id.end(), [](char ch) { return std::isxdigit(ch); });
  if (!hex) return c.answer({JXCC_FAILED, JXRCCF_PARM_VALUE, JXCA_CONNECTION_ID});
  c.answer(c.admin.stopConnection(id));
}

}  // namespace handlers

}  // namespace jxqm
