#include "event_loop.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace jxqm {

namespace {

constexpr uint64_t kListenLocal = 1ull << 62;
constexpr uint64_t kListenTcp = 2ull << 62;
constexpr uint64_t kSignal = 3ull << 62;
constexpr uint64_t kVerdicts = 1ull << 61;
constexpr int kMaxEvents = 64;
constexpr auto kGatherLimit = std::chrono::microseconds(200);
constexpr size_t kReadChunk = 65536;
constexpr int kReadRounds = 64;  // chunks read from one link in a turn
// Out of descriptors or memory, the listeners rest this long (or until a
// connection ends) rather than spin on a connection they cannot take.
constexpr int64_t kListenPauseMs = 100;
// While checks are out, the loop looks for verdicts at least this often,
// whether or not the worker's wake-up came through.
constexpr int64_t kVerdictPollMs = 250;
// The log's key for the loop's own failures, limited as a peer's lines are.
const std::string kLoopKey = "(queue manager)";

std::string errnoText(const char *call) {
  return std::string(call) + ": " + std::strerror(errno);
}

}  // namespace

EventLoop::EventLoop(QueueManager &qm, Options options)
    : qm_(qm),
      opt_(options),
      pollWindow_(options.pollUs),
      budget_(options.limits.bufferBudget),
      peerLog_(options.limits.logLinesPerMinute, [&qm](const std::string &l) { qm.log(l); }),
      penalties_(options.limits.loginDelayMs),
      listeners_{{options.localFd, kListenLocal, false}, {options.tcpFd, kListenTcp, true}} {
  if (!checker_.ready()) {
    why_ = checker_.why();
    return;
  }
  ep_ = epoll_create1(EPOLL_CLOEXEC);
  if (ep_ < 0) {
    why_ = errnoText("epoll_create1");
    return;
  }
  bool ok = watch(opt_.signalFd, kSignal, "the stop signal") &&
            watch(checker_.fd(), kVerdicts, "the password worker");
  for (Listener &l : listeners_) ok = ok && (l.watched = watch(l.fd, l.tag, "a listener"));
  if (!ok) {
    close(ep_);
    ep_ = -1;
  }
}

