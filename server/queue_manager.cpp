#include "queue_manager.hpp"

#include <pwd.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>

#include "credentials.hpp"
#include "qm_paths.hpp"
#include "qmgr_files.hpp"

namespace jxqm {

using jxqp::Op;
using jxqp::Request;
using jxqp::Writer;

namespace {

constexpr int32_t kMaxHandles = 4096;
constexpr size_t kMaxUowOps = 100000;
constexpr size_t kMaxInputBacklog = jxqp::kHeaderSize + jxqp::kMaxPayload + 65536;
constexpr int32_t kOpenInputBits = JXOO_INPUT_AS_Q_DEF | JXOO_INPUT_SHARED | JXOO_INPUT_EXCLUSIVE;
constexpr int32_t kOpenKnownBits =
    kOpenInputBits | JXOO_OUTPUT | JXOO_INQUIRE | JXOO_SET | JXOO_FAIL_IF_QUIESCING;
constexpr int32_t kPutKnownBits = JXPMO_SYNCPOINT | JXPMO_NO_SYNCPOINT | JXPMO_NEW_MSG_ID |
                                  JXPMO_NEW_CORREL_ID | JXPMO_FAIL_IF_QUIESCING;
constexpr int32_t kGetKnownBits = JXGMO_WAIT | JXGMO_SYNCPOINT | JXGMO_NO_SYNCPOINT |
                                  JXGMO_ACCEPT_TRUNCATED_MSG | JXGMO_FAIL_IF_QUIESCING |
                                  JXGMO_CONVERT;

uint8_t replyOp(Op op) {
  return static_cast<uint8_t>(static_cast<uint8_t>(op) | jxqp::kReplyBit);
}

bool allZero(const uint8_t *p, size_t n) {
  return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

void writeEmptyMd(Writer &w) {
  JXMD md = JXMD_DEFAULT;
  w.md(md);
}

const char kBlank48[48] = {};

// The reply body of a get that failed: no descriptor, no message.
void writeFailedGet(Writer &w, int32_t reason) {
  w.i32(JXCC_FAILED);
  w.i32(reason);
  w.i32(0);
  writeEmptyMd(w);
  w.fixed(kBlank48, 48);
  w.blob(nullptr, 0);
}

struct IntAttr {
  int32_t selector;
  bool settable;
};
constexpr IntAttr kIntAttrs[] = {
    {JXIA_CURRENT_Q_DEPTH, false},   {JXIA_DEF_PERSISTENCE, true}, {JXIA_DEF_PRIORITY, false},
    {JXIA_DEFINITION_TYPE, false},   {JXIA_INHIBIT_GET, true},     {JXIA_INHIBIT_PUT, true},
    {JXIA_MAX_MSG_LENGTH, true},     {JXIA_MAX_Q_DEPTH, true},     {JXIA_OPEN_INPUT_COUNT, false},
    {JXIA_OPEN_OUTPUT_COUNT, false}, {JXIA_Q_TYPE, false},
};

const IntAttr *findIntAttr(int32_t s) {
  for (const auto &a : kIntAttrs)
    if (a.selector == s) return &a;
  return nullptr;
}

int32_t charAttrLength(int32_t s) {
  switch (s) {
    case JXCA_Q_DESC:
      return JX_Q_DESC_LENGTH;
    case JXCA_Q_MGR_NAME:
    case JXCA_Q_NAME:
      return 48;
    default:
      return 0;
  }
}

std::string userName(uid_t uid) {
  struct passwd pw, *res = nullptr;
  char buf[4096];
  if (getpwuid_r(uid, &pw, buf, sizeof buf, &res) == 0 && res) return res->pw_name;
  return "uid" + std::to_string(uid);
}

}  // namespace

QueueManager::QueueManager(std::string name, Store &store) : name_(std::move(name)), store_(store) {
  jxqp::setField(name48_, 48, name_);
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

int64_t QueueManager::nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void QueueManager::log(const std::string &line) {
  char stamp[32];
  time_t t = time(nullptr);
  struct tm tmv;
  gmtime_r(&t, &tmv);
  strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &tmv);
  std::cerr << stamp << ' ' << line << std::endl;
}

bool QueueManager::load() {
  std::vector<QueueDef> defs;
  if (!store_.loadQueues(defs)) {
    log("cannot load definitions: " + store_.lastError());
    return false;
  }
  for (auto &d : defs) {
    auto q = std::make_shared<Queue>();
    q->def = std::move(d);
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
    msg.dbId = m.id;
    msg.persistent = true;
    it->second->msgs.emplace(m.seq, std::move(msg));
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

Conn &QueueManager::addConn(int fd, bool tcp, uid_t uid, std::string peer) {
  auto c = std::make_unique<Conn>();
  c->id = nextConnId_++;
  if (nextConnId_ == 0) nextConnId_ = 1;
  c->fd = fd;
  c->tcp = tcp;
  c->uid = uid;
  c->peer = std::move(peer);
  Conn &ref = *c;
  conns_[c->id] = std::move(c);
  return ref;
}

Conn *QueueManager::conn(uint32_t id) {
  auto it = conns_.find(id);
  return it == conns_.end() ? nullptr : it->second.get();
}

std::vector<uint32_t> QueueManager::connIds() const {
  std::vector<uint32_t> ids;
  for (const auto &kv : conns_) ids.push_back(kv.first);
  return ids;
}

void QueueManager::touch(Conn &c) {
  if (c.touched) return;
  c.touched = true;
  touched_.push_back(c.id);
}

std::vector<uint32_t> QueueManager::takeRunnable() {
  std::vector<uint32_t> ids;
  ids.swap(runnable_);
  return ids;
}

bool QueueManager::anyRunnable() {
  std::erase_if(runnable_, [this](uint32_t id) {
    Conn *c = conn(id);
    return !c || !hasRunnableInput(*c);
  });
  return !runnable_.empty();
}

bool QueueManager::dbWork() {
  if (!txnOpen_) {
    if (!store_.begin()) {
      log("cannot begin transaction: " + store_.lastError());
      return false;
    }
    txnOpen_ = true;
  }
  return true;
}

void QueueManager::endTurn() {
  if (!txnOpen_) return;
  txnOpen_ = false;
  if (!store_.commit()) {
    // The replies held for this commit promised durability: ending here
    // lets a restart recover from the last commit instead of lying.
    log("commit failed, ending: " + store_.lastError());
    _exit(70);
  }
}

void QueueManager::send(Conn &c, uint8_t op, Writer &w) {
  jxqp::appendFrame(c.out, op, w);
  touch(c);
}

void QueueManager::reply(Conn &c, uint8_t op, Writer &w) {
  send(c, op, w);
}

void QueueManager::replyCode(Conn &c, uint8_t op, int32_t cc, int32_t rc) {
  Writer w;
  w.i32(cc);
  w.i32(rc);
  reply(c, op, w);
}

bool QueueManager::hasRunnableInput(const Conn &c) const {
  if (c.dead || c.pendingGet || c.closeAfterWrite || c.in.size() < jxqp::kHeaderSize) return false;
  jxqp::FrameHeader h;
  if (jxqp::decodeHeader(c.in.data(), h) != jxqp::HeaderStatus::Ok) return true;
  return c.in.size() - jxqp::kHeaderSize >= h.length;
}

bool QueueManager::processInput(Conn &c) {
  size_t off = 0;
  bool ok = true;
  while (!c.dead && !c.pendingGet && !c.closeAfterWrite) {
    size_t avail = c.in.size() - off;
    if (avail < jxqp::kHeaderSize) break;
    jxqp::FrameHeader h;
    if (jxqp::decodeHeader(c.in.data() + off, h) != jxqp::HeaderStatus::Ok) {
      log("connection " + std::to_string(c.id) + " (" + c.peer + "): bad frame header");
      ok = false;
      break;
    }
    if (avail - jxqp::kHeaderSize < h.length) break;
    Request r;
    if (!jxqp::decodeRequest(h.op, c.in.data() + off + jxqp::kHeaderSize, h.length, r)) {
      log("connection " + std::to_string(c.id) + " (" + c.peer + "): malformed request, op " +
          std::to_string(h.op));
      ok = false;
      break;
    }
    if (!c.hello && r.op != Op::Hello) {
      log("connection " + std::to_string(c.id) + " (" + c.peer + "): request before hello");
      ok = false;
      break;
    }
    handle(c, r);
    off += jxqp::kHeaderSize + h.length;
  }
  c.in.erase(c.in.begin(), c.in.begin() + static_cast<std::ptrdiff_t>(off));
  // A client sends its next request only after the reply; a blocked
  // connection that keeps sending is not speaking the protocol.
  if (ok && c.in.size() > kMaxInputBacklog) {
    log("connection " + std::to_string(c.id) + ": input backlog exceeded");
    ok = false;
  }
  return ok;
}

void QueueManager::handle(Conn &c, const Request &r) {
  switch (r.op) {
    case Op::Hello:
      doHello(c, r);
      break;
    case Op::Open:
      doOpen(c, r);
      break;
    case Op::Close:
      doClose(c, r);
      break;
    case Op::Put:
      doPut(c, r, false);
      break;
    case Op::Put1:
      doPut(c, r, true);
      break;
    case Op::Get:
      doGet(c, r);
      break;
    case Op::Inq:
      doInq(c, r);
      break;
    case Op::Set:
      doSet(c, r);
      break;
    case Op::Commit:
      doCommit(c, replyOp(r.op));
      break;
    case Op::Backout:
      doBackout(c, replyOp(r.op));
      break;
    case Op::Begin:
      doBegin(c, r);
      break;
    case Op::Disc:
      doDisc(c);
      break;
  }
}

// ---- connection ----

void QueueManager::doHello(Conn &c, const Request &r) {
  Writer w;
  auto answer = [&](int32_t rc) {
    w.i32(rc ? JXCC_FAILED : JXCC_OK);
    w.i32(rc);
    w.u32(c.id);
    w.fixed(name48_, 48);
    reply(c, replyOp(Op::Hello), w);
    if (rc) c.closeAfterWrite = true;
  };
  if (c.hello) {
    c.dead = true;
    return;
  }
  std::string wanted = jxqp::fieldString(r.qmgrName, 48);
  if (!wanted.empty() && wanted != name_) return answer(JXRC_Q_MGR_NAME_ERROR);
  std::string hash;
  int32_t authority = kAuthNone;
  if (c.tcp) {
    std::string user(r.user);
    if (user.empty() || !store_.findUser(user, hash, authority) ||
        !verifyPassword(r.password, hash)) {
      log("connection " + std::to_string(c.id) + " (" + c.peer + "): refused user '" + user +
          "': bad user or password");
      return answer(JXRC_NOT_AUTHORIZED);
    }
    c.user = user;
  } else {
    c.user = userName(c.uid);
    if (c.uid == geteuid()) {
      authority = kAuthAdmin;
    } else if (!store_.findUser(c.user, hash, authority)) {
      authority = kAuthNone;
    }
  }
  if (authority < kAuthConnect) {
    log("connection " + std::to_string(c.id) + " (" + c.peer + "): user '" + c.user +
        "' not authorised to connect");
    return answer(JXRC_NOT_AUTHORIZED);
  }
  c.authority = authority;
  c.hello = true;
  answer(JXRC_NONE);
}

void QueueManager::doDisc(Conn &c) {
  // An orderly disconnect completes the unit of work; only a lost
  // connection backs it out.
  commitUow(c);
  replyCode(c, replyOp(Op::Disc), JXCC_OK, JXRC_NONE);
  c.closeAfterWrite = true;
}

void QueueManager::dropConn(uint32_t id) {
  auto it = conns_.find(id);
  if (it == conns_.end()) return;
  Conn &c = *it->second;
  if (c.pendingGet) {
    auto h = c.handles.find(c.pendingGet->hobj);
    if (h != c.handles.end()) h->second.q->waiters.remove(c.id);
    timedWaits_.erase({c.pendingGet->deadlineMs, c.id});
    c.pendingGet.reset();
  }
  backoutUow(c);
  for (auto &[hobj, h] : c.handles) countOpen(h.q, h.options, -1);
  c.handles.clear();
  for (auto &q : c.temps)
    if (!q->deleted) deleteQueue(q);
  conns_.erase(it);
}

// ---- open and close ----

int32_t QueueManager::checkOpenOptions(int32_t options) const {
  if (options & ~kOpenKnownBits) return JXRC_OPTIONS_ERROR;
  int inputs = !!(options & JXOO_INPUT_AS_Q_DEF) + !!(options & JXOO_INPUT_SHARED) +
               !!(options & JXOO_INPUT_EXCLUSIVE);
  if (inputs > 1) return JXRC_OPTIONS_ERROR;
  if (!(options & (kOpenInputBits | JXOO_OUTPUT | JXOO_INQUIRE | JXOO_SET)))
    return JXRC_OPTIONS_ERROR;
  return JXRC_NONE;
}

void QueueManager::countOpen(const QueuePtr &q, int32_t options, int delta) {
  if (options & kOpenInputBits) q->openInput += delta;
  if (options & JXOO_INPUT_EXCLUSIVE) q->exclusiveInput += delta;
  if (options & JXOO_OUTPUT) q->openOutput += delta;
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

int32_t QueueManager::resolveOpen(Conn &c, const jxqp::ObjectRef &o, int32_t options, QueuePtr &q) {
  if (o.objectType != JXOT_Q) return JXRC_OBJECT_TYPE_ERROR;
  std::string qm = jxqp::fieldString(o.objectQMgrName, 48);
  if (!qm.empty() && qm != name_) return JXRC_UNKNOWN_REMOTE_Q_MGR;
  std::string name = jxqp::fieldString(o.objectName, 48);
  if (!validQueueName(name)) return JXRC_OBJECT_NAME_ERROR;
  auto it = queues_.find(name);
  if (it == queues_.end()) return JXRC_UNKNOWN_OBJECT_NAME;
  q = it->second;
  if ((name == kCommandQueue || (options & JXOO_SET)) && c.authority < kAuthAdmin)
    return JXRC_NOT_AUTHORIZED;
  if (q->def.qtype == JXQT_MODEL) {
    std::string dyn = jxqp::fieldString(o.dynamicQName, 48);
    if (dyn.empty()) return JXRC_OBJECT_NAME_ERROR;
    std::string newName;
    if (dyn.back() == '*') {
      std::string prefix = dyn.substr(0, dyn.size() - 1);
      if (!prefix.empty() && !validQueueName(prefix)) return JXRC_OBJECT_NAME_ERROR;
      newName = uniqueQueueName(prefix);
    } else {
      if (!validQueueName(dyn)) return JXRC_OBJECT_NAME_ERROR;
      if (queues_.count(dyn)) return JXRC_OBJECT_ALREADY_EXISTS;
      newName = dyn;
    }
    auto d = std::make_shared<Queue>();
    d->def = q->def;
    d->def.name = newName;
    d->def.qtype = JXQT_LOCAL;
    d->def.defType = q->def.defType == JXQDT_PERMANENT_DYNAMIC ? JXQDT_PERMANENT_DYNAMIC
                                                               : JXQDT_TEMPORARY_DYNAMIC;
    if (d->def.defType == JXQDT_PERMANENT_DYNAMIC) {
      if (!dbWork() || !store_.saveQueue(d->def)) return JXRC_RESOURCE_PROBLEM;
    } else {
      d->temporary = true;
      d->owner = c.id;
      c.temps.push_back(d);
    }
    queues_[newName] = d;
    q = d;
  }
  bool input = options & kOpenInputBits;
  if (input && (q->exclusiveInput > 0 || ((options & JXOO_INPUT_EXCLUSIVE) && q->openInput > 0)))
    return JXRC_OBJECT_IN_USE;
  return JXRC_NONE;
}

void QueueManager::doOpen(Conn &c, const Request &r) {
  Writer w;
  QueuePtr q;
  int32_t rc = checkOpenOptions(r.options);
  if (!rc && static_cast<int32_t>(c.handles.size()) >= kMaxHandles) rc = JXRC_HANDLE_NOT_AVAILABLE;
  if (!rc) rc = resolveOpen(c, r.obj, r.options, q);
  int32_t hobj = 0;
  if (!rc) {
    while (c.handles.count(c.nextHobj) || c.nextHobj <= 0)
      c.nextHobj = c.nextHobj <= 0 ? 1 : c.nextHobj + 1;
    hobj = c.nextHobj++;
    c.handles[hobj] = Handle{q, r.options};
    countOpen(q, r.options, +1);
  }
  char name[48] = {};
  if (q && !rc) jxqp::setField(name, 48, q->def.name);
  w.i32(rc ? JXCC_FAILED : JXCC_OK);
  w.i32(rc);
  w.i32(hobj);
  w.fixed(name, 48);
  reply(c, replyOp(Op::Open), w);
}

void QueueManager::deleteQueue(const QueuePtr &q) {
  q->deleted = true;
  queues_.erase(q->def.name);
  if (q->def.defType == JXQDT_PERMANENT_DYNAMIC && dbWork()) store_.deleteQueue(q->def.name);
  q->msgs.clear();
  // Blocked gets of other connections learn that their queue is gone.
  for (uint32_t id : std::list<uint32_t>(q->waiters)) {
    Conn *w = conn(id);
    if (!w || !w->pendingGet) continue;
    unblock(*w);
    Writer out;
    writeFailedGet(out, JXRC_Q_DELETED);
    reply(*w, replyOp(Op::Get), out);
  }
  q->waiters.clear();
}

void QueueManager::doClose(Conn &c, const Request &r) {
  auto it = c.handles.find(r.hobj);
  if (it == c.handles.end()) return replyCode(c, replyOp(Op::Close), JXCC_FAILED, JXRC_HOBJ_ERROR);
  if (r.options != JXCO_NONE && r.options != JXCO_DELETE && r.options != JXCO_DELETE_PURGE)
    return replyCode(c, replyOp(Op::Close), JXCC_FAILED, JXRC_OPTIONS_ERROR);
  QueuePtr q = it->second.q;
  if (r.options != JXCO_NONE && !q->deleted) {
    if (q->def.defType != JXQDT_TEMPORARY_DYNAMIC && q->def.defType != JXQDT_PERMANENT_DYNAMIC)
      return replyCode(c, replyOp(Op::Close), JXCC_FAILED, JXRC_OPTION_NOT_VALID_FOR_TYPE);
    if (q->temporary && q->owner != c.id)
      return replyCode(c, replyOp(Op::Close), JXCC_FAILED, JXRC_NOT_AUTHORIZED);
    if (r.options == JXCO_DELETE && !q->msgs.empty())
      return replyCode(c, replyOp(Op::Close), JXCC_FAILED, JXRC_Q_NOT_EMPTY);
  }
  countOpen(q, it->second.options, -1);
  c.handles.erase(it);
  if (r.options != JXCO_NONE && !q->deleted) {
    deleteQueue(q);
    std::erase(c.temps, q);
  }
  replyCode(c, replyOp(Op::Close), JXCC_OK, JXRC_NONE);
}

// ---- put ----

void QueueManager::genId(uint8_t out[24]) {
  std::memcpy(out, idPrefix_, 16);
  uint64_t n = ++idCounter_;
  for (int i = 0; i < 8; ++i) out[16 + i] = static_cast<uint8_t>(n >> (8 * i));
}

int32_t QueueManager::putMessage(Conn &c, const QueuePtr &q, int32_t options, JXMD &md,
                                 std::string_view data) {
  if (options & ~kPutKnownBits) return JXRC_OPTIONS_ERROR;
  if ((options & JXPMO_SYNCPOINT) && (options & JXPMO_NO_SYNCPOINT)) return JXRC_OPTIONS_ERROR;
  if (std::memcmp(md.StrucId, "MD  ", 4) != 0 || md.Version < 1 || md.Version > 2)
    return JXRC_MD_ERROR;
  if (md.MsgType != JXMT_REQUEST && md.MsgType != JXMT_REPLY && md.MsgType != JXMT_REPORT &&
      md.MsgType != JXMT_DATAGRAM)
    return JXRC_MSG_TYPE_ERROR;
  if (md.Expiry <= 0 && md.Expiry != JXEI_UNLIMITED) return JXRC_EXPIRY_ERROR;
  if (md.Priority < -1 || md.Priority > 9) return JXRC_PRIORITY_ERROR;
  if (md.Persistence < 0 || md.Persistence > 2) return JXRC_PERSISTENCE_ERROR;
  if (q->deleted) return JXRC_Q_DELETED;
  if (q->def.inhibitPut) return JXRC_PUT_INHIBITED;
  if (data.size() > static_cast<size_t>(q->def.maxMsgLength)) return JXRC_MSG_TOO_BIG_FOR_Q;
  if (static_cast<int64_t>(q->msgs.size()) >= q->def.maxDepth) return JXRC_Q_FULL;
  bool sync = options & JXPMO_SYNCPOINT;
  if (sync && c.uowPuts.size() + c.uowGets.size() >= kMaxUowOps)
    return JXRC_SYNCPOINT_LIMIT_REACHED;

  if (allZero(md.MsgId, 24) || (options & JXPMO_NEW_MSG_ID)) genId(md.MsgId);
  if (options & JXPMO_NEW_CORREL_ID) genId(md.CorrelId);
  if (md.Persistence == JXPER_AS_Q_DEF) md.Persistence = q->def.defPersistence;
  if (md.Priority == JXPRI_AS_Q_DEF) md.Priority = q->def.defPriority;
  md.BackoutCount = 0;
  jxqp::setField(md.UserIdentifier, 12, c.user);
  time_t t = time(nullptr);
  struct tm tmv;
  gmtime_r(&t, &tmv);
  char stamp[20];
  strftime(stamp, sizeof stamp, "%Y%m%d%H%M%S", &tmv);
  std::memcpy(md.PutDate, stamp, 8);
  std::memcpy(md.PutTime, stamp + 8, 6);
  std::memcpy(md.PutTime + 6, "00", 2);
  if (allZero(reinterpret_cast<const uint8_t *>(md.ReplyToQ), 48) == false &&
      jxqp::fieldString(md.ReplyToQMgr, 48).empty())
    std::memcpy(md.ReplyToQMgr, name48_, 48);

  Message m;
  m.md = md;
  m.data.assign(data);
  m.expiresMs = md.Expiry > 0 ? nowMs() + static_cast<int64_t>(md.Expiry) * 100 : 0;
  // Temporary dynamic queues end with the queue manager, so their messages are never stored.
  m.persistent = md.Persistence == JXPER_PERSISTENT && !q->temporary;
  uint64_t seq = nextSeq_++;
  if (sync) {
    m.lockedBy = c.id;
    c.uowActive = true;
    c.uowPuts.emplace_back(q, seq);
  } else if (m.persistent) {
    Writer enc;
    enc.md(m.md);
    if (!dbWork()) return JXRC_RESOURCE_PROBLEM;
    m.dbId = store_.insertMessage(q->def.name, seq, enc.bytes(), m.data, m.expiresMs);
    if (!m.dbId) return JXRC_RESOURCE_PROBLEM;
  }
  q->msgs.emplace(seq, std::move(m));
  if (!sync) serveWaiters(q);
  return JXRC_NONE;
}

void QueueManager::doPut(Conn &c, const Request &r, bool put1) {
  Writer w;
  JXMD md = r.md;
  int32_t rc = JXRC_NONE;
  QueuePtr q;
  if (put1) {
    // A put to a model would create a queue nobody could read.
    auto model = queues_.find(jxqp::fieldString(r.obj.objectName, 48));
    if (model != queues_.end() && model->second->def.qtype == JXQT_MODEL)
      rc = JXRC_OPTION_NOT_VALID_FOR_TYPE;
    else
      rc = resolveOpen(c, r.obj, JXOO_OUTPUT, q);
  } else {
    auto it = c.handles.find(r.hobj);
    if (it == c.handles.end())
      rc = JXRC_HOBJ_ERROR;
    else if (!(it->second.options & JXOO_OUTPUT))
      rc = JXRC_NOT_OPEN_FOR_OUTPUT;
    else
      q = it->second.q;
  }
  if (!rc) rc = putMessage(c, q, r.options, md, r.data);
  w.i32(rc ? JXCC_FAILED : JXCC_OK);
  w.i32(rc);
  if (rc) md = r.md;
  w.md(md);
  char name[48] = {};
  if (!rc) jxqp::setField(name, 48, q->def.name);
  w.fixed(name, 48);
  reply(c, replyOp(r.op), w);
}

// ---- get ----

void QueueManager::removeMessage(Queue &q, std::map<uint64_t, Message>::iterator it) {
  if (it->second.dbId && dbWork()) store_.deleteMessage(it->second.dbId);
  q.msgs.erase(it);
}

bool QueueManager::tryGet(Conn &c, const GetArgs &a, Writer &w) {
  auto fail = [&](int32_t rc) {
    writeFailedGet(w, rc);
    return true;
  };
  auto h = c.handles.find(a.hobj);
  if (h == c.handles.end()) return fail(JXRC_HOBJ_ERROR);
  Queue &q = *h->second.q;
  if (q.deleted) return fail(JXRC_Q_DELETED);
  if (q.def.inhibitGet) return fail(JXRC_GET_INHIBITED);
  int64_t now = nowMs();
  bool matchMsg = (a.matchOptions & JXMO_MATCH_MSG_ID) && !allZero(a.msgId, 24);
  bool matchCorrel = (a.matchOptions & JXMO_MATCH_CORREL_ID) && !allZero(a.correlId, 24);
  auto it = q.msgs.begin();
  while (it != q.msgs.end()) {
    Message &m = it->second;
    if (m.lockedBy) {
      ++it;
      continue;
    }
    if (m.expiresMs && m.expiresMs <= now) {
      auto next = std::next(it);
      removeMessage(q, it);
      it = next;
      continue;
    }
    if ((matchMsg && std::memcmp(m.md.MsgId, a.msgId, 24) != 0) ||
        (matchCorrel && std::memcmp(m.md.CorrelId, a.correlId, 24) != 0)) {
      ++it;
      continue;
    }
    break;
  }
  if (it == q.msgs.end()) {
    if ((a.options & JXGMO_WAIT) && a.waitInterval != 0) return false;
    return fail(JXRC_NO_MSG_AVAILABLE);
  }
  Message &m = it->second;
  int32_t dataLength = static_cast<int32_t>(m.data.size());
  bool truncated = dataLength > a.bufferLength;
  int32_t rc = JXRC_NONE;
  if (truncated)
    rc = (a.options & JXGMO_ACCEPT_TRUNCATED_MSG) ? JXRC_TRUNCATED_MSG_ACCEPTED
                                                  : JXRC_TRUNCATED_MSG_FAILED;
  JXMD md = m.md;
  if (m.expiresMs)
    md.Expiry = static_cast<int32_t>(std::max<int64_t>(1, (m.expiresMs - now + 99) / 100));
  w.i32(rc == JXRC_NONE ? JXCC_OK : rc == JXRC_TRUNCATED_MSG_ACCEPTED ? JXCC_WARNING : JXCC_FAILED);
  w.i32(rc);
  w.i32(dataLength);
  w.md(md);
  char name[48] = {};
  jxqp::setField(name, 48, q.def.name);
  w.fixed(name, 48);
  w.blob(m.data.data(), truncated ? static_cast<size_t>(a.bufferLength) : m.data.size());
  if (rc == JXRC_TRUNCATED_MSG_FAILED) return true;
  if (a.options & JXGMO_SYNCPOINT) {
    m.lockedBy = c.id;
    c.uowActive = true;
    c.uowGets.emplace_back(h->second.q, it->first);
  } else {
    removeMessage(q, it);
  }
  return true;
}

void QueueManager::doGet(Conn &c, const Request &r) {
  Writer w;
  GetArgs a;
  a.hobj = r.hobj;
  a.options = r.options;
  a.waitInterval = r.waitInterval;
  a.matchOptions = r.matchOptions;
  a.bufferLength = r.bufferLength;
  std::memcpy(a.msgId, r.md.MsgId, 24);
  std::memcpy(a.correlId, r.md.CorrelId, 24);
  int32_t rc = JXRC_NONE;
  auto h = c.handles.find(r.hobj);
  if (h == c.handles.end())
    rc = JXRC_HOBJ_ERROR;
  else if (!(h->second.options & kOpenInputBits))
    rc = JXRC_NOT_OPEN_FOR_INPUT;
  else if ((r.options & ~kGetKnownBits) ||
           ((r.options & JXGMO_SYNCPOINT) && (r.options & JXGMO_NO_SYNCPOINT)) ||
           (r.matchOptions & ~(JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID)))
    rc = JXRC_OPTIONS_ERROR;
  else if (r.bufferLength < 0)
    rc = JXRC_BUFFER_LENGTH_ERROR;
  else if ((r.options & JXGMO_WAIT) && r.waitInterval < JXWI_UNLIMITED)
    rc = JXRC_WAIT_INTERVAL_ERROR;
  else if ((r.options & JXGMO_SYNCPOINT) && c.uowPuts.size() + c.uowGets.size() >= kMaxUowOps)
    rc = JXRC_SYNCPOINT_LIMIT_REACHED;
  if (rc) {
    writeFailedGet(w, rc);
    return reply(c, replyOp(Op::Get), w);
  }
  if (tryGet(c, a, w)) return reply(c, replyOp(Op::Get), w);
  a.deadlineMs = a.waitInterval == JXWI_UNLIMITED ? -1 : nowMs() + a.waitInterval;
  c.pendingGet = a;
  if (a.deadlineMs >= 0) timedWaits_.emplace(a.deadlineMs, c.id);
  h->second.q->waiters.push_back(c.id);
}

void QueueManager::unblock(Conn &c) {
  timedWaits_.erase({c.pendingGet->deadlineMs, c.id});
  c.pendingGet.reset();
  // Frames that came behind the get can be handled now.
  markRunnable(c.id);
}

void QueueManager::serveWaiters(const QueuePtr &q) {
  auto it = q->waiters.begin();
  while (it != q->waiters.end()) {
    Conn *w = conn(*it);
    if (!w || !w->pendingGet) {
      it = q->waiters.erase(it);
      continue;
    }
    Writer out;
    if (!tryGet(*w, *w->pendingGet, out)) {
      // Nothing visible matches this waiter; later waiters may match other messages.
      ++it;
      continue;
    }
    unblock(*w);
    it = q->waiters.erase(it);
    reply(*w, replyOp(Op::Get), out);
  }
}

int64_t QueueManager::expireWaits(int64_t now) {
  while (!timedWaits_.empty() && timedWaits_.begin()->first <= now) {
    Conn &c = *conn(timedWaits_.begin()->second);
    auto h = c.handles.find(c.pendingGet->hobj);
    if (h != c.handles.end()) h->second.q->waiters.remove(c.id);
    unblock(c);
    Writer w;
    writeFailedGet(w, JXRC_NO_MSG_AVAILABLE);
    reply(c, replyOp(Op::Get), w);
  }
  return timedWaits_.empty() ? -1 : timedWaits_.begin()->first;
}

// ---- inquire and set ----

void QueueManager::doInq(Conn &c, const Request &r) {
  Writer w;
  auto fail = [&](int32_t rc) {
    w.i32(JXCC_FAILED);
    w.i32(rc);
    w.u32(0);
    w.blob(nullptr, 0);
    reply(c, replyOp(Op::Inq), w);
  };
  auto h = c.handles.find(r.hobj);
  if (h == c.handles.end()) return fail(JXRC_HOBJ_ERROR);
  if (!(h->second.options & JXOO_INQUIRE)) return fail(JXRC_NOT_OPEN_FOR_INQUIRE);
  if (r.intCount < 0) return fail(JXRC_INT_ATTR_COUNT_ERROR);
  if (r.charLength < 0) return fail(JXRC_CHAR_ATTR_LENGTH_ERROR);
  const Queue &q = *h->second.q;
  if (q.deleted) return fail(JXRC_Q_DELETED);
  int32_t ints = 0, chars = 0;
  for (int32_t s : r.selectors) {
    if (s >= JXIA_FIRST && s <= JXIA_LAST && findIntAttr(s))
      ++ints;
    else if (s >= JXCA_FIRST && s <= JXCA_LAST && charAttrLength(s))
      chars += charAttrLength(s);
    else
      return fail(JXRC_SELECTOR_ERROR);
  }
  if (ints > r.intCount) return fail(JXRC_INT_ATTR_COUNT_TOO_SMALL);
  if (chars > r.charLength) return fail(JXRC_CHAR_ATTRS_TOO_SHORT);
  std::vector<int32_t> iv;
  std::string cv;
  for (int32_t s : r.selectors) {
    switch (s) {
      case JXIA_CURRENT_Q_DEPTH:
        iv.push_back(static_cast<int32_t>(q.msgs.size()));
        break;
      case JXIA_DEF_PERSISTENCE:
        iv.push_back(q.def.defPersistence);
        break;
      case JXIA_DEF_PRIORITY:
        iv.push_back(q.def.defPriority);
        break;
      case JXIA_DEFINITION_TYPE:
        iv.push_back(q.def.defType);
        break;
      case JXIA_INHIBIT_GET:
        iv.push_back(q.def.inhibitGet);
        break;
      case JXIA_INHIBIT_PUT:
        iv.push_back(q.def.inhibitPut);
        break;
      case JXIA_MAX_MSG_LENGTH:
        iv.push_back(q.def.maxMsgLength);
        break;
      case JXIA_MAX_Q_DEPTH:
        iv.push_back(q.def.maxDepth);
        break;
      case JXIA_OPEN_INPUT_COUNT:
        iv.push_back(q.openInput);
        break;
      case JXIA_OPEN_OUTPUT_COUNT:
        iv.push_back(q.openOutput);
        break;
      case JXIA_Q_TYPE:
        iv.push_back(q.def.qtype);
        break;
      default: {
        std::string v = s == JXCA_Q_DESC   ? q.def.description
                        : s == JXCA_Q_NAME ? q.def.name
                                           : name_;
        v.resize(static_cast<size_t>(charAttrLength(s)), ' ');
        cv += v;
      }
    }
  }
  w.i32(JXCC_OK);
  w.i32(JXRC_NONE);
  w.u32(static_cast<uint32_t>(iv.size()));
  for (int32_t v : iv) w.i32(v);
  w.str(cv);
  reply(c, replyOp(Op::Inq), w);
}

void QueueManager::doSet(Conn &c, const Request &r) {
  uint8_t op = replyOp(Op::Set);
  auto h = c.handles.find(r.hobj);
  if (h == c.handles.end()) return replyCode(c, op, JXCC_FAILED, JXRC_HOBJ_ERROR);
  if (!(h->second.options & JXOO_SET)) return replyCode(c, op, JXCC_FAILED, JXRC_NOT_OPEN_FOR_SET);
  if (c.authority < kAuthAdmin) return replyCode(c, op, JXCC_FAILED, JXRC_NOT_AUTHORIZED);
  Queue &q = *h->second.q;
  if (q.deleted) return replyCode(c, op, JXCC_FAILED, JXRC_Q_DELETED);
  // Check everything first so that a refused set changes nothing.
  QueueDef d = q.def;
  size_t iv = 0, cv = 0;
  for (int32_t s : r.selectors) {
    if (s >= JXIA_FIRST && s <= JXIA_LAST) {
      const IntAttr *a = findIntAttr(s);
      if (!a || !a->settable) return replyCode(c, op, JXCC_FAILED, JXRC_SELECTOR_ERROR);
      if (iv >= r.intValues.size())
        return replyCode(c, op, JXCC_FAILED, JXRC_INT_ATTR_COUNT_TOO_SMALL);
      int32_t v = r.intValues[iv++];
      bool okv = true;
      switch (s) {
        case JXIA_INHIBIT_GET:
          okv = v == 0 || v == 1;
          d.inhibitGet = v;
          break;
        case JXIA_INHIBIT_PUT:
          okv = v == 0 || v == 1;
          d.inhibitPut = v;
          break;
        case JXIA_DEF_PERSISTENCE:
          okv = v == 0 || v == 1;
          d.defPersistence = v;
          break;
        case JXIA_MAX_Q_DEPTH:
          okv = v >= 0 && v <= 999999999;
          d.maxDepth = v;
          break;
        case JXIA_MAX_MSG_LENGTH:
          okv = v >= 0 && v <= JX_MAX_MSG_LENGTH;
          d.maxMsgLength = v;
          break;
      }
      if (!okv) return replyCode(c, op, JXCC_FAILED, JXRC_ATTR_VALUE_ERROR);
    } else if (s == JXCA_Q_DESC) {
      if (cv + JX_Q_DESC_LENGTH > r.charValues.size())
        return replyCode(c, op, JXCC_FAILED, JXRC_CHAR_ATTRS_TOO_SHORT);
      d.description = jxqp::fieldString(r.charValues.data() + cv, JX_Q_DESC_LENGTH);
      cv += JX_Q_DESC_LENGTH;
    } else {
      return replyCode(c, op, JXCC_FAILED, JXRC_SELECTOR_ERROR);
    }
  }
  if (!q.temporary) {
    if (!dbWork() || !store_.saveQueue(d))
      return replyCode(c, op, JXCC_FAILED, JXRC_RESOURCE_PROBLEM);
  }
  q.def = d;
  replyCode(c, op, JXCC_OK, JXRC_NONE);
}

// ---- units of work ----

void QueueManager::commitUow(Conn &c) {
  std::vector<QueuePtr> wake;
  for (auto &[q, seq] : c.uowPuts) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    Message &m = it->second;
    if (m.persistent) {
      Writer enc;
      enc.md(m.md);
      if (dbWork())
        m.dbId = store_.insertMessage(q->def.name, seq, enc.bytes(), m.data, m.expiresMs);
    }
    m.lockedBy = 0;
    if (std::find(wake.begin(), wake.end(), q) == wake.end()) wake.push_back(q);
  }
  for (auto &[q, seq] : c.uowGets) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    removeMessage(*q, it);
  }
  c.uowPuts.clear();
  c.uowGets.clear();
  c.uowActive = false;
  for (auto &q : wake) serveWaiters(q);
}

void QueueManager::backoutUow(Conn &c) {
  std::vector<QueuePtr> wake;
  for (auto &[q, seq] : c.uowPuts) q->msgs.erase(seq);
  for (auto &[q, seq] : c.uowGets) {
    auto it = q->msgs.find(seq);
    if (q->deleted || it == q->msgs.end()) continue;
    it->second.lockedBy = 0;
    ++it->second.md.BackoutCount;
    if (std::find(wake.begin(), wake.end(), q) == wake.end()) wake.push_back(q);
  }
  c.uowPuts.clear();
  c.uowGets.clear();
  c.uowActive = false;
  for (auto &q : wake) serveWaiters(q);
}

void QueueManager::doCommit(Conn &c, uint8_t op) {
  commitUow(c);
  replyCode(c, op, JXCC_OK, JXRC_NONE);
}

void QueueManager::doBackout(Conn &c, uint8_t op) {
  backoutUow(c);
  replyCode(c, op, JXCC_OK, JXRC_NONE);
}

void QueueManager::doBegin(Conn &c, const Request &r) {
  uint8_t op = replyOp(Op::Begin);
  if (r.options != JXBO_NONE) return replyCode(c, op, JXCC_FAILED, JXRC_OPTIONS_ERROR);
  if (c.uowActive) return replyCode(c, op, JXCC_FAILED, JXRC_UOW_IN_PROGRESS);
  c.uowActive = true;
  replyCode(c, op, JXCC_OK, JXRC_NONE);
}

}  // namespace jxqm
