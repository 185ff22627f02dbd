// A turn whose commit fails takes back every change made with its durable
// work, so that memory matches the store; and the replies held for it turn
// into failures of their own calls.
#include <jx/jxai.h>

#include "core_fixture.hpp"
#include "held_replies.hpp"
#include "session.hpp"

namespace {

using coretest::Core;
using jxqm::StoreFault;
using jxqp::Op;

class FailingStore : public Core {
 protected:
  void SetUp() override {
    Core::SetUp();
    create("PQ", {{JXIA_DEF_PERSISTENCE, JXPER_PERSISTENT, {}}});
    create("DQ");
    ASSERT_TRUE(qm_->endTurn());
  }
  int32_t depth(const char *queue) { return attribute(queue, JXIA_CURRENT_Q_DEPTH).number; }
  bool exists(const char *queue) { return qm_->findQueue(queue) != nullptr; }
};

TEST_F(FailingStore, AFailedTurnTakesBackEveryChangeAndItsHeldSessions) {
  jxqm::Session &a = session("alice"), &b = session("bob");
  const int32_t ha = open(a, "PQ", JXOO_OUTPUT),
                hb = open(b, "PQ", JXOO_INPUT_SHARED | JXOO_OUTPUT);
  EXPECT_EQ(put(a, ha, "kept").rc, JXRC_NONE);
  ASSERT_TRUE(qm_->endTurn());

  {
    jxqm::QueueManager::Acting acting(*qm_, a.id());
    EXPECT_EQ(put(a, ha, "lost").rc, JXRC_NONE);
  }
  {
    jxqm::QueueManager::Acting acting(*qm_, b.id());
    EXPECT_EQ(get(b, hb)->data, "kept");
    EXPECT_EQ(put(b, hb, "uow", JXPMO_SYNCPOINT).rc, JXRC_NONE);
    EXPECT_EQ(b.commit().rc, JXRC_NONE);
  }
  EXPECT_TRUE(admin_->deleteQueue("DQ", true).ok());
  create("NEWQ");
  EXPECT_EQ(depth("PQ"), 2);
  EXPECT_TRUE(qm_->takeHeld(a.id()));
  EXPECT_TRUE(qm_->takeHeld(b.id()));

  store_.inject({StoreFault::Kind::Commit, 1});
  EXPECT_FALSE(qm_->endTurn());
  // Memory as the store has it, before and after a restart.
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round ? "after a restart" : "after the failed commit");
    EXPECT_EQ(depth("PQ"), 1);
    EXPECT_TRUE(exists("DQ"));
    EXPECT_FALSE(exists("NEWQ"));
    if (!round) restart();
  }
  jxqm::Session &c = session();
  auto got = get(c, open(c, "PQ", JXOO_INPUT_SHARED));
  EXPECT_EQ(got->data, "kept");
  EXPECT_EQ(got->reply.md.BackoutCount, 0);
}

// Each store call that fails leaves nothing of its own and answers 2102;
// the turn goes on and commits.
TEST_F(FailingStore, AFailedWriteAnswers2102AndChangesNothing) {
  jxqm::Session &s = session();
  int32_t h = open(s, "PQ", JXOO_INPUT_SHARED | JXOO_OUTPUT);
  EXPECT_EQ(put(s, h, "first").rc, JXRC_NONE);
  ASSERT_TRUE(qm_->endTurn());
  struct Case {
    const char *what;
    StoreFault fault;
    std::function<int32_t()> call;
  };
  const Case cases[] = {
      {"put", {StoreFault::Kind::Write, 1}, [&] { return put(s, h, "second").rc; }},
      {"get", {StoreFault::Kind::Write, 1}, [&] { return get(s, h)->reply.rc; }},
      {"commit of a unit of work",
       {StoreFault::Kind::Write, 2},
       [&] {
         EXPECT_EQ(put(s, h, "uow1", JXPMO_SYNCPOINT).rc, JXRC_NONE);
         EXPECT_EQ(put(s, h, "uow2", JXPMO_SYNCPOINT).rc, JXRC_NONE);
         return s.commit().rc;
       }},
      // Administration wants the queue closed.
      {"clear",
       {StoreFault::Kind::Write, 1},
       [&] {
         jxqp::CloseRequest close;
         close.hobj = h;
         EXPECT_EQ(s.close(close).rc, JXRC_NONE);
         return admin_->clearQueue("PQ").rc;
       }},
      {"delete with its messages",
       {StoreFault::Kind::Write, 2},
       [&] { return admin_->deleteQueue("PQ", true).rc; }},
      {"put on a full disk",
       {StoreFault::Kind::Full, 0},
       [&] {
         h = open(s, "PQ", JXOO_OUTPUT);
         return put(s, h, "third").rc;
       }},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    store_.inject(c.fault);
    EXPECT_EQ(c.call(), JXRC_RESOURCE_PROBLEM);
    store_.inject({});
    EXPECT_TRUE(qm_->endTurn());
    EXPECT_TRUE(exists("PQ"));
    EXPECT_EQ(depth("PQ"), 1);
  }
  restart();
  EXPECT_EQ(depth("PQ"), 1);
}

