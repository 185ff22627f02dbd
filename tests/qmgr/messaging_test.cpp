// Moving messages through a real queue manager: across processes, waits,
// matching, truncation, expiry, limits, and inquire (set: attributes_test).
#include <chrono>
#include <cstring>
#include <set>
#include <thread>
#include <tuple>

#include "outcome.hpp"
#include "qm_harness.hpp"

using namespace qmtest;

namespace {

class Messaging : public ConnectedTest {
 protected:
  Messaging() : ConnectedTest({"Q1", "SMALL --max-depth 3 --max-message-length 100"}) {}
};

TEST_F(Messaging, PutInOneProcessGetInAnother) {
  ASSERT_EQ(inChild([&] {
              int32_t h = 0;
              if (tryConnect(qm_->name(), h) != JXRC_NONE) return 10;
              int32_t hobj = openQueue(h, "Q1", JXOO_OUTPUT);
              for (int i = 0; i < 50; ++i) {
                if (put(h, hobj, "message " + std::to_string(i)) != JXRC_NONE) return 12;
              }
              return call(zstJXDISC, &h, 0) == kOk ? 0 : 13;
            }),
            0);

  int32_t hobj = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED);
  std::set<std::string> ids;
  for (int i = 0; i < 50; ++i) {
    Got g = get(hconn_, hobj);
    ASSERT_EQ(g.rc, JXRC_NONE);
    EXPECT_EQ(g.data, "message " + std::to_string(i));  // arrival order
    EXPECT_EQ(g.dataLength, static_cast<int32_t>(g.data.size()));
    EXPECT_EQ(std::memcmp(g.md.PutDate, "20", 2), 0);
    ids.insert(std::string(reinterpret_cast<char *>(g.md.MsgId), JX_MSG_ID_LENGTH));
  }
  EXPECT_EQ(ids.size(), 50u) << "message identifiers must be unique";
  EXPECT_EQ(ids.count(std::string(JX_MSG_ID_LENGTH, '\0')), 0u);
  EXPECT_EQ(get(hconn_, hobj).rc, JXRC_NO_MSG_AVAILABLE);
}

// A wait on one connection is served by a put on another; waits end at
// their own deadlines, and a served wait leaves no deadline behind.
TEST_F(Messaging, GetWaitsAreWokenByPutsAndEndAtTheirOwnDeadlines) {
  using Clock = std::chrono::steady_clock;
  int32_t other = connect(qm_->name());
  int32_t mine = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED);
  int32_t theirs = openQueue(other, "Q1", JXOO_INPUT_SHARED);
  auto start = Clock::now();
  Got first, late;
  std::thread longWait([&] { first = get(hconn_, mine, JXGMO_WAIT, 800); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  // The shorter wait, begun later, ends first and alone.
  late = get(other, theirs, JXGMO_WAIT, 100);
  EXPECT_EQ(late.cc, JXCC_FAILED);
  EXPECT_EQ(late.rc, JXRC_NO_MSG_AVAILABLE);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(700));
  int32_t out = openQueue(other, "Q1", JXOO_OUTPUT);
  ASSERT_EQ(put(other, out, "first"), JXRC_NONE);
  longWait.join();
  EXPECT_EQ(first.rc, JXRC_NONE);
  EXPECT_EQ(first.data, "first");

  // The answered wait's deadline passes during the next one, which must
  // still get the next message.
  Got second;
  std::thread nextWait([&] { second = get(hconn_, mine, JXGMO_WAIT, 5000); });
  std::this_thread::sleep_until(start + std::chrono::milliseconds(1200));
  ASSERT_EQ(put(other, out, "second"), JXRC_NONE);
  nextWait.join();
  EXPECT_EQ(second.rc, JXRC_NONE);
  EXPECT_EQ(second.data, "second");
  EXPECT_EQ(get(hconn_, mine, JXGMO_WAIT, -2).rc, JXRC_WAIT_INTERVAL_ERROR);
  disconnect(other);
}