// Watches a descriptor of the loop's own; false (with why_) on failure.
bool EventLoop::watch(int fd, uint64_t tag, const char *what) {
  if (fd < 0) return true;
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = tag;
  if (epoll_ctl(ep_, EPOLL_CTL_ADD, fd, &ev) == 0) return true;
  why_ = std::string("cannot watch ") + what + ": " + errnoText("epoll_ctl");
  return false;
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

void EventLoop::logAbout(const ClientLink &link, const std::string &line) {
  peerLog_.write(link.peer().key, line, QueueManager::nowMs());
}

// The check is held back by the failures its address has had lately; the
// worker holds it, the loop goes on.
void EventLoop::checkPassword(ClientLink &link, std::string password, std::string hash) {
  const int64_t now = QueueManager::nowMs();
  checker_.submit(link.id(), std::move(password), std::move(hash),
                  now + penalties_.delayMs(link.peer().key, now));
}

void EventLoop::takeVerdicts() {
  for (const PasswordChecker::Verdict &v : checker_.take()) {
    ClientLink *l = link(v.link);
    if (!l || !l->authenticating()) continue;
    l->passwordChecked(v.matched);
    if (l->greeted())
      penalties_.succeeded(l->peer().key);
    else
      penalties_.failed(l->peer().key, QueueManager::nowMs());
  }
  std::string error = checker_.takeError();
  if (!error.empty()) peerLog_.write(kLoopKey, "password worker: " + error, QueueManager::nowMs());
}

// The signal is read so that it is seen to be taken; stopping does not
// depend on the read, which cannot lose it.
void EventLoop::stopSignalled() {
  signalfd_siginfo info;
  if (read(opt_.signalFd, &info, sizeof info) < 0 && errno != EAGAIN)
    qm_.log(errnoText("signalfd read"));
  stopping_ = true;
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
// client that shares this CPU send it; a yield that lasts says the CPU is
// wanted by others, and the poll ends. How soon the request came sets the
// next window (poll_window.hpp).
int EventLoop::waitForEvents(epoll_event *events, int timeout, bool busy) {
  // While background work takes every turn the loop never sleeps, and a
  // client that a turn answered, woken onto this CPU by the socket layer
  // (which expects the sender to sleep next), would wait for the end of
  // the loop's time slice: a yield lets it run first.
  if (timeout == 0 && backgroundDue_) sched_yield();
  if (!busy || opt_.pollUs <= 0 || timeout == 0)
    return epoll_wait(ep_, events, kMaxEvents, timeout);
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  auto waited = [&] {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
  };
  const auto until = start + std::chrono::microseconds(pollWindow_.us());
  bool gaveWay = false;
  for (auto now = start; now < until && !gaveWay;) {
    int n = epoll_wait(ep_, events, kMaxEvents, 0);
    if (n != 0) {
      pollWindow_.cameAfter(waited());
      return n;
    }
    sched_yield();
    const auto before = std::exchange(now, Clock::now());
    gaveWay = pollWindow_.yielded(
        std::chrono::duration_cast<std::chrono::microseconds>(now - before).count());
  }
  int n = epoll_wait(ep_, events, kMaxEvents, timeout);
  // A timer that ended the wait early says nothing of the clients, nor
  // does a request that came while others had the CPU.
  const int64_t us = waited();
  if (!gaveWay && (n != 0 || us > opt_.pollUs)) pollWindow_.cameAfter(us);
  return n;
}

void EventLoop::handleEvents(const epoll_event *events, int n) {
  for (int i = 0; i < n; ++i) {
    uint64_t tag = events[i].data.u64;
    if (tag == kListenLocal) {
      accept(listeners_[0]);
    } else if (tag == kListenTcp) {
      accept(listeners_[1]);
    } else if (tag == kSignal) {
      stopSignalled();
    } else if (tag == kVerdicts) {
      takeVerdicts();
    } else {
      uint32_t id = static_cast<uint32_t>(tag);
      ClientLink *l = link(id);
      if (!l) continue;
      bool alive = true;
      const uint32_t ev = events[i].events;
      const bool resume = (ev & EPOLLOUT) && l->transport()->receiveWaitsForRoom();
      if (ev & EPOLLOUT) alive = writeTo(*l);
      if (alive && (resume || (ev & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR))))
        alive = readFrom(*l) && watchOutput(*l);
      if (!alive) {
        drop(id);
        continue;
      }
      touched(*l);
      runnable(*l);
    }
  }
}

void EventLoop::accept(Listener &listener) {
  for (;;) {
    sockaddr_storage sa{};
    socklen_t len = sizeof sa;
    int fd =
        accept4(listener.fd, reinterpret_cast<sockaddr *>(&sa), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      switch (errno) {
        case EAGAIN:
          return;
        case EINTR:
        case ECONNABORTED:
        case EPROTO:
        case EPERM:
          continue;  // that connection only
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
          pauseListeners(errnoText("accept"));
          return;
        default:
          peerLog_.write(kLoopKey, errnoText("accept"), QueueManager::nowMs());
          return;
      }
    }
    // Beyond the cap a connection is closed at once: running out of
    // descriptors would leave the listener ready forever.
    if (links_.size() >= opt_.maxConnections || !admit(fd, sa, len, listener.tcp)) close(fd);
  }
}

// Makes a link of an accepted connection; false when it cannot be served.
bool EventLoop::admit(int fd, const sockaddr_storage &sa, socklen_t len, bool tcp) {
  // TCP is never served in clear.
  if (tcp && !opt_.tls) return false;
  const int64_t now = QueueManager::nowMs();
  PeerAddress peer;
  peer.tcp = tcp;
  if (tcp) {
    int one = 1;
    if (setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) != 0)
      peerLog_.write(kLoopKey, errnoText("setsockopt TCP_NODELAY"), now);
    char host[NI_MAXHOST] = "?", port[NI_MAXSERV] = "?";
    int rc = getnameinfo(reinterpret_cast<const sockaddr *>(&sa), len, host, sizeof host, port,
                         sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    if (rc != 0) {
      peerLog_.write(kLoopKey, std::string("getnameinfo: ") + gai_strerror(rc), now);
      return false;
    }
    peer.description = std::string("tcp ") + host + ":" + port;
    peer.key = host;
  } else {
    ucred cred{};
    socklen_t cl = sizeof cred;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &cl) != 0) {
      peerLog_.write(kLoopKey, errnoText("getsockopt SO_PEERCRED"), now);
      return false;
    }
    peer.uid = cred.uid;
    peer.description = "local uid " + std::to_string(cred.uid) + " pid " + std::to_string(cred.pid);
    peer.key = "local uid " + std::to_string(cred.uid);
  }
  uint32_t id = nextLinkId_++;
  if (nextLinkId_ == 0) nextLinkId_ = 1;
  epoll_event ev{};
  ev.events = EPOLLIN | EPOLLRDHUP;
  ev.data.u64 = id;
  if (epoll_ctl(ep_, EPOLL_CTL_ADD, fd, &ev) != 0) {
    peerLog_.write(peer.key,
                   "connection from " + peer.description + " refused: " + errnoText("epoll_ctl"),
                   now);
    return false;
  }
  // The transport owns the socket from here on.
  std::unique_ptr<Transport> transport =
      tcp ? opt_.tls->accept(fd) : std::make_unique<SocketTransport>(fd);
  if (!transport) {
    if (epoll_ctl(ep_, EPOLL_CTL_DEL, fd, nullptr) != 0)
      peerLog_.write(kLoopKey, errnoText("epoll_ctl"), now);
    peerLog_.write(peer.key, "connection from " + peer.description + " refused: no TLS session",
                   now);
    return false;
  }
  links_[id] = std::make_unique<ClientLink>(qm_, this, id, std::move(peer), std::move(transport));
  helloDeadlines_.emplace_back(now + opt_.helloTimeoutMs, id);
  return true;
}

