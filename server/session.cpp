#include "session.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "events.hpp"
#include "qm_paths.hpp"
#include "qmgr_files.hpp"

namespace jxqm {

namespace {

constexpr size_t kMaxHandles = 4096;
constexpr size_t kMaxUowOps = 100000;
constexpr int32_t kOpenInputBits = JXOO_INPUT_AS_Q_DEF | JXOO_INPUT_SHARED | JXOO_INPUT_EXCLUSIVE;
constexpr int32_t kOpenKnownBits =
    kOpenInputBits | JXOO_OUTPUT | JXOO_INQUIRE | JXOO_SET | JXOO_FAIL_IF_QUIESCING;
constexpr int32_t kGetKnownBits = JXGMO_WAIT | JXGMO_SYNCPOINT | JXGMO_NO_SYNCPOINT |
                                  JXGMO_ACCEPT_TRUNCATED_MSG | JXGMO_FAIL_IF_QUIESCING |
                                  JXGMO_CONVERT;

jxqp::CodeReply code(int32_t reason) {
  return reason ? jxqp::failedReply<jxqp::CodeReply>(reason) : jxqp::CodeReply{};
}

GetResult failedGet(int32_t reason) {
  GetResult out;
  out.reply = jxqp::failedReply<jxqp::GetReply>(reason);
  return out;
}

int32_t checkOpenOptions(int32_t options) {
  if (options & ~kOpenKnownBits) return JXRC_OPTIONS_ERROR;
  int inputs = !!(options & JXOO_INPUT_AS_Q_DEF) + !!(options & JXOO_INPUT_SHARED) +
               !!(options & JXOO_INPUT_EXCLUSIVE);
  if (inputs > 1) return JXRC_OPTIONS_ERROR;
  if (!(options & (kOpenInputBits | JXOO_OUTPUT | JXOO_INQUIRE | JXOO_SET)))
    return JXRC_OPTIONS_ERROR;
  return JXRC_NONE;
}

// Who may open what: administrators alone may open an object for set, or
// the command queue for input (any user may send commands: the command
// server checks each one's authority); any connected user may do the rest.
bool mayOpen(const Identity &who, std::string_view queue, int32_t options) {
  bool adminOnly = (options & JXOO_SET) || (queue == kCommandQueue && (options & kOpenInputBits));
  return !adminOnly || who.authority >= kAuthAdmin;
}

// The identifiers a get selects messages by; a null one selects any.
class IdMatch {
 public:
  explicit IdMatch(const jxqp::GetRequest &a)
      : a_(a),
        msg_(jxqp::selectsBy(a.matchOptions, JXMO_MATCH_MSG_ID, a.msgId)),
        correl_(jxqp::selectsBy(a.matchOptions, JXMO_MATCH_CORREL_ID, a.correlId)) {}
  bool operator()(const JXMD &md) const {
    return (!msg_ || std::memcmp(md.MsgId, a_.msgId, JX_MSG_ID_LENGTH) == 0) &&
           (!correl_ || std::memcmp(md.CorrelId, a_.correlId, JX_CORREL_ID_LENGTH) == 0);
  }

