// Client side of the queue-manager protocol: the zstJX* stubs.
//
// A connection handle indexes a process-wide table; each connection owns one
// socket (a TCP one inside TLS, tls_client.hpp) and a mutex, so calls on
// one connection from several threads run one after the other. Any
// transport or protocol failure marks the connection broken: later calls on
// it report JXRC_CONNECTION_BROKEN.
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "admin_call.hpp"
#include "argument_checks.hpp"
#include "jxiz.h"
#include "qm_paths.hpp"
#include "qm_protocol.hpp"
#include "read_ahead.hpp"
#include "tls_client.hpp"

namespace {

using jxqp::Op;
using jxqp::Writer;

constexpr int32_t kHconnBase = 0x10000;
constexpr size_t kMaxConnections = 4096;

struct Connection {
  std::mutex mu;
  int fd = -1;
  std::unique_ptr<jxiz::TlsChannel> tls;  // TCP only
  bool broken = false;
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {};  // the name the queue manager answered with
  // Replies are read through this buffer: a header and a small payload
  // usually arrive in one receive.
  uint8_t rbuf[16384];
  size_t rpos = 0, rlen = 0;
  std::map<int32_t, jxiz::ReadAhead> ahead;  // by object handle
  // Leaves rbuf as it is: zeroing it would cost every connection four
  // fresh pages for bytes that are only ever read after a receive.
  Connection() {}
  ~Connection() {
    tls.reset();
    if (fd >= 0) close(fd);
  }
};

// Every call looks its connection up; only connect and disconnect change the table.
std::shared_mutex g_tableMu;
std::vector<std::shared_ptr<Connection>> g_table;

std::shared_ptr<Connection> lookup(int32_t hconn) {
  std::shared_lock<std::shared_mutex> lock(g_tableMu);
  int64_t i = static_cast<int64_t>(hconn) - kHconnBase;
  if (i < 0 || i >= static_cast<int64_t>(g_table.size())) return nullptr;
  return g_table[static_cast<size_t>(i)];
}

int32_t enter(std::shared_ptr<Connection> c) {
  std::unique_lock<std::shared_mutex> lock(g_tableMu);
  for (size_t i = 0; i < g_table.size(); ++i)
    if (!g_table[i]) {
      g_table[i] = std::move(c);
      return kHconnBase + static_cast<int32_t>(i);
    }
  if (g_table.size() >= kMaxConnections) return 0;
  g_table.push_back(std::move(c));
  return kHconnBase + static_cast<int32_t>(g_table.size() - 1);
}

void remove(int32_t hconn) {
  std::unique_lock<std::shared_mutex> lock(g_tableMu);
  size_t i = static_cast<size_t>(hconn - kHconnBase);
  if (i < g_table.size()) g_table[i].reset();
}

bool set(int32_t *cc, int32_t *rc, int32_t c, int32_t r) {
  *cc = c;
  *rc = r;
  return c == JXCC_OK;
}

bool fail(int32_t *cc, int32_t *rc, int32_t r) {
  return set(cc, rc, JXCC_FAILED, r);
}

bool sendAll(Connection &c, const uint8_t *p, size_t n) {
  if (c.tls) return c.tls->sendAll(p, n);
  const int fd = c.fd;
  while (n) {
    ssize_t w = send(fd, p, n, MSG_NOSIGNAL);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

// Waits in poll, not in a blocking receive: each time the queue manager
// reads a request, the socket layer wakes whoever sleeps on this socket to
// say there is room to send again, and a receive sleeping there would be
// woken for nothing, once per call. poll sleeps only for input.
ssize_t recvSome(Connection &c, uint8_t *p, size_t n) {
  if (c.tls) return c.tls->receive(p, n);
  const int fd = c.fd;
  for (;;) {
    ssize_t r = recv(fd, p, n, MSG_DONTWAIT);
    if (r >= 0) return r;
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
    pollfd pfd{fd, POLLIN, 0};
    if (poll(&pfd, 1, -1) < 0 && errno != EINTR) return -1;
  }
}

bool recvAll(Connection &c, uint8_t *p, size_t n) {
  while (n) {
    ssize_t r = recvSome(c, p, n);
    if (r <= 0) return false;
    p += r;
    n -= static_cast<size_t>(r);
  }
  return true;
}

bool readReply(Connection &c, uint8_t *out, size_t n) {
  while (n) {
    if (c.rpos == c.rlen) {
      if (n >= sizeof c.rbuf) return recvAll(c, out, n);
      ssize_t r = recvSome(c, c.rbuf, sizeof c.rbuf);
      if (r <= 0) return false;
      c.rpos = 0;
      c.rlen = static_cast<size_t>(r);
    }
    size_t k = std::min(n, c.rlen - c.rpos);
    std::memcpy(out, c.rbuf + c.rpos, k);
    c.rpos += k;
    out += k;
    n -= k;
  }
  return true;
}

int32_t protocolError(Connection &c) {
  c.broken = true;
  return JXRC_UNEXPECTED_ERROR;
}

// Sends one request and reads its reply. Returns a reason: 0, or
// JXRC_CONNECTION_BROKEN / JXRC_UNEXPECTED_ERROR after marking the
// connection broken. The reply's views point into `payload`.
template <class Request, class Reply>
int32_t call(Connection &c, Op op, const Request &request, Reply &reply,
             std::vector<uint8_t> &payload) {
  if (c.broken) return JXRC_CONNECTION_BROKEN;
  Writer w;
  jxqp::encode(w, request);
  jxqp::Bytes f = jxqp::frame(static_cast<uint8_t>(op), w);
  uint8_t hdr[jxqp::kHeaderSize];
  if (!sendAll(c, f.data(), f.size()) || !readReply(c, hdr, sizeof hdr)) {
    c.broken = true;
    return JXRC_CONNECTION_BROKEN;
  }
  jxqp::FrameHeader h;
  if (jxqp::decodeHeader(hdr, h) != jxqp::HeaderStatus::Ok || h.op != jxqp::replyOp(op))
    return protocolError(c);
  payload.resize(h.length);
  if (!readReply(c, payload.data(), payload.size())) {
    c.broken = true;
    return JXRC_CONNECTION_BROKEN;
  }
  if (!jxqp::decode(payload.data(), payload.size(), reply) || reply.cc < JXCC_OK ||
      reply.cc > JXCC_FAILED)
    return protocolError(c);
  return JXRC_NONE;
}

int connectLocal(const std::string &name, int32_t &reason) {
  std::string dir = jxqp::qmgrDir(name);
  std::string path = dir + "/" + jxqp::kSocketFile;
  int dirFd = -1;
  sockaddr_un sun{};
  if (path.size() >= sizeof sun.sun_path) {
    // Long data roots: reach the socket through the folder's descriptor.
    dirFd = open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) {
      reason = errno == EACCES ? JXRC_NOT_AUTHORIZED : JXRC_Q_MGR_NOT_AVAILABLE;
      return -1;
    }
    path = "/proc/self/fd/" + std::to_string(dirFd) + "/" + jxqp::kSocketFile;
  }
  sun.sun_family = AF_UNIX;
  std::memcpy(sun.sun_path, path.c_str(), path.size() + 1);
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int rc = fd < 0 ? -1 : connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof sun);
  int err = errno;
  if (dirFd >= 0) close(dirFd);
  if (rc != 0) {
    if (fd >= 0) close(fd);
    reason = err == EACCES || err == EPERM ? JXRC_NOT_AUTHORIZED : JXRC_Q_MGR_NOT_AVAILABLE;
    return -1;
  }
  return fd;
}

// "host:port", "[v6]:port" or "host(port)".
bool splitHostPort(std::string s, std::string &host, std::string &port) {
  while (!s.empty() && s.back() == ' ') s.pop_back();
  auto open = s.find('(');
  if (open != std::string::npos && s.back() == ')') {
    host = s.substr(0, open);
    port = s.substr(open + 1, s.size() - open - 2);
  } else {
    auto colon = s.rfind(':');
    if (colon == std::string::npos) return false;
    host = s.substr(0, colon);
    port = s.substr(colon + 1);
  }
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  return !host.empty() && !port.empty();
}

int connectTcp(const std::string &where, int32_t &reason) {
  std::string host, port;
  reason = JXRC_HOST_NOT_AVAILABLE;
  if (!splitHostPort(where, host, port)) return -1;
  addrinfo hints{}, *res = nullptr;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &res) != 0) return -1;
  int fd = -1;
  for (addrinfo *ai = res; ai && fd < 0; ai = ai->ai_next) {
    fd = socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, ai->ai_addr, ai->ai_addrlen) != 0) {
      close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(res);
  if (fd >= 0) {
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  }
  return fd;
}

