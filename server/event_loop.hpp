// The one thread that serves every connection: epoll, accepting, reading
// and writing, and the turns in which the queue manager's work is done and
// committed before the replies go out.
#pragma once

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "client_link.hpp"
#include "password_checker.hpp"
#include "peer_limits.hpp"
#include "poll_window.hpp"
#include "queue_manager.hpp"
#include "tls.hpp"

namespace jxqm {

class EventLoop final : public LinkOwner {
 public:
  struct Options {
    int localFd = -1, tcpFd = -1, signalFd = -1;  // listeners and the stop signal
    size_t maxConnections = 32;
    int64_t helloTimeoutMs = 10000;
    int pollUs = 200;           // polling after a turn with work; 0: none
    TlsContext *tls = nullptr;  // TCP connections' TLS; required with a TCP listener
    // Work of the queue manager's own that runs once a turn (the command
    // server): given the time, it returns when it wants its next turn (a
    // time in milliseconds; 0 at once; -1 when only an event can bring work).
    std::function<int64_t(int64_t nowMs)> background;
    PeerLimits limits;
  };
  EventLoop(QueueManager &qm, Options options);
  ~EventLoop();
  EventLoop(const EventLoop &) = delete;
  EventLoop &operator=(const EventLoop &) = delete;

  // False (with why()) when epoll or the password worker could not be set up.
  bool ready() const { return ep_ >= 0 && checker_.ready(); }
  const std::string &why() const { return why_; }
  // Serves until the stop signal; false when epoll fails.
  bool run();
  // Drops every connection (their units of work are backed out).
  void dropAll();

  // LinkOwner
  void touched(ClientLink &link) override;
  void runnable(ClientLink &link) override;
  void checkPassword(ClientLink &link, std::string password, std::string hash) override;
  void logAbout(const ClientLink &link, const std::string &line) override;
  BufferBudget *budget() override { return &budget_; }

 private:
  int waitForEvents(epoll_event *events, int timeout, bool busy);
  void handleEvents(const epoll_event *events, int n);
  struct Listener {
    int fd;
    uint64_t tag;
    bool tcp;
    bool watched = false;
  };
  bool watch(int fd, uint64_t tag, const char *what);
  void accept(Listener &listener);
  bool admit(int fd, const sockaddr_storage &sa, socklen_t len, bool tcp);
  void pauseListeners(const std::string &why);
  void resumeListeners();
  void takeVerdicts();
  void stopSignalled();
  bool readFrom(ClientLink &link);
  bool writeTo(ClientLink &link);
  bool failed(ClientLink &link);
  bool watchOutput(ClientLink &link);
  void drop(uint32_t id);
  ClientLink *link(uint32_t id);
  int finishTurn();
  void commitAndWrite();  // ends the queue manager's turn and writes what it released
  void runInput();
  bool anyRunnable();
  void gather();
  int64_t expireHellos(int64_t now);
  int64_t expireFrames(int64_t now);

  QueueManager &qm_;
  Options opt_;
  PollWindow pollWindow_;
  std::string why_;
  BufferBudget budget_;
  PeerLog peerLog_;
  LoginPenalties penalties_;
  PasswordChecker checker_;
  Listener listeners_[2];
  int64_t listenAgainMs_ = -1;  // listeners paused until then (-1: not paused)
  int ep_ = -1;
  bool stopping_ = false;
  bool backgroundDue_ = false;  // the background work asked for the next turn at once
  uint32_t nextLinkId_ = 1;
  std::unordered_map<uint32_t, std::unique_ptr<ClientLink>> links_;
  // A turn looks only at the links that had events or were given replies,
  // never at every link: most of them are idle.
  std::vector<uint32_t> touched_, runnable_;
  std::vector<uint32_t> lastGroup_;                          // links answered by the last commit
  std::deque<std::pair<int64_t, uint32_t>> helloDeadlines_;  // in accept order
  // A frame being received, or a reply being written (output), must be
  // through within the frame time limit.
  struct FrameDeadline {
    int64_t deadlineMs, startMs;
    uint32_t id;
    bool output;
  };
  std::deque<FrameDeadline> frameDeadlines_;  // in the order they began
};

}  // namespace jxqm
