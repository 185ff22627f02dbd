// jxqmgr NAME [--listen HOST:PORT] [--hello-timeout SECONDS] [--poll-us MICROSECONDS]
//        [--ready-fd N]
//
// Runs one queue manager in the foreground until SIGTERM or SIGINT. The
// local socket is always served; TCP only when a listen address is given.
// With --ready-fd, "ready\n" is written to that descriptor once connections
// are accepted (jxqm start waits for it). A connection that has not sent its
// hello within the hello timeout (default 10 seconds) is closed. After a
// turn that had work, the server polls for up to --poll-us (default 200,
// 0 to 10000) before it sleeps.
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
#include <string>
#include <unordered_map>
#include <vector>

#include "qm_paths.hpp"
#include "qmgr_files.hpp"
#include "queue_manager.hpp"

namespace {

using jxqm::Conn;
using jxqm::QueueManager;

constexpr uint64_t kListenLocal = 1ull << 62;
constexpr uint64_t kListenTcp = 2ull << 62;
constexpr uint64_t kSignal = 3ull << 62;
constexpr int kMaxEvents = 64;
constexpr auto kGatherLimit = std::chrono::microseconds(200);

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
    if (bind(fd, ai->ai_addr, ai->ai_addrlen) != 0 || listen(fd, 128) != 0) {
      err = "cannot listen on " + addr + ": " + std::strerror(errno);
      close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(res);
  return fd;
}

// After a turn with work, a busy client's next request usually follows
// within tens of microseconds. Polling for it first spares that client's
// send the wake-up of this thread, which on a virtual machine is an
// interrupt to a halted CPU: about 40 us each on the 2-CPU machine the
// benchmarks ran on, several times the work of a request. Yielding lets a
// client that shares this CPU send it.
int waitForEvents(int ep, epoll_event *events, int timeout, int pollUs, bool busy) {
  if (busy && pollUs > 0 && timeout != 0) {
    auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(pollUs);
    do {
      int n = epoll_wait(ep, events, kMaxEvents, 0);
      if (n != 0) return n;
      sched_yield();
    } while (std::chrono::steady_clock::now() < until);
  }
  return epoll_wait(ep, events, kMaxEvents, timeout);
}

class Server {
 public:
  Server(QueueManager &qm, int ep, int localFd, int tcpFd, size_t maxConns, int64_t helloTimeoutMs)
      : qm_(qm),
        ep_(ep),
        localFd_(localFd),
        tcpFd_(tcpFd),
        maxConns_(maxConns),
        helloTimeoutMs_(helloTimeoutMs) {}

  bool stopping() const { return stopping_; }

  void handleEvents(const epoll_event *events, int n) {
    for (int i = 0; i < n; ++i) {
      uint64_t tag = events[i].data.u64;
      if (tag == kListenLocal) {
        accept(localFd_, false);
      } else if (tag == kListenTcp) {
        accept(tcpFd_, true);
      } else if (tag == kSignal) {
        stopping_ = true;
      } else {
        uint32_t id = static_cast<uint32_t>(tag);
        Conn *c = qm_.conn(id);
        if (!c) continue;
        bool alive = true;
        if (events[i].events & EPOLLOUT) alive = writeTo(*c);
        if (alive && (events[i].events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)))
          alive = readFrom(*c);
        if (!alive) {
          drop(id);
          continue;
        }
        qm_.touch(*c);
        qm_.markRunnable(id);
      }
    }
  }

