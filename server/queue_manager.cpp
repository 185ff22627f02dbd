#include "queue_manager.hpp"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>

#include "authentication.hpp"
#include "events.hpp"
#include "qm_paths.hpp"
#include "session.hpp"

namespace jxqm {

namespace {

// The put time of a stored descriptor (YYYYMMDD HHMMSS, UTC), so that a
// message's age survives a restart; 0 when unreadable.
int64_t putTimeOf(const JXMD &md) {
  struct tm tmv {};
  char stamp[JX_PUT_DATE_LENGTH + JX_PUT_TIME_LENGTH + 1] = {};
  std::memcpy(stamp, md.PutDate, JX_PUT_DATE_LENGTH);
  std::memcpy(stamp + JX_PUT_DATE_LENGTH, md.PutTime, JX_PUT_TIME_LENGTH);
  if (sscanf(stamp, "%4d%2d%2d%2d%2d%2d", &tmv.tm_year, &tmv.tm_mon, &tmv.tm_mday, &tmv.tm_hour,
             &tmv.tm_min, &tmv.tm_sec) != 6)
    return 0;
  tmv.tm_year -= 1900;
  tmv.tm_mon -= 1;
  return static_cast<int64_t>(timegm(&tmv)) * 1000;
}

}  // namespace

QueueManager::QueueManager(std::string name, Store &store)
    : startMs_(nowMs()),
      name_(std::move(name)),
      store_(store),
      events_(std::make_unique<Events>(*this)) {
  jxqp::setField(name48_, JX_Q_MGR_NAME_LENGTH, name_);
  self_ = {userName(geteuid()), kAuthAdmin};
  std::memcpy(idPrefix_, "JXM ", 4);
  if (getrandom(idPrefix_ + 4, 4, 0) != 4) {
    uint32_t pid = static_cast<uint32_t>(getpid());
    std::memcpy(idPrefix_ + 4, &pid, 4);
  }
  // The start time in microseconds keeps identifiers unique across restarts.
  uint64_t t = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                         std::chrono::system_clock::now().time_since_epoch())
                                         .count());
  for (int i = 0; i < 8; ++i) idPrefix_[8 + i] = static_cast<uint8_t>(t >> (8 * i));
}

QueueManager::~QueueManager() = default;

int64_t QueueManager::nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void QueueManager::log(const std::string &line) const {
  char stamp[32];
  time_t t = time(nullptr);
  struct tm tmv;
  gmtime_r(&t, &tmv);
  strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &tmv);
  // A log on a full disk loses lines; the stream must not stay failed for
  // the lines that fit later.
  std::cerr.clear();
  std::cerr << stamp << ' ' << line << std::endl;
}

bool QueueManager::load() {
  std::vector<QueueDef> defs;
  std::string created;
  if (!store_.meta("created", created) || !store_.loadQueues(defs) ||
      !store_.loadSettings(settings_)) {
    log("cannot load definitions: " + store_.lastError());
    return false;
  }
  createdMs_ = std::atoll(created.c_str()) * 1000;
  for (auto &d : defs) {
    auto q = std::make_shared<Queue>();
    q->def = std::move(d);
    q->stats.resetMs = startMs_;
    queues_[q->def.name] = q;
  }
  size_t count = 0, dropped = 0;
  bool ok = store_.loadMessages([&](StoredMessage &&m) {
    auto it = queues_.find(m.queue);
    jxqp::Reader r(reinterpret_cast<const uint8_t *>(m.md.data()), m.md.size());
    Message msg;
    r.md(msg.md);
    if (it == queues_.end() || !r.done()) {
      ++dropped;
      return;
    }
    msg.data = std::move(m.data);
    msg.expiresMs = m.expiresMs;
    msg.putMs = putTimeOf(msg.md);
    msg.dbId = m.id;
    msg.persistent = true;
    msg.putter = std::move(m.putter);
    msg.authority = m.authority;
    Queue &q = *it->second;
    q.msgs.emplace(m.seq, std::move(msg));
    q.stats.highDepth = q.depth();
    nextSeq_ = std::max(nextSeq_, m.seq + 1);
    ++count;
  });
  if (!ok) {
    log("cannot load messages: " + store_.lastError());
    return false;
  }
  log("loaded " + std::to_string(queues_.size()) + " queues and " + std::to_string(count) +
      " persistent messages" + (dropped ? " (" + std::to_string(dropped) + " unreadable)" : ""));
  return true;
}

