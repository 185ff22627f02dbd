#include "command_table.hpp"

#include <algorithm>

#include "qmgr_files.hpp"

namespace jxqm {

namespace {

constexpr auto I = ParmType::Integer;
constexpr auto S = ParmType::String;
constexpr auto L = ParmType::IntegerList;
constexpr auto M = Need::Mandatory;
constexpr auto O = Need::Optional;

constexpr ParmRule kQueueName{JXCA_Q_NAME, S, M, 1, 0, NameRule::Name};
constexpr ParmRule kGenericName{JXCA_Q_NAME, S, M, 1, 0, NameRule::Generic};
constexpr ParmRule kQueueType{JXIA_Q_TYPE, I, M, JXQT_LOCAL, JXQT_MODEL};
constexpr ParmRule kAnyQueueType{JXIA_Q_TYPE, I, O, JXQT_LOCAL, JXQT_MODEL};

constexpr ParmRule kInquireQMgr[] = {{JXSEL_QMGR_ATTRS, L, O, 1, 0, NameRule::None, ListOf::QMgr}};
constexpr ParmRule kDefineQueue[] = {kQueueName, kQueueType};
constexpr ParmRule kCreateQueue[] = {kQueueName, kQueueType, {JXSEL_REPLACE, I, O, 0, 1}};
constexpr ParmRule kNamedQueue[] = {kQueueName};
constexpr ParmRule kCopyQueue[] = {{JXSEL_FROM_QUEUE_NAME, S, M, 1, 0, NameRule::Name},
                                   {JXSEL_TO_QUEUE_NAME, S, M, 1, 0, NameRule::Name},
                                   kQueueType};
constexpr ParmRule kDeleteQueue[] = {kQueueName, {JXSEL_PURGE, I, O, 0, 1}};
constexpr ParmRule kInquireQueue[] = {
    kGenericName, kAnyQueueType, {JXSEL_QUEUE_ATTRS, L, O, 1, 0, NameRule::None, ListOf::Queue}};
constexpr ParmRule kGenericQueue[] = {kGenericName};
constexpr ParmRule kQueueNames[] = {kGenericName, kAnyQueueType};
constexpr ParmRule kQueueStatus[] = {
    {JXCA_Q_NAME, S, O, 1, 0, NameRule::Generic},
    {JXSEL_Q_STATUS_ATTRS, L, O, 1, 0, NameRule::None, ListOf::QueueStatus}};
constexpr ParmRule kStopConnection[] = {{JXCA_CONNECTION_ID, S, M}};

// The rows, by command code.
const CommandRow kCommands[] = {
    {JXCMD_CHANGE_QMGR,
     "CHANGE_QMGR",
     {},
     AttrSet::QMgrSettable,
     kAuthAdmin,
     handlers::changeQMgr,
     nullptr,
     nullptr,
     0,
     0},
    {JXCMD_INQUIRE_QMGR, "INQUIRE_QMGR", kInquireQMgr, AttrSet::None, kAuthConnect,
     handlers::inquireQMgr, nullptr, nullptr, 0, 0},
    {JXCMD_CHANGE_QUEUE, "CHANGE_QUEUE", kDefineQueue, AttrSet::QueueSettable, kAuthAdmin,
     handlers::changeQueue, nullptr, nullptr, JXRCEV_OBJECT_CHANGED, JXCA_Q_NAME},
    {JXCMD_CLEAR_QUEUE, "CLEAR_QUEUE", kNamedQueue, AttrSet::None, kAuthAdmin, handlers::clearQueue,
     nullptr, nullptr, JXRCEV_QUEUE_CLEARED, JXCA_Q_NAME},
    {JXCMD_COPY_QUEUE, "COPY_QUEUE", kCopyQueue, AttrSet::QueueDefinition, kAuthAdmin,
     handlers::copyQueue, nullptr, nullptr, JXRCEV_OBJECT_CREATED, JXSEL_TO_QUEUE_NAME},
    {JXCMD_CREATE_QUEUE, "CREATE_QUEUE", kCreateQueue, AttrSet::QueueDefinition, kAuthAdmin,
     handlers::createQueue, nullptr, nullptr, JXRCEV_OBJECT_CREATED, JXCA_Q_NAME},
    {JXCMD_DELETE_QUEUE, "DELETE_QUEUE", kDeleteQueue, AttrSet::None, kAuthAdmin,
     handlers::deleteQueue, nullptr, nullptr, JXRCEV_OBJECT_DELETED, JXCA_Q_NAME},
    {JXCMD_INQUIRE_QUEUE, "INQUIRE_QUEUE", kInquireQueue, AttrSet::None, kAuthConnect, nullptr,
     handlers::selectQueues, handlers::inquireQueue, 0, 0},
    {JXCMD_RESET_QUEUE_STATS, "RESET_QUEUE_STATS", kGenericQueue, AttrSet::None, kAuthAdmin,
     nullptr, handlers::selectQueues, handlers::resetQueueStats, 0, 0},
    {JXCMD_INQUIRE_QUEUE_NAMES, "INQUIRE_QUEUE_NAMES", kQueueNames, AttrSet::None, kAuthConnect,
     handlers::inquireQueueNames, nullptr, nullptr, 0, 0},
    {JXCMD_PING_QMGR,
     "PING_QMGR",
     {},
     AttrSet::None,
     kAuthConnect,
     handlers::ping,
     nullptr,
     nullptr,
     0,
     0},
    {JXCMD_INQUIRE_QUEUE_STATUS, "INQUIRE_QUEUE_STATUS", kQueueStatus, AttrSet::None, kAuthConnect,
     nullptr, handlers::selectLocalQueues, handlers::inquireQueueStatus, 0, 0},
    {JXCMD_INQUIRE_CONNECTIONS,
     "INQUIRE_CONNECTIONS",
     {},
     AttrSet::None,
     kAuthConnect,
     nullptr,
     handlers::selectConnections,
     handlers::inquireConnection,
     0,
     0},
    {JXCMD_STOP_CONNECTION, "STOP_CONNECTION", kStopConnection, AttrSet::None, kAuthAdmin,
     handlers::stopConnection, nullptr, nullptr, 0, 0},
};

// The status a queue-status inquiry answers with.
constexpr int32_t kQueueStatusSelectors[] = {
    JXCA_Q_NAME,           JXIA_CURRENT_Q_DEPTH, JXIA_OPEN_INPUT_COUNT, JXIA_OPEN_OUTPUT_COUNT,
    JXIA_UNCOMMITTED_MSGS, JXIA_OLDEST_MSG_AGE,  JXCA_LAST_PUT_DATE,    JXCA_LAST_PUT_TIME,
    JXCA_LAST_GET_DATE,    JXCA_LAST_GET_TIME};

AdminResult failed(int32_t reason, int32_t parameter) {
  return {JXCC_FAILED, reason, parameter};
}

// The object attribute a command's attribute set takes under a selector.
const Attribute *takenAttribute(AttrSet set, int32_t selector) {
  const Attribute *a = nullptr;
  switch (set) {
    case AttrSet::None:
      return nullptr;
    case AttrSet::QMgrSettable:
      a = findAttribute(Object::QMgr, selector);
      return a && a->access == Access::Settable ? a : nullptr;
    case AttrSet::QueueSettable:
    case AttrSet::QueueDefinition:
      a = findAttribute(Object::Queue, selector);
      if (!a || a->access == Access::Status) return nullptr;
      return a->access == Access::Settable || set == AttrSet::QueueDefinition ? a : nullptr;
  }
  return nullptr;
}

bool typeFits(ParmType type, const PcfParameter &p) {
  switch (type) {
    case ParmType::Integer:
      return p.integer && !p.list;
    case ParmType::String:
      return !p.integer && !p.list;
    case ParmType::IntegerList:
      return p.integer;
  }
  return false;
}

// Whether a given parameter's value passes its rule.
bool valueFits(const ParmRule &rule, const PcfParameter &p) {
  switch (rule.type) {
    case ParmType::Integer:
      return rule.min > rule.max || (p.numbers[0] >= rule.min && p.numbers[0] <= rule.max);
    case ParmType::IntegerList:
      return std::all_of(p.numbers.begin(), p.numbers.end(),
                         [&](int32_t s) { return listTakes(rule.listOf, s); });
    case ParmType::String:
      switch (rule.name) {
        case NameRule::None:
          return true;
        case NameRule::Name:
          return validQueueName(p.texts[0]);
        case NameRule::Generic:
          return validGenericName(p.texts[0]) && !p.texts[0].empty();
      }
  }
  return false;
}

}  // namespace

int32_t CommandInput::number(int32_t selector, int32_t fallback) const {
  auto it = parms.find(selector);
  return it == parms.end() || it->second.numbers.empty() ? fallback : it->second.numbers[0];
}

std::string CommandInput::text(int32_t selector, const std::string &fallback) const {
  auto it = parms.find(selector);
  return it == parms.end() || it->second.texts.empty() ? fallback : it->second.texts[0];
}

std::vector<int32_t> CommandInput::numbers(int32_t selector) const {
  auto it = parms.find(selector);
  return it == parms.end() ? std::vector<int32_t>{} : it->second.numbers;
}

void CommandContext::answer(const AdminResult &r, AttrList values) {
  CommandReply reply;
  reply.compCode = r.cc;
  reply.reason = r.rc;
  if (r.ok()) {
    reply.values = std::move(values);
  } else if (r.rc >= JXRCCF_PARM_MISSING && r.rc <= JXRCCF_PARM_REPEATED) {
    reply.values.push_back({JXSEL_PARAMETER_IN_ERROR, r.parameter, {}});
  }
  replies.push_back(std::move(reply));
}

const CommandRow *findCommand(int32_t code) {
  for (const CommandRow &row : kCommands)
    if (row.code == code) return &row;
  return nullptr;
}

bool listTakes(ListOf list, int32_t selector) {
  switch (list) {
    case ListOf::None:
      return false;
    case ListOf::Queue:
      return findAttribute(Object::Queue, selector) != nullptr;
    case ListOf::QMgr:
      return findAttribute(Object::QMgr, selector) != nullptr;
    case ListOf::QueueStatus:
      return std::find(std::begin(kQueueStatusSelectors), std::end(kQueueStatusSelectors),
                       selector) != std::end(kQueueStatusSelectors);
  }
  return false;
}

AdminResult checkParameters(const CommandRow &row, const std::vector<PcfParameter> &given,
                            CommandInput &out) {
  auto ruleOf = [&](int32_t selector) -> const ParmRule * {
    for (const ParmRule &r : row.parms)
      if (r.selector == selector) return &r;
    return nullptr;
  };
  for (const PcfParameter &p : given) {
    const ParmRule *rule = ruleOf(p.selector);
    const Attribute *attribute = rule ? nullptr : takenAttribute(row.attributes, p.selector);
    if (!rule && !attribute) return failed(JXRCCF_PARM_NOT_ALLOWED, p.selector);
    if (out.parms.count(p.selector)) return failed(JXRCCF_PARM_REPEATED, p.selector);
    const bool fits = rule ? typeFits(rule->type, p) : p.integer == attribute->integer() && !p.list;
    if (!fits) return failed(JXRCCF_PARM_TYPE, p.selector);
    out.parms.emplace(p.selector, p);
    if (attribute)
      out.attributes.push_back(
          {p.selector, p.integer ? p.numbers[0] : 0, p.integer ? std::string() : p.texts[0]});
  }
  for (const ParmRule &r : row.parms)
    if (r.need == Need::Mandatory && !out.has(r.selector))
      return failed(JXRCCF_PARM_MISSING, r.selector);
  for (const ParmRule &r : row.parms) {
    auto it = out.parms.find(r.selector);
    if (it != out.parms.end() && !valueFits(r, it->second))
      return failed(JXRCCF_PARM_VALUE, r.selector);
  }
  return {};
}

}  // namespace jxqm