  void accept(int lfd, bool tcp) {
    for (;;) {
      sockaddr_storage sa{};
      socklen_t len = sizeof sa;
      int fd = accept4(lfd, reinterpret_cast<sockaddr *>(&sa), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (fd < 0) return;
      // Beyond the cap a connection is closed at once: running out of
      // descriptors would leave the listener ready forever.
      if (fds_.size() >= maxConns_) {
        close(fd);
        continue;
      }
      uid_t uid = static_cast<uid_t>(-1);
      std::string peer;
      if (tcp) {
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        char host[NI_MAXHOST] = "?", port[NI_MAXSERV] = "?";
        getnameinfo(reinterpret_cast<sockaddr *>(&sa), len, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV);
        peer = std::string("tcp ") + host + ":" + port;
      } else {
        ucred cred{};
        socklen_t cl = sizeof cred;
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &cl) != 0) {
          close(fd);
          continue;
        }
        uid = cred.uid;
        peer = "local uid " + std::to_string(cred.uid) + " pid " + std::to_string(cred.pid);
      }
      Conn &c = qm_.addConn(fd, tcp, uid, peer);
      c.acceptedMs = QueueManager::nowMs();
      epoll_event ev{};
      ev.events = EPOLLIN | EPOLLRDHUP;
      ev.data.u64 = c.id;
      epoll_ctl(ep_, EPOLL_CTL_ADD, fd, &ev);
      fds_[c.id] = fd;
      helloDeadlines_.emplace_back(c.acceptedMs + helloTimeoutMs_, c.id);
    }
  }

  // Reads what is there; false when the peer has gone or failed.
  bool readFrom(Conn &c) {
    uint8_t buf[65536];
    for (int rounds = 0; rounds < 64; ++rounds) {
      ssize_t n = recv(c.fd, buf, sizeof buf, 0);
      if (n > 0) {
        c.in.insert(c.in.end(), buf, buf + n);
        if (static_cast<size_t>(n) < sizeof buf) return true;
        continue;
      }
      if (n == 0) return false;
      return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
    }
    return true;
  }

  // Writes pending output; false when the peer has gone.
  bool writeTo(Conn &c) {
    while (c.outOff < c.out.size()) {
      ssize_t n =
          send(c.fd, c.out.data() + c.outOff, c.out.size() - c.outOff, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n > 0) {
        c.outOff += static_cast<size_t>(n);
        continue;
      }
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
      if (n < 0 && errno == EINTR) continue;
      return false;
    }
    bool pending = c.outOff < c.out.size();
    if (!pending) {
      c.out.clear();
      c.outOff = 0;
    }
    if (pending != c.watchingOut) {
      epoll_event ev{};
      ev.events = EPOLLIN | EPOLLRDHUP | (pending ? static_cast<uint32_t>(EPOLLOUT) : 0u);
      ev.data.u64 = c.id;
      epoll_ctl(ep_, EPOLL_CTL_MOD, c.fd, &ev);
      c.watchingOut = pending;
    }
    return true;
  }

  void drop(uint32_t id) {
    auto it = fds_.find(id);
    if (it == fds_.end()) return;
    epoll_ctl(ep_, EPOLL_CTL_DEL, it->second, nullptr);
    close(it->second);
    fds_.erase(it);
    qm_.dropConn(id);
  }

  void dropAll() {
    for (uint32_t id : qm_.connIds()) drop(id);
  }

  // One turn: handle ready input, expire waits, commit, write replies.
  // Returns the epoll timeout for the next turn.
  int finishTurn() {
    runInput();
    gather();
    int64_t now = QueueManager::nowMs();
    int64_t next = qm_.expireWaits(now);
    int64_t hello = expireHellos(now);
    if (hello >= 0 && (next < 0 || hello < next)) next = hello;
    if (qm_.commitPending()) lastGroup_ = qm_.touched();
    qm_.endTurn();
    // Replies queued from here on (a drop below can answer another
    // connection's get) belong to the next turn's commit.
    std::vector<uint32_t> &touched = qm_.touched();
    size_t count = touched.size();
    for (size_t i = 0; i < count; ++i) {
      uint32_t id = touched[i];
      Conn *c = qm_.conn(id);
      if (!c) continue;
      c->touched = false;
      if ((!c->out.empty() && !writeTo(*c)) || (c->closeAfterWrite && c->out.empty())) drop(id);
    }
    touched.erase(touched.begin(), touched.begin() + static_cast<std::ptrdiff_t>(count));
    if (!touched.empty() || qm_.anyRunnable()) return 0;
    if (next < 0) return -1;
    int64_t wait = next - QueueManager::nowMs();
    return wait < 0 ? 0 : wait > 60000 ? 60000 : static_cast<int>(wait);
  }

 private:
  void runInput() {
    for (std::vector<uint32_t> work = qm_.takeRunnable(); !work.empty();
         work = qm_.takeRunnable()) {
      for (uint32_t id : work) {
        Conn *c = qm_.conn(id);
        if (!c || !qm_.hasRunnableInput(*c)) continue;
        if (!qm_.processInput(*c) || c->dead) drop(id);
      }
    }
  }

  // Durable work shares one commit per turn. The connections the last
  // commit answered send their next requests within tens of microseconds of
  // each other, and committing at the first would split the group. Waiting
  // only until as many connections as last time have spoken does not mend a
  // split once made: the half that arrived during the commit fills the count
  // at once, and two halves go on committing in turns, each paying a flush
  // for half the puts. So a turn holding durable work waits, polling, until
  // every connection of the last group that is still open has spoken or is
  // blocked in a get, or kGatherLimit has passed. A lone client never waits,
  // nor does a commit after one that answered a single connection.
  void gather() {
    if (!qm_.commitPending() || lastGroup_.size() < 2) return;
    size_t pos = 0;
    auto outstanding = [&] {
      for (; pos < lastGroup_.size(); ++pos) {
        Conn *c = qm_.conn(lastGroup_[pos]);
        if (c && !c->touched && !c->pendingGet && !c->dead && !c->closeAfterWrite) return true;
      }
      return false;
    };
    auto until = std::chrono::steady_clock::now() + kGatherLimit;
    epoll_event events[kMaxEvents];
    while (!stopping_ && outstanding() && std::chrono::steady_clock::now() < until) {
      int n = epoll_wait(ep_, events, kMaxEvents, 0);
      if (n > 0) {
        handleEvents(events, n);
        runInput();
      } else {
        sched_yield();
      }
    }
  }

  // A peer that never says who it is must not hold a connection slot.
  // Returns the next deadline (-1 when none).
  int64_t expireHellos(int64_t now) {
    while (!helloDeadlines_.empty()) {
      auto [deadline, id] = helloDeadlines_.front();
      Conn *c = qm_.conn(id);
      if (c && !c->hello) {
        if (deadline > now) return deadline;
        std::cerr << "jxqmgr: connection " << id << " (" << c->peer << "): no hello in time"
                  << std::endl;
        drop(id);
      }
      helloDeadlines_.pop_front();
    }
    return -1;
  }

  QueueManager &qm_;
  int ep_, localFd_, tcpFd_;
  bool stopping_ = false;
  std::vector<uint32_t> lastGroup_;  // connections answered by the last commit
  size_t maxConns_;
  int64_t helloTimeoutMs_;
  std::unordered_map<uint32_t, int> fds_;
  std::deque<std::pair<int64_t, uint32_t>> helloDeadlines_;  // in accept order
};

}  // namespace