// The listeners stop being watched for a while: a level-triggered listener
// with a connection it cannot take would wake the loop at once, forever.
void EventLoop::pauseListeners(const std::string &why) {
  const int64_t now = QueueManager::nowMs();
  if (listenAgainMs_ < 0)
    peerLog_.write(
        kLoopKey, why + "; not accepting connections for " + std::to_string(kListenPauseMs) + " ms",
        now);
  listenAgainMs_ = now + kListenPauseMs;
  for (Listener &l : listeners_) {
    if (!l.watched) continue;
    if (epoll_ctl(ep_, EPOLL_CTL_DEL, l.fd, nullptr) != 0)
      peerLog_.write(kLoopKey, errnoText("epoll_ctl (pausing a listener)"), now);
    l.watched = false;
  }
}

void EventLoop::resumeListeners() {
  if (listenAgainMs_ < 0) return;
  listenAgainMs_ = -1;
  for (Listener &l : listeners_) {
    if (l.watched || l.fd < 0) continue;
    if (watch(l.fd, l.tag, "a listener")) {
      l.watched = true;
    } else {
      // Tried again a little later: connections wait in the backlog.
      peerLog_.write(kLoopKey, why_, QueueManager::nowMs());
      listenAgainMs_ = QueueManager::nowMs() + kListenPauseMs;
    }
  }
}

// Reads what is there into the link's frames; false when the peer has
// gone, failed, or broke a limit.
bool EventLoop::readFrom(ClientLink &l) {
  uint8_t buf[kReadChunk];
  const int64_t now = QueueManager::nowMs();
  bool alive = true;
  for (int rounds = 0; rounds < kReadRounds && alive; ++rounds) {
    ssize_t n = l.transport()->receive(buf, sizeof buf);
    if (n == 0) return false;
    if (n == Transport::kFailed) return failed(l);
    if (n == Transport::kWouldBlock) break;
    alive = l.receive(buf, static_cast<size_t>(n), now);
    if (static_cast<size_t>(n) < sizeof buf) break;
  }
  if (l.takeFrameStarted() && l.frameStartedMs() > 0)
    frameDeadlines_.push_back(
        {l.frameStartedMs() + opt_.limits.frameTimeoutMs, l.frameStartedMs(), l.id(), false});
  return alive;
}

// The transport failed: says why when that is worth a line. Always false.
bool EventLoop::failed(ClientLink &l) {
  const std::string &why = l.transport()->failure();
  if (!why.empty())
    logAbout(l, "connection " + std::to_string(l.id()) + " (" + l.peer().description + "): " + why);
  return false;
}

// Writes pending output; false when the peer has gone.
bool EventLoop::writeTo(ClientLink &l) {
  const size_t end = l.writable();
  while (l.outOff < end) {
    ssize_t n = l.transport()->send(l.out.data() + l.outOff, end - l.outOff);
    if (n == Transport::kWouldBlock) break;
    if (n < 0) return failed(l);
    l.outOff += static_cast<size_t>(n);
  }
  bool pending = l.outOff < l.writable();
  // A peer that does not read its replies must not hold them for ever
  // (replies held for a commit are not its to read yet).
  if (pending && !l.outSinceMs) {
    l.outSinceMs = QueueManager::nowMs();
    frameDeadlines_.push_back(
        {l.outSinceMs + opt_.limits.frameTimeoutMs, l.outSinceMs, l.id(), true});
  }
  if (!pending) l.outSinceMs = 0;
  if (l.outOff == l.out.size()) {
    l.outputWritten();
    // Requests held back while the output was large can be handled now.
    if (l.hasRunnableInput()) runnable(l);
  }
  return watchOutput(l);
}

// Watches for room to write while writable output is pending or the
// transport's receive waits for it; false when epoll refuses.
bool EventLoop::watchOutput(ClientLink &l) {
  const bool watch = l.outOff < l.writable() || l.transport()->receiveWaitsForRoom();
  if (watch == l.watchingOut) return true;
  epoll_event ev{};
  ev.events = EPOLLIN | EPOLLRDHUP | (watch ? static_cast<uint32_t>(EPOLLOUT) : 0u);
  ev.data.u64 = l.id();
  if (epoll_ctl(ep_, EPOLL_CTL_MOD, l.transport()->fd(), &ev) != 0) {
    logAbout(l, "connection " + std::to_string(l.id()) + " (" + l.peer().description +
                    ") ended: " + errnoText("epoll_ctl"));
    return false;
  }
  l.watchingOut = watch;
  return true;
}

