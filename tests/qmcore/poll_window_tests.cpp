// The event loop's polling window after a turn with work: requests that
// come late, or a CPU that others want, shrink it to nothing; prompt
// requests bring it back.
#include <gtest/gtest.h>

#include "poll_window.hpp"

namespace {

TEST(PollWindow, LateRequestsAndBusyCpusHalveItToNothingAndPromptOnesDoubleItBack) {
  struct Step {
    int64_t cameAfterUs, windowUs;
  };
  const Step steps[] = {
      {50, 200}, {5000, 100}, {5000, 50}, {201, 25}, {5000, 12}, {5000, 0}, {5000, 0},
      {150, 10}, {150, 20},   {200, 40},  {0, 80},   {10, 160},  {10, 200}, {10, 200},
  };
  jxqm::PollWindow window(200);
  EXPECT_EQ(window.us(), 200) << "a new loop polls as long as it is allowed to";
  for (const Step &s : steps) {
    window.cameAfter(s.cameAfterUs);
    EXPECT_EQ(window.us(), s.windowUs) << "after a request " << s.cameAfterUs << " us late";
  }
  // A yield that gave the CPU away for long counts as a late request and
  // ends the poll; a short one changes nothing.
  EXPECT_FALSE(window.yielded(jxqm::PollWindow::kBusyYieldUs));
  EXPECT_EQ(window.us(), 200);
  EXPECT_TRUE(window.yielded(jxqm::PollWindow::kBusyYieldUs + 1));
  EXPECT_EQ(window.us(), 100);
  jxqm::PollWindow off(0);
  off.cameAfter(5);
  EXPECT_EQ(off.us(), 0) << "a loop told not to poll never starts";
}

}  // namespace