 private:
  const jxqp::GetRequest &a_;
  bool msg_, correl_;
};

}  // namespace

Session::Session(QueueManager &qm, uint32_t id, QueueManager::SessionInfo info, Peer *peer)
    : qm_(qm), id_(id), info_(std::move(info)), peer_(peer), connectedMs_(QueueManager::nowMs()) {}

std::string Session::connectionId() const {
  char id[JX_CONNECTION_ID_LENGTH + 1];
  snprintf(id, sizeof id, "%08X%08X", static_cast<uint32_t>(qm_.startMs() / 1000), id_);
  return id;
}

// ---- open and close ----

void Session::countOpen(const QueuePtr &q, int32_t options, int delta) {
  if (!q) return;
  q->handles += delta;
  if (options & kOpenInputBits) q->openInput += delta;
  if (options & JXOO_INPUT_EXCLUSIVE) q->exclusiveInput += delta;
  if (options & JXOO_OUTPUT) q->openOutput += delta;
}

int32_t Session::resolveOpen(const jxqp::ObjectRef &o, int32_t options, QueuePtr &q, bool &qmgr,
                             bool &made) {
  std::string qmName = jxqp::fieldString(o.objectQMgrName, JX_Q_MGR_NAME_LENGTH);
  std::string name = jxqp::fieldString(o.objectName, JX_Q_NAME_LENGTH);
  if (o.objectType == JXOT_Q_MGR) {
    if (!qmName.empty() && qmName != qm_.name()) return JXRC_UNKNOWN_REMOTE_Q_MGR;
    if (!name.empty() && name != qm_.name()) return JXRC_Q_MGR_NAME_ERROR;
    if (options & (kOpenInputBits | JXOO_OUTPUT)) return JXRC_OPTION_NOT_VALID_FOR_TYPE;
    if (!mayOpen(who(), {}, options)) return JXRC_NOT_AUTHORIZED;
    qmgr = true;
    return JXRC_NONE;
  }
  if (o.objectType != JXOT_Q) return JXRC_OBJECT_TYPE_ERROR;
  if (!qmName.empty() && qmName != qm_.name()) return JXRC_UNKNOWN_REMOTE_Q_MGR;
  if (!validQueueName(name)) return JXRC_OBJECT_NAME_ERROR;
  q = qm_.findQueue(name);
  if (!q) return JXRC_UNKNOWN_OBJECT_NAME;
  if (!mayOpen(who(), name, options)) return JXRC_NOT_AUTHORIZED;
  if (q->get<JXIA_Q_TYPE>() == JXQT_MODEL) {
    std::string dyn = jxqp::fieldString(o.dynamicQName, JX_Q_NAME_LENGTH);
    if (dyn.empty()) return JXRC_OBJECT_NAME_ERROR;
    std::string newName;
    if (dyn.back() == '*') {
      std::string prefix = dyn.substr(0, dyn.size() - 1);
      if (!prefix.empty() && !validQueueName(prefix)) return JXRC_OBJECT_NAME_ERROR;
      newName = qm_.uniqueQueueName(prefix);
    } else {
      if (!validQueueName(dyn)) return JXRC_OBJECT_NAME_ERROR;
      if (qm_.findQueue(dyn)) return JXRC_OBJECT_ALREADY_EXISTS;
      newName = dyn;
    }
    QueueDef def = q->def;
    def.name = newName;
    const bool permanent = q->get<JXIA_DEFINITION_TYPE>() == JXQDT_PERMANENT_DYNAMIC;
    def.settings.set<JXIA_Q_TYPE>(JXQT_LOCAL);
    def.settings.set<JXIA_DEFINITION_TYPE>(permanent ? JXQDT_PERMANENT_DYNAMIC
                                                     : JXQDT_TEMPORARY_DYNAMIC);
    QueuePtr created;
    if (int32_t rc = qm_.addQueue(std::move(def), !permanent, id_, created)) return rc;
    if (!permanent) temps_.push_back(created);
    q = created;
    made = true;
  }
  bool input = options & kOpenInputBits;
  if (input && (q->exclusiveInput > 0 || ((options & JXOO_INPUT_EXCLUSIVE) && q->openInput > 0)))
    return JXRC_OBJECT_IN_USE;
  return JXRC_NONE;
}

jxqp::OpenReply Session::open(const jxqp::OpenRequest &r) {
  QueuePtr q;
  bool qmgr = false;
  bool made = false;
  int32_t rc = checkOpenOptions(r.options);
  if (!rc && handles_.size() >= kMaxHandles) rc = JXRC_HANDLE_NOT_AVAILABLE;
  if (!rc) rc = resolveOpen(r.obj, r.options, q, qmgr, made);
  if (rc == JXRC_NOT_AUTHORIZED)
    qm_.events().notAuthorised(who(), jxqp::fieldString(r.obj.objectName, JX_Q_NAME_LENGTH),
                               "JXOPEN");
  if (rc) return jxqp::failedReply<jxqp::OpenReply>(rc);
  while (handles_.count(nextHobj_) || nextHobj_ <= 0)
    nextHobj_ = nextHobj_ <= 0 ? 1 : nextHobj_ + 1;
  jxqp::OpenReply out;
  out.hobj = nextHobj_++;
  handles_[out.hobj] = Handle{q, r.options, {}};
  countOpen(q, r.options, +1);
  // A permanent dynamic queue made here goes if its definition's commit
  // fails, and so does the handle.
  if (made && !q->temporary)
    qm_.journal([&qm = qm_, session = id_, hobj = out.hobj] {
      if (Session *s = qm.session(session)) s->forgetHandle(hobj);
    });
  jxqp::setField(out.name, JX_Q_NAME_LENGTH, q ? q->def.name : qm_.name());
  return out;
}

jxqp::CodeReply Session::close(const jxqp::CloseRequest &r) {
  auto it = handles_.find(r.hobj);
  if (it == handles_.end()) return code(JXRC_HOBJ_ERROR);
  settleLent(it->second, r.taken);
  if (r.options != JXCO_NONE && r.options != JXCO_DELETE && r.options != JXCO_DELETE_PURGE)
    return code(JXRC_OPTIONS_ERROR);
  QueuePtr q = it->second.q;
  const bool remove = r.options != JXCO_NONE && q && !q->deleted;
  if (r.options != JXCO_NONE && !q) return code(JXRC_OPTION_NOT_VALID_FOR_TYPE);
  if (remove) {
    int32_t defType = q->get<JXIA_DEFINITION_TYPE>();
    if (defType != JXQDT_TEMPORARY_DYNAMIC && defType != JXQDT_PERMANENT_DYNAMIC)
      return code(JXRC_OPTION_NOT_VALID_FOR_TYPE);
    if (q->temporary && q->owner != id_) return code(JXRC_NOT_AUTHORIZED);
    if (r.options == JXCO_DELETE && !q->msgs.empty()) return code(JXRC_Q_NOT_EMPTY);
  }
  if (remove) {
    if (int32_t rc = qm_.deleteQueue(q)) return code(rc);
    std::erase(temps_, q);
    // A deletion taken back gives the handle back too.
    if (!q->temporary)
      qm_.journal([&qm = qm_, session = id_, hobj = r.hobj, handle = it->second] {
        if (Session *s = qm.session(session)) s->reopen(hobj, handle.q, handle.options);
      });
  }
  countOpen(q, it->second.options, -1);
  handles_.erase(it);
  return {};
}

// ---- put ----

jxqp::PutReply Session::put(const jxqp::PutRequest &r) {
  jxqp::PutReply out;
  out.md = r.md;
  auto it = handles_.find(r.hobj);
  int32_t rc = it == handles_.end()                  ? JXRC_HOBJ_ERROR
               : !(it->second.options & JXOO_OUTPUT) ? JXRC_NOT_OPEN_FOR_OUTPUT
                                                     : JXRC_NONE;
  if (!rc) rc = qm_.putMessage(this, it->second.q, r.options, out.md, r.data);
  if (rc) {
    out.cc = JXCC_FAILED;
    out.rc = rc;
    out.md = r.md;
  } else {
    jxqp::setField(out.resolvedQName, JX_Q_NAME_LENGTH, it->second.q->def.name);
  }
  return out;
}

jxqp::PutReply Session::put1(const jxqp::Put1Request &r) {
  jxqp::PutReply out;
  out.md = r.md;
  QueuePtr q;
  bool qmgr = false, made = false;
  int32_t rc = JXRC_NONE;
  // A put to a model would create a queue nobody could read.
  QueuePtr model = qm_.findQueue(jxqp::fieldString(r.obj.objectName, JX_Q_NAME_LENGTH));
  if (r.obj.objectType == JXOT_Q && model && model->get<JXIA_Q_TYPE>() == JXQT_MODEL)
    rc = JXRC_OPTION_NOT_VALID_FOR_TYPE;
  else
    rc = resolveOpen(r.obj, JXOO_OUTPUT, q, qmgr, made);
  if (rc == JXRC_NOT_AUTHORIZED)
    qm_.events().notAuthorised(who(), jxqp::fieldString(r.obj.objectName, JX_Q_NAME_LENGTH),
                               "JXPUT1");
  if (!rc) rc = qm_.putMessage(this, q, r.options, out.md, r.data);
  if (rc) {
    out.cc = JXCC_FAILED;
    out.rc = rc;
    out.md = r.md;
  } else {
    jxqp::setField(out.resolvedQName, JX_Q_NAME_LENGTH, q->def.name);
  }
  return out;
}

// ---- get ----

bool Session::tryGet(const jxqp::GetRequest &a, GetResult &out) {
  auto fail = [&](int32_t reason) {
    out = failedGet(reason);
    return true;
  };
  auto h = handles_.find(a.hobj);
  if (h == handles_.end()) return fail(JXRC_HOBJ_ERROR);
  const QueuePtr qp = h->second.q;
  Queue &q = *qp;
  if (q.deleted) return fail(JXRC_Q_DELETED);
  if (q.get<JXIA_INHIBIT_GET>()) return fail(JXRC_GET_INHIBITED);
  const int64_t now = QueueManager::nowMs();
  const IdMatch matches(a);
  auto it = q.msgs.begin();
  while (it != q.msgs.end()) {
    Message &m = it->second;
    if (m.lockedBy || m.lent) {
      ++it;
      continue;
    }
    if (m.expiresMs && m.expiresMs <= now) {
      auto next = std::next(it);
      // After a failure the queue may have changed under `next`.
      if (int32_t rc = qm_.removeMessage(qp, it, false)) return fail(rc);
      it = next;
      continue;
    }
    if (matches(m.md)) break;
    ++it;
  }
  if (it == q.msgs.end()) {
    if ((a.options & JXGMO_WAIT) && a.waitInterval != 0) return false;
    return fail(JXRC_NO_MSG_AVAILABLE);
  }
  Message &m = it->second;
  const size_t length = m.data.size();
  const jxqp::GetFit fit = jxqp::getFit(length, a.bufferLength, a.options);
  jxqp::GetReply &reply = out.reply;
  out.putter = m.putter;
  out.authority = m.authority;
  reply.cc = fit.cc;
  reply.rc = fit.rc;
  reply.dataLength = static_cast<int32_t>(length);
  reply.md = m.md;
  if (m.expiresMs)
    reply.md.Expiry = static_cast<int32_t>(std::max<int64_t>(1, (m.expiresMs - now + 99) / 100));
  jxqp::setField(reply.resolvedQName, JX_Q_NAME_LENGTH, q.def.name);
  const bool stays = fit.stays || (a.options & JXGMO_SYNCPOINT);
  // A removal that may be taken back keeps the message whole until then.
  if (stays || qm_.removalJournaled(m)) {
    out.data.assign(m.data, 0, fit.returned);
  } else {
    out.data = std::move(m.data);
    out.data.resize(fit.returned);
  }
  if (fit.stays) return true;
  if (a.options & JXGMO_SYNCPOINT) {
    if (qm_.pendingInTurn(m)) qm_.dependsOnTurn();
    m.lockedBy = id_;
    ++q.uncommitted;
    uowActive_ = true;
    uowGets_.emplace_back(qp, it->first);
    return true;
  }
  const auto after = std::next(it);
  if (int32_t failed = qm_.removeMessage(qp, it, true)) return fail(failed);
  readAhead(h->second, a, after, fit.returned, out);
  return true;
}

// Only where no other reader could want the messages lent: the handle
// reads its own temporary queue exclusively. No unit of work holds any of
// its messages (one backed out would come back ahead of those lent), and
// a message that can expire is not lent, as the client could not see it go.
void Session::readAhead(Handle &h, const jxqp::GetRequest &a,
                        std::map<uint64_t, Message>::iterator from, size_t returned,
                        GetResult &out) {
  Queue &q = *h.q;
  if (a.aheadLimit <= 0 || !(h.options & JXOO_INPUT_EXCLUSIVE) || !q.temporary || q.owner != id_ ||
      q.uncommitted > 0)
    return;
  // The reply stays within a frame whatever its own message's length.
  int64_t budget = std::min<int64_t>({a.aheadLimit, jxqp::kMaxAheadBytes,
                                      int64_t{JX_MAX_MSG_LENGTH} - static_cast<int64_t>(returned)});
  const IdMatch matches(a);
  for (auto it = from; it != q.msgs.end() && out.ahead.size() < size_t{jxqp::kMaxAheadCount};
       ++it) {
    Message &m = it->second;
    if (m.lockedBy || m.lent || m.expiresMs || qm_.removalJournaled(m)) break;
    if (!matches(m.md)) continue;
    budget -= static_cast<int64_t>(m.data.size()) + jxqp::kAheadOverhead;
    if (budget < 0) break;
    m.lent = true;
    h.lent.push_back(it->first);
    out.ahead.push_back({m.md, m.data});
  }
}

void Session::settleLent(Handle &h, int32_t taken) {
  if (h.lent.empty()) return;
  for (size_t i = 0; i < h.lent.size(); ++i) {
    auto it = h.q->msgs.find(h.lent[i]);
    if (it == h.q->msgs.end()) continue;  // cleared meanwhile
    it->second.lent = false;
    // Only messages whose removal needs no store are lent: it cannot fail.
    if (static_cast<int64_t>(i) < taken) (void)qm_.removeMessage(h.q, it, true);
  }
  h.lent.clear();
}

std::optional<GetResult> Session::get(const jxqp::GetRequest &r) {
  int32_t rc = JXRC_NONE;
  auto h = handles_.find(r.hobj);
  if (h != handles_.end()) settleLent(h->second, r.taken);
  if (h == handles_.end())
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
  else if ((r.options & JXGMO_SYNCPOINT) && unitOfWorkFull())
    rc = JXRC_SYNCPOINT_LIMIT_REACHED;
  if (rc) return failedGet(rc);
  GetResult out;
  if (tryGet(r, out)) return out;
  PendingGet p{r, r.waitInterval == JXWI_UNLIMITED ? -1 : QueueManager::nowMs() + r.waitInterval};
  if (p.deadlineMs >= 0) qm_.addTimedWait(p.deadlineMs, id_);
  pending_ = p;
  h->second.q->waiters.push_back(id_);
  return std::nullopt;
}

void Session::unblock() {
  auto h = handles_.find(pending_->request.hobj);
  if (h != handles_.end()) h->second.q->waiters.remove(id_);
  qm_.removeTimedWait(pending_->deadlineMs, id_);
  pending_.reset();
}

void Session::retryPendingGet() {
  QueueManager::Acting acting(qm_, id_);
  GetResult out;
  if (!tryGet(pending_->request, out)) return;
  unblock();
  peer_->getAnswered(std::move(out));
}

void Session::failPendingGet(int32_t reason) {
  unblock();
  peer_->getAnswered(failedGet(reason));
}

// ---- inquire and set ----

jxqp::InqReply Session::inquire(const jxqp::InqRequest &r, std::string &chars) {
  constexpr auto fail = jxqp::failedReply<jxqp::InqReply>;
  auto h = handles_.find(r.hobj);
  if (h == handles_.end()) return fail(JXRC_HOBJ_ERROR);
  if (!(h->second.options & JXOO_INQUIRE)) return fail(JXRC_NOT_OPEN_FOR_INQUIRE);
  if (r.intCount < 0) return fail(JXRC_INT_ATTR_COUNT_ERROR);
  if (r.charLength < 0) return fail(JXRC_CHAR_ATTR_LENGTH_ERROR);
  const Queue *q = h->second.q.get();
  if (q && q->deleted) return fail(JXRC_Q_DELETED);
  const Object object = q ? Object::Queue : Object::QMgr;
  std::vector<const Attribute *> rows;
  int32_t ints = 0, length = 0;
  for (int32_t s : r.selectors) {
    const Attribute *a = findAttribute(object, s);
    if (!a) return fail(JXRC_SELECTOR_ERROR);
    if (a->integer())
      ++ints;
    else
      length += a->length;
    rows.push_back(a);
  }
  if (ints > r.intCount) return fail(JXRC_INT_ATTR_COUNT_TOO_SMALL);
  if (length > r.charLength) return fail(JXRC_CHAR_ATTRS_TOO_SHORT);
  jxqp::InqReply out;
  chars.clear();
  for (const Attribute *a : rows) {
    AttrValue v = q ? qm_.value(*a, *q) : qm_.value(*a);
    if (a->integer())
      out.ints.push_back(v.number);
    else
      chars += v.text;
  }
  out.chars = chars;
  return out;
}

jxqp::CodeReply Session::set(const jxqp::SetRequest &r) {
  auto h = handles_.find(r.hobj);
  if (h == handles_.end()) return code(JXRC_HOBJ_ERROR);
  if (!(h->second.options & JXOO_SET)) return code(JXRC_NOT_OPEN_FOR_SET);
  Queue *q = h->second.q.get();
  if (q && q->deleted) return code(JXRC_Q_DELETED);
  const Object object = q ? Object::Queue : Object::QMgr;
  // Everything is checked first, in order, so that a refused set changes nothing.
  AttrList values;
  size_t iv = 0, cv = 0;
  for (int32_t s : r.selectors) {
    const Attribute *a = findAttribute(object, s);
    if (!a || a->access != Access::Settable) return code(JXRC_SELECTOR_ERROR);
    AttrValue v{s, 0, {}};
    if (a->integer()) {
      if (iv >= r.intValues.size()) return code(JXRC_INT_ATTR_COUNT_TOO_SMALL);
      v.number = r.intValues[iv++];
    } else {
      const size_t n = static_cast<size_t>(a->length);
      if (cv + n > r.charValues.size()) return code(JXRC_CHAR_ATTRS_TOO_SHORT);
      v.text = jxqp::fieldString(r.charValues.data() + cv, n);
      cv += n;
    }
    if (checkValue(a, v, false) != Refusal::None) return code(JXRC_ATTR_VALUE_ERROR);
    values.push_back(std::move(v));
  }
  int32_t refused = 0;
  if (q) {
    QueueDef def = q->def;
    applyValues(def.settings, values, false, refused);
    return code(qm_.redefineQueue(*q, def));
  }
  QMgrSettings settings = qm_.settings();
  applyValues(settings, values, false, refused);
  return code(qm_.changeSettings(settings));
}

// ---- units of work ----

bool Session::unitOfWorkFull() const {
  return uowPuts_.size() + uowGets_.size() >= kMaxUowOps;
}

void Session::holdPut(const QueuePtr &q, uint64_t seq) {
  uowActive_ = true;
  uowPuts_.emplace_back(q, seq);
}

void Session::forgetUnitOfWork() {
  uowPuts_.clear();
  uowGets_.clear();
  uowActive_ = false;
}

jxqp::CodeReply Session::begin(const jxqp::BeginRequest &r) {
  if (r.options != JXBO_NONE) return code(JXRC_OPTIONS_ERROR);
  if (uowActive_) return code(JXRC_UOW_IN_PROGRESS);
  uowActive_ = true;
  return {};
}

jxqp::CodeReply Session::commit() {
  return code(qm_.commitUnitOfWork(*this));
}

jxqp::CodeReply Session::backout() {
  qm_.backoutUnitOfWork(*this);
  return {};
}

jxqp::CodeReply Session::disconnect() {
  return code(qm_.commitUnitOfWork(*this));
}

void Session::reopen(int32_t hobj, const QueuePtr &q, int32_t options) {
  if (!handles_.emplace(hobj, Handle{q, options, {}}).second) return;
  countOpen(q, options, +1);
}

void Session::forgetHandle(int32_t hobj) {
  auto it = handles_.find(hobj);
  if (it == handles_.end()) return;
  countOpen(it->second.q, it->second.options, -1);
  handles_.erase(it);
}

void Session::release() {
  if (pending_) unblock();
  qm_.backoutUnitOfWork(*this);
  for (auto &[hobj, h] : handles_) countOpen(h.q, h.options, -1);
  handles_.clear();
  // Temporary queues are not stored: deleting one cannot fail.
  for (auto &q : temps_)
    if (!q->deleted) (void)qm_.deleteQueue(q);
  temps_.clear();
}

}  // namespace jxqm
