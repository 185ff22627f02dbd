// How long the event loop polls for the next request after a turn with
// work. Polling pays while a client answers within the window, and costs
// a CPU for nothing when it does not: when many queue managers on a small
// machine are served at once, every client waits for a CPU and each poll
// only takes that CPU from the clients it waits for. So the window adapts
// to how soon requests have come lately: one that came later than the
// longest window halves it (down to no polling at all), one that came
// within the longest window while the window was shorter doubles it again.
// A yield inside the window that gave the CPU away for long says the same
// as a late request: other processes want this CPU, and the poll would
// only take turns from them.
#pragma once

#include <cstdint>

namespace jxqm {

class PollWindow {
 public:
  // Below this a window is no polling: a wake-up costs about as much.
  static constexpr int64_t kFloorUs = 10;

  explicit PollWindow(int64_t longestUs) : longestUs_(longestUs), us_(longestUs) {}
  // The current window; 0 when the loop should sleep at once.
  int64_t us() const { return us_; }
  // A yield that finds no one else to run returns within a few
  // microseconds; one that takes longer ran another process.
  static constexpr int64_t kBusyYieldUs = 10;

  // The next event came this long after the turn that had work.
  void cameAfter(int64_t us);
  // A yield while polling took this long; true when polling should stop.
  bool yielded(int64_t us) {
    if (us <= kBusyYieldUs) return false;
    cameAfter(longestUs_ + 1);
    return true;
  }

 private:
  int64_t longestUs_;
  int64_t us_;
};

}  // namespace jxqm
