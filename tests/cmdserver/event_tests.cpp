// The events: performance events with their hysteresis and the switch that
// silences them, configuration events while their switch is on, and
// authority events for refused commands and opens of a user without the
// administrator right over TCP.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "cmd_support.hpp"

using namespace cmdtest;

namespace {

std::vector<int32_t> reasonsOf(const std::vector<Reply> &events) {
  std::vector<int32_t> out;
  for (const Reply &e : events) out.push_back(e.rc);
  return out;
}

// What every event carries.
void expectEnvelope(const Reply &e, int32_t category, const std::string &qmgr) {
  EXPECT_EQ(std::vector<int32_t>({e.command, e.sequence, e.control}),
            std::vector<int32_t>({category, 1, 1}));
  EXPECT_EQ(e.text(JXCA_Q_MGR_NAME), qmgr);
  EXPECT_EQ(e.text(JXCA_EVENT_DATE).size(), size_t(JX_DATE_LENGTH));
  EXPECT_EQ(e.text(JXCA_EVENT_TIME).size(), size_t(JX_TIME_LENGTH));
}

TEST_F(CommandTest, PerformanceEventsWithHysteresis) {
  takeEvents(hconn_, JXQ_PERFM_EVENT);
  ok(JXCMD_CREATE_QUEUE, {{JXCA_Q_NAME, "PERF.Q"},
                          {JXIA_Q_TYPE, JXQT_LOCAL},
                          {JXIA_MAX_Q_DEPTH, 10},
                          {JXIA_Q_DEPTH_HIGH_LIMIT, 50},
                          {JXIA_Q_DEPTH_LOW_LIMIT, 20},
                          {JXIA_Q_DEPTH_HIGH_EVENT, 1},
                          {JXIA_Q_FULL_EVENT, 1}});
  const int32_t q = qmtest::openQueue(hconn_, "PERF.Q", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  auto armed = [&] {
    Reply r = ok(JXCMD_INQUIRE_QUEUE, {{JXCA_Q_NAME, "PERF.Q"},
                                       {JXSEL_QUEUE_ATTRS, JXIA_Q_DEPTH_HIGH_EVENT},
                                       {JXSEL_QUEUE_ATTRS, JXIA_Q_DEPTH_LOW_EVENT}});
    return std::vector<int32_t>{r.number(JXIA_Q_DEPTH_HIGH_EVENT),
                                r.number(JXIA_Q_DEPTH_LOW_EVENT)};
  };
  // Depth 4 is below the high limit (5 of 10), 5 reaches it.
  for (int i = 0; i < 4; ++i) ASSERT_EQ(qmtest::put(hconn_, q, "m"), JXRC_NONE);
  EXPECT_EQ(takeEvents(hconn_, JXQ_PERFM_EVENT).size(), 0u);
  ASSERT_EQ(qmtest::put(hconn_, q, "m"), JXRC_NONE);
  std::vector<Reply> events = takeEvents(hconn_, JXQ_PERFM_EVENT);
  ASSERT_EQ(reasonsOf(events), std::vector<int32_t>({JXRCEV_Q_DEPTH_HIGH}));
  expectEnvelope(events[0], JXCMD_PERFM_EVENT, qm()->name());
  EXPECT_EQ(std::vector<int32_t>(
                {events[0].number(JXIA_CURRENT_Q_DEPTH), events[0].number(JXIA_MAX_Q_DEPTH)}),
            std::vector<int32_t>({5, 10}));
  EXPECT_EQ(events[0].text(JXCA_Q_NAME), "PERF.Q");
  EXPECT_EQ(armed(), std::vector<int32_t>({0, 1}));
  // Full: every refused put; the depth-high event stays silent meanwhile.
  for (int i = 5; i < 10; ++i) ASSERT_EQ(qmtest::put(hconn_, q, "m"), JXRC_NONE);
  for (int i = 0; i < 2; ++i) ASSERT_EQ(qmtest::put(hconn_, q, "m"), JXRC_Q_FULL);
  // Down to 3 says nothing, 2 reaches the low limit.
  for (int i = 10; i > 3; --i) ASSERT_EQ(qmtest::get(hconn_, q).rc, JXRC_NONE);
  EXPECT_EQ(reasonsOf(takeEvents(hconn_, JXQ_PERFM_EVENT)),
            std::vector<int32_t>({JXRCEV_Q_FULL, JXRCEV_Q_FULL}));
  ASSERT_EQ(qmtest::get(hconn_, q).rc, JXRC_NONE);
  EXPECT_EQ(reasonsOf(takeEvents(hconn_, JXQ_PERFM_EVENT)),
            std::vector<int32_t>({JXRCEV_Q_DEPTH_LOW}));
  EXPECT_EQ(armed(), std::vector<int32_t>({1, 0}));
  // With the queue manager's switch off nothing fires.
  ok(JXCMD_CHANGE_QMGR, {{JXIA_PERFORMANCE_EVENT, 0}});
  for (int i = 2; i < 11; ++i) qmtest::put(hconn_, q, "m");
  EXPECT_EQ(takeEvents(hconn_, JXQ_PERFM_EVENT).size(), 0u);
  EXPECT_EQ(armed(), std::vector<int32_t>({1, 0}));
  ok(JXCMD_CHANGE_QMGR, {{JXIA_PERFORMANCE_EVENT, 1}});
  int32_t cc, rc, h = q;
  zstJXCLOSE(hconn_, &h, JXCO_NONE, &cc, &rc);
  ok(JXCMD_DELETE_QUEUE, {{JXCA_Q_NAME, "PERF.Q"}, {JXSEL_PURGE, 1}});
}

TEST_F(CommandTest, ConfigurationEventsWhileSwitchedOn) {
  takeEvents(hconn_, JXQ_CONFIG_EVENT);
  const Items named = {{JXCA_Q_NAME, "CONF.Q"}};
  const Items typed = named + Items{{JXIA_Q_TYPE, JXQT_LOCAL}};
  ok(JXCMD_CREATE_QUEUE, typed);
  ok(JXCMD_DELETE_QUEUE, named);
  EXPECT_EQ(takeEvents(hconn_, JXQ_CONFIG_EVENT).size(), 0u);
  ok(JXCMD_CHANGE_QMGR, {{JXIA_CONFIGURATION_EVENT, 1}});
  ok(JXCMD_CREATE_QUEUE, typed);
  ok(JXCMD_CHANGE_QUEUE, typed);
  ok(JXCMD_COPY_QUEUE, {{JXSEL_FROM_QUEUE_NAME, "CONF.Q"},
                        {JXSEL_TO_QUEUE_NAME, "CONF.C"},
                        {JXIA_Q_TYPE, JXQT_LOCAL}});
  ok(JXCMD_CLEAR_QUEUE, named);
  ok(JXCMD_DELETE_QUEUE, named);
  ok(JXCMD_DELETE_QUEUE, {{JXCA_Q_NAME, "CONF.C"}});
  run(JXCMD_DELETE_QUEUE, named);  // refused: no event
  ok(JXCMD_CHANGE_QMGR, {{JXIA_CONFIGURATION_EVENT, 0}});
  const std::vector<Reply> events = takeEvents(hconn_, JXQ_CONFIG_EVENT);
  ASSERT_EQ(
      reasonsOf(events),
      std::vector<int32_t>({JXRCEV_OBJECT_CREATED, JXRCEV_OBJECT_CHANGED, JXRCEV_OBJECT_CREATED,
                            JXRCEV_QUEUE_CLEARED, JXRCEV_OBJECT_DELETED, JXRCEV_OBJECT_DELETED}));
  const char *names[] = {"CONF.Q", "CONF.Q", "CONF.C", "CONF.Q", "CONF.Q", "CONF.C"};
  for (size_t i = 0; i < events.size(); ++i) {
    expectEnvelope(events[i], JXCMD_CONFIG_EVENT, qm()->name());
    EXPECT_EQ(events[i].text(JXCA_Q_NAME), names[i]);
    EXPECT_FALSE(events[i].text(JXCA_USER_ID).empty());
  }
}

// Authority comes from the identity the queue manager stamped on the
// request, never from what the client wrote.
TEST(CommandAuthority, UserWithoutAdministratorRight) {
  if (!qmtest::serverAvailable()) GTEST_SKIP() << "no native jxqmgr";
  const std::string where = qmtest::freeTcpAddress();
  qmtest::QueueManagerProcess qm({"Q1"}, {"--listen", where});
  ASSERT_EQ(qmtest::jxqm({"adduser", qm.name(), "bob"}, "b0b-secret\n").status, 0);
  int32_t bob = 0;
  ASSERT_EQ(qmtest::tcpConnect(where, "bob", "b0b-secret", bob), JXRC_NONE);
  int32_t admin = qmtest::connect(qm.name());

  EXPECT_EQ(execute(bob, JXCMD_PING_QMGR).outcome, kOk);
  EXPECT_EQ(execute(bob, JXCMD_INQUIRE_QUEUE, {{JXCA_Q_NAME, "Q1"}}).outcome, kOk);
  const Items create = {{JXCA_Q_NAME, "BOBS"}, {JXIA_Q_TYPE, JXQT_LOCAL}};
  Executed e = execute(bob, JXCMD_CREATE_QUEUE, create);
  ASSERT_EQ(e.replies.size(), 1u);
  EXPECT_EQ(std::vector<int32_t>({e.replies[0].cc, e.replies[0].rc}),
            std::vector<int32_t>({JXCC_FAILED, JXRC_NOT_AUTHORIZED}));
  EXPECT_EQ(qmtest::openReason(bob, JXQ_ADMIN_COMMAND, JXOO_INPUT_SHARED), JXRC_NOT_AUTHORIZED);
  std::vector<Reply> events = takeEvents(admin, JXQ_QMGR_EVENT);
  ASSERT_EQ(reasonsOf(events),
            std::vector<int32_t>({JXRCEV_NOT_AUTHORIZED, JXRCEV_NOT_AUTHORIZED}));
  const std::pair<const char *, const char *> what[] = {{"BOBS", "CREATE_QUEUE"},
                                                        {JXQ_ADMIN_COMMAND, "JXOPEN"}};
  for (size_t i = 0; i < events.size(); ++i) {
    expectEnvelope(events[i], JXCMD_Q_MGR_EVENT, qm.name());
    EXPECT_EQ(events[i].text(JXCA_USER_ID), "bob");
    EXPECT_EQ(events[i].text(JXCA_Q_NAME), what[i].first);
    EXPECT_EQ(events[i].text(JXCA_EVENT_OPERATION), what[i].second);
  }
  // The same command from an administrator succeeds; with the switch off
  // a refusal is silent.
  EXPECT_EQ(execute(admin, JXCMD_CREATE_QUEUE, create).outcome, kOk);
  EXPECT_EQ(execute(admin, JXCMD_CHANGE_QMGR, {{JXIA_AUTHORITY_EVENT, 0}}).outcome, kOk);
  EXPECT_EQ(execute(bob, JXCMD_DELETE_QUEUE, {{JXCA_Q_NAME, "BOBS"}}).replies.at(0).rc,
            JXRC_NOT_AUTHORIZED);
  EXPECT_EQ(takeEvents(admin, JXQ_QMGR_EVENT).size(), 0u);
  qmtest::disconnect(bob);
  qmtest::disconnect(admin);
}

}  // namespace
