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

// Takes back a put whose commit failed.
void takeBack(Queue &q, uint64_t seq) {
  auto it = q.msgs.find(seq);
  if (it == q.msgs.end()) return;
  if (it->second.lockedBy) --q.uncommitted;
  q.msgs.erase(it);
}

// Puts back a message whose removal's commit failed.
void putBack(Queue &q, uint64_t seq, Message &m) {
  if (m.lockedBy) ++q.uncommitted;
  q.msgs.emplace(seq, std::move(m));
}

int64_t storeMessage(Store &store, const Queue &q, uint64_t seq, const Message &m) {
  jxqp::Writer enc;
  enc.md(m.md);
  return store.insertMessage(q.def.name, seq, enc.bytes(), m.data, m.expiresMs, m.putter,
                             m.authority);
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
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    m.dbId = storeMessage(store_, *q, seq, m);
    if (!m.dbId) return storeFailed("storing a message on " + q->def.name);
    m.turn = turn_;
    journal([q = q, seq = seq] { takeBack(*q, seq); });
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

int32_t QueueManager::removeMessage(const QueuePtr &q, std::map<uint64_t, Message>::iterator it,
                                    bool got) {
  const bool journaled = removalJournaled(it->second);
  if (it->second.dbId) {
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    // A lost turn may have taken `it` back: it is not touched after a failure.
    if (!store_.deleteMessage(it->second.dbId))
      return storeFailed("removing a message from " + q->def.name);
  }
  const uint64_t seq = it->first;
  Message m = std::move(it->second);
  if (m.lockedBy) --q->uncommitted;
  q->msgs.erase(it);
  if (got) {
    ++q->stats.gets;
    q->stats.lastGetMs = nowMs();
    events_->afterGet(*q);
  }
  if (journaled) journal([q = q, seq = seq, m = std::move(m)]() mutable { putBack(*q, seq, m); });
  return JXRC_NONE;
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

namespace {

// A message a unit of work holds, while it is still there.
Message *held(const QueuePtr &q, uint64_t seq) {
  auto it = q->msgs.find(seq);
  return q->deleted || it == q->msgs.end() ? nullptr : &it->second;
}

}  // namespace

// The store's part comes first and as a whole (a savepoint), so that a
// failure leaves the unit of work to be backed out; the in-memory part then
// cannot fail.
int32_t QueueManager::commitUnitOfWork(Session &s) {
  std::vector<int64_t> ids(s.uowPuts().size(), 0);
  bool durable = false;
  for (auto &[q, seq] : s.uowPuts())
    if (Message *m = held(q, seq)) durable = durable || m->persistent;
  for (auto &[q, seq] : s.uowGets())
    if (Message *m = held(q, seq)) durable = durable || m->dbId;
  if (durable) {
    if (!dbWork()) {
      backoutUnitOfWork(s);
      return JXRC_RESOURCE_PROBLEM;
    }
    bool ok = store_.savepoint();
    for (size_t i = 0; ok && i < s.uowPuts().size(); ++i) {
      const auto &[q, seq] = s.uowPuts()[i];
      Message *m = held(q, seq);
      if (m && m->persistent) ok = (ids[i] = storeMessage(store_, *q, seq, *m)) != 0;
    }
    for (const auto &[q, seq] : s.uowGets()) {
      Message *m = ok ? held(q, seq) : nullptr;
      if (m && m->dbId) ok = store_.deleteMessage(m->dbId);
    }
    if (!store_.finishSavepoint(ok)) {
      int32_t rc = storeFailed("committing a unit of work");
      backoutUnitOfWork(s);
      return rc;
    }
  }
  std::vector<QueuePtr> wake;
  const int64_t now = nowMs();
  for (size_t i = 0; i < s.uowPuts().size(); ++i) {
    const auto &[q, seq] = s.uowPuts()[i];
    Message *m = held(q, seq);
    if (!m) continue;
    m->dbId = ids[i];
    m->lockedBy = 0;
    --q->uncommitted;
    notePut(*q, now);
    if (durable) {
      m->turn = turn_;
      journal([q = q, seq = seq] { takeBack(*q, seq); });
    }
    if (std::find(wake.begin(), wake.end(), q) == wake.end()) wake.push_back(q);
  }
  for (const auto &[q, seq] : s.uowGets()) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    Message m = std::move(it->second);
    --q->uncommitted;
    q->msgs.erase(it);
    ++q->stats.gets;
    q->stats.lastGetMs = now;
    if (durable) {
      // Taken back as a backout would leave it.
      m.lockedBy = 0;
      ++m.md.BackoutCount;
      journal([q = q, seq = seq, m = std::move(m)]() mutable { putBack(*q, seq, m); });
    }
  }
  s.forgetUnitOfWork();
  for (auto &q : wake) serveWaiters(q);
  return JXRC_NONE;
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