std::string fromEnvironment(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

// The program's name, as the queue manager lists the connection.
std::string_view applName() {
  std::string_view name = program_invocation_short_name ? program_invocation_short_name : "";
  return name.substr(0, JX_APPL_NAME_LENGTH);
}

void doConnect(const char *qmgrName, const JXCNO *cno, int32_t *hconn, int32_t *cc, int32_t *rc) {
  using namespace jxiz;
  if (int32_t e = firstUnusable(
          {output(hconn, JXRC_HCONN_ERROR), area(qmgrName, qmgrName ? JX_Q_MGR_NAME_LENGTH : 0,
                                                 XCS_CHECK_READ, JXRC_Q_MGR_NAME_ERROR)}))
    return (void)fail(cc, rc, e);
  jxqp::HelloRequest hello;
  if (qmgrName) std::memcpy(hello.qmgrName, qmgrName, strnlen(qmgrName, JX_Q_MGR_NAME_LENGTH));
  std::string name = jxqp::fieldString(hello.qmgrName, JX_Q_MGR_NAME_LENGTH);
  jxqp::setField(hello.qmgrName, JX_Q_MGR_NAME_LENGTH, name);

  std::string where, user, password;
  jxiz::TlsTrust trust;
  if (cno) {
    where = jxqp::fieldString(cno->ConnectionName, sizeof cno->ConnectionName);
    user = jxqp::fieldString(cno->UserId, sizeof cno->UserId);
    password = jxqp::fieldString(cno->Password, sizeof cno->Password);
    if (cno->Version >= JXCNO_VERSION_2) {
      trust.file = jxqp::fieldString(cno->TlsTrustFile, sizeof cno->TlsTrustFile);
      trust.fingerprint = jxqp::fieldString(cno->TlsFingerprint, sizeof cno->TlsFingerprint);
    }
  }
  if (where.empty()) where = fromEnvironment("JX_SERVER");
  std::unique_ptr<jxiz::TlsClient> tls;
  int32_t reason = JXRC_NONE;
  if (!where.empty()) {
    if (user.empty()) user = fromEnvironment("JX_USER");
    if (password.empty()) password = fromEnvironment("JX_PASSWORD");
    if (trust.file.empty()) trust.file = fromEnvironment("JX_TLS_TRUST");
    if (trust.fingerprint.empty()) trust.fingerprint = fromEnvironment("JX_TLS_FINGERPRINT");
    hello.user = user;
    hello.password = password;
    // Nothing is sent to a queue manager that cannot be checked.
    tls = jxiz::TlsClient::make(trust, reason);
    if (!tls) return (void)fail(cc, rc, reason);
  } else if (!jxqp::validQMgrName(name)) {
    return (void)fail(cc, rc, JXRC_Q_MGR_NAME_ERROR);
  }
  hello.pid = static_cast<uint32_t>(getpid());
  hello.applName = applName();

  int fd = where.empty() ? connectLocal(name, reason) : connectTcp(where, reason);
  if (fd < 0) return (void)fail(cc, rc, reason);
  auto c = std::make_shared<Connection>();
  c->fd = fd;
  if (tls) {
    c->tls = tls->handshake(fd, reason);
    if (!c->tls) return (void)fail(cc, rc, reason);
  }
  jxqp::HelloReply reply;
  std::vector<uint8_t> payload;
  reason = call(*c, Op::Hello, hello, reply, payload);
  // A queue manager that refuses the peer closes right after its answer; a
  // reset before any answer means it is not there for us.
  if (reason == JXRC_CONNECTION_BROKEN) return (void)fail(cc, rc, JXRC_Q_MGR_NOT_AVAILABLE);
  if (reason) return (void)fail(cc, rc, reason);
  if (reply.cc != JXCC_OK) return (void)set(cc, rc, reply.cc, reply.rc);
  std::memcpy(c->qmgr, reply.qmgrName, JX_Q_MGR_NAME_LENGTH);
  int32_t h = enter(std::move(c));
  if (!h) return (void)fail(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
  *hconn = h;
  set(cc, rc, JXCC_OK, JXRC_NONE);
}

// Copies a caller's descriptor into a full one: version 1 descriptors are
// 324 bytes long and must not be read beyond that.
void loadMd(const void *p, JXMD &md) {
  md = JXMD_DEFAULT;
  const JXMD *in = static_cast<const JXMD *>(p);
  std::memcpy(&md, p, in->Version >= JXMD_VERSION_2 ? JXMD_LENGTH_2 : JXMD_LENGTH_1);
}

void storeMd(void *p, const JXMD &md, int32_t callerVersion) {
  JXMD out = md;
  out.Version = callerVersion;
  std::memcpy(p, &out, callerVersion >= JXMD_VERSION_2 ? JXMD_LENGTH_2 : JXMD_LENGTH_1);
}

// A buffer of `length` bytes used in `mode`: its length first, then its memory.
int32_t checkBuffer(int32_t length, const void *buffer, int32_t mode) {
  if (length < 0) return JXRC_BUFFER_LENGTH_ERROR;
  return jxiz::firstUnusable(
      {jxiz::area(buffer, static_cast<size_t>(length), mode, JXRC_BUFFER_ERROR)});
}

jxqp::ObjectRef objectRef(const JXOD &od) {
  jxqp::ObjectRef o;
  o.objectType = od.ObjectType;
  std::memcpy(o.objectName, od.ObjectName, JX_Q_NAME_LENGTH);
  std::memcpy(o.objectQMgrName, od.ObjectQMgrName, JX_Q_MGR_NAME_LENGTH);
  std::memcpy(o.dynamicQName, od.DynamicQName, JX_Q_NAME_LENGTH);
  return o;
}

// Shared tail of JXPUT and JXPUT1.
template <class Request>
void finishPut(Connection &c, Op op, const Request &request, void *msgDesc, JXPMO *pmo, int32_t *cc,
               int32_t *rc) {
  jxqp::PutReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(c, op, request, reply, payload)) return (void)fail(cc, rc, e);
  if (reply.cc == JXCC_OK) {
    storeMd(msgDesc, reply.md, static_cast<JXMD *>(msgDesc)->Version);
    std::memcpy(pmo->ResolvedQName, reply.resolvedQName, JX_Q_NAME_LENGTH);
    std::memcpy(pmo->ResolvedQMgrName, c.qmgr, JX_Q_MGR_NAME_LENGTH);
  }
  set(cc, rc, reply.cc, reply.rc);
}

// The checks JXINQ and JXSET share, in their order; the connection they
// go on, or null with the failure set.
std::shared_ptr<Connection> attributeCall(bool inquire, int32_t hconn, int32_t selectorCount,
                                          const int32_t *selectors, int32_t intAttrCount,
                                          const int32_t *intAttrs, int32_t charAttrLength,
                                          const char *charAttrs, int32_t *cc, int32_t *rc) {
  using namespace jxiz;
  auto c = lookup(hconn);
  // JXINQ writes the attributes, JXSET reads them (no more integers than
  // any set can use).
  const int32_t mode = inquire ? XCS_CHECK_WRITE : XCS_CHECK_READ;
  int32_t reason = JXRC_NONE;
  if (!c)
    reason = JXRC_HCONN_ERROR;
  else if (selectorCount < 0 || selectorCount > JX_MAX_SELECTORS)
    reason = JXRC_SELECTOR_COUNT_ERROR;
  else if (intAttrCount < 0)
    reason = JXRC_INT_ATTR_COUNT_ERROR;
  else if (charAttrLength < 0 || charAttrLength > jxqp::kMaxCharAttrLength)
    reason = JXRC_CHAR_ATTR_LENGTH_ERROR;
  else
    reason = firstUnusable(
        {area(selectors, static_cast<size_t>(selectorCount) * sizeof(int32_t), XCS_CHECK_READ,
              JXRC_SELECTOR_ERROR),
         area(intAttrs,
              static_cast<size_t>(inquire ? intAttrCount
                                          : std::min(intAttrCount, JX_MAX_SELECTORS)) *
                  sizeof(int32_t),
              mode, JXRC_INT_ATTRS_ARRAY_ERROR),
         area(charAttrs, static_cast<size_t>(charAttrLength), mode, JXRC_CHAR_ATTR_LENGTH_ERROR)});
  if (!reason) return c;
  fail(cc, rc, reason);
  return nullptr;
}

// The count of read-ahead messages a request on the handle reports; the
// buffer is given up.
int32_t takenAhead(Connection &c, int32_t hobj) {
  auto kept = c.ahead.find(hobj);
  if (kept == c.ahead.end()) return 0;
  const int32_t taken = kept->second.giveUp();
  c.ahead.erase(kept);
  return taken;
}

// A get's answer into the caller's descriptor, options and buffer.
void deliver(const jxqp::GetReply &reply, void *msgDesc, JXGMO *gmo, void *buffer,
             int32_t *dataLength, int32_t *cc, int32_t *rc) {
  bool delivered = reply.cc == JXCC_OK || reply.rc == JXRC_TRUNCATED_MSG_ACCEPTED ||
                   reply.rc == JXRC_TRUNCATED_MSG_FAILED;
  if (delivered) {
    storeMd(msgDesc, reply.md, static_cast<const JXMD *>(msgDesc)->Version);
    if (!reply.data.empty()) std::memcpy(buffer, reply.data.data(), reply.data.size());
    *dataLength = reply.dataLength;
    gmo->ReturnedLength = static_cast<int32_t>(reply.data.size());
    std::memcpy(gmo->ResolvedQName, reply.resolvedQName, JX_Q_NAME_LENGTH);
  }
  set(cc, rc, reply.cc, reply.rc);
}

// Calls that carry at most their options.
template <class Request>
void simpleCall(Op op, int32_t hconn, const Request &request, int32_t *cc, int32_t *rc) {
  auto c = lookup(hconn);
  if (!c) return (void)fail(cc, rc, JXRC_HCONN_ERROR);
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::CodeReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, op, request, reply, payload)) return (void)fail(cc, rc, e);
  set(cc, rc, reply.cc, reply.rc);
}

}  // namespace

