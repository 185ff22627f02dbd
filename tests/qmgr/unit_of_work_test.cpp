// Units of work: puts and gets under syncpoint, commit, backout, and the
// backout of a connection that dies.
#include <chrono>
#include <thread>

#include "outcome.hpp"
#include "qm_harness.hpp"

using namespace qmtest;

namespace {

// Two connections with the queue open on each: `a_` works under syncpoint
// and `b_` looks from outside.
class UnitsOfWork : public ConnectedTest {
 protected:
  UnitsOfWork() : ConnectedTest({"Q1", "PQ --persistent"}) {}
  void SetUp() override {
    ConnectedTest::SetUp();
    if (IsSkipped()) return;
    b_ = connect(qm_->name());
    aq_ = openQueue(a_, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
    bq_ = openQueue(b_, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED | JXOO_INQUIRE);
  }
  void TearDown() override {
    if (b_ > 0) disconnect(b_);
    ConnectedTest::TearDown();
  }
  int32_t depth() {
    int32_t sel = JXIA_CURRENT_Q_DEPTH, d = -1;
    EXPECT_EQ(call(zstJXINQ, b_, bq_, 1, &sel, 1, &d, 0, nullptr), kOk);
    return d;
  }
  int32_t &a_ = hconn_;
  int32_t b_ = 0, aq_ = 0, bq_ = 0;
};

TEST_F(UnitsOfWork, PutsAndGetsTakeEffectAtCommitOrAnOrderlyDisconnect) {
  ASSERT_EQ(put(a_, aq_, "first", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  ASSERT_EQ(put(a_, aq_, "second", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  EXPECT_EQ(get(b_, bq_).rc, JXRC_NO_MSG_AVAILABLE);
  EXPECT_EQ(depth(), 2) << "uncommitted puts count in the depth";
  ASSERT_EQ(call(zstJXCMIT, a_), kOk);
  EXPECT_EQ(get(b_, bq_).data, "first");
  EXPECT_EQ(get(a_, aq_, JXGMO_SYNCPOINT).data, "second");
  ASSERT_EQ(call(zstJXCMIT, a_), kOk);
  ASSERT_EQ(call(zstJXBACK, a_), kOk);
  EXPECT_EQ(get(b_, bq_).rc, JXRC_NO_MSG_AVAILABLE) << "a committed get stays done";
  ASSERT_EQ(put(a_, aq_, "committed by disc", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  disconnect(a_);
  EXPECT_EQ(get(b_, bq_).data, "committed by disc");
}

TEST_F(UnitsOfWork, CommitWakesAWaitingGet) {
  Got g;
  std::thread waiter([&] { g = get(b_, bq_, JXGMO_WAIT, 20000); });
  ASSERT_EQ(put(a_, aq_, "after commit", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_EQ(call(zstJXCMIT, a_), kOk);
  waiter.join();
  EXPECT_EQ(g.data, "after commit");
}

TEST_F(UnitsOfWork, BackoutDiscardsPutsAndRestoresGets) {
  ASSERT_EQ(put(a_, aq_, "kept"), JXRC_NONE);
  ASSERT_EQ(call(zstJXBEGIN, a_, nullptr), kOk);
  EXPECT_EQ(call(zstJXBEGIN, a_, nullptr), failed(JXRC_UOW_IN_PROGRESS));
  Got g = get(a_, aq_, JXGMO_SYNCPOINT);
  ASSERT_EQ(g.data, "kept");
  EXPECT_EQ(g.md.BackoutCount, 0);
  ASSERT_EQ(put(a_, aq_, "discarded", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  EXPECT_EQ(get(b_, bq_).rc, JXRC_NO_MSG_AVAILABLE) << "a got message is held by the unit";
  ASSERT_EQ(call(zstJXBACK, a_), kOk);
  g = get(b_, bq_);
  EXPECT_EQ(g.data, "kept");
  EXPECT_EQ(g.md.BackoutCount, 1);
  EXPECT_EQ(get(b_, bq_).rc, JXRC_NO_MSG_AVAILABLE);
  JXBO bo = JXBO_DEFAULT;
  bo.Options = 99;
  EXPECT_EQ(call(zstJXBEGIN, a_, &bo), failed(JXRC_OPTIONS_ERROR));
}

TEST_F(UnitsOfWork, ADyingConnectionIsBackedOut) {
  ASSERT_EQ(put(a_, aq_, "to be got"), JXRC_NONE);
  ASSERT_EQ(put(a_, aq_, "persistent", nullptr, JXPMO_NO_SYNCPOINT, JXPER_PERSISTENT), JXRC_NONE);
  HeldChild child = holdInChild([&] {
    int32_t h = connect(qm_->name());
    int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
    bool ok = get(h, q, JXGMO_SYNCPOINT).rc == JXRC_NONE &&
              get(h, q, JXGMO_SYNCPOINT).rc == JXRC_NONE &&
              put(h, q, "never committed", nullptr, JXPMO_SYNCPOINT) == JXRC_NONE;
    return std::string(ok ? "y" : "n");
  });
  ASSERT_EQ(child.said, "y");
  EXPECT_EQ(get(b_, bq_).rc, JXRC_NO_MSG_AVAILABLE);
  child.kill();
  Got g = get(b_, bq_, JXGMO_WAIT, 5000);
  EXPECT_EQ(g.data, "to be got");
  EXPECT_EQ(g.md.BackoutCount, 1);
  EXPECT_EQ(get(b_, bq_).data, "persistent");
  EXPECT_EQ(get(b_, bq_).rc, JXRC_NO_MSG_AVAILABLE) << "the uncommitted put is gone";
}

TEST_F(UnitsOfWork, CommittedPersistentWorkSurvivesARestart) {
  int32_t p = openQueue(a_, "PQ", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  ASSERT_EQ(put(a_, p, "durable", nullptr, JXPMO_SYNCPOINT, JXPER_AS_Q_DEF), JXRC_NONE);
  ASSERT_EQ(put(a_, p, "taken", nullptr, JXPMO_NO_SYNCPOINT, JXPER_AS_Q_DEF), JXRC_NONE);
  ASSERT_EQ(call(zstJXCMIT, a_), kOk);
  EXPECT_EQ(get(a_, p, JXGMO_SYNCPOINT).data, "durable");
  EXPECT_EQ(get(a_, p, JXGMO_SYNCPOINT).data, "taken");
  ASSERT_EQ(put(a_, p, "uncommitted", nullptr, JXPMO_SYNCPOINT, JXPER_PERSISTENT), JXRC_NONE);
  ASSERT_EQ(call(zstJXBACK, a_), kOk);
  EXPECT_EQ(get(a_, p).data, "durable");
  ASSERT_EQ(call(zstJXCMIT, a_), kOk);
  disconnect(b_);
  restart(true);
  p = openQueue(a_, "PQ", JXOO_INPUT_SHARED);
  EXPECT_EQ(get(a_, p).data, "taken");
  EXPECT_EQ(get(a_, p).rc, JXRC_NO_MSG_AVAILABLE);
}

}  // namespace