TEST_F(Messaging, GetByCorrelationIdentifierAmongMany) {
  int32_t out = openQueue(hconn_, "Q1", JXOO_OUTPUT);
  int32_t in = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED);
  std::vector<JXMD> sent(300);
  for (int i = 0; i < 300; ++i) {
    sent[i] = JXMD_DEFAULT;
    std::snprintf(reinterpret_cast<char *>(sent[i].CorrelId), JX_CORREL_ID_LENGTH, "corr-%d", i);
    ASSERT_EQ(put(hconn_, out, "body " + std::to_string(i), &sent[i]), JXRC_NONE);
  }
  // A selector with the identifiers of the given messages (-1: none).
  auto selector = [&](int msg, int correl) {
    JXMD sel = JXMD_DEFAULT;
    if (msg >= 0) std::memcpy(sel.MsgId, sent[msg].MsgId, JX_MSG_ID_LENGTH);
    if (correl >= 0) std::memcpy(sel.CorrelId, sent[correl].CorrelId, JX_CORREL_ID_LENGTH);
    return sel;
  };
  JXMD sel = selector(-1, 217);
  Got g = get(hconn_, in, JXGMO_NO_SYNCPOINT, 0, 4096, &sel);
  ASSERT_EQ(g.rc, JXRC_NONE);
  EXPECT_EQ(g.data, "body 217");
  EXPECT_EQ(std::memcmp(g.md.MsgId, sent[217].MsgId, JX_MSG_ID_LENGTH), 0);
  sel = selector(-1, 217);
  EXPECT_EQ(get(hconn_, in, JXGMO_NO_SYNCPOINT, 0, 4096, &sel).rc, JXRC_NO_MSG_AVAILABLE)
      << "gone once taken";
  // By message identifier; correlation ignored when not asked to match it.
  sel = selector(5, 9);
  EXPECT_EQ(get(hconn_, in, JXGMO_NO_SYNCPOINT, 0, 4096, &sel, JXMO_MATCH_MSG_ID).data, "body 5");
  sel = selector(6, 9);
  EXPECT_EQ(get(hconn_, in, JXGMO_NO_SYNCPOINT, 0, 4096, &sel).rc, JXRC_NO_MSG_AVAILABLE)
      << "both must match when both are asked for";
  // All-zero identifiers match anything: the oldest message comes first.
  EXPECT_EQ(get(hconn_, in).data, "body 0");
}

TEST_F(Messaging, TruncationLeavesOrRemovesTheMessage) {
  int32_t out = openQueue(hconn_, "Q1", JXOO_OUTPUT);
  int32_t in = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED);
  ASSERT_EQ(put(hconn_, out, "0123456789ABCDEF"), JXRC_NONE);
  // What a get saw: completion code, reason, whole length and the data given.
  auto seen = [](const Got &g) { return std::make_tuple(g.cc, g.rc, g.dataLength, g.data); };
  EXPECT_EQ(seen(get(hconn_, in, JXGMO_NO_SYNCPOINT, 0, 10)),
            std::make_tuple(JXCC_FAILED, JXRC_TRUNCATED_MSG_FAILED, 16, std::string("0123456789")));
  EXPECT_EQ(seen(get(hconn_, in, JXGMO_NO_SYNCPOINT | JXGMO_ACCEPT_TRUNCATED_MSG, 0, 4)),
            std::make_tuple(JXCC_WARNING, JXRC_TRUNCATED_MSG_ACCEPTED, 16, std::string("0123")));
  EXPECT_EQ(get(hconn_, in).rc, JXRC_NO_MSG_AVAILABLE) << "accepted truncation removes it";
  // A zero-length buffer discards a message when truncation is accepted.
  ASSERT_EQ(put(hconn_, out, "x"), JXRC_NONE);
  EXPECT_EQ(seen(get(hconn_, in, JXGMO_ACCEPT_TRUNCATED_MSG, 0, 0)),
            std::make_tuple(JXCC_WARNING, JXRC_TRUNCATED_MSG_ACCEPTED, 1, std::string()));
  EXPECT_EQ(get(hconn_, in).rc, JXRC_NO_MSG_AVAILABLE);
}