void zstAdminCommand(int32_t hconn, const jxqp::AdminRequest &request, jxqp::AdminReply &reply) {
  reply = {};
  auto c = lookup(hconn);
  if (!c) {
    fail(&reply.cc, &reply.rc, JXRC_HCONN_ERROR);
    return;
  }
  std::lock_guard<std::mutex> lock(c->mu);
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, Op::Admin, request, reply, payload)) {
    reply = {};
    fail(&reply.cc, &reply.rc, e);
  }
}

extern "C" {

JXQM_EXPORT void zstJXCONN(char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason,
                           int32_t Entry) {
  // The plain and the zrt entries connect alike.
  (void)Entry;
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  doConnect(QMgrName, nullptr, Hconn, CompCode, Reason);
}

JXQM_EXPORT void zstJXCONNX(char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn, int32_t *CompCode,
                            int32_t *Reason, int32_t Entry) {
  (void)Entry;
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  if (int32_t e = jxiz::firstUnusable({jxiz::structure(ConnectOpts, jxiz::kCno, XCS_CHECK_READ)}))
    return (void)fail(CompCode, Reason, e);
  doConnect(QMgrName, ConnectOpts, Hconn, CompCode, Reason);
}

JXQM_EXPORT void zstJXDISC(int32_t *Hconn, int32_t Reserved, int32_t *CompCode, int32_t *Reason) {
  (void)Reserved;
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  if (jxiz::firstUnusable({jxiz::output(Hconn, JXRC_HCONN_ERROR, XCS_CHECK_UPDATE)}))
    return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  auto c = lookup(*Hconn);
  if (!c) return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  jxqp::CodeReply reply;
  {
    std::lock_guard<std::mutex> lock(c->mu);
    std::vector<uint8_t> payload;
    if (int32_t e = call(*c, Op::Disc, jxqp::EmptyRequest{}, reply, payload)) {
      reply.cc = JXCC_FAILED;
      reply.rc = e;
    }
  }
  // The handle is released even when the queue manager is gone.
  remove(*Hconn);
  *Hconn = JXHC_UNUSABLE_HCONN;
  set(CompCode, Reason, reply.cc, reply.rc);
}

JXQM_EXPORT void zstJXOPEN(int32_t Hconn, JXOD *ObjDesc, int32_t Options, int32_t *Hobj,
                           int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = lookup(Hconn);
  if (!c) return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  if (int32_t e = jxiz::firstUnusable({jxiz::structure(ObjDesc, jxiz::kOd, XCS_CHECK_UPDATE),
                                       jxiz::output(Hobj, JXRC_HOBJ_ERROR)}))
    return (void)fail(CompCode, Reason, e);
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::OpenRequest request;
  request.options = Options;
  request.obj = objectRef(*ObjDesc);
  jxqp::OpenReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, Op::Open, request, reply, payload))
    return (void)fail(CompCode, Reason, e);
  if (reply.cc == JXCC_OK) {
    *Hobj = reply.hobj;
    if (jxqp::fieldString(reply.name, JX_Q_NAME_LENGTH) !=
        jxqp::fieldString(ObjDesc->ObjectName, JX_Q_NAME_LENGTH))
      std::memcpy(ObjDesc->ObjectName, reply.name, JX_Q_NAME_LENGTH);
    std::memcpy(ObjDesc->ResolvedQName, reply.name, JX_Q_NAME_LENGTH);
  }
  set(CompCode, Reason, reply.cc, reply.rc);
}

