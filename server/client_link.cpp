#include "client_link.hpp"

#include <jx/jxai.h>

#include <array>
#include <cstring>

#include "administration.hpp"
#include "credentials.hpp"
#include "qm_paths.hpp"
#include "session.hpp"

namespace jxqm {

namespace {

// A client sends its next request only after the reply: more than a frame
// waiting behind a blocked get is not the protocol.
constexpr size_t kMaxInputBacklog = jxqp::kHeaderSize + jxqp::kMaxPayload + 65536;
// Nor does it send requests faster than it reads replies: a link with more
// than a frame of unwritten output takes no more requests until it drains.
constexpr size_t kMaxOutputBacklog = jxqp::kHeaderSize + jxqp::kMaxPayload;
// Buffers emptied keep at most this much memory; a large message's
// buffer goes back once it is handled.
constexpr size_t kKeptCapacity = 65536;

using jxqp::Op;

AttrList attributeValues(const std::vector<jxqp::AttributeArg> &args) {
  AttrList values;
  for (const jxqp::AttributeArg &a : args)
    values.push_back({a.selector, a.number, std::string(a.text)});
  return values;
}

// The administration commands a connection may send (jxqm's definitions).
struct AdminVerb {
  int32_t command;
  AdminResult (*run)(Administration &, const jxqp::AdminRequest &);
};
constexpr AdminVerb kAdminVerbs[] = {
    {JXCMD_CREATE_QUEUE,
     [](Administration &a, const jxqp::AdminRequest &r) {
       return a.createQueue(r.name, r.queueType, attributeValues(r.attributes),
                            r.flags & jxqp::kAdminReplace);
     }},
    {JXCMD_CHANGE_QUEUE,
     [](Administration &a, const jxqp::AdminRequest &r) {
       return a.changeQueue(r.name, r.queueType, attributeValues(r.attributes));
     }},
    {JXCMD_COPY_QUEUE,
     [](Administration &a, const jxqp::AdminRequest &r) {
       return a.copyQueue(r.name, r.toName, r.queueType, attributeValues(r.attributes));
     }},
    {JXCMD_DELETE_QUEUE,
     [](Administration &a, const jxqp::AdminRequest &r) {
       return a.deleteQueue(r.name, r.flags & jxqp::kAdminPurge);
     }},
    {JXCMD_CLEAR_QUEUE,
     [](Administration &a, const jxqp::AdminRequest &r) { return a.clearQueue(r.name); }},
};

}  // namespace

// How each request op is served. serve decodes the request (false: it is
// malformed and the link is dropped) and queues the reply.
struct LinkOps {
  using Serve = bool (*)(ClientLink &, const uint8_t *, size_t);
  struct Row {
    bool beforeHello;   // the one request a new connection may send
    int32_t authority;  // what the session needs; less is refused with 2035
    Serve serve;
    Serve refuse;  // answers 2035 in the op's own reply
  };

  template <class Request, class Reply, Op O>
  static bool refuse(ClientLink &l, const uint8_t *p, size_t n) {
    Request r;
    if (!jxqp::decode(p, n, r)) return false;
    l.reply(O, jxqp::failedReply<Reply>(JXRC_NOT_AUTHORIZED));
    return true;
  }

  template <class Request, class Reply, Reply (Session::*Call)(const Request &)>
  static bool call(ClientLink &l, const uint8_t *p, size_t n, Op op) {
    Request r;
    if (!jxqp::decode(p, n, r)) return false;
    l.reply(op, (l.session_->*Call)(r));
    return true;
  }
  template <jxqp::CodeReply (Session::*Call)()>
  static bool plain(ClientLink &l, const uint8_t *p, size_t n, Op op) {
    jxqp::EmptyRequest r;
    if (!jxqp::decode(p, n, r)) return false;
    l.reply(op, (l.session_->*Call)());
    return true;
  }

