// What a peer may cost, with time given by hand: the log lines a peer may
// add in a minute, the hold failed logins put on the next check and the
// buffer budget (a link's frame limits: link_tests).
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "peer_limits.hpp"

namespace {

TEST(PeerLog, APeerGetsItsLinesAMinuteThenOneSuppressedLineThenACount) {
  std::vector<std::string> lines;
  jxqm::PeerLog log(3, [&](const std::string &l) { lines.push_back(l); });
  for (int i = 0; i < 10; ++i) log.write("10.0.0.1", "a" + std::to_string(i), 1000 + i);
  log.write("10.0.0.2", "other peer", 1010);
  const std::vector<std::string> firstMinute = {
      "a0", "a1", "a2", "peer 10.0.0.1: more than 3 lines this minute; the rest are suppressed",
      "other peer"};
  EXPECT_EQ(lines, firstMinute);
  lines.clear();
  log.write("10.0.0.1", "next minute", 1000 + 60000);
  const std::vector<std::string> nextMinute = {"7 more lines about peer 10.0.0.1 were suppressed",
                                               "next minute"};
  EXPECT_EQ(lines, nextMinute);
}

TEST(LoginPenalties, EachFailureDoublesTheHoldUpToTheCapAndASuccessEndsIt) {
  jxqm::LoginPenalties p(250);
  const std::string a = "10.0.0.1";
  const int64_t expected[] = {0, 250, 500, 1000, 2000, 4000, 8000, 8000};
  int64_t now = 5000;
  for (size_t failures = 0; failures < std::size(expected); ++failures) {
    EXPECT_EQ(p.delayMs(a, now), expected[failures]) << "after " << failures << " failures";
    p.failed(a, now);
    now += 10;
  }
  EXPECT_EQ(p.delayMs("10.0.0.2", now), 0) << "another address";
  EXPECT_EQ(p.delayMs(a, now + 60000), 0) << "forgotten a minute after the last failure";
  p.failed(a, now);
  p.succeeded(a);
  EXPECT_EQ(p.delayMs(a, now), 0);
  EXPECT_EQ(jxqm::LoginPenalties(0).delayMs(a, now), 0) << "holds turned off";
}

TEST(BufferBudget, TakesWhatFitsAndCountsWhatIsForced) {
  jxqm::BufferBudget b(100);
  EXPECT_TRUE(b.take(60));
  EXPECT_FALSE(b.take(41));
  EXPECT_EQ(b.used(), 60u) << "a refusal takes nothing";
  b.force(50);
  EXPECT_FALSE(b.take(1));
  b.give(200);
  EXPECT_EQ(b.used(), 0u);
  EXPECT_TRUE(b.take(100));
}

}  // namespace