JXQM_EXPORT void zstJXCLOSE(int32_t Hconn, int32_t *Hobj, int32_t Options, int32_t *CompCode,
                            int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = lookup(Hconn);
  if (!c) return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  if (int32_t e = jxiz::firstUnusable({jxiz::output(Hobj, JXRC_HOBJ_ERROR, XCS_CHECK_UPDATE)}))
    return (void)fail(CompCode, Reason, e);
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::CloseRequest request;
  request.hobj = *Hobj;
  request.options = Options;
  // Messages read ahead and not handed out go back to the queue.
  request.taken = takenAhead(*c, *Hobj);
  jxqp::CodeReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, Op::Close, request, reply, payload))
    return (void)fail(CompCode, Reason, e);
  if (reply.cc == JXCC_OK) *Hobj = JXHO_UNUSABLE_HOBJ;
  set(CompCode, Reason, reply.cc, reply.rc);
}

JXQM_EXPORT void zstJXPUT(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXPMO *PutMsgOpts,
                          int32_t BufferLength, void *Buffer, int32_t Reserved, int32_t *CompCode,
                          int32_t *Reason) {
  (void)Reserved;
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = lookup(Hconn);
  if (!c) return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  if (int32_t e = jxiz::firstUnusable({jxiz::structure(MsgDesc, jxiz::kMd, XCS_CHECK_UPDATE),
                                       jxiz::structure(PutMsgOpts, jxiz::kPmo, XCS_CHECK_UPDATE)}))
    return (void)fail(CompCode, Reason, e);
  if (int32_t e = checkBuffer(BufferLength, Buffer, XCS_CHECK_READ))
    return (void)fail(CompCode, Reason, e);
  if (BufferLength > JX_MAX_MSG_LENGTH)
    return (void)fail(CompCode, Reason, JXRC_MSG_TOO_BIG_FOR_Q_MGR);
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::PutRequest request;
  request.hobj = Hobj;
  request.options = PutMsgOpts->Options;
  loadMd(MsgDesc, request.md);
  request.data = std::string_view(static_cast<const char *>(Buffer), BufferLength);
  finishPut(*c, Op::Put, request, MsgDesc, PutMsgOpts, CompCode, Reason);
}

