// jxqmgr NAME [--listen HOST:PORT] [--hello-timeout SECONDS] [--poll-us MICROSECONDS]
//        [--no-command-server] [--frame-timeout-ms MS] [--buffer-budget-mb MB]
//        [--login-delay-ms MS] [--peer-log-lines N] [--ready-fd N]
//
// Runs one queue manager in the foreground until SIGTERM or SIGINT. The
// local socket is always served; TCP only when a listen address is given.
// With --ready-fd, "ready\n" is written to that descriptor once connections
// are accepted (jxqm start waits for it). A connection that has not sent its
// hello within the hello timeout (default 10 seconds) is closed. After a
// turn that had work, the server polls for up to --poll-us (default 200,
// 0 to 10000) before it sleeps. The command server reads
// SYSTEM.ADMIN.COMMAND.QUEUE unless --no-command-server is given. The
// limits on what a peer may cost (README, "Limits on peers") default to
// PeerLimits' values. TCP connections are TLS 1.3, with the certificate
// and key in the queue manager's folder (qm.crt, qm.key).
//
// JX_STORE_FAULT (write:N, commit:N, full:N or read:N, store.hpp) makes the store
// fail on purpose, for tests.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "command_server.hpp"
#include "event_loop.hpp"
#include "qm_paths.hpp"
#include "qmgr_files.hpp"
#include "queue_manager.hpp"
#include "tls.hpp"

namespace {

constexpr int kListenBacklog = 128;
constexpr size_t kReservedDescriptors = 32;  // the database, the listeners, the log
constexpr size_t kMaxConnections = 100000;

int die(const std::string &msg, int code = 1) {
  std::cerr << "jxqmgr: " << msg << std::endl;
  return code;
}

std::string errnoText(const std::string &what) {
  return what + ": " + std::strerror(errno);
}

// An integer option's value within [lo, hi].
bool parseNumber(const char *s, long lo, long hi, long &out) {
  char *end = nullptr;
  errno = 0;
  long v = std::strtol(s, &end, 10);
  if (*s == 0 || errno || *end != 0 || v < lo || v > hi) return false;
  out = v;
  return true;
}

// The options that set a limit on peers: name, range, unit, where it goes.
struct LimitOption {
  const char *name;
  long lo, hi;
  const char *unit;
  void (*apply)(jxqm::PeerLimits &, long);
};
constexpr LimitOption kLimitOptions[] = {
    {"--frame-timeout-ms", 100, 3600000, "milliseconds",
     [](jxqm::PeerLimits &l, long v) { l.frameTimeoutMs = v; }},
    {"--buffer-budget-mb", 1, 1048576, "MiB",
     [](jxqm::PeerLimits &l, long v) { l.bufferBudget = static_cast<size_t>(v) << 20; }},
    {"--login-delay-ms", 0, 60000, "milliseconds",
     [](jxqm::PeerLimits &l, long v) { l.loginDelayMs = v; }},
    {"--peer-log-lines", 0, 100000, "lines a minute (0: no limit)",
     [](jxqm::PeerLimits &l, long v) { l.logLinesPerMinute = static_cast<int>(v); }},
};

bool parseHostPort(const std::string &s, std::string &host, std::string &port) {
  auto colon = s.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == s.size()) return false;
  host = s.substr(0, colon);
  port = s.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  return true;
}

int listenTcp(const std::string &addr, std::string &err) {
  std::string host, port;
  if (!parseHostPort(addr, host, port)) {
    err = "listen address must be HOST:PORT";
    return -1;
  }
  addrinfo hints{}, *res = nullptr;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &res);
  if (rc != 0) {
    err = std::string("cannot resolve ") + addr + ": " + gai_strerror(rc);
    return -1;
  }
  int fd = -1;
  for (addrinfo *ai = res; ai && fd < 0; ai = ai->ai_next) {
    fd = socket(ai->ai_family, ai->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) continue;
    int one = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        bind(fd, ai->ai_addr, ai->ai_addrlen) != 0 || listen(fd, kListenBacklog) != 0) {
      err = "cannot listen on " + addr + ": " + std::strerror(errno);
      close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(res);
  return fd;
}

}  // namespace