  static bool hello(ClientLink &l, const uint8_t *p, size_t n) {
    jxqp::HelloRequest r;
    if (l.session_ || !jxqp::decode(p, n, r)) return false;
    std::string wanted = jxqp::fieldString(r.qmgrName, JX_Q_MGR_NAME_LENGTH);
    if (!wanted.empty() && wanted != l.qm_.name()) {
      jxqp::HelloReply out = jxqp::failedReply<jxqp::HelloReply>(JXRC_Q_MGR_NAME_ERROR);
      out.connectionId = l.id_;
      std::memcpy(out.qmgrName, l.qm_.name48(), JX_Q_MGR_NAME_LENGTH);
      l.closing_ = true;
      l.reply(Op::Hello, out);
      return true;
    }
    Login login = beginLogin(l.qm_.store(), l.peer_, r);
    if (login.needsPassword && l.owner_) {
      std::string password = std::move(login.password), hash = login.hash;
      l.login_ = std::make_unique<ClientLink::PendingLogin>(
          ClientLink::PendingLogin{std::move(login), r.pid, std::string(r.applName)});
      l.owner_->checkPassword(l, std::move(password), std::move(hash));
      return true;
    }
    const bool matched = login.needsPassword && verifyPassword(login.password, login.hash);
    l.finishHello(login, matched, r.pid, std::string(r.applName));
    return true;
  }

  static bool get(ClientLink &l, const uint8_t *p, size_t n) {
    jxqp::GetRequest r;
    if (!jxqp::decode(p, n, r)) return false;
    if (std::optional<GetResult> answer = l.session_->get(r)) l.getAnswered(std::move(*answer));
    return true;
  }

  static bool inquire(ClientLink &l, const uint8_t *p, size_t n) {
    jxqp::InqRequest r;
    if (!jxqp::decode(p, n, r)) return false;
    l.reply(Op::Inq, l.session_->inquire(r, l.chars_));
    return true;
  }

  static bool disconnect(ClientLink &l, const uint8_t *p, size_t n) {
    if (!plain<&Session::disconnect>(l, p, n, Op::Disc)) return false;
    l.closing_ = true;
    return true;
  }

  static bool admin(ClientLink &l, const uint8_t *p, size_t n) {
    jxqp::AdminRequest r;
    if (!jxqp::decode(p, n, r)) return false;
    jxqp::AdminReply out = jxqp::failedReply<jxqp::AdminReply>(JXRCCF_COMMAND_UNKNOWN);
    Administration administration(l.qm_);
    for (const AdminVerb &v : kAdminVerbs) {
      if (v.command != r.command) continue;
      AdminResult result = v.run(administration, r);
      out = {result.cc, result.rc, result.parameter};
    }
    l.reply(Op::Admin, out);
    return true;
  }

  template <auto Serve, Op O>
  static bool as(ClientLink &l, const uint8_t *p, size_t n) {
    return Serve(l, p, n, O);
  }