// ---- sessions ----

Session &QueueManager::startSession(SessionInfo info, Peer *peer) {
  uint32_t id = nextSessionId_++;
  if (nextSessionId_ == 0) nextSessionId_ = 1;
  auto s = std::make_unique<Session>(*this, id, std::move(info), peer);
  Session &ref = *s;
  sessions_[id] = std::move(s);
  return ref;
}

Session *QueueManager::session(uint32_t id) {
  auto it = sessions_.find(id);
  return it == sessions_.end() ? nullptr : it->second.get();
}

void QueueManager::endSession(uint32_t id) {
  auto it = sessions_.find(id);
  if (it == sessions_.end()) return;
  it->second->release();
  sessions_.erase(it);
}

bool QueueManager::stopSession(uint32_t id) {
  Session *s = session(id);
  if (!s) return false;
  Peer *peer = s->peer();
  endSession(id);
  if (peer) peer->ended();
  return true;
}

// ---- objects ----

QueuePtr QueueManager::findQueue(std::string_view name) const {
  auto it = queues_.find(name);
  return it == queues_.end() ? nullptr : it->second;
}

int32_t QueueManager::addQueue(QueueDef def, bool temporary, uint32_t owner, QueuePtr &out) {
  if (!temporary) {
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    if (!store_.saveQueue(def)) return storeFailed("saving queue " + def.name);
  }
  auto q = std::make_shared<Queue>();
  q->def = std::move(def);
  q->temporary = temporary;
  q->owner = owner;
  q->stats.resetMs = nowMs();
  queues_[q->def.name] = q;
  out = q;
  if (!temporary) journal([this, q] { dropQueue(q); });
  return JXRC_NONE;
}

int32_t QueueManager::redefineQueue(Queue &q, const QueueDef &def) {
  if (!q.temporary) {
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    if (!store_.saveQueue(def)) return storeFailed("saving queue " + def.name);
    journal([&q, was = q.def] { q.def = was; });
  }
  q.def = def;
  return JXRC_NONE;
}

void QueueManager::dropQueue(const QueuePtr &q) {
  q->deleted = true;
  auto it = queues_.find(q->def.name);
  if (it != queues_.end() && it->second == q) queues_.erase(it);
  // Blocked gets learn that their queue is gone.
  for (uint32_t id : std::list<uint32_t>(q->waiters))
    if (Session *w = session(id)) w->failPendingGet(JXRC_Q_DELETED);
  q->waiters.clear();
}

namespace {

// Puts messages taken off a queue back beside those put since.
void putBack(Queue &q, std::map<uint64_t, Message> &msgs, int32_t uncommitted) {
  q.msgs.merge(msgs);
  q.uncommitted += uncommitted;
}

}  // namespace

int32_t QueueManager::deleteQueue(const QueuePtr &q) {
  if (!q->temporary) {
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    if (!store_.deleteQueue(q->def.name)) return storeFailed("deleting queue " + q->def.name);
  }
  dropQueue(q);
  std::map<uint64_t, Message> msgs;
  msgs.swap(q->msgs);
  const int32_t uncommitted = std::exchange(q->uncommitted, 0);
  if (!q->temporary)
    journal([this, q, msgs = std::move(msgs), uncommitted]() mutable {
      q->deleted = false;
      queues_[q->def.name] = q;
      putBack(*q, msgs, uncommitted);
    });
  return JXRC_NONE;
}

int32_t QueueManager::clearQueue(Queue &q) {
  if (!q.temporary) {
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    if (!store_.deleteMessages(q.def.name)) return storeFailed("clearing queue " + q.def.name);
  }
  std::map<uint64_t, Message> msgs;
  msgs.swap(q.msgs);
  const int32_t uncommitted = std::exchange(q.uncommitted, 0);
  if (!q.temporary)
    journal([&q, msgs = std::move(msgs), uncommitted]() mutable { putBack(q, msgs, uncommitted); });
  return JXRC_NONE;
}

