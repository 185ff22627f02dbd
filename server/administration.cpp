#include "administration.hpp"

#include <jx/jxai.h>

#include "qmgr_files.hpp"
#include "session.hpp"

namespace jxqm {

namespace {

constexpr std::string_view kSystemPrefix = "SYSTEM.";

AdminResult failed(int32_t reason, int32_t parameter = 0) {
  return {JXCC_FAILED, reason, parameter};
}

AdminResult reason(int32_t rc) {
  return rc ? failed(rc) : AdminResult{};
}

AdminResult refused(Refusal r, int32_t selector) {
  switch (r) {
    case Refusal::None:
      break;
    case Refusal::Unknown:
    case Refusal::NotSettable:
      return failed(JXRCCF_PARM_NOT_ALLOWED, selector);
    case Refusal::OutOfRange:
      return failed(JXRCCF_PARM_VALUE, selector);
  }
  return {};
}

bool validType(int32_t type) {
  return type == JXQT_LOCAL || type == JXQT_MODEL;
}

// The values of `selectors` (every attribute of the object when empty).
template <class ValueOf>
AdminResult values(Object object, const std::vector<int32_t> &selectors, AttrList &out,
                   ValueOf valueOf) {
  out.clear();
  if (selectors.empty()) {
    for (const Attribute *a : attributesOf(object)) out.push_back(valueOf(*a));
    return {};
  }
  for (int32_t s : selectors) {
    const Attribute *a = findAttribute(object, s);
    if (!a) return failed(JXRCCF_PARM_VALUE, s);
    out.push_back(valueOf(*a));
  }
  return {};
}

}  // namespace

bool validGenericName(std::string_view generic) {
  if (!generic.empty() && generic.back() == '*') generic.remove_suffix(1);
  return generic.empty() || validQueueName(std::string(generic));
}

bool matchesGeneric(std::string_view name, std::string_view generic) {
  if (!generic.empty() && generic.back() == '*')
    return name.substr(0, generic.size() - 1) == generic.substr(0, generic.size() - 1);
  return name == generic;
}

template <Object O>
AdminResult Administration::apply(Settings<O> &settings, const AttrList &attributes,
                                  bool creating) {
  int32_t selector = 0;
  Refusal r = applyValues(settings, attributes, creating, selector);
  return refused(r, selector);
}

AdminResult Administration::checkDefinition(const QueueDef &def, int32_t type) {
  // The type is a parameter of its own; an attribute may not say otherwise.
  if (def.settings.get<JXIA_Q_TYPE>() != type) return failed(JXRCCF_PARM_VALUE, JXIA_Q_TYPE);
  const int32_t defType = def.settings.get<JXIA_DEFINITION_TYPE>();
  const bool fits = type == JXQT_MODEL ? defType != JXQDT_PREDEFINED : defType == JXQDT_PREDEFINED;
  return fits ? AdminResult{} : failed(JXRCCF_PARM_VALUE, JXIA_DEFINITION_TYPE);
}

// ---- queues ----

AdminResult Administration::createQueue(std::string_view name, int32_t type,
                                        const AttrList &attributes, bool replace) {
  if (!validQueueName(std::string(name))) return failed(JXRCCF_PARM_VALUE, JXCA_Q_NAME);
  if (!validType(type)) return failed(JXRCCF_PARM_VALUE, JXIA_Q_TYPE);
  QueuePtr existing = qm_.findQueue(name);
  if (existing && !replace) return failed(JXRC_OBJECT_ALREADY_EXISTS);
  if (existing && existing->get<JXIA_Q_TYPE>() != type)
    return failed(JXRCCF_PARM_VALUE, JXIA_Q_TYPE);
  QueueDef def;
  def.name = name;
  def.settings.set<JXIA_Q_TYPE>(type);
  if (type == JXQT_MODEL) def.settings.set<JXIA_DEFINITION_TYPE>(JXQDT_TEMPORARY_DYNAMIC);
  if (existing) def.settings.set<JXIA_DEFINITION_TYPE>(existing->get<JXIA_DEFINITION_TYPE>());
  if (AdminResult r = apply(def.settings, attributes, !existing); !r.ok()) return r;
  if (AdminResult r = checkDefinition(def, type); !r.ok()) return r;
  if (existing) return reason(qm_.redefineQueue(*existing, def));
  QueuePtr made;
  return reason(qm_.addQueue(std::move(def), false, 0, made));
}

AdminResult Administration::changeQueue(std::string_view name, int32_t type,
                                        const AttrList &attributes) {
  QueuePtr q = qm_.findQueue(name);
  if (!q) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  if (type != 0 && type != q->get<JXIA_Q_TYPE>()) return failed(JXRCCF_PARM_VALUE, JXIA_Q_TYPE);
  QueueDef def = q->def;
  if (AdminResult r = apply(def.settings, attributes, false); !r.ok()) return r;
  return reason(qm_.redefineQueue(*q, def));
}

AdminResult Administration::copyQueue(std::string_view from, std::string_view to, int32_t type,
                                      const AttrList &attributes) {
  QueuePtr source = qm_.findQueue(from);
  if (!source) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  if (type != source->get<JXIA_Q_TYPE>()) return failed(JXRCCF_PARM_VALUE, JXIA_Q_TYPE);
  if (!validQueueName(std::string(to))) return failed(JXRCCF_PARM_VALUE, JXSEL_TO_QUEUE_NAME);
  if (qm_.findQueue(to)) return failed(JXRC_OBJECT_ALREADY_EXISTS);
  QueueDef def = source->def;
  def.name = to;
  if (AdminResult r = apply(def.settings, attributes, true); !r.ok()) return r;
  if (AdminResult r = checkDefinition(def, type); !r.ok()) return r;
  QueuePtr made;
  return reason(qm_.addQueue(std::move(def), false, 0, made));
}

AdminResult Administration::deleteQueue(std::string_view name, bool purge) {
  QueuePtr q = qm_.findQueue(name);
  if (!q) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  if (name.starts_with(kSystemPrefix)) return failed(JXRCCF_PARM_VALUE, JXCA_Q_NAME);
  if (q->handles > 0) return failed(JXRC_OBJECT_IN_USE);
  if (!q->msgs.empty() && !purge) return failed(JXRC_Q_NOT_EMPTY);
  return reason(qm_.deleteQueue(q));
}

AdminResult Administration::clearQueue(std::string_view name) {
  QueuePtr q = qm_.findQueue(name);
  if (!q) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  if (q->handles > 0) return failed(JXRC_OBJECT_IN_USE);
  return reason(qm_.clearQueue(*q));
}

AdminResult Administration::queueNames(std::string_view generic, int32_t type,
                                       std::vector<std::string> &out) {
  out.clear();
  if (!validGenericName(generic)) return failed(JXRCCF_PARM_VALUE, JXCA_Q_NAME);
  if (type != 0 && !validType(type)) return failed(JXRCCF_PARM_VALUE, JXIA_Q_TYPE);
  const bool prefix = !generic.empty() && generic.back() == '*';
  std::string_view stem = prefix ? generic.substr(0, generic.size() - 1) : generic;
  // Names are kept in order: the matches of a prefix are one run.
  for (auto it = qm_.queues().lower_bound(stem); it != qm_.queues().end(); ++it) {
    if (!matchesGeneric(it->first, generic)) break;
    if (type == 0 || it->second->get<JXIA_Q_TYPE>() == type) out.push_back(it->first);
  }
  return {};
}

AdminResult Administration::inquireQueue(std::string_view name,
                                         const std::vector<int32_t> &selectors, AttrList &out) {
  QueuePtr q = qm_.findQueue(name);
  if (!q) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  return values(Object::Queue, selectors, out,
                [&](const Attribute &a) { return qm_.value(a, *q); });
}

AdminResult Administration::resetQueueStatistics(std::string_view name, AttrList &before) {
  static const std::vector<int32_t> kStatistics = {JXIA_MSG_ENQ_COUNT, JXIA_MSG_DEQ_COUNT,
                                                   JXIA_HIGH_Q_DEPTH, JXIA_TIME_SINCE_RESET};
  QueuePtr q = qm_.findQueue(name);
  if (!q) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  AdminResult r = inquireQueue(name, kStatistics, before);
  q->stats.puts = q->stats.gets = 0;
  q->stats.highDepth = q->depth();
  q->stats.resetMs = QueueManager::nowMs();
  return r;
}

// ---- messages ----

AdminResult Administration::putMessage(std::string_view queue, JXMD &md, std::string_view data) {
  QueuePtr q = qm_.findQueue(queue);
  if (!q) return failed(JXRC_UNKNOWN_OBJECT_NAME);
  if (q->get<JXIA_Q_TYPE>() == JXQT_MODEL) return failed(JXRC_OPTION_NOT_VALID_FOR_TYPE);
  return reason(qm_.putMessage(nullptr, q, JXPMO_NO_SYNCPOINT, md, data));
}

// ---- the queue manager ----

AdminResult Administration::inquireQueueManager(const std::vector<int32_t> &selectors,
                                                AttrList &out) {
  return values(Object::QMgr, selectors, out, [&](const Attribute &a) { return qm_.value(a); });
}

AdminResult Administration::changeQueueManager(const AttrList &attributes) {
  QMgrSettings settings = qm_.settings();
  if (AdminResult r = apply(settings, attributes, false); !r.ok()) return r;
  return reason(qm_.changeSettings(settings));
}

// ---- connections ----

std::vector<AttrList> Administration::connections() const {
  std::vector<AttrList> out;
  const std::vector<const Attribute *> rows = attributesOf(Object::Connection);
  for (const auto &[id, s] : qm_.sessions()) {
    AttrList values;
    for (const Attribute *a : rows) values.push_back(qm_.value(*a, *s));
    out.push_back(std::move(values));
  }
  return out;
}

AdminResult Administration::stopConnection(std::string_view connectionId) {
  for (const auto &[id, s] : qm_.sessions()) {
    if (s->connectionId() != connectionId) continue;
    const uint32_t which = id;  // the entry goes with the session
    qm_.stopSession(which);
    return {};
  }
  return failed(JXRC_UNKNOWN_OBJECT_NAME);
}

}  // namespace jxqm