int main(int argc, char **argv) {
  std::string name, listenAddr;
  int readyFd = -1;
  int helloTimeout = 10;
  int pollUs = 200;
  bool commandServer = true;
  jxqm::PeerLimits limits;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    const LimitOption *limit = nullptr;
    for (const LimitOption &o : kLimitOptions)
      if (a == o.name) limit = &o;
    if (limit && i + 1 < argc) {
      long v;
      if (!parseNumber(argv[++i], limit->lo, limit->hi, v))
        return die(a + " is " + std::to_string(limit->lo) + " to " + std::to_string(limit->hi) +
                       " " + limit->unit,
                   2);
      limit->apply(limits, v);
    } else if (a == "--listen" && i + 1 < argc) {
      listenAddr = argv[++i];
    } else if (a == "--ready-fd" && i + 1 < argc) {
      readyFd = std::atoi(argv[++i]);
    } else if (a == "--hello-timeout" && i + 1 < argc) {
      helloTimeout = std::atoi(argv[++i]);
      if (helloTimeout < 1 || helloTimeout > 3600)
        return die("--hello-timeout is 1 to 3600 seconds", 2);
    } else if (a == "--poll-us" && i + 1 < argc) {
      char *end = nullptr;
      long v = std::strtol(argv[++i], &end, 10);
      if (*argv[i] == 0 || *end != 0 || v < 0 || v > 10000)
        return die("--poll-us is 0 to 10000 microseconds", 2);
      pollUs = static_cast<int>(v);
    } else if (a == "--no-command-server") {
      commandServer = false;
    } else if (name.empty() && a[0] != '-') {
      name = a;
    } else {
      return die(
          "usage: jxqmgr NAME [--listen HOST:PORT] [--hello-timeout SECONDS] "
          "[--poll-us MICROSECONDS] [--no-command-server] [--frame-timeout-ms MS] "
          "[--buffer-budget-mb MB] [--login-delay-ms MS] [--peer-log-lines N] [--ready-fd N]",
          2);
    }
  }
  if (!jxqp::validQMgrName(name)) return die("invalid or missing queue manager name", 2);
  std::string dir = jxqp::qmgrDir(name);
  umask(077);
  if (chdir(dir.c_str()) != 0)
    return die("queue manager " + name + " does not exist (" + dir + ")", 2);
  if (chmod(".", 0700) != 0) return die(errnoText("cannot restrict " + dir + " to its owner"));
  int lockFd = open(jxqp::kLockFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lockFd < 0 || flock(lockFd, LOCK_EX | LOCK_NB) != 0)
    return die("queue manager " + name + " is already running", 3);
  if (access(jxqp::kDbFile, F_OK) != 0) return die("queue manager " + name + " has no database", 2);

  jxqm::Store store;
  jxqm::StoreFault fault;
  std::string faultError;
  if (!jxqm::StoreFault::fromEnvironment(fault, faultError)) return die(faultError, 2);
  store.inject(fault);
  store.reserveAt(std::string(jxqp::kDbFile) + "-reserve");
  std::string err;
  if (!store.open(jxqp::kDbFile, false, err)) return die("cannot open database: " + err);
  // A folder copied or renamed by hand would serve the wrong queue manager.
  std::string owner;
  if (!store.meta("name", owner)) return die("cannot read database: " + store.lastError());
  if (owner != name)
    return die("database belongs to queue manager '" + owner + "', not " + name, 2);
  jxqm::QueueManager qm(name, store);
  if (!qm.load()) return 1;

  // The stop signal is taken only through the signalfd: without one it
  // could be lost, so the queue manager does not start.
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  if (sigprocmask(SIG_BLOCK, &mask, nullptr) != 0) return die(errnoText("sigprocmask"));
  if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) return die(errnoText("signal SIGPIPE"));
  int sfd = signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC);
  if (sfd < 0) return die(errnoText("signalfd"));

  if (unlink(jxqp::kSocketFile) != 0 && errno != ENOENT)
    return die(errnoText("cannot remove the old local socket"));
  int lfd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un sun{};
  sun.sun_family = AF_UNIX;
  std::strcpy(sun.sun_path, jxqp::kSocketFile);
  if (lfd < 0 || bind(lfd, reinterpret_cast<sockaddr *>(&sun), sizeof sun) != 0 ||
      chmod(jxqp::kSocketFile, 0600) != 0 || listen(lfd, kListenBacklog) != 0)
    return die(std::string("cannot listen on the local socket: ") + std::strerror(errno));
  int tfd = -1;
  std::unique_ptr<jxqm::TlsContext> tls;
  if (!listenAddr.empty()) {
    tls = jxqm::TlsContext::load(jxqp::kCertFile, jxqp::kKeyFile, err);
    if (!tls) {
      unlink(jxqp::kSocketFile);
      return die(err);
    }
    tfd = listenTcp(listenAddr, err);
    if (tfd < 0) {
      unlink(jxqp::kSocketFile);
      return die(err);
    }
  }
  {
    std::ofstream pid(jxqp::kPidFile, std::ios::trunc);
    pid << getpid() << "\n";
    pid.close();
    if (!pid) {
      unlink(jxqp::kSocketFile);
      return die(std::string("cannot write ") + jxqp::kPidFile);
    }
  }
  if (!store.refillReserve())
    qm.log(
        "no room for the store's reserve: persistent messages and definitions are refused "
        "until there is room");

  // Every descriptor the process may have, less a reserve. Without the
  // raise the queue manager serves fewer connections, which is said.
  rlimit lim{};
  if (getrlimit(RLIMIT_NOFILE, &lim) != 0) return die(errnoText("getrlimit"));
  const rlim_t wanted = lim.rlim_max;
  lim.rlim_cur = lim.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &lim) != 0 || getrlimit(RLIMIT_NOFILE, &lim) != 0)
    qm.log(errnoText("cannot raise the descriptor limit to " + std::to_string(wanted)));
  jxqm::EventLoop::Options options;
  options.localFd = lfd;
  options.tcpFd = tfd;
  options.signalFd = sfd;
  options.maxConnections =
      std::min(lim.rlim_cur > 2 * kReservedDescriptors ? lim.rlim_cur - kReservedDescriptors
                                                       : kReservedDescriptors,
               static_cast<rlim_t>(kMaxConnections));
  options.helloTimeoutMs = helloTimeout * 1000LL;
  options.pollUs = pollUs;
  options.tls = tls.get();
  options.limits = limits;
  std::unique_ptr<jxqm::CommandServer> server;
  if (commandServer) {
    server = std::make_unique<jxqm::CommandServer>(qm);
    if (!server->start()) return die("cannot start the command server");
    options.background = [&server](int64_t now) { return server->turn(now); };
  }
  jxqm::EventLoop loop(qm, options);
  if (!loop.ready()) {
    unlink(jxqp::kSocketFile);
    unlink(jxqp::kPidFile);
    return die(loop.why());
  }

  std::cerr << "jxqmgr: queue manager " << name << " started, pid " << getpid()
            << (listenAddr.empty() ? "" : ", listening on " + listenAddr) << std::endl;
  // Whoever started us and stopped waiting for the word does not stop us.
  if (readyFd >= 0 && (write(readyFd, "ready\n", 6) != 6 || close(readyFd) != 0))
    qm.log(errnoText("cannot tell the starter that the queue manager is ready"));
  bool ok = loop.run();
  loop.dropAll();
  server.reset();
  // Failures are logged where they happen; the store has what committed.
  (void)qm.endTurn();
  if (!store.close()) qm.log("the database did not close cleanly: " + store.lastError());
  for (const char *file : {jxqp::kSocketFile, jxqp::kPidFile})
    if (unlink(file) != 0) qm.log(errnoText(std::string("cannot remove ") + file));
  if (!ok) return 1;
  std::cerr << "jxqmgr: queue manager " << name << " ended" << std::endl;
  return 0;
}