TEST_F(Messaging, ExpiredMessagesAreNotDelivered) {
  int32_t out = openQueue(hconn_, "Q1", JXOO_OUTPUT);
  int32_t in = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED | JXOO_INQUIRE);
  auto expiring = [](int32_t tenths) {
    JXMD md = JXMD_DEFAULT;
    md.Expiry = tenths;
    return md;
  };
  JXMD shortLived = expiring(1), longLived = expiring(600), bad = expiring(0);
  ASSERT_EQ(put(hconn_, out, "short lived", &shortLived), JXRC_NONE);
  ASSERT_EQ(put(hconn_, out, "long lived", &longLived), JXRC_NONE);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  Got g = get(hconn_, in);
  EXPECT_EQ(g.data, "long lived");
  EXPECT_GT(g.md.Expiry, 500);
  EXPECT_LE(g.md.Expiry, 600);
  EXPECT_EQ(get(hconn_, in).rc, JXRC_NO_MSG_AVAILABLE);
  EXPECT_EQ(put(hconn_, out, "bad", &bad), JXRC_EXPIRY_ERROR);
}

TEST_F(Messaging, QueueFullAndMessageTooLong) {
  int32_t out = openQueue(hconn_, "SMALL", JXOO_OUTPUT);
  EXPECT_EQ(put(hconn_, out, std::string(101, 'x')), JXRC_MSG_TOO_BIG_FOR_Q);
  EXPECT_EQ(put(hconn_, out, std::string(100, 'x')), JXRC_NONE);
  EXPECT_EQ(put(hconn_, out, "2"), JXRC_NONE);
  EXPECT_EQ(put(hconn_, out, "3"), JXRC_NONE);
  EXPECT_EQ(put(hconn_, out, "4"), JXRC_Q_FULL);
  int32_t in = openQueue(hconn_, "SMALL", JXOO_INPUT_SHARED);
  EXPECT_EQ(get(hconn_, in).dataLength, 100);
  EXPECT_EQ(put(hconn_, out, "4"), JXRC_NONE) << "room again after a get";
  std::string big(JX_MAX_MSG_LENGTH + 1, 'b');
  EXPECT_EQ(put(hconn_, out, big), JXRC_MSG_TOO_BIG_FOR_Q_MGR);
}

TEST_F(Messaging, Put1ToANamedQueue) {
  JXOD od = JXOD_DEFAULT;
  setName(od.ObjectName, "Q1");
  JXMD md = JXMD_DEFAULT;
  JXPMO pmo = JXPMO_DEFAULT;
  char data[] = "one shot";
  ASSERT_EQ(call(zstJXPUT1, hconn_, &od, &md, &pmo, 8, data), kOk);
  EXPECT_NE(md.MsgId[0], 0);
  EXPECT_EQ(std::string(pmo.ResolvedQName), "Q1");
  EXPECT_EQ(std::string(pmo.ResolvedQMgrName), qm_->name());
  setName(od.ObjectName, "NO.SUCH.QUEUE");
  EXPECT_EQ(call(zstJXPUT1, hconn_, &od, &md, &pmo, 8, data), failed(JXRC_UNKNOWN_OBJECT_NAME));
  setName(od.ObjectName, "SYSTEM.DEFAULT.MODEL.QUEUE");
  EXPECT_EQ(call(zstJXPUT1, hconn_, &od, &md, &pmo, 8, data),
            failed(JXRC_OPTION_NOT_VALID_FOR_TYPE));
  int32_t in = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED);
  EXPECT_EQ(get(hconn_, in).data, "one shot");
}

