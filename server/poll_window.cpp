#include "poll_window.hpp"

#include <algorithm>

namespace jxqm {

void PollWindow::cameAfter(int64_t us) {
  if (us > longestUs_) {
    us_ = us_ / 2 < kFloorUs ? 0 : us_ / 2;
  } else if (us_ < longestUs_) {
    us_ = std::min(longestUs_, std::max(kFloorUs, us_ * 2));
  }
}

}  // namespace jxqm