int32_t QueueManager::changeSettings(const QMgrSettings &s) {
  if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
  if (!store_.saveSettings(s)) return storeFailed("saving the queue manager's settings");
  journal([this, was = settings_] { settings_ = was; });
  settings_ = s;
  return JXRC_NONE;
}

std::string QueueManager::uniqueQueueName(const std::string &prefix) {
  // The suffix is what makes the name unique, so a long prefix gives way to
  // it: cutting the suffix instead would leave a name that only the clock
  // could change, and the search would spin until it did.
  constexpr size_t kSuffixLength = 16;
  const std::string head = prefix.substr(0, JX_Q_NAME_LENGTH - kSuffixLength);
  for (;;) {
    char suffix[kSuffixLength + 1];
    uint64_t n = ++idCounter_;
    uint32_t t = static_cast<uint32_t>(time(nullptr));
    snprintf(suffix, sizeof suffix, "%08X%08X", t, static_cast<uint32_t>(n));
    std::string name = head + suffix;
    if (!queues_.count(name)) return name;
  }
}

// ---- attribute values ----

namespace {

AttrValue number(const Attribute &a, int64_t v) {
  return {a.selector, static_cast<int32_t>(std::min<int64_t>(v, INT32_MAX)), {}};
}

AttrValue text(const Attribute &a, std::string v) {
  v.resize(static_cast<size_t>(a.length), ' ');
  return {a.selector, 0, std::move(v)};
}

template <Object O>
AttrValue stored(const Attribute &a, const Settings<O> &s) {
  return a.integer() ? number(a, s.number(a)) : text(a, s.text(a));
}

}  // namespace

AttrValue QueueManager::value(const Attribute &a, const Queue &q) const {
  if (a.stored()) return stored(a, q.def.settings);
  const int64_t now = nowMs();
  switch (a.selector) {
    case JXIA_CURRENT_Q_DEPTH:
      return number(a, q.depth());
    case JXIA_OPEN_INPUT_COUNT:
      return number(a, q.openInput);
    case JXIA_OPEN_OUTPUT_COUNT:
      return number(a, q.openOutput);
    case JXIA_MSG_ENQ_COUNT:
      return number(a, q.stats.puts);
    case JXIA_MSG_DEQ_COUNT:
      return number(a, q.stats.gets);
    case JXIA_HIGH_Q_DEPTH:
      return number(a, q.stats.highDepth);
    case JXIA_TIME_SINCE_RESET:
      return number(a, (now - q.stats.resetMs) / 1000);
    case JXIA_UNCOMMITTED_MSGS:
      return number(a, q.uncommitted);
    case JXIA_OLDEST_MSG_AGE:
      return number(
          a, q.msgs.empty() ? -1 : std::max<int64_t>(0, now - q.msgs.begin()->second.putMs) / 1000);
    case JXCA_Q_MGR_NAME:
      return text(a, name_);
    case JXCA_Q_NAME:
      return text(a, q.def.name);
    case JXCA_LAST_PUT_DATE:
      return text(a, dateText(q.stats.lastPutMs));
    case JXCA_LAST_PUT_TIME:
      return text(a, timeText(q.stats.lastPutMs));
    case JXCA_LAST_GET_DATE:
      return text(a, dateText(q.stats.lastGetMs));
    case JXCA_LAST_GET_TIME:
      return text(a, timeText(q.stats.lastGetMs));
  }
  log(std::string("no value for queue attribute ") + a.name);
  return a.integer() ? number(a, 0) : text(a, {});
}

AttrValue QueueManager::value(const Attribute &a) const {
  if (a.stored()) return stored(a, settings_);
  switch (a.selector) {
    case JXIA_MAX_MSG_LENGTH:
      return number(a, JX_MAX_MSG_LENGTH);
    case JXIA_CONNECTION_COUNT:
      return number(a, static_cast<int64_t>(sessions_.size()));
    case JXIA_Q_COUNT:
      return number(a, static_cast<int64_t>(queues_.size()));
    case JXCA_Q_MGR_NAME:
      return text(a, name_);
    case JXCA_CREATION_DATE:
    case JXCA_CREATION_TIME:
      return text(a,
                  a.selector == JXCA_CREATION_DATE ? dateText(createdMs_) : timeText(createdMs_));
    case JXCA_START_DATE:
      return text(a, dateText(startMs_));
    case JXCA_START_TIME:
      return text(a, timeText(startMs_));
  }
  log(std::string("no value for queue-manager attribute ") + a.name);
  return a.integer() ? number(a, 0) : text(a, {});
}

