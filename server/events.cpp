#include "events.hpp"

#include <jx/jxai.h>

#include <cstring>

#include "queue_manager.hpp"

namespace jxqm {

namespace {

// A string parameter blank-padded to its attribute's length.
AttrValue text(Object object, int32_t selector, std::string_view value) {
  const Attribute *a = findAttribute(object, selector);
  std::string padded(value.substr(0, static_cast<size_t>(a->length)));
  padded.resize(static_cast<size_t>(a->length), ' ');
  return {selector, 0, std::move(padded)};
}

AttrValue number(int32_t selector, int32_t value) {
  return {selector, value, {}};
}

}  // namespace

bool Events::switchedOn(int32_t selector) const {
  return qm_.value(*findAttribute(Object::QMgr, selector)).number == 1;
}

void Events::afterPut(Queue &q) {
  if (!q.get<JXIA_Q_DEPTH_HIGH_EVENT>()) return;
  if (int64_t{q.depth()} * 100 <
      int64_t{q.get<JXIA_Q_DEPTH_HIGH_LIMIT>()} * q.get<JXIA_MAX_Q_DEPTH>())
    return;
  depthEvent(q, JXRCEV_Q_DEPTH_HIGH);
}

void Events::afterGet(Queue &q) {
  if (!q.get<JXIA_Q_DEPTH_LOW_EVENT>()) return;
  if (int64_t{q.depth()} * 100 >
      int64_t{q.get<JXIA_Q_DEPTH_LOW_LIMIT>()} * q.get<JXIA_MAX_Q_DEPTH>())
    return;
  depthEvent(q, JXRCEV_Q_DEPTH_LOW);
}

// The event that fired is disarmed and its opposite armed, so that a depth
// hovering about a limit reports once until it has crossed the other.
void Events::depthEvent(Queue &q, int32_t reason) {
  if (emitting_ || !switchedOn(JXIA_PERFORMANCE_EVENT)) return;
  QueueDef def = q.def;
  const bool high = reason == JXRCEV_Q_DEPTH_HIGH;
  def.settings.set<JXIA_Q_DEPTH_HIGH_EVENT>(high ? 0 : 1);
  def.settings.set<JXIA_Q_DEPTH_LOW_EVENT>(high ? 1 : 0);
  if (int32_t rc = qm_.redefineQueue(q, def))
    qm_.log("cannot switch the depth events of " + q.def.name + ": reason " + std::to_string(rc));
  performance(q, reason);
}

void Events::queueFull(Queue &q) {
  if (q.get<JXIA_Q_FULL_EVENT>()) performance(q, JXRCEV_Q_FULL);
}

void Events::performance(Queue &q, int32_t reason) {
  if (emitting_ || !switchedOn(JXIA_PERFORMANCE_EVENT)) return;
  emit(JXQ_PERFM_EVENT, JXCMD_PERFM_EVENT, reason,
       {text(Object::Queue, JXCA_Q_NAME, q.def.name), number(JXIA_CURRENT_Q_DEPTH, q.depth()),
        number(JXIA_MAX_Q_DEPTH, q.get<JXIA_MAX_Q_DEPTH>())});
}

void Events::notAuthorised(const Identity &who, std::string_view object,
                           std::string_view operation) {
  if (emitting_ || !switchedOn(JXIA_AUTHORITY_EVENT)) return;
  AttrList values = {text(Object::Connection, JXCA_USER_ID, who.user)};
  if (!object.empty()) values.push_back(text(Object::Queue, JXCA_Q_NAME, object));
  values.push_back(text(Object::Event, JXCA_EVENT_OPERATION, operation));
  emit(JXQ_QMGR_EVENT, JXCMD_Q_MGR_EVENT, JXRCEV_NOT_AUTHORIZED, std::move(values));
}

void Events::configuration(int32_t reason, std::string_view queue, const Identity &who) {
  if (emitting_ || !switchedOn(JXIA_CONFIGURATION_EVENT)) return;
  emit(JXQ_CONFIG_EVENT, JXCMD_CONFIG_EVENT, reason,
       {text(Object::Queue, JXCA_Q_NAME, queue), text(Object::Connection, JXCA_USER_ID, who.user)});
}

void Events::emit(const char *queue, int32_t category, int32_t reason, AttrList values) {
  const int64_t now = QueueManager::nowMs();
  values.insert(values.begin(), text(Object::QMgr, JXCA_Q_MGR_NAME, qm_.name()));
  values.push_back(text(Object::Event, JXCA_EVENT_DATE, dateText(now)));
  values.push_back(text(Object::Event, JXCA_EVENT_TIME, timeText(now)));
  PcfHeader header;
  header.type = JXPCF_TYPE_EVENT;
  header.command = category;
  header.compCode = JXCC_WARNING;
  header.reason = reason;
  std::string bytes;
  int32_t rc = codec_.encode(header, values, bytes);
  QueuePtr q = qm_.findQueue(queue);
  if (!rc && !q) rc = JXRC_UNKNOWN_OBJECT_NAME;
  if (!rc) {
    JXMD md = JXMD_DEFAULT;
    md.MsgType = JXMT_DATAGRAM;
    md.Persistence = JXPER_NOT_PERSISTENT;
    std::memcpy(md.Format, JXFMT_EVENT, JX_FORMAT_LENGTH);
    emitting_ = true;
    rc = qm_.putMessage(nullptr, q, JXPMO_NO_SYNCPOINT, md, bytes);
    emitting_ = false;
  }
  if (rc)
    qm_.log("event " + std::to_string(reason) + " not put on " + queue + ": reason " +
            std::to_string(rc));
}

}  // namespace jxqm
