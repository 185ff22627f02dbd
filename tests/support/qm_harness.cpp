#include "qm_harness.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace qmtest {

std::string binDir() {
  return JX_QM_BIN_DIR;
}

bool serverAvailable() {
  return !binDir().empty() && access((binDir() + "/jxqmgr").c_str(), X_OK) == 0 &&
         access((binDir() + "/jxqm").c_str(), X_OK) == 0;
}

std::string qmgrDir(const std::string &qmgr) {
  return std::string(getenv("JX_DATA_PATH")) + "/qmgrs/" + qmgr;
}

std::string certificateFile(const std::string &qmgr) {
  return qmgrDir(qmgr) + "/qm.crt";
}

std::string freeTcpAddress() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa);
  socklen_t len = sizeof sa;
  getsockname(fd, reinterpret_cast<sockaddr *>(&sa), &len);
  close(fd);
  return "127.0.0.1:" + std::to_string(ntohs(sa.sin_port));
}

ToolResult jxqm(const std::vector<std::string> &args, const std::string &input,
                const std::function<void()> &setup) {
  ToolResult r;
  int out[2], in[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(in, O_CLOEXEC) != 0) return r;
  std::string prog = binDir() + "/jxqm";
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(out[1], 2);
    if (setup) setup();
    std::vector<char *> argv{const_cast<char *>(prog.c_str())};
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(prog.c_str(), argv.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  if (!input.empty() && write(in[1], input.data(), input.size()) < 0) r.out = "(stdin failed)";
  close(in[1]);
  char buf[4096];
  ssize_t n;
  while ((n = read(out[0], buf, sizeof buf)) > 0) r.out.append(buf, static_cast<size_t>(n));
  close(out[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return r;
}

std::string uniqueName(const char *prefix) {
  static std::atomic<int> n{0};
  return std::string(prefix) + std::to_string(getpid()) + "_" + std::to_string(++n);
}

QueueManagerProcess::QueueManagerProcess(const std::vector<std::string> &queues,
                                         const std::vector<std::string> &startArgs, bool startNow)
    : name_(uniqueName("QM")) {
  auto r = jxqm({"create", name_});
  EXPECT_EQ(r.status, 0) << r.out;
  for (const auto &q : queues) {
    std::vector<std::string> args{"define", name_};
    std::istringstream words(q);
    for (std::string w; words >> w;) args.push_back(w);
    r = jxqm(args);
    EXPECT_EQ(r.status, 0) << r.out;
  }
  if (startNow) {
    EXPECT_TRUE(start(startArgs));
  }
}

QueueManagerProcess::~QueueManagerProcess() {
  stop();
  const char *trusted = getenv("JX_TLS_TRUST");
  if (trusted && trusted == certificateFile(name_)) unsetenv("JX_TLS_TRUST");
  jxqm({"delete", name_});
}

bool QueueManagerProcess::start(const std::vector<std::string> &args) {
  std::vector<std::string> a{"start", name_};
  a.insert(a.end(), args.begin(), args.end());
  setenv("JX_TLS_TRUST", certificateFile(name_).c_str(), 1);
  auto r = jxqm(a);
  EXPECT_EQ(r.status, 0) << r.out;
  return r.status == 0;
}

bool QueueManagerProcess::stop() {
  return jxqm({"stop", name_}).status == 0;
}

pid_t QueueManagerProcess::pid() const {
  std::ifstream in(qmgrDir(name_) + "/qm.pid");
  pid_t p = 0;
  in >> p;
  return p;
}

void QueueManagerProcess::kill9() {
  pid_t p = pid();
  ASSERT_GT(p, 0);
  ::kill(p, SIGKILL);
  // The lock goes with the process: wait until status says stopped.
  for (int i = 0; i < 200 && jxqm({"status", name_}).status == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

void setName(char *field, const std::string &s) {
  std::memset(field, 0, JX_Q_NAME_LENGTH);
  std::memcpy(field, s.data(), s.size());
}

int32_t tryConnect(const std::string &qmgr, int32_t &hconn) {
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  setName(name, qmgr);
  int32_t cc = -1, rc = -1;
  zstJXCONN(name, &hconn, &cc, &rc, 0);
  return rc;
}

int32_t tcpConnect(const std::string &where, const std::string &user, const std::string &password,
                   int32_t &hconn) {
  JXCNO cno = JXCNO_DEFAULT;
  std::strncpy(cno.ConnectionName, where.c_str(), sizeof cno.ConnectionName - 1);
  std::strncpy(cno.UserId, user.c_str(), sizeof cno.UserId - 1);
  std::strncpy(cno.Password, password.c_str(), sizeof cno.Password - 1);
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  int32_t cc = -1, rc = -1;
  zstJXCONNX(name, &cno, &hconn, &cc, &rc, 0);
  return rc;
}

int32_t tcpLogin(const std::string &where, const std::string &user, const std::string &password) {
  int32_t h = 0;
  const int32_t rc = tcpConnect(where, user, password, h);
  if (rc == JXRC_NONE) disconnect(h);
  return rc;
}

std::string qmLog(const std::string &qmgr, size_t from) {
  std::ifstream in(qmgrDir(qmgr) + "/qm.log");
  in.seekg(static_cast<std::streamoff>(from));
  return {std::istreambuf_iterator<char>(in), {}};
}

int32_t connect(const std::string &qmgr) {
  int32_t h = 0;
  EXPECT_EQ(tryConnect(qmgr, h), JXRC_NONE);
  return h;
}

void disconnect(int32_t &hconn) {
  int32_t cc, rc;
  zstJXDISC(&hconn, 0, &cc, &rc);
  EXPECT_EQ(cc, JXCC_OK) << rc;
}

int32_t openQueue(int32_t hconn, const std::string &queue, int32_t options) {
  JXOD od = JXOD_DEFAULT;
  setName(od.ObjectName, queue);
  int32_t h = 0, cc, rc;
  zstJXOPEN(hconn, &od, options, &h, &cc, &rc);
  EXPECT_EQ(rc, JXRC_NONE) << "open " << queue;
  return h;
}

int32_t openReason(int32_t hconn, const std::string &queue, int32_t options) {
  JXOD od = JXOD_DEFAULT;
  setName(od.ObjectName, queue);
  int32_t h = 0, cc, rc;
  zstJXOPEN(hconn, &od, options, &h, &cc, &rc);
  if (rc == JXRC_NONE) zstJXCLOSE(hconn, &h, JXCO_NONE, &cc, &rc);
  return rc;
}

int rawSocket(const std::string &qmgr) {
  const std::string path = qmgrDir(qmgr) + "/qm.sock";
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un sun{};
  sun.sun_family = AF_UNIX;
  std::strncpy(sun.sun_path, path.c_str(), sizeof sun.sun_path - 1);
  if (::connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof sun) != 0) {
    close(fd);
    return -1;
  }
  timeval tv{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  return fd;
}

bool closedByServer(int fd) {
  char b[4096];
  ssize_t n;
  do n = recv(fd, b, sizeof b, 0);
  while (n > 0);
  return n == 0 || (n < 0 && errno == ECONNRESET);
}

int rawTcpSocket(const std::string &where, int seconds) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(static_cast<uint16_t>(std::atoi(where.c_str() + where.rfind(':') + 1)));
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (::connect(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0) {
    close(fd);
    return -1;
  }
  timeval tv{seconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  return fd;
}

int inChild(const std::function<int()> &body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Reporters::Reporters(int count, const std::function<void(int client, int fd)> &body) {
  int fds[2];
  if (pipe(fds) != 0) return;
  for (int c = 0; c < count; ++c) {
    const pid_t pid = fork();
    if (pid == 0) {
      close(fds[0]);
      body(c, fds[1]);
      _exit(3);
    }
    pids_.push_back(pid);
  }
  close(fds[1]);
  fd_ = fds[0];
  fcntl(fd_, F_SETFL, O_NONBLOCK);
}

Reporters::~Reporters() {
  for (pid_t pid : pids_) {
    if (pid > 0) {
      ::kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
  }
  if (fd_ >= 0) close(fd_);
}

void Reporters::collect(int ms) {
  char buf[4096];
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (std::chrono::steady_clock::now() < until) {
    const ssize_t n = read(fd_, buf, sizeof buf);
    if (n > 0)
      lines_.append(buf, static_cast<size_t>(n));
    else
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void Reporters::drain() {
  fcntl(fd_, F_SETFL, 0);
  char buf[4096];
  for (ssize_t n; (n = read(fd_, buf, sizeof buf)) > 0;) lines_.append(buf, static_cast<size_t>(n));
}

void Reporters::kill(int client) {
  pid_t &pid = pids_[static_cast<size_t>(client)];
  ::kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  pid = -1;
}

bool Reporters::endedCleanly(int client) {
  pid_t &pid = pids_[static_cast<size_t>(client)];
  int status = 0;
  waitpid(pid, &status, 0);
  pid = -1;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::map<std::string, int> drainQueue(int32_t h, const char *queue) {
  const int32_t q = openQueue(h, queue, JXOO_INPUT_SHARED);
  std::map<std::string, int> seen;
  for (;;) {
    Got g = get(h, q);
    if (g.rc != JXRC_NONE) {
      EXPECT_EQ(g.rc, JXRC_NO_MSG_AVAILABLE);
      return seen;
    }
    ++seen[g.data];
  }
}

void expectAcknowledgedOnce(const std::set<std::string> &acked,
                            const std::map<std::string, int> &seen, size_t inFlight) {
  for (const auto &m : acked) EXPECT_EQ(seen.count(m), 1u) << "lost: " << m;
  size_t unacknowledged = 0;
  for (const auto &[m, count] : seen) {
    EXPECT_EQ(count, 1) << "duplicated: " << m;
    if (!acked.count(m)) ++unacknowledged;
  }
  EXPECT_LE(unacknowledged, inFlight);
}

HeldChild holdInChild(const std::function<std::string()> &body) {
  HeldChild held;
  int fds[2];
  if (pipe(fds) != 0) return held;
  held.pid = fork();
  if (held.pid == 0) {
    const std::string said = body();
    if (write(fds[1], said.data(), said.size()) < 0) _exit(1);
    close(fds[1]);
    pause();
    _exit(0);
  }
  close(fds[1]);
  char buf[256];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) held.said.append(buf, size_t(n));
  close(fds[0]);
  return held;
}

void HeldChild::kill() {
  ::kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

int32_t put(int32_t hconn, int32_t hobj, const std::string &data, JXMD *mdOut, int32_t options,
            int32_t persistence) {
  JXMD md = JXMD_DEFAULT;
  if (mdOut) md = *mdOut;
  md.Persistence = persistence;
  JXPMO pmo = JXPMO_DEFAULT;
  pmo.Options = options;
  int32_t cc, rc;
  zstJXPUT(hconn, hobj, &md, &pmo, static_cast<int32_t>(data.size()),
           const_cast<char *>(data.data()), 0, &cc, &rc);
  if (mdOut) *mdOut = md;
  return rc;
}

Got get(int32_t hconn, int32_t hobj, int32_t options, int32_t wait, int32_t bufferLength,
        const JXMD *selector, int32_t match) {
  Got g;
  if (selector) g.md = *selector;
  JXGMO gmo = JXGMO_DEFAULT;
  gmo.Options = options;
  gmo.WaitInterval = wait;
  gmo.MatchOptions = match;
  std::vector<char> buf(static_cast<size_t>(bufferLength) + 1);
  zstJXGET(hconn, hobj, &g.md, &gmo, bufferLength, buf.data(), &g.dataLength, 0, &g.cc, &g.rc);
  if (g.dataLength >= 0)
    g.data.assign(buf.data(), static_cast<size_t>(std::min(g.dataLength, bufferLength)));
  return g;
}

}  // namespace qmtest