AttrValue QueueManager::value(const Attribute &a, const Session &s) const {
  switch (a.selector) {
    case JXCA_CONNECTION_ID:
      return text(a, s.connectionId());
    case JXCA_USER_ID:
      return text(a, s.who().user);
    case JXIA_PROCESS_ID:
      return number(a, s.info().pid);
    case JXCA_APPL_NAME:
      return text(a, s.info().applName);
    case JXIA_TRANSPORT:
      return number(a, s.info().transport);
    case JXIA_HANDLE_COUNT:
      return number(a, static_cast<int64_t>(s.handleCount()));
    case JXCA_CONNECT_DATE:
      return text(a, dateText(s.connectedMs()));
    case JXCA_CONNECT_TIME:
      return text(a, timeText(s.connectedMs()));
  }
  log(std::string("no value for connection attribute ") + a.name);
  return a.integer() ? number(a, 0) : text(a, {});
}

// ---- turns ----

bool QueueManager::dbWork() {
  if (turnLost_) return false;
  if (!txnOpen_) {
    if (!store_.begin()) {
      storeFailed("beginning a transaction");
      return false;
    }
    txnOpen_ = true;
  }
  return true;
}

void QueueManager::journal(std::function<void()> undo) {
  undo_.push_back(std::move(undo));
  dependsOnTurn();
}

void QueueManager::dependsOnTurn() {
  if (actor_) held_.insert(actor_);
}

int32_t QueueManager::storeFailed(const std::string &what) {
  if (!store_.full())
    log(what + " failed: " + store_.lastError());
  else if (!fullReported_)
    log("the store's disk is full (" + what +
        "): persistent messages and definitions are refused until there is room again");
  fullReported_ = fullReported_ || store_.full();
  if (txnOpen_ && !store_.inTransaction()) loseTurn();
  return JXRC_RESOURCE_PROBLEM;
}

void QueueManager::loseTurn() {
  if (!store_.rollback()) log("rolling back the turn's transaction failed: " + store_.lastError());
  log("the turn's durable work is lost: " + std::to_string(undo_.size()) +
      " changes taken back, their callers get 2102");
  txnOpen_ = false;
  turnLost_ = true;
  // Later changes may rest on earlier ones: take them back newest first.
  std::vector<std::function<void()>> undo;
  undo.swap(undo_);
  for (auto it = undo.rbegin(); it != undo.rend(); ++it) (*it)();
}

bool QueueManager::endTurn() {
  if (txnOpen_ && !store_.commit()) {
    storeFailed("committing the turn's transaction");
    // SQLite may keep the transaction open after a failed commit.
    if (txnOpen_) loseTurn();
  }
  const bool committed = !turnLost_;
  if (committed && fullReported_ && !store_.full()) {
    log("the store has room again");
    fullReported_ = false;
  }
  txnOpen_ = turnLost_ = false;
  undo_.clear();
  held_.clear();
  ++turn_;
  return committed;
}

int64_t QueueManager::expireWaits(int64_t now) {
  while (!timedWaits_.empty() && timedWaits_.begin()->first <= now) {
    Session *s = session(timedWaits_.begin()->second);
    if (!s || !s->waiting()) {
      timedWaits_.erase(timedWaits_.begin());
      continue;
    }
    s->failPendingGet(JXRC_NO_MSG_AVAILABLE);
  }
  return timedWaits_.empty() ? -1 : timedWaits_.begin()->first;
}

void QueueManager::genId(uint8_t out[JX_MSG_ID_LENGTH]) {
  std::memcpy(out, idPrefix_, sizeof idPrefix_);
  uint64_t n = ++idCounter_;
  for (int i = 0; i < 8; ++i) out[sizeof idPrefix_ + i] = static_cast<uint8_t>(n >> (8 * i));
}

}  // namespace jxqm