int main(int argc, char **argv) {
  std::string name, listenAddr;
  int readyFd = -1;
  int helloTimeout = 10;
  int pollUs = 200;
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
    } else if (name.empty() && a[0] != '-') {
      name = a;
    } else {
      return die(
          "usage: jxqmgr NAME [--listen HOST:PORT] [--hello-timeout SECONDS] "
          "[--poll-us MICROSECONDS] [--ready-fd N]",
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
  QueueManager qm(name, store);
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
      chmod(jxqp::kSocketFile, 0600) != 0 || listen(lfd, 128) != 0)
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

  int ep = epoll_create1(EPOLL_CLOEXEC);
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = kListenLocal;
  epoll_ctl(ep, EPOLL_CTL_ADD, lfd, &ev);
  if (tfd >= 0) {
    ev.data.u64 = kListenTcp;
    epoll_ctl(ep, EPOLL_CTL_ADD, tfd, &ev);
  }
  ev.data.u64 = kSignal;
  epoll_ctl(ep, EPOLL_CTL_ADD, sfd, &ev);

  std::cerr << "jxqmgr: queue manager " << name << " started, pid " << getpid()
            << (listenAddr.empty() ? "" : ", listening on " + listenAddr) << std::endl;
  if (readyFd >= 0) {
    ssize_t w = write(readyFd, "ready\n", 6);
    (void)w;
    close(readyFd);
  }

  // Every descriptor the process may have, less a reserve for the database,
  // the listeners and the log.
  rlimit lim{};
  getrlimit(RLIMIT_NOFILE, &lim);
  lim.rlim_cur = lim.rlim_max;
  setrlimit(RLIMIT_NOFILE, &lim);
  getrlimit(RLIMIT_NOFILE, &lim);
  size_t maxConns = lim.rlim_cur > 64 ? static_cast<size_t>(lim.rlim_cur) - 32 : 32;
  Server server(qm, ep, lfd, tfd, std::min<size_t>(maxConns, 100000), helloTimeout * 1000LL);
  int timeout = -1;
  bool busy = false;
  epoll_event events[kMaxEvents];
  while (!server.stopping()) {
    int n = waitForEvents(ep, events, timeout, pollUs, busy);
    if (n < 0 && errno != EINTR) return die(std::string("epoll: ") + std::strerror(errno));
    busy = n > 0;
    server.handleEvents(events, n);
    timeout = server.finishTurn();
  }
  server.dropAll();
  qm.endTurn();
  store.close();
  unlink(jxqp::kSocketFile);
  unlink(jxqp::kPidFile);
  std::cerr << "jxqmgr: queue manager " << name << " ended" << std::endl;
  return 0;
}
