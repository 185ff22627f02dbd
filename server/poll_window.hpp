// How long the event loop polls for the next request after a turn with
// work. Polling pays while a client answers within the window, and costs
// a CPU for nothing when it does not: when many queue managers on a small
// machine are served at once, every client waits for a CPU and each poll
// only takes that CPU from the clients it waits for. So the window adapts
// to how soon requests have come lately: one that came later than the
// longest window halves it (down to no polling at all), one that came
// within the longest window while the window was shorter doubles it again.
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
  // The next event came this long after the turn that had work.
  void cameAfter(int64_t us);

 private:
  int64_t longestUs_;
  int64_t us_;
};

}  // namespace jxqm
