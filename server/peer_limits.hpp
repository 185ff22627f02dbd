// What a peer may cost the queue manager: its share of the memory that
// connections' buffers hold, the lines it may add to the log, and the wait
// its next login check is held back by after failed ones. A hostile peer
// then costs only itself: the others keep their memory, their log and their
// prompt logins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace jxqm {

// The limits, with their defaults; jxqmgr's options change them.
struct PeerLimits {
  // A frame before the hello has been answered (a hello is a few hundred bytes).
  static constexpr uint32_t kHelloFrameMax = 4096;
  // Bytes all connections' buffers may hold together.
  size_t bufferBudget = size_t{256} << 20;
  // A frame begun must be complete within this time.
  int64_t frameTimeoutMs = 10000;
  // A peer's log lines in a minute; the next is one "suppressed" line.
  int logLinesPerMinute = 20;
  // The hold on a login check after one failure from the same address;
  // it doubles with each further failure up to kLoginDelayMaxMs. 0: none.
  int64_t loginDelayMs = 250;
  static constexpr int64_t kLoginDelayMaxMs = 8000;
};

// The bytes that connections' buffers hold, against one budget.
class BufferBudget {
 public:
  explicit BufferBudget(size_t limit) : limit_(limit) {}
  size_t limit() const { return limit_; }
  size_t used() const { return used_; }
  // False, taking nothing, when the bytes do not fit.
  bool take(size_t bytes) {
    // Forced bytes may have taken the use beyond the limit.
    if (used_ >= limit_ || bytes > limit_ - used_) return false;
    used_ += bytes;
    return true;
  }
  // Bytes that are held whatever the budget says (a reply already made).
  void force(size_t bytes) { used_ += bytes; }
  void give(size_t bytes) { used_ -= bytes < used_ ? bytes : used_; }

 private:
  size_t limit_;
  size_t used_ = 0;
};

// Log lines about peers, at most so many per peer a minute. The first line
// beyond says that more are suppressed; the peer's first line of a later
// minute says how many were.
class PeerLog {
 public:
  using Writer = std::function<void(const std::string &)>;
  PeerLog(int linesPerMinute, Writer write)
      : linesPerMinute_(linesPerMinute), write_(std::move(write)) {}
  // `peer` identifies the peer (its address), `line` is written as it is.
  void write(const std::string &peer, const std::string &line, int64_t nowMs);

 private:
  struct Window {
    int64_t startMs = 0;
    int lines = 0;
    uint64_t suppressed = 0;
  };
  void prune(int64_t nowMs);
  int linesPerMinute_;
  Writer write_;
  std::unordered_map<std::string, Window> windows_;
};

// Failed logins by peer address, and the hold they put on the next check.
class LoginPenalties {
 public:
  explicit LoginPenalties(int64_t baseMs) : baseMs_(baseMs) {}
  // How long a check for this address waits before it runs.
  int64_t delayMs(const std::string &address, int64_t nowMs);
  void failed(const std::string &address, int64_t nowMs);
  void succeeded(const std::string &address) { failures_.erase(address); }

 private:
  struct Record {
    int count = 0;
    int64_t lastMs = 0;
  };
  void prune(int64_t nowMs);
  int64_t baseMs_;
  std::unordered_map<std::string, Record> failures_;
};

}  // namespace jxqm