TEST_F(Messaging, InquireOpenCountsDepthAndNames) {
  int32_t inq = openQueue(hconn_, "Q1", JXOO_INQUIRE);
  int32_t in1 = openQueue(hconn_, "Q1", JXOO_INPUT_SHARED);
  int32_t in2 = openQueue(hconn_, "Q1", JXOO_INPUT_AS_Q_DEF | JXOO_OUTPUT);
  ASSERT_EQ(put(hconn_, in2, "a"), JXRC_NONE);
  int32_t sel[] = {JXIA_OPEN_INPUT_COUNT, JXCA_Q_NAME, JXIA_OPEN_OUTPUT_COUNT,
                   JXIA_CURRENT_Q_DEPTH,  JXIA_Q_TYPE, JXCA_Q_MGR_NAME};
  int32_t ints[4] = {-9, -9, -9, -9};
  char chars[96];
  int32_t cc, rc;
  zstJXINQ(hconn_, inq, 6, sel, 4, ints, 96, chars, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);
  EXPECT_EQ(std::vector<int32_t>(ints, ints + 4), (std::vector<int32_t>{2, 1, 1, JXQT_LOCAL}));
  EXPECT_EQ(std::string(chars, JX_Q_NAME_LENGTH), "Q1" + std::string(46, ' '));
  EXPECT_EQ(std::string(chars + JX_Q_NAME_LENGTH, qm_->name().size()), qm_->name());
  zstJXCLOSE(hconn_, &in1, JXCO_NONE, &cc, &rc);
  EXPECT_EQ(in1, JXHO_UNUSABLE_HOBJ);
  zstJXINQ(hconn_, inq, 1, sel, 1, ints, 0, nullptr, &cc, &rc);
  EXPECT_EQ(ints[0], 1);

  // Each refusal leaves the outputs alone.
  ints[0] = -9;
  int32_t bad[] = {12345};
  const std::pair<Outcome, int32_t> refusals[] = {
      {call(zstJXINQ, hconn_, inq, 6, sel, 3, ints, 96, chars), JXRC_INT_ATTR_COUNT_TOO_SMALL},
      {call(zstJXINQ, hconn_, inq, 6, sel, 4, ints, 95, chars), JXRC_CHAR_ATTRS_TOO_SHORT},
      {call(zstJXINQ, hconn_, inq, 1, bad, 4, ints, 0, nullptr), JXRC_SELECTOR_ERROR},
      {call(zstJXINQ, hconn_, in2, 1, sel, 4, ints, 0, nullptr), JXRC_NOT_OPEN_FOR_INQUIRE},
      {call(zstJXINQ, hconn_, inq, -1, sel, 4, ints, 0, nullptr), JXRC_SELECTOR_COUNT_ERROR},
  };
  for (const auto &[got, reason] : refusals) EXPECT_EQ(got, failed(reason));
  EXPECT_EQ(ints[0], -9);
}

