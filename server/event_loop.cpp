#include "event_loop.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace jxqm {

namespace {

constexpr uint64_t kListenLocal = 1ull << 62;
constexpr uint64_t kListenTcp = 2ull << 62;
constexpr uint64_t kSignal = 3ull << 62;
constexpr int kMaxEvents = 64;
constexpr auto kGatherLimit = std::chrono::microseconds(200);
constexpr size_t kReadChunk = 65536;
constexpr int kReadRounds = 64;  // chunks read from one link in a turn

}  // namespace

EventLoop::EventLoop(QueueManager &qm, Options options) : qm_(qm), opt_(options) {
  ep_ = epoll_create1(EPOLL_CLOEXEC);
  if (ep_ < 0) return;
  const std::pair<int, uint64_t> watched[] = {
      {opt_.localFd, kListenLocal}, {opt_.tcpFd, kListenTcp}, {opt_.signalFd, kSignal}};
  for (const auto &[fd, tag] : watched) {
    if (fd < 0) continue;
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = tag;
    if (epoll_ctl(ep_, EPOLL_CTL_ADD, fd, &ev) != 0) {
      close(ep_);
      ep_ = -1;
      return;
    }
  }
}

EventLoop::~EventLoop() {
  dropAll();
  if (ep_ >= 0) close(ep_);
}

void EventLoop::touched(ClientLink &link) {
  if (link.touched) return;
  link.touched = true;
  touched_.push_back(link.id());
}

void EventLoop::runnable(ClientLink &link) {
  runnable_.push_back(link.id());
}

ClientLink *EventLoop::link(uint32_t id) {
  auto it = links_.find(id);
  return it == links_.end() ? nullptr : it->second.get();
}

bool EventLoop::run() {
  int timeout = -1;
  bool busy = false;
  epoll_event events[kMaxEvents];
  while (!stopping_) {
    int n = waitForEvents(events, timeout, busy);
    if (n < 0 && errno != EINTR) {
      qm_.log(std::string("epoll: ") + std::strerror(errno));
      return false;
    }
    busy = n > 0;
    handleEvents(events, n);
    timeout = finishTurn();
  }
  return true;
}

// After a turn with work, a busy client's next request usually follows
// within tens of microseconds. Polling for it first spares that client's
// send the wake-up of this thread, which on a virtual machine is an
// interrupt to a halted CPU: about 40 us each on the 2-CPU machine the
// benchmarks ran on, several times the work of a request. Yielding lets a
// client that shares this CPU send it.
int EventLoop::waitForEvents(epoll_event *events, int timeout, bool busy) {
  if (busy && opt_.pollUs > 0 && timeout != 0) {
    auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(opt_.pollUs);
    do {
      int n = epoll_wait(ep_, events, kMaxEvents, 0);
      if (n != 0) return n;
      sched_yield();
    } while (std::chrono::steady_clock::now() < until);
  }
  return epoll_wait(ep_, events, kMaxEvents, timeout);
}

void EventLoop::handleEvents(const epoll_event *events, int n) {
  for (int i = 0; i < n; ++i) {
    uint64_t tag = events[i].data.u64;
    if (tag == kListenLocal) {
      accept(opt_.localFd, false);
    } else if (tag == kListenTcp) {
      accept(opt_.tcpFd, true);
    } else if (tag == kSignal) {
      stopping_ = true;
    } else {
      uint32_t id = static_cast<uint32_t>(tag);
      ClientLink *l = link(id);
      if (!l) continue;
      bool alive = true;
      if (events[i].events & EPOLLOUT) alive = writeTo(*l);
      if (alive && (events[i].events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)))
        alive = readFrom(*l);
      if (!alive) {
        drop(id);
        continue;
      }
      touched(*l);
      runnable(*l);
    }
  }
}

void EventLoop::accept(int listener, bool tcp) {
  for (;;) {
    sockaddr_storage sa{};
    socklen_t len = sizeof sa;
    int fd =
        accept4(listener, reinterpret_cast<sockaddr *>(&sa), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    // Beyond the cap a connection is closed at once: running out of
    // descriptors would leave the listener ready forever.
    if (links_.size() >= opt_.maxConnections) {
      close(fd);
      continue;
    }
    PeerAddress peer;
    peer.tcp = tcp;
    if (tcp) {
      int one = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      char host[NI_MAXHOST] = "?", port[NI_MAXSERV] = "?";
      getnameinfo(reinterpret_cast<sockaddr *>(&sa), len, host, sizeof host, port, sizeof port,
                  NI_NUMERICHOST | NI_NUMERICSERV);
      peer.description = std::string("tcp ") + host + ":" + port;
    } else {
      ucred cred{};
      socklen_t cl = sizeof cred;
      if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &cl) != 0) {
        close(fd);
        continue;
      }
      peer.uid = cred.uid;
      peer.description =
          "local uid " + std::to_string(cred.uid) + " pid " + std::to_string(cred.pid);
    }
    uint32_t id = nextLinkId_++;
    if (nextLinkId_ == 0) nextLinkId_ = 1;
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP;
    ev.data.u64 = id;
    if (epoll_ctl(ep_, EPOLL_CTL_ADD, fd, &ev) != 0) {
      close(fd);
      continue;
    }
    links_[id] = std::make_unique<ClientLink>(qm_, this, id, std::move(peer),
                                              std::make_unique<SocketTransport>(fd));
    helloDeadlines_.emplace_back(QueueManager::nowMs() + opt_.helloTimeoutMs, id);
  }
}