JXQM_EXPORT void zstJXPUT1(int32_t Hconn, JXOD *ObjDesc, void *MsgDesc, JXPMO *PutMsgOpts,
                           int32_t BufferLength, void *Buffer, int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = lookup(Hconn);
  if (!c) return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  if (int32_t e = jxiz::firstUnusable({jxiz::structure(ObjDesc, jxiz::kOd, XCS_CHECK_READ),
                                       jxiz::structure(MsgDesc, jxiz::kMd, XCS_CHECK_UPDATE),
                                       jxiz::structure(PutMsgOpts, jxiz::kPmo, XCS_CHECK_UPDATE)}))
    return (void)fail(CompCode, Reason, e);
  if (int32_t e = checkBuffer(BufferLength, Buffer, XCS_CHECK_READ))
    return (void)fail(CompCode, Reason, e);
  if (BufferLength > JX_MAX_MSG_LENGTH)
    return (void)fail(CompCode, Reason, JXRC_MSG_TOO_BIG_FOR_Q_MGR);
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::Put1Request request;
  request.obj = objectRef(*ObjDesc);
  request.options = PutMsgOpts->Options;
  loadMd(MsgDesc, request.md);
  request.data = std::string_view(static_cast<const char *>(Buffer), BufferLength);
  finishPut(*c, Op::Put1, request, MsgDesc, PutMsgOpts, CompCode, Reason);
}