void EventLoop::drop(uint32_t id) {
  auto it = links_.find(id);
  if (it == links_.end()) return;
  ClientLink &l = *it->second;
  if (l.authenticating()) checker_.cancel(id);
  // Closing the descriptor ends the watch in any case; a failure here says
  // the loop's table and the kernel's disagree, which is worth a line.
  if (l.transport() && epoll_ctl(ep_, EPOLL_CTL_DEL, l.transport()->fd(), nullptr) != 0)
    logAbout(l, "connection " + std::to_string(id) + ": " + errnoText("epoll_ctl"));
  // A descriptor is free again: connections may be taken again.
  if (listenAgainMs_ >= 0) listenAgainMs_ = 0;
  // The link's end ends its session, which can answer other links' gets;
  // take it out of the table first so that nothing reaches it meanwhile.
  std::unique_ptr<ClientLink> gone = std::move(it->second);
  links_.erase(it);
}

void EventLoop::dropAll() {
  while (!links_.empty()) drop(links_.begin()->first);
}

// One turn: handle ready input, run the background work, expire waits,
// commit, write replies. Returns the epoll timeout for the next turn.
int EventLoop::finishTurn() {
  runInput();
  gather();
  int64_t now = QueueManager::nowMs();
  // While a long command runs, what this turn's requests answered is
  // committed and written before the command's next step, not behind it.
  if (backgroundDue_ && !touched_.empty()) commitAndWrite();
  // Its work joins this turn's commit, and the replies it puts reach their
  // readers' links before they are written below.
  const int64_t background = opt_.background ? opt_.background(now) : -1;
  backgroundDue_ = background == 0;
  int64_t next = qm_.expireWaits(now);
  for (int64_t other : {expireHellos(now), expireFrames(now), listenAgainMs_, background,
                        checker_.outstanding() ? now + kVerdictPollMs : int64_t{-1}})
    if (other >= 0 && (next < 0 || other < next)) next = other;
  if (listenAgainMs_ >= 0 && listenAgainMs_ <= now) resumeListeners();
  if (checker_.outstanding()) takeVerdicts();
  commitAndWrite();
  // A reply the peer left unread above started its time limit after the
  // deadlines were looked at: without it in the wait, an idle loop would
  // sleep past it and end the peer only when some event came.
  if (!frameDeadlines_.empty() && (next < 0 || frameDeadlines_.front().deadlineMs < next))
    next = frameDeadlines_.front().deadlineMs;
  if (!touched_.empty() || anyRunnable()) return 0;
  if (next < 0) return -1;
  int64_t wait = next - QueueManager::nowMs();
  return wait < 0 ? 0 : wait > 60000 ? 60000 : static_cast<int>(wait);
}

void EventLoop::commitAndWrite() {
  if (qm_.commitPending()) lastGroup_ = touched_;
  const uint64_t turn = qm_.turn();
  const bool committed = qm_.endTurn();
  // Replies queued from here on (a drop below can answer another
  // connection's get) belong to the next commit.
  size_t count = touched_.size();
  for (size_t i = 0; i < count; ++i) {
    uint32_t id = touched_[i];
    ClientLink *l = link(id);
    if (!l) continue;
    l->touched = false;
    l->settle(turn, committed);
    if ((!l->out.empty() && !writeTo(*l)) || (l->closing() && l->out.empty()))
      drop(id);
    else if (l->writable() < l->out.size())
      touched(*l);  // replies that wait for the next commit
  }
  touched_.erase(touched_.begin(), touched_.begin() + static_cast<std::ptrdiff_t>(count));
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
      logAbout(*l, "connection " + std::to_string(id) + " (" + l->peer().description +
                       "): no hello in time");
      drop(id);
    }
    helloDeadlines_.pop_front();
  }
  return -1;
}

// A peer that begins a frame, or stops reading a reply, and stalls must not
// hold its buffer for ever.
// Returns the next deadline (-1 when none).
int64_t EventLoop::expireFrames(int64_t now) {
  while (!frameDeadlines_.empty()) {
    const FrameDeadline d = frameDeadlines_.front();
    ClientLink *l = link(d.id);
    if (l && (d.output ? l->outSinceMs : l->frameStartedMs()) == d.startMs) {
      if (d.deadlineMs > now) return d.deadlineMs;
      logAbout(*l, "connection " + std::to_string(d.id) + " (" + l->peer().description +
                       "): " + (d.output ? "reply not read" : "frame not complete") + " within " +
                       std::to_string(opt_.limits.frameTimeoutMs) + " ms");
      drop(d.id);
    }
    frameDeadlines_.pop_front();
  }
  return -1;
}

}  // namespace jxqm