// Each refusal leaves the handle alone; reasons are checked in the order the
// calls check them.
TEST_F(Messaging, BadHandlesOptionsAndRecords) {
  int32_t h = openQueue(hconn_, "Q1", JXOO_OUTPUT);
  JXMD md = JXMD_DEFAULT, badId = md, badPersistence = md, badMsgType = md;
  badId.StrucId[0] = 'X';
  badPersistence.Persistence = 3;
  badMsgType.MsgType = 3;
  JXPMO pmo = JXPMO_DEFAULT, bothSync = JXPMO_DEFAULT;
  bothSync.Options = JXPMO_SYNCPOINT | JXPMO_NO_SYNCPOINT;
  char data[] = "x";
  const std::pair<Outcome, int32_t> puts[] = {
      {call(zstJXPUT, hconn_ + 1000, h, &md, &pmo, 1, data, 0), JXRC_HCONN_ERROR},
      {call(zstJXPUT, hconn_, h + 1000, &md, &pmo, 1, data, 0), JXRC_HOBJ_ERROR},
      {call(zstJXPUT, hconn_, h, nullptr, &pmo, 1, data, 0), JXRC_MD_ERROR},
      {call(zstJXPUT, hconn_, h, &badId, &pmo, 1, data, 0), JXRC_MD_ERROR},
      {call(zstJXPUT, hconn_, h, &md, nullptr, 1, data, 0), JXRC_PMO_ERROR},
      {call(zstJXPUT, hconn_, h, &md, &pmo, -1, data, 0), JXRC_BUFFER_LENGTH_ERROR},
      {call(zstJXPUT, hconn_, h, &md, &pmo, 1, nullptr, 0), JXRC_BUFFER_ERROR},
      {call(zstJXPUT, hconn_, h, &md, &bothSync, 1, data, 0), JXRC_OPTIONS_ERROR},
      {call(zstJXPUT, hconn_, h, &badPersistence, &pmo, 1, data, 0), JXRC_PERSISTENCE_ERROR},
      {call(zstJXPUT, hconn_, h, &badMsgType, &pmo, 1, data, 0), JXRC_MSG_TYPE_ERROR},
  };
  for (const auto &[got, reason] : puts) EXPECT_EQ(got, failed(reason));
  EXPECT_EQ(get(hconn_, h).rc, JXRC_NOT_OPEN_FOR_INPUT);

  JXOD od = JXOD_DEFAULT, badName = JXOD_DEFAULT;
  setName(od.ObjectName, "Q1");
  setName(badName.ObjectName, "bad name!");
  JXOD badType = od, remote = od;
  badType.ObjectType = 5;
  setName(remote.ObjectQMgrName, "ELSEWHERE");
  int32_t hobj = 77;
  const std::pair<Outcome, int32_t> opens[] = {
      {call(zstJXOPEN, hconn_, &od, JXOO_INPUT_SHARED | JXOO_INPUT_EXCLUSIVE, &hobj),
       JXRC_OPTIONS_ERROR},
      {call(zstJXOPEN, hconn_, &od, 0, &hobj), JXRC_OPTIONS_ERROR},
      {call(zstJXOPEN, hconn_, &badType, JXOO_OUTPUT, &hobj), JXRC_OBJECT_TYPE_ERROR},
      {call(zstJXOPEN, hconn_, &badName, JXOO_OUTPUT, &hobj), JXRC_OBJECT_NAME_ERROR},
      {call(zstJXOPEN, hconn_, &remote, JXOO_OUTPUT, &hobj), JXRC_UNKNOWN_REMOTE_Q_MGR},
      {call(zstJXOPEN, hconn_, nullptr, JXOO_OUTPUT, &hobj), JXRC_OD_ERROR},
  };
  for (const auto &[got, reason] : opens) EXPECT_EQ(got, failed(reason));
  EXPECT_EQ(hobj, 77) << "a failed open leaves the handle alone";

  int32_t x1 = openQueue(hconn_, "Q1", JXOO_INPUT_EXCLUSIVE);
  EXPECT_EQ(openReason(hconn_, "Q1", JXOO_INPUT_SHARED), JXRC_OBJECT_IN_USE);
  EXPECT_EQ(call(zstJXCLOSE, hconn_, &x1, JXCO_DELETE_PURGE),
            failed(JXRC_OPTION_NOT_VALID_FOR_TYPE))
      << "only dynamic queues can be deleted";
  EXPECT_EQ(call(zstJXCLOSE, hconn_, &x1, JXCO_NONE), kOk);
  EXPECT_EQ(call(zstJXCLOSE, hconn_, &x1, JXCO_NONE), failed(JXRC_HOBJ_ERROR));

  int32_t h2 = 5;
  EXPECT_EQ(tryConnect("NOT_THIS_ONE", h2), JXRC_Q_MGR_NOT_AVAILABLE);
  EXPECT_EQ(h2, 5);
  EXPECT_EQ(tryConnect("bad/name", h2), JXRC_Q_MGR_NAME_ERROR);
}

}  // namespace