  // Indexed by op.
  static constexpr std::array<Row, jxqp::kLastOp + 1> kRows = [] {
    using namespace jxqp;
    std::array<Row, kLastOp + 1> rows{};
    auto at = [&](Op op) -> Row & { return rows[static_cast<size_t>(op)]; };
    at(Op::Hello) = {true, kAuthNone, hello, refuse<HelloRequest, HelloReply, Op::Hello>};
    at(Op::Open) = {false, kAuthConnect, as<call<OpenRequest, OpenReply, &Session::open>, Op::Open>,
                    refuse<OpenRequest, OpenReply, Op::Open>};
    at(Op::Close) = {false, kAuthConnect,
                     as<call<CloseRequest, CodeReply, &Session::close>, Op::Close>,
                     refuse<CloseRequest, CodeReply, Op::Close>};
    at(Op::Put) = {false, kAuthConnect, as<call<PutRequest, PutReply, &Session::put>, Op::Put>,
                   refuse<PutRequest, PutReply, Op::Put>};
    at(Op::Put1) = {false, kAuthConnect, as<call<Put1Request, PutReply, &Session::put1>, Op::Put1>,
                    refuse<Put1Request, PutReply, Op::Put1>};
    at(Op::Get) = {false, kAuthConnect, get, refuse<GetRequest, GetReply, Op::Get>};
    at(Op::Inq) = {false, kAuthConnect, inquire, refuse<InqRequest, InqReply, Op::Inq>};
    at(Op::Set) = {false, kAuthConnect, as<call<SetRequest, CodeReply, &Session::set>, Op::Set>,
                   refuse<SetRequest, CodeReply, Op::Set>};
    at(Op::Commit) = {false, kAuthConnect, as<plain<&Session::commit>, Op::Commit>,
                      refuse<EmptyRequest, CodeReply, Op::Commit>};
    at(Op::Backout) = {false, kAuthConnect, as<plain<&Session::backout>, Op::Backout>,
                       refuse<EmptyRequest, CodeReply, Op::Backout>};
    at(Op::Begin) = {false, kAuthConnect,
                     as<call<BeginRequest, CodeReply, &Session::begin>, Op::Begin>,
                     refuse<BeginRequest, CodeReply, Op::Begin>};
    at(Op::Disc) = {false, kAuthConnect, disconnect, refuse<EmptyRequest, CodeReply, Op::Disc>};
    at(Op::Admin) = {false, kAuthAdmin, admin, refuse<AdminRequest, AdminReply, Op::Admin>};
    return rows;
  }();
};

ClientLink::ClientLink(QueueManager &qm, LinkOwner *owner, uint32_t id, PeerAddress peer,
                       std::unique_ptr<Transport> transport)
    : qm_(qm),
      owner_(owner),
      id_(id),
      peer_(std::move(peer)),
      transport_(std::move(transport)),
      budget_(owner ? owner->budget() : nullptr) {}

ClientLink::~ClientLink() {
  if (session_) qm_.endSession(session_->id());
  if (budget_) budget_->give(inCharged_ + outCharged_);
}

void ClientLink::log(const std::string &what) const {
  std::string line = "connection " + std::to_string(id_) + " (" + peer_.description + "): " + what;
  if (owner_)
    owner_->logAbout(*this, line);
  else
    qm_.log(line);
}

template <class Reply>
void ClientLink::reply(jxqp::Op op, const Reply &r) {
  jxqp::Writer w;
  jxqp::encode(w, r);
  const size_t start = out.size();
  jxqp::appendFrame(out, jxqp::replyOp(op), w);
  if (session_ && qm_.takeHeld(session_->id())) held_.hold(start, op, qm_.turn());
  // A reply is made: it is held whatever the budget says, and a link with
  // this much unwritten output takes no more requests (outputBacklogged).
  if (budget_) budget_->force(out.size() - start);
  outCharged_ += out.size() - start;
  if (owner_) owner_->touched(*this);
}

void ClientLink::outputWritten() {
  out.clear();
  outOff = 0;
  if (budget_) budget_->give(outCharged_);
  outCharged_ = 0;
  if (out.capacity() > kKeptCapacity) jxqp::Bytes().swap(out);
}

bool ClientLink::outputBacklogged() const {
  return out.size() - outOff > kMaxOutputBacklog;
}

void ClientLink::finishHello(const Login &login, bool matched, uint32_t pid, std::string applName) {
  jxqp::HelloReply out;
  out.connectionId = id_;
  std::memcpy(out.qmgrName, qm_.name48(), JX_Q_MGR_NAME_LENGTH);
  QueueManager::SessionInfo info;
  std::string why;
  if (int32_t rc = finishLogin(login, matched, info.who, why)) {
    log(why);
    out.cc = JXCC_FAILED;
    out.rc = rc;
    closing_ = true;
  } else {
    info.transport = peer_.tcp ? JXTRANSPORT_TCP : JXTRANSPORT_LOCAL;
    info.pid = pid;
    info.applName = std::move(applName);
    session_ = &qm_.startSession(std::move(info), this);
  }
  reply(Op::Hello, out);
}

void ClientLink::passwordChecked(bool matched) {
  if (!login_) return;
  std::unique_ptr<PendingLogin> pending = std::move(login_);
  finishHello(pending->login, matched, pending->pid, std::move(pending->applName));
  // Frames that came behind the hello can be handled now.
  if (owner_) owner_->runnable(*this);
}

bool ClientLink::receive(const uint8_t *data, size_t length, int64_t nowMs) {
  while (length > 0) {
    size_t have = in.size() - frameAt_;
    if (have == 0) {
      frameStartMs_ = nowMs;
      frameStarted_ = true;
    }
    const size_t want = (frameNeed_ ? frameNeed_ : jxqp::kHeaderSize) - have;
    const size_t k = want < length ? want : length;
    in.insert(in.end(), data, data + k);
    data += k;
    length -= k;
    have += k;
    if (!frameNeed_) {
      if (have < jxqp::kHeaderSize) break;
      jxqp::FrameHeader h;
      if (jxqp::decodeHeader(in.data() + frameAt_, h) != jxqp::HeaderStatus::Ok) {
        log("bad frame header");
        return false;
      }
      if (!greeted() && h.length > PeerLimits::kHelloFrameMax) {
        log("frame of " + std::to_string(h.length) + " bytes before the hello (at most " +
            std::to_string(PeerLimits::kHelloFrameMax) + ")");
        return false;
      }
      const size_t whole = jxqp::kHeaderSize + h.length;
      if (budget_ && !budget_->take(whole)) {
        log("frame of " + std::to_string(whole) + " bytes refused: connections' buffers hold " +
            std::to_string(budget_->used()) + " of " + std::to_string(budget_->limit()) + " bytes");
        return false;
      }
      inCharged_ += whole;
      frameNeed_ = whole;
      // The frame's bytes go into one allocation of its size, not a
      // doubling one; pages the peer never sends are never touched.
      in.reserve(frameAt_ + whole);
    }
    if (have == frameNeed_) {
      frameAt_ = in.size();
      frameNeed_ = 0;
      frameStartMs_ = 0;
    }
  }
  return true;
}

bool ClientLink::waiting() const {
  return session_ && session_->waiting();
}

void ClientLink::getAnswered(GetResult &&result) {
  result.reply.data = result.data;
  for (const LentMessage &m : result.ahead) result.reply.ahead.push_back({m.md, m.data});
  reply(Op::Get, result.reply);
  // Frames that came behind the get can be handled now.
  if (owner_) owner_->runnable(*this);
}

void ClientLink::ended() {
  session_ = nullptr;
  closing_ = true;
  log("stopped by an administrator");
  if (owner_) owner_->touched(*this);
}

bool ClientLink::hasRunnableInput() const {
  if (waiting() || closing_ || authenticating() || outputBacklogged() ||
      in.size() < jxqp::kHeaderSize)
    return false;
  jxqp::FrameHeader h;
  if (jxqp::decodeHeader(in.data(), h) != jxqp::HeaderStatus::Ok) return true;
  return in.size() - jxqp::kHeaderSize >= h.length;
}

bool ClientLink::processInput() {
  size_t off = 0;
  bool ok = true;
  while (!waiting() && !closing_ && !authenticating() && !outputBacklogged()) {
    size_t avail = in.size() - off;
    if (avail < jxqp::kHeaderSize) break;
    jxqp::FrameHeader h;
    if (jxqp::decodeHeader(in.data() + off, h) != jxqp::HeaderStatus::Ok) {
      log("bad frame header");
      ok = false;
      break;
    }
    if (avail - jxqp::kHeaderSize < h.length) break;
    const LinkOps::Row *row = jxqp::validRequestOp(h.op) ? &LinkOps::kRows[h.op] : nullptr;
    if (row && !session_ && !row->beforeHello) {
      log("request before hello");
      ok = false;
      break;
    }
    const int32_t authority = session_ ? session_->who().authority : kAuthNone;
    const LinkOps::Serve serve = row && authority < row->authority ? row->refuse
                                 : row                             ? row->serve
                                                                   : nullptr;
    QueueManager::Acting acting(qm_, session_ ? session_->id() : 0);
    if (!serve || !serve(*this, in.data() + off + jxqp::kHeaderSize, h.length)) {
      log("malformed request, op " + std::to_string(h.op));
      ok = false;
      break;
    }
    off += jxqp::kHeaderSize + h.length;
  }
  in.erase(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(off));
  // Frames handled give their bytes back (a link fed by hand took none).
  const size_t counted = off < frameAt_ ? off : frameAt_;
  frameAt_ -= counted;
  const size_t given = counted < inCharged_ ? counted : inCharged_;
  inCharged_ -= given;
  if (budget_) budget_->give(given);
  if (in.empty() && in.capacity() > kKeptCapacity) jxqp::Bytes().swap(in);
  if (ok && in.size() > kMaxInputBacklog) {
    log("input backlog exceeded");
    ok = false;
  }
  return ok;
}

}  // namespace jxqm