// Reads what is there; false when the peer has gone or failed.
bool EventLoop::readFrom(ClientLink &l) {
  uint8_t buf[kReadChunk];
  for (int rounds = 0; rounds < kReadRounds; ++rounds) {
    ssize_t n = l.transport()->receive(buf, sizeof buf);
    if (n == 0 || n == Transport::kFailed) return false;
    if (n == Transport::kWouldBlock) return true;
    l.in.insert(l.in.end(), buf, buf + n);
    if (static_cast<size_t>(n) < sizeof buf) return true;
  }
  return true;
}

// Writes pending output; false when the peer has gone.
bool EventLoop::writeTo(ClientLink &l) {
  while (l.outOff < l.out.size()) {
    ssize_t n = l.transport()->send(l.out.data() + l.outOff, l.out.size() - l.outOff);
    if (n == Transport::kWouldBlock) break;
    if (n < 0) return false;
    l.outOff += static_cast<size_t>(n);
  }
  bool pending = l.outOff < l.out.size();
  if (!pending) {
    l.out.clear();
    l.outOff = 0;
  }
  if (pending != l.watchingOut) {
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP | (pending ? static_cast<uint32_t>(EPOLLOUT) : 0u);
    ev.data.u64 = l.id();
    if (epoll_ctl(ep_, EPOLL_CTL_MOD, l.transport()->fd(), &ev) != 0) return false;
    l.watchingOut = pending;
  }
  return true;
}

void EventLoop::drop(uint32_t id) {
  auto it = links_.find(id);
  if (it == links_.end()) return;
  epoll_ctl(ep_, EPOLL_CTL_DEL, it->second->transport()->fd(), nullptr);
  // The link's end ends its session, which can answer other links' gets;
  // take it out of the table first so that nothing reaches it meanwhile.
  std::unique_ptr<ClientLink> gone = std::move(it->second);
  links_.erase(it);
}

void EventLoop::dropAll() {
  while (!links_.empty()) drop(links_.begin()->first);
}

// One turn: handle ready input, expire waits, commit, write replies.
// Returns the epoll timeout for the next turn.
int EventLoop::finishTurn() {
  runInput();
  gather();
  int64_t now = QueueManager::nowMs();
  // Its work joins this turn's commit, and the replies it puts reach their
  // readers' links before they are written below.
  const int64_t background = opt_.background ? opt_.background(now) : -1;
  int64_t next = qm_.expireWaits(now);
  int64_t hello = expireHellos(now);
  if (hello >= 0 && (next < 0 || hello < next)) next = hello;
  if (background >= 0 && (next < 0 || background < next)) next = background;
  if (qm_.commitPending()) lastGroup_ = touched_;
  qm_.endTurn();
  // Replies queued from here on (a drop below can answer another
  // connection's get) belong to the next turn's commit.
  size_t count = touched_.size();
  for (size_t i = 0; i < count; ++i) {
    uint32_t id = touched_[i];
    ClientLink *l = link(id);
    if (!l) continue;
    l->touched = false;
    if ((!l->out.empty() && !writeTo(*l)) || (l->closing() && l->out.empty())) drop(id);
  }
  touched_.erase(touched_.begin(), touched_.begin() + static_cast<std::ptrdiff_t>(count));
  if (!touched_.empty() || anyRunnable()) return 0;
  if (next < 0) return -1;
  int64_t wait = next - QueueManager::nowMs();
  return wait < 0 ? 0 : wait > 60000 ? 60000 : static_cast<int>(wait);
}

bool EventLoop::anyRunnable() {
  std::erase_if(runnable_, [this](uint32_t id) {
    ClientLink *l = link(id);
    return !l || !l->hasRunnableInput();
  });
  return !runnable_.empty();
}

void EventLoop::runInput() {
  while (!runnable_.empty()) {
    std::vector<uint32_t> work;
    work.swap(runnable_);
    for (uint32_t id : work) {
      ClientLink *l = link(id);
      if (!l || !l->hasRunnableInput()) continue;
      if (!l->processInput()) drop(id);
    }
  }
}

// Durable work shares one commit per turn. The connections the last commit
// answered send their next requests within tens of microseconds of each
// other, and committing at the first would split the group. Waiting only
// until as many connections as last time have spoken does not mend a split
// once made: the half that arrived during the commit fills the count at
// once, and two halves go on committing in turns, each paying a flush for
// half the puts. So a turn holding durable work waits, polling, until every
// connection of the last group that is still open has spoken or is blocked
// in a get, or kGatherLimit has passed. A lone client never waits, nor does
// a commit after one that answered a single connection.
void EventLoop::gather() {
  if (!qm_.commitPending() || lastGroup_.size() < 2) return;
  size_t pos = 0;
  auto outstanding = [&] {
    for (; pos < lastGroup_.size(); ++pos) {
      ClientLink *l = link(lastGroup_[pos]);
      if (l && !l->touched && !l->waiting() && !l->closing()) return true;
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
int64_t EventLoop::expireHellos(int64_t now) {
  while (!helloDeadlines_.empty()) {
    auto [deadline, id] = helloDeadlines_.front();
    ClientLink *l = link(id);
    if (l && !l->greeted()) {
      if (deadline > now) return deadline;
      qm_.log("connection " + std::to_string(id) + " (" + l->peer().description +
              "): no hello in time");
      drop(id);
    }
    helloDeadlines_.pop_front();
  }
  return -1;
}

}  // namespace jxqm
