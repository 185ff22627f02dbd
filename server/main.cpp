// jxqmgr NAME [--listen HOST:PORT] [--hello-timeout SECONDS] [--poll-us MICROSECONDS]
//        [--no-command-server] [--ready-fd N]
//
// Runs one queue manager in the foreground until SIGTERM or SIGINT. The
// local socket is always served; TCP only when a listen address is given.
// With --ready-fd, "ready\n" is written to that descriptor once connections
// are accepted (jxqm start waits for it). A connection that has not sent its
// hello within the hello timeout (default 10 seconds) is closed. After a
// turn that had work, the server polls for up to --poll-us (default 200,
// 0 to 10000) before it sleeps. The command server reads
// SYSTEM.ADMIN.COMMAND.QUEUE unless --no-command-server is given.
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

namespace {

constexpr int kListenBacklog = 128;
constexpr size_t kReservedDescriptors = 32;  // the database, the listeners, the log
constexpr size_t kMaxConnections = 100000;

int die(const std::string &msg, int code = 1) {
  std::cerr << "jxqmgr: " << msg << std::endl;
  return code;
}

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
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(fd, ai->ai_addr, ai->ai_addrlen) != 0 || listen(fd, kListenBacklog) != 0) {
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
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--listen" && i + 1 < argc) {
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
          "[--poll-us MICROSECONDS] [--no-command-server] [--ready-fd N]",
          2);
    }
  }
  if (!jxqp::validQMgrName(name)) return die("invalid or missing queue manager name", 2);
  std::string dir = jxqp::qmgrDir(name);
  umask(077);
  if (chdir(dir.c_str()) != 0)
    return die("queue manager " + name + " does not exist (" + dir + ")", 2);
  chmod(".", 0700);
  int lockFd = open(jxqp::kLockFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lockFd < 0 || flock(lockFd, LOCK_EX | LOCK_NB) != 0)
    return die("queue manager " + name + " is already running", 3);
  if (access(jxqp::kDbFile, F_OK) != 0) return die("queue manager " + name + " has no database", 2);

  jxqm::Store store;
  std::string err;
  if (!store.open(jxqp::kDbFile, false, err)) return die("cannot open database: " + err);
  // A folder copied or renamed by hand would serve the wrong queue manager.
  if (store.meta("name") != name)
    return die("database belongs to queue manager '" + store.meta("name") + "', not " + name, 2);
  jxqm::QueueManager qm(name, store);
  if (!qm.load()) return 1;

  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  signal(SIGPIPE, SIG_IGN);
  int sfd = signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC);

  unlink(jxqp::kSocketFile);
  int lfd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un sun{};
  sun.sun_family = AF_UNIX;
  std::strcpy(sun.sun_path, jxqp::kSocketFile);
  if (lfd < 0 || bind(lfd, reinterpret_cast<sockaddr *>(&sun), sizeof sun) != 0 ||
      chmod(jxqp::kSocketFile, 0600) != 0 || listen(lfd, kListenBacklog) != 0)
    return die(std::string("cannot listen on the local socket: ") + std::strerror(errno));
  int tfd = -1;
  if (!listenAddr.empty()) {
    tfd = listenTcp(listenAddr, err);
    if (tfd < 0) {
      unlink(jxqp::kSocketFile);
      return die(err);
    }
  }
  {
    std::ofstream pid(jxqp::kPidFile, std::ios::trunc);
    pid << getpid() << "\n";
  }

  // Every descriptor the process may have, less a reserve.
  rlimit lim{};
  getrlimit(RLIMIT_NOFILE, &lim);
  lim.rlim_cur = lim.rlim_max;
  setrlimit(RLIMIT_NOFILE, &lim);
  getrlimit(RLIMIT_NOFILE, &lim);
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
  std::unique_ptr<jxqm::CommandServer> server;
  if (commandServer) {
    server = std::make_unique<jxqm::CommandServer>(qm);
    if (!server->start()) return die("cannot start the command server");
    options.background = [&server](int64_t now) { return server->turn(now); };
  }
  jxqm::EventLoop loop(qm, options);
  if (!loop.ready()) return die(std::string("epoll: ") + std::strerror(errno));

  std::cerr << "jxqmgr: queue manager " << name << " started, pid " << getpid()
            << (listenAddr.empty() ? "" : ", listening on " + listenAddr) << std::endl;
  if (readyFd >= 0) {
    ssize_t w = write(readyFd, "ready\n", 6);
    (void)w;
    close(readyFd);
  }
  bool ok = loop.run();
  loop.dropAll();
  server.reset();
  qm.endTurn();
  store.close();
  unlink(jxqp::kSocketFile);
  unlink(jxqp::kPidFile);
  if (!ok) return 1;
  std::cerr << "jxqmgr: queue manager " << name << " ended" << std::endl;
  return 0;
}