JXQM_EXPORT void zstJXGET(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXGMO *GetMsgOpts,
                          int32_t BufferLength, void *Buffer, int32_t *DataLength, int32_t Reserved,
                          int32_t *CompCode, int32_t *Reason) {
  (void)Reserved;
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = lookup(Hconn);
  if (!c) return (void)fail(CompCode, Reason, JXRC_HCONN_ERROR);
  if (int32_t e = jxiz::firstUnusable({jxiz::structure(MsgDesc, jxiz::kMd, XCS_CHECK_UPDATE),
                                       jxiz::structure(GetMsgOpts, jxiz::kGmo, XCS_CHECK_UPDATE)}))
    return (void)fail(CompCode, Reason, e);
  if (int32_t e = checkBuffer(BufferLength, Buffer, XCS_CHECK_WRITE))
    return (void)fail(CompCode, Reason, e);
  if (int32_t e = jxiz::firstUnusable({jxiz::output(DataLength, JXRC_DATA_LENGTH_ERROR)}))
    return (void)fail(CompCode, Reason, e);
  std::lock_guard<std::mutex> lock(c->mu);
  const JXMD *sel = static_cast<const JXMD *>(MsgDesc);
  auto kept = c->ahead.find(Hobj);
  if (kept != c->ahead.end() && kept->second.answers(*GetMsgOpts, *sel))
    return deliver(kept->second.next(*GetMsgOpts, BufferLength), MsgDesc, GetMsgOpts, Buffer,
                   DataLength, CompCode, Reason);
  jxqp::GetRequest request;
  request.hobj = Hobj;
  request.options = GetMsgOpts->Options;
  request.waitInterval = GetMsgOpts->WaitInterval;
  request.matchOptions = GetMsgOpts->MatchOptions;
  std::memcpy(request.msgId, sel->MsgId, JX_MSG_ID_LENGTH);
  std::memcpy(request.correlId, sel->CorrelId, JX_CORREL_ID_LENGTH);
  request.bufferLength = BufferLength;
  request.taken = takenAhead(*c, Hobj);
  // A get under syncpoint takes its one message only.
  request.aheadLimit = (GetMsgOpts->Options & JXGMO_SYNCPOINT) ? 0 : jxiz::kAheadBytes;
  jxqp::GetReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, Op::Get, request, reply, payload))
    return (void)fail(CompCode, Reason, e);
  if (reply.dataLength < 0 || reply.data.size() > static_cast<size_t>(BufferLength) ||
      (!reply.ahead.empty() && (request.aheadLimit == 0 || reply.cc == JXCC_FAILED)))
    return (void)fail(CompCode, Reason, protocolError(*c));
  if (!reply.ahead.empty()) c->ahead[Hobj].keep(request, reply);
  deliver(reply, MsgDesc, GetMsgOpts, Buffer, DataLength, CompCode, Reason);
}