// Replies of two turns in one output: the failed turn's become 2102 of
// their own calls, the other's stay held until their commit.
TEST(HeldReplies, AFailedTurnsRepliesBecomeFailuresOfTheirOwnCalls) {
  jxqp::Bytes out;
  jxqm::HeldReplies held;
  auto append = [&](Op op, auto reply, uint64_t turn) {
    jxqp::Writer w;
    jxqp::encode(w, reply);
    const size_t at = out.size();
    jxqp::appendFrame(out, jxqp::replyOp(op), w);
    if (turn) held.hold(at, op, turn);
    return at;
  };
  append(Op::Inq, jxqp::InqReply{.ints = {7}, .chars = {}}, 0);
  jxqp::PutReply put;
  put.md.Priority = 5;
  const size_t heldAt = append(Op::Put, put, 1);
  append(Op::Commit, jxqp::CodeReply{}, 1);
  append(Op::Get, jxqp::GetReply{.data = "next turn", .ahead = {}}, 2);
  EXPECT_EQ(held.writable(out.size()), heldAt);

  held.settle(out, 1, false, JXRC_RESOURCE_PROBLEM);
  std::vector<std::pair<uint8_t, jxqp::Bytes>> frames;
  for (size_t at = 0; at < out.size();) {
    jxqp::FrameHeader h;
    ASSERT_EQ(jxqp::decodeHeader(out.data() + at, h), jxqp::HeaderStatus::Ok);
    frames.emplace_back(h.op, jxqp::Bytes(out.begin() + at + jxqp::kHeaderSize,
                                          out.begin() + at + jxqp::kHeaderSize + h.length));
    at += jxqp::kHeaderSize + h.length;
  }
  ASSERT_EQ(frames.size(), 4u);
  auto decoded = [&](size_t i, auto reply) {
    EXPECT_TRUE(jxqp::decode(frames[i].second.data(), frames[i].second.size(), reply)) << i;
    return reply;
  };
  EXPECT_EQ(decoded(0, jxqp::InqReply{}).ints, std::vector<int32_t>(1, 7));
  EXPECT_EQ(frames[1].first, jxqp::replyOp(Op::Put));
  const jxqp::PutReply putAfter = decoded(1, jxqp::PutReply{});
  EXPECT_EQ(putAfter.cc, JXCC_FAILED);
  EXPECT_EQ(putAfter.rc, JXRC_RESOURCE_PROBLEM);
  EXPECT_EQ(putAfter.md.Priority, jxqp::PutReply{}.md.Priority)
      << "nothing of the lost reply is left";
  EXPECT_EQ(decoded(2, jxqp::CodeReply{}).rc, JXRC_RESOURCE_PROBLEM);
  EXPECT_EQ(decoded(3, jxqp::GetReply{}).data, "next turn");
  EXPECT_LT(held.writable(out.size()), out.size()) << "the next turn's reply is still held";

  held.settle(out, 2, true, JXRC_RESOURCE_PROBLEM);
  EXPECT_EQ(held.writable(out.size()), out.size());
}

}  // namespace
