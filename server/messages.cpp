// Messages on queues: puts, removal, the gets that wait for them, and the
// units of work that hold them.
#include <algorithm>
#include <cstring>
#include <ctime>

#include "events.hpp"
#include "qm_paths.hpp"
#include "queue_manager.hpp"
#include "session.hpp"

namespace jxqm {

namespace {

constexpr int32_t kPutKnownBits = JXPMO_SYNCPOINT | JXPMO_NO_SYNCPOINT | JXPMO_NEW_MSG_ID |
                                  JXPMO_NEW_CORREL_ID | JXPMO_FAIL_IF_QUIESCING;

bool allZero(const void *p, size_t n) {
  auto b = static_cast<const uint8_t *>(p);
  return std::all_of(b, b + n, [](uint8_t x) { return x == 0; });
}

void stampPutTime(JXMD &md, int64_t nowMs) {
  time_t t = static_cast<time_t>(nowMs / 1000);
  struct tm tmv;
  gmtime_r(&t, &tmv);
  char stamp[20];
  strftime(stamp, sizeof stamp, "%Y%m%d%H%M%S", &tmv);
  std::memcpy(md.PutDate, stamp, JX_PUT_DATE_LENGTH);
  std::memcpy(md.PutTime, stamp + JX_PUT_DATE_LENGTH, 6);
  std::memcpy(md.PutTime + 6, "00", 2);
}

void notePut(Queue &q, int64_t nowMs) {
  ++q.stats.puts;
  q.stats.lastPutMs = nowMs;
}

}  // namespace

int32_t QueueManager::putMessage(Session *s, const QueuePtr &q, int32_t options, JXMD &md,
                                 std::string_view data) {
  if (options & ~kPutKnownBits) return JXRC_OPTIONS_ERROR;
  if ((options & JXPMO_SYNCPOINT) && (options & JXPMO_NO_SYNCPOINT)) return JXRC_OPTIONS_ERROR;
  if (std::memcmp(md.StrucId, "MD  ", JX_STRUC_ID_LENGTH) != 0 || md.Version < JXMD_VERSION_1 ||
      md.Version > JXMD_VERSION_2)
    return JXRC_MD_ERROR;
  if (md.MsgType != JXMT_REQUEST && md.MsgType != JXMT_REPLY && md.MsgType != JXMT_REPORT &&
      md.MsgType != JXMT_DATAGRAM)
    return JXRC_MSG_TYPE_ERROR;
  if (md.Expiry <= 0 && md.Expiry != JXEI_UNLIMITED) return JXRC_EXPIRY_ERROR;
  if (md.Priority < -1 || md.Priority > 9) return JXRC_PRIORITY_ERROR;
  if (md.Persistence < 0 || md.Persistence > 2) return JXRC_PERSISTENCE_ERROR;
  if (q->deleted) return JXRC_Q_DELETED;
  if (q->get<JXIA_INHIBIT_PUT>()) return JXRC_PUT_INHIBITED;
  if (data.size() > static_cast<size_t>(q->get<JXIA_MAX_MSG_LENGTH>()))
    return JXRC_MSG_TOO_BIG_FOR_Q;
  if (q->depth() >= q->get<JXIA_MAX_Q_DEPTH>()) {
    events_->queueFull(*q);
    return JXRC_Q_FULL;
  }
  // The queue manager's own puts are never part of a unit of work.
  const bool sync = s && (options & JXPMO_SYNCPOINT);
  if (sync && s->unitOfWorkFull()) return JXRC_SYNCPOINT_LIMIT_REACHED;
  const Identity &who = s ? s->who() : self_;

  if (allZero(md.MsgId, JX_MSG_ID_LENGTH) || (options & JXPMO_NEW_MSG_ID)) genId(md.MsgId);
  if (options & JXPMO_NEW_CORREL_ID) genId(md.CorrelId);
  if (md.Persistence == JXPER_AS_Q_DEF) md.Persistence = q->get<JXIA_DEF_PERSISTENCE>();
  if (md.Priority == JXPRI_AS_Q_DEF) md.Priority = q->get<JXIA_DEF_PRIORITY>();
  md.BackoutCount = 0;
  // The identity is the queue manager's to give, whatever the put said.
  jxqp::setField(md.UserIdentifier, JX_USER_IDENTIFIER_LENGTH, who.user);
  const int64_t now = nowMs();
  stampPutTime(md, now);
  if (!allZero(md.ReplyToQ, JX_Q_NAME_LENGTH) &&
      jxqp::fieldString(md.ReplyToQMgr, JX_Q_MGR_NAME_LENGTH).empty())
    std::memcpy(md.ReplyToQMgr, name48_, JX_Q_MGR_NAME_LENGTH);

  Message m;
  m.md = md;
  m.data.assign(data);
  m.expiresMs = md.Expiry > 0 ? now + static_cast<int64_t>(md.Expiry) * 100 : 0;
  m.putMs = now;
  m.putter = who.user;
  m.authority = who.authority;
  // Temporary dynamic queues end with the queue manager, so their messages are never stored.
  m.persistent = md.Persistence == JXPER_PERSISTENT && !q->temporary;
  uint64_t seq = nextSeq_++;
  if (sync) {
    m.lockedBy = s->id();
    ++q->uncommitted;
    s->holdPut(q, seq);
  } else if (m.persistent) {
    jxqp::Writer enc;
    enc.md(m.md);
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    m.dbId = store_.insertMessage(q->def.name, seq, enc.bytes(), m.data, m.expiresMs, m.putter,
                                  m.authority);
    if (!m.dbId) return JXRC_RESOURCE_PROBLEM;
  }
  q->msgs.emplace(seq, std::move(m));
  q->stats.highDepth = std::max(q->stats.highDepth, q->depth());
  events_->afterPut(*q);
  if (!sync) {
    notePut(*q, now);
    serveWaiters(q);
  }
  return JXRC_NONE;
}

void QueueManager::removeMessage(Queue &q, std::map<uint64_t, Message>::iterator it, bool got) {
  if (it->second.dbId && dbWork()) store_.deleteMessage(it->second.dbId);
  if (it->second.lockedBy) --q.uncommitted;
  q.msgs.erase(it);
  if (got) {
    ++q.stats.gets;
    q.stats.lastGetMs = nowMs();
    events_->afterGet(q);
  }
}

void QueueManager::serveWaiters(const QueuePtr &q) {
  auto it = q->waiters.begin();
  while (it != q->waiters.end()) {
    Session *w = session(*it);
    if (!w || !w->waiting()) {
      it = q->waiters.erase(it);
      continue;
    }
    // The waiter leaves the list itself when answered; later waiters may
    // match other messages.
    auto next = std::next(it);
    w->retryPendingGet();
    it = next;
  }
}

void QueueManager::commitUnitOfWork(Session &s) {
  std::vector<QueuePtr> wake;
  const int64_t now = nowMs();
  for (auto &[q, seq] : s.uowPuts()) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    Message &m = it->second;
    if (m.persistent) {
      jxqp::Writer enc;
      enc.md(m.md);
      if (dbWork())
        m.dbId = store_.insertMessage(q->def.name, seq, enc.bytes(), m.data, m.expiresMs, m.putter,
                                      m.authority);
    }
    m.lockedBy = 0;
    --q->uncommitted;
    notePut(*q, now);
    if (std::find(wake.begin(), wake.end(), q) == wake.end()) wake.push_back(q);
  }
  for (auto &[q, seq] : s.uowGets()) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    removeMessage(*q, it, true);
  }
  s.forgetUnitOfWork();
  for (auto &q : wake) serveWaiters(q);
}

void QueueManager::backoutUnitOfWork(Session &s) {
  std::vector<QueuePtr> wake;
  for (auto &[q, seq] : s.uowPuts()) {
    auto it = q->msgs.find(seq);
    if (it == q->msgs.end()) continue;
    q->msgs.erase(it);
    --q->uncommitted;
  }
  for (auto &[q, seq] : s.uowGets()) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    it->second.lockedBy = 0;
    --q->uncommitted;
    ++it->second.md.BackoutCount;
    if (std::find(wake.begin(), wake.end(), q) == wake.end()) wake.push_back(q);
  }
  s.forgetUnitOfWork();
  for (auto &q : wake) serveWaiters(q);
}

}  // namespace jxqm