JXQM_EXPORT void zstJXINQ(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
                          int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength,
                          char *CharAttrs, int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = attributeCall(true, Hconn, SelectorCount, Selectors, IntAttrCount, IntAttrs,
                         CharAttrLength, CharAttrs, CompCode, Reason);
  if (!c) return;
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::InqRequest request;
  request.hobj = Hobj;
  request.selectors.assign(Selectors, Selectors + SelectorCount);
  request.intCount = IntAttrCount;
  request.charLength = CharAttrLength;
  jxqp::InqReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, Op::Inq, request, reply, payload))
    return (void)fail(CompCode, Reason, e);
  if (reply.ints.size() > static_cast<size_t>(IntAttrCount) ||
      reply.chars.size() > static_cast<size_t>(CharAttrLength))
    return (void)fail(CompCode, Reason, protocolError(*c));
  if (reply.cc == JXCC_OK) {
    if (!reply.ints.empty())
      std::memcpy(IntAttrs, reply.ints.data(), reply.ints.size() * sizeof(int32_t));
    if (!reply.chars.empty()) std::memcpy(CharAttrs, reply.chars.data(), reply.chars.size());
  }
  set(CompCode, Reason, reply.cc, reply.rc);
}

JXQM_EXPORT void zstJXSET(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
                          int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength,
                          char *CharAttrs, int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  auto c = attributeCall(false, Hconn, SelectorCount, Selectors, IntAttrCount, IntAttrs,
                         CharAttrLength, CharAttrs, CompCode, Reason);
  if (!c) return;
  std::lock_guard<std::mutex> lock(c->mu);
  jxqp::SetRequest request;
  request.hobj = Hobj;
  request.selectors.assign(Selectors, Selectors + SelectorCount);
  // Values beyond what any set can use are not sent.
  request.intValues.assign(IntAttrs, IntAttrs + std::min(IntAttrCount, JX_MAX_SELECTORS));
  request.charValues = std::string_view(CharAttrs, static_cast<size_t>(CharAttrLength));
  jxqp::CodeReply reply;
  std::vector<uint8_t> payload;
  if (int32_t e = call(*c, Op::Set, request, reply, payload))
    return (void)fail(CompCode, Reason, e);
  set(CompCode, Reason, reply.cc, reply.rc);
}

JXQM_EXPORT void zstJXCMIT(int32_t Hconn, int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  simpleCall(Op::Commit, Hconn, jxqp::EmptyRequest{}, CompCode, Reason);
}

JXQM_EXPORT void zstJXBACK(int32_t Hconn, int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  simpleCall(Op::Backout, Hconn, jxqp::EmptyRequest{}, CompCode, Reason);
}

JXQM_EXPORT void zstJXBEGIN(int32_t Hconn, void *BeginOpts, int32_t *CompCode, int32_t *Reason) {
  if (!jxiz::outcomeWritable(CompCode, Reason)) return;
  jxqp::BeginRequest request;
  // The begin options may be left out.
  if (BeginOpts) {
    if (int32_t e = jxiz::firstUnusable({jxiz::structure(BeginOpts, jxiz::kBo, XCS_CHECK_READ)}))
      return (void)fail(CompCode, Reason, e);
    request.options = static_cast<const JXBO *>(BeginOpts)->Options;
  }
  simpleCall(Op::Begin, Hconn, request, CompCode, Reason);
}

}  // extern "C"
