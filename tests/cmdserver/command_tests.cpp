// Every command of the command server through jxExecute: what each answers,
// generic names and attribute lists, queue status and statistics,
// connections, the refusals and their parameters, raw requests that are
// no command, and a queue manager without (or having stopped) its server.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "cmd_support.hpp"

using namespace cmdtest;
using pcftest::Msg;

namespace {

constexpr int32_t kNoParameter = INT_MIN;

TEST_F(CommandTest, QueueCommandsFromCreateToDelete) {
  const Items a = {{JXCA_Q_NAME, "LIFE.A"}, {JXIA_Q_TYPE, JXQT_LOCAL}};
  EXPECT_EQ(
      ok(JXCMD_CREATE_QUEUE, a + Items{{JXIA_MAX_Q_DEPTH, 10}, {JXCA_Q_DESC, "first"}}).sequence,
      1);
  ok(JXCMD_CREATE_QUEUE, {{JXCA_Q_NAME, "LIFE.M"}, {JXIA_Q_TYPE, JXQT_MODEL}});
  ok(JXCMD_CHANGE_QUEUE, a + Items{{JXIA_MAX_Q_DEPTH, 20}});
  ok(JXCMD_COPY_QUEUE, {{JXSEL_FROM_QUEUE_NAME, "LIFE.A"},
                        {JXSEL_TO_QUEUE_NAME, "LIFE.B"},
                        {JXIA_Q_TYPE, JXQT_LOCAL},
                        {JXCA_Q_DESC, "copy"}});
  // One reply per queue in name order, the last with control 1, each with
  // its name and the attributes asked for.
  Executed e = run(JXCMD_INQUIRE_QUEUE, {{JXCA_Q_NAME, "LIFE.*"},
                                         {JXSEL_QUEUE_ATTRS, JXIA_MAX_Q_DEPTH},
                                         {JXSEL_QUEUE_ATTRS, JXCA_Q_DESC}});
  ASSERT_EQ(e.outcome, kOk);
  ASSERT_EQ(e.replies.size(), 3u);
  const std::tuple<const char *, int32_t, const char *> expected[] = {
      {"LIFE.A", 20, "first"}, {"LIFE.B", 20, "copy"}, {"LIFE.M", 5000, ""}};
  for (size_t i = 0; i < 3; ++i) {
    const Reply &r = e.replies[i];
    EXPECT_EQ(std::vector<int32_t>({r.cc, r.command, r.sequence, r.control}),
              std::vector<int32_t>({0, JXCMD_INQUIRE_QUEUE, int32_t(i + 1), i == 2 ? 1 : 0}));
    EXPECT_EQ(r.text(JXCA_Q_NAME), std::get<0>(expected[i]));
    EXPECT_EQ(r.number(JXIA_MAX_Q_DEPTH), std::get<1>(expected[i]));
    EXPECT_EQ(r.text(JXCA_Q_DESC), std::get<2>(expected[i]));
    EXPECT_EQ(r.ints.size() + r.texts.size(), 3u);
  }
  // Names by generic name and type; none is an empty list.
  const std::pair<Items, std::vector<std::string>> names[] = {
      {{{JXCA_Q_NAME, "LIFE.*"}}, {"LIFE.A", "LIFE.B", "LIFE.M"}},
      {{{JXCA_Q_NAME, "LIFE.*"}, {JXIA_Q_TYPE, JXQT_MODEL}}, {"LIFE.M"}},
      {{{JXCA_Q_NAME, "LIFE.B"}}, {"LIFE.B"}},
      {{{JXCA_Q_NAME, "NOTHING.*"}}, {}},
  };
  for (const auto &[items, list] : names)
    EXPECT_EQ(ok(JXCMD_INQUIRE_QUEUE_NAMES, items).texts[JXSEL_QUEUE_NAMES], list);
  ok(JXCMD_CLEAR_QUEUE, {{JXCA_Q_NAME, "LIFE.A"}});
  for (const char *q : {"LIFE.A", "LIFE.B", "LIFE.M"}) ok(JXCMD_DELETE_QUEUE, {{JXCA_Q_NAME, q}});
  EXPECT_EQ(ok(JXCMD_INQUIRE_QUEUE_NAMES, {{JXCA_Q_NAME, "LIFE.*"}}).texts.size(), 0u);
}

TEST_F(CommandTest, QueueManagerInquiredAndChanged) {
  Reply r = ok(JXCMD_INQUIRE_QMGR);
  EXPECT_EQ(r.text(JXCA_Q_MGR_NAME), qm()->name());
  EXPECT_EQ(
      std::vector<int32_t>({r.number(JXIA_AUTHORITY_EVENT), r.number(JXIA_PERFORMANCE_EVENT),
                            r.number(JXIA_CONFIGURATION_EVENT), r.number(JXIA_MAX_MSG_LENGTH)}),
      std::vector<int32_t>({1, 1, 0, JX_MAX_MSG_LENGTH}));
  EXPECT_GE(r.number(JXIA_CONNECTION_COUNT), 2);  // this test's and the command server's
  EXPECT_GE(r.number(JXIA_Q_COUNT), 8);
  for (int32_t s : {JXCA_CREATION_DATE, JXCA_START_DATE}) EXPECT_EQ(r.text(s).size(), 10u);
  for (int32_t s : {JXCA_CREATION_TIME, JXCA_START_TIME}) EXPECT_EQ(r.text(s).size(), 8u);
  ok(JXCMD_CHANGE_QMGR, {{JXCA_Q_MGR_DESC, "the first"}});
  r = ok(JXCMD_INQUIRE_QMGR, {{JXSEL_QMGR_ATTRS, JXCA_Q_MGR_DESC}});
  EXPECT_EQ(r.texts.size() + r.ints.size(), 1u);
  EXPECT_EQ(r.text(JXCA_Q_MGR_DESC), "the first");
  EXPECT_EQ(ok(JXCMD_PING_QMGR).command, JXCMD_PING_QMGR);
}

// Each refusal answers once with its reason and, for 4002-4006, the
// selector in error.
TEST_F(CommandTest, RefusalsNameReasonAndParameter) {
  ok(JXCMD_CREATE_QUEUE, {{JXCA_Q_NAME, "REF.Q"}, {JXIA_Q_TYPE, JXQT_LOCAL}});
  const std::string longText(JX_Q_DESC_LENGTH + 1, 'x');
  struct Case {
    int32_t command;
    Items items;
    int32_t reason, parameter;
  };
  const int32_t create = JXCMD_CREATE_QUEUE, change = JXCMD_CHANGE_QUEUE, value = JXRCCF_PARM_VALUE,
                notAllowed = JXRCCF_PARM_NOT_ALLOWED, unknown = JXRC_UNKNOWN_OBJECT_NAME,
                none = kNoParameter, name = JXCA_Q_NAME, type = JXIA_Q_TYPE;
  const Case cases[] = {
      {99, {}, JXRCCF_COMMAND_UNKNOWN, none},
      {create, {{type, 1}, {name, "REF.N"}, {1001, 1}}, notAllowed, 1001},
      {create, {{name, "REF.N"}, {type, 3}}, value, type},
      {create, {{name, "REF.*"}, {type, 1}}, value, name},
      {create, {{name, "REF N"}, {type, 1}}, value, name},
      {create, {{name, "REF.N"}, {type, 1}, {JXIA_MAX_Q_DEPTH, -1}}, value, JXIA_MAX_Q_DEPTH},
      {create, {{name, "REF.Q"}, {type, 1}}, JXRC_OBJECT_ALREADY_EXISTS, none},
      {change, {{name, "REF.Q"}, {type, JXQT_MODEL}}, value, type},
      {change, {{name, "REF.Q"}, {type, 1}, {JXCA_Q_DESC, longText}}, value, JXCA_Q_DESC},
      {change,
       {{name, "REF.Q"}, {type, 1}, {JXIA_CURRENT_Q_DEPTH, 1}},
       notAllowed,
       JXIA_CURRENT_Q_DEPTH},
      {change, {{name, "REF.NONE"}, {type, 1}}, unknown, none},
      {JXCMD_DELETE_QUEUE, {{name, "SYSTEM.DEFAULT.LOCAL.QUEUE"}}, value, name},
      {JXCMD_INQUIRE_QUEUE, {{name, "REF.NONE*"}}, unknown, none},
      {JXCMD_INQUIRE_QUEUE, {{name, "REF.Q"}, {JXSEL_QUEUE_ATTRS, 999}}, value, JXSEL_QUEUE_ATTRS},
      {JXCMD_RESET_QUEUE_STATS, {{name, "REF.NONE"}}, unknown, none},
      {JXCMD_STOP_CONNECTION, {{JXCA_CONNECTION_ID, "xyz"}}, value, JXCA_CONNECTION_ID},
      {JXCMD_STOP_CONNECTION, {{JXCA_CONNECTION_ID, std::string(16, '0')}}, unknown, none},
  };
  for (const Case &c : cases) {
    Executed e = run(c.command, c.items);
    EXPECT_EQ(e.outcome, failed(JXRC_COMMAND_FAILED)) << c.command << " " << c.reason;
    ASSERT_EQ(e.replies.size(), 1u) << c.command << " " << c.reason;
    const Reply &r = e.replies[0];
    EXPECT_EQ(std::vector<int32_t>({r.cc, r.rc, r.sequence, r.control}),
              std::vector<int32_t>({JXCC_FAILED, c.reason, 1, 1}))
        << c.command << " " << c.reason;
    EXPECT_EQ(r.number(JXSEL_PARAMETER_IN_ERROR), c.parameter) << c.command << " " << c.reason;
  }
  ok(JXCMD_DELETE_QUEUE, {{JXCA_Q_NAME, "REF.Q"}});
}

TEST_F(CommandTest, StatusStatisticsAndTheRefusalsOfBusyQueues) {
  const Items named = {{JXCA_Q_NAME, "STAT.Q"}};
  ok(JXCMD_CREATE_QUEUE, named + Items{{JXIA_Q_TYPE, JXQT_LOCAL}});
  const int32_t hobj = qmtest::openQueue(hconn_, "STAT.Q", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(qmtest::put(hconn_, hobj, "m"), JXRC_NONE);
  ASSERT_EQ(qmtest::put(hconn_, hobj, "held", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  Reply s = ok(JXCMD_INQUIRE_QUEUE_STATUS, named);
  EXPECT_EQ(
      std::vector<int32_t>({s.number(JXIA_CURRENT_Q_DEPTH), s.number(JXIA_OPEN_INPUT_COUNT),
                            s.number(JXIA_OPEN_OUTPUT_COUNT), s.number(JXIA_UNCOMMITTED_MSGS)}),
      std::vector<int32_t>({4, 1, 1, 1}));
  EXPECT_GE(s.number(JXIA_OLDEST_MSG_AGE), 1);
  EXPECT_EQ(s.text(JXCA_LAST_PUT_DATE).size(), 10u);
  EXPECT_EQ(s.text(JXCA_LAST_GET_DATE), "");
  s = ok(JXCMD_INQUIRE_QUEUE_STATUS,
         {{JXCA_Q_NAME, "STAT.*"}, {JXSEL_Q_STATUS_ATTRS, JXIA_OLDEST_MSG_AGE}});
  EXPECT_EQ(s.ints.size() + s.texts.size(), 2u);  // the name and the age
  // Busy queues are neither cleared nor deleted.
  for (int32_t command : {JXCMD_CLEAR_QUEUE, JXCMD_DELETE_QUEUE})
    EXPECT_EQ(run(command, named).replies.at(0).rc, JXRC_OBJECT_IN_USE);
  int32_t cc, rc;
  zstJXCMIT(hconn_, &cc, &rc);
  EXPECT_EQ(qmtest::get(hconn_, hobj).rc, JXRC_NONE);
  int32_t h = hobj;
  zstJXCLOSE(hconn_, &h, JXCO_NONE, &cc, &rc);
  // Statistics as they were, then from zero; the high depth from the depth.
  Reply r = ok(JXCMD_RESET_QUEUE_STATS, {{JXCA_Q_NAME, "STAT.*"}});
  EXPECT_EQ(std::vector<int32_t>({r.number(JXIA_MSG_ENQ_COUNT), r.number(JXIA_MSG_DEQ_COUNT),
                                  r.number(JXIA_HIGH_Q_DEPTH)}),
            std::vector<int32_t>({4, 1, 4}));
  EXPECT_EQ(r.text(JXCA_Q_NAME), "STAT.Q");
  r = ok(JXCMD_RESET_QUEUE_STATS, named);
  EXPECT_EQ(std::vector<int32_t>({r.number(JXIA_MSG_ENQ_COUNT), r.number(JXIA_MSG_DEQ_COUNT),
                                  r.number(JXIA_HIGH_Q_DEPTH), r.number(JXIA_TIME_SINCE_RESET)}),
            std::vector<int32_t>({0, 0, 3, 0}));
  EXPECT_EQ(run(JXCMD_DELETE_QUEUE, named).replies.at(0).rc, JXRC_Q_NOT_EMPTY);
  ok(JXCMD_DELETE_QUEUE, named + Items{{JXSEL_PURGE, 1}});
}

TEST_F(CommandTest, ConnectionsListedAndOneStopped) {
  int32_t other = qmtest::connect(qm()->name());
  for (const char *q : {"RQ", "SYSTEM.DEFAULT.LOCAL.QUEUE", "SYSTEM.DEAD.LETTER.QUEUE"})
    qmtest::openQueue(other, q, JXOO_OUTPUT);
  Executed e = run(JXCMD_INQUIRE_CONNECTIONS);
  ASSERT_EQ(e.outcome, kOk);
  std::string id;
  bool server = false;
  for (const Reply &r : e.replies) {
    if (r.number(JXIA_PROCESS_ID) == getpid() && r.number(JXIA_HANDLE_COUNT) == 3)
      id = r.text(JXCA_CONNECTION_ID);
    server |= r.text(JXCA_APPL_NAME) == "jxqmgr command server";
    EXPECT_EQ(r.number(JXIA_TRANSPORT), JXTRANSPORT_LOCAL);
    EXPECT_EQ(r.text(JXCA_CONNECT_DATE).size(), 10u);
  }
  EXPECT_TRUE(server);
  ASSERT_EQ(id.size(), size_t(JX_CONNECTION_ID_LENGTH));
  ok(JXCMD_STOP_CONNECTION, {{JXCA_CONNECTION_ID, id}});
  EXPECT_EQ(qmtest::openReason(other, "RQ"), JXRC_CONNECTION_BROKEN);
  for (const Reply &r : run(JXCMD_INQUIRE_CONNECTIONS).replies)
    EXPECT_NE(r.text(JXCA_CONNECTION_ID), id);
  int32_t cc, rc;
  zstJXDISC(&other, 0, &cc, &rc);
  EXPECT_EQ(rc, JXRC_CONNECTION_BROKEN);
}

// Replies wait while their queue is full, and the command goes on as its
// reader takes them.
TEST_F(CommandTest, RepliesWaitForRoomOnTheirQueue) {
  ok(JXCMD_CREATE_QUEUE,
     {{JXCA_Q_NAME, "SMALL.RQ"}, {JXIA_Q_TYPE, JXQT_LOCAL}, {JXIA_MAX_Q_DEPTH, 2}});
  const int32_t rq = qmtest::openQueue(hconn_, "SMALL.RQ", JXOO_INPUT_SHARED | JXOO_INQUIRE);
  Executed e = execute(hconn_, JXCMD_INQUIRE_QUEUE_NAMES, {{JXCA_Q_NAME, "SYSTEM.*"}});
  const size_t count = e.replies.at(0).texts[JXSEL_QUEUE_NAMES].size();
  e = execute(hconn_, JXCMD_INQUIRE_QUEUE, {{JXCA_Q_NAME, "SYSTEM.*"}}, rq);
  EXPECT_EQ(e.outcome, kOk);
  ASSERT_EQ(e.replies.size(), count);
  EXPECT_GT(count, 2u);
  for (size_t i = 0; i < count; ++i) EXPECT_EQ(e.replies[i].sequence, int32_t(i + 1));
  int32_t h = rq, cc, rc;
  zstJXCLOSE(hconn_, &h, JXCO_NONE, &cc, &rc);
  ok(JXCMD_DELETE_QUEUE, {{JXCA_Q_NAME, "SMALL.RQ"}});
}

// Anything on the command queue that is no command is taken off; with a
// reply-to queue it answers 4007 once. Type errors, repeats and missing
// parameters need crafted requests, as an administration bag would not
// write them.
TEST_F(CommandTest, RawRequestsAndTheirReplies) {
  const Msg ping = Msg().header(JXPCF_TYPE_COMMAND, JXCMD_PING_QMGR, 0);
  const Msg name = Msg().header(JXPCF_TYPE_COMMAND, JXCMD_DELETE_QUEUE, 1);
  struct Case {
    Msg request;
    const char *format;
    int32_t encoding, reason, parameter;
  };
  const Case cases[] = {
      {ping, JXFMT_ADMIN, JXENC_NATIVE, JXRC_NONE, kNoParameter},
      {ping, JXFMT_STRING, JXENC_NATIVE, JXRCCF_MSG_MALFORMED, kNoParameter},
      {ping, JXFMT_ADMIN, 273, JXRCCF_MSG_MALFORMED, kNoParameter},
      {Msg().header(JXPCF_TYPE_RESPONSE, JXCMD_PING_QMGR, 0), JXFMT_ADMIN, JXENC_NATIVE,
       JXRCCF_MSG_MALFORMED, kNoParameter},
      {Msg().raw("not a command at all, just text"), JXFMT_ADMIN, JXENC_NATIVE,
       JXRCCF_MSG_MALFORMED, kNoParameter},
      {Msg(ping).fill(64 * 1024, 0), JXFMT_ADMIN, JXENC_NATIVE, JXRCCF_MSG_MALFORMED, kNoParameter},
      {Msg(name).integer(JXCA_Q_NAME, 5), JXFMT_ADMIN, JXENC_NATIVE, JXRCCF_PARM_TYPE, JXCA_Q_NAME},
      {Msg(name).stringList(JXCA_Q_NAME, 4, {"A", "B"}), JXFMT_ADMIN, JXENC_NATIVE,
       JXRCCF_PARM_TYPE, JXCA_Q_NAME},
      {Msg()
           .header(JXPCF_TYPE_COMMAND, JXCMD_DELETE_QUEUE, 2)
           .string(JXCA_Q_NAME, "A")
           .string(JXCA_Q_NAME, "B"),
       JXFMT_ADMIN, JXENC_NATIVE, JXRCCF_PARM_REPEATED, JXCA_Q_NAME},
      {Msg().header(JXPCF_TYPE_COMMAND, JXCMD_CREATE_QUEUE, 1).string(JXCA_Q_NAME, "A"),
       JXFMT_ADMIN, JXENC_NATIVE, JXRCCF_PARM_MISSING, JXIA_Q_TYPE},
  };
  const int32_t rq = qmtest::openQueue(hconn_, "RQ", JXOO_INPUT_SHARED);
  for (const Case &c : cases) {
    const std::string id = putRaw(hconn_, c.request, c.format, c.encoding, "RQ", JXPER_PERSISTENT);
    qmtest::Got g = qmtest::get(hconn_, rq, JXGMO_WAIT | JXGMO_NO_SYNCPOINT, 5000);
    ASSERT_EQ(g.rc, JXRC_NONE) << c.reason;
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(g.md.CorrelId), JX_CORREL_ID_LENGTH), id);
    EXPECT_EQ(std::vector<int32_t>({g.md.MsgType, g.md.Persistence, g.md.Encoding}),
              std::vector<int32_t>({JXMT_REPLY, JXPER_PERSISTENT, JXENC_NATIVE}));
    EXPECT_EQ(std::string(g.md.Format, JX_FORMAT_LENGTH), JXFMT_ADMIN);
    const Reply r = readMessage(g.data);
    EXPECT_EQ(std::vector<int32_t>({r.rc, r.number(JXSEL_PARAMETER_IN_ERROR), r.control}),
              std::vector<int32_t>({c.reason, c.parameter, 1}))
        << c.reason;
  }
  // Without a reply-to queue nothing answers, and the queue is emptied.
  putRaw(hconn_, Msg().raw("junk"), JXFMT_STRING, JXENC_NATIVE, "");
  putRaw(hconn_, ping, JXFMT_ADMIN, JXENC_NATIVE, "");
  EXPECT_EQ(ok(JXCMD_PING_QMGR).rc, JXRC_NONE);
  EXPECT_EQ(qmtest::get(hconn_, rq).rc, JXRC_NO_MSG_AVAILABLE);
  EXPECT_EQ(ok(JXCMD_INQUIRE_QUEUE_STATUS, {{JXCA_Q_NAME, JXQ_ADMIN_COMMAND}})
                .number(JXIA_CURRENT_Q_DEPTH),
            0);
}

// A command queue that refuses gets holds requests until it allows them
// again: the server tries its get again, a second later.
TEST_F(CommandTest, InhibitedGetsHoldRequestsUntilAllowed) {
  const Items inhibit = {
      {JXCA_Q_NAME, JXQ_ADMIN_COMMAND}, {JXIA_Q_TYPE, JXQT_LOCAL}, {JXIA_INHIBIT_GET, 1}};
  ok(JXCMD_CHANGE_QUEUE, inhibit);
  Outcome ping;
  std::atomic<bool> answered{false};
  std::thread waiting([&] {
    ping = execute(hconn_, JXCMD_PING_QMGR).outcome;
    answered = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(answered) << "answered while gets were inhibited";
  auto r = qmtest::jxqm({"alter", qm()->name(), JXQ_ADMIN_COMMAND, "--inhibit-get", "0"});
  EXPECT_EQ(r.status, 0) << r.out;
  waiting.join();
  EXPECT_EQ(ping, kOk);
}

// Without its server, or once its connection was stopped, jxExecute finds
// no reader of the command queue. Requests that expired while nobody read
// are discarded unanswered; the others are answered after a restart.
TEST(CommandServerAbsent, NotStartedStoppedAndExpiredRequests) {
  if (!qmtest::serverAvailable()) GTEST_SKIP() << "no native jxqmgr";
  qmtest::QueueManagerProcess qm({"RQ"}, {"--no-command-server"});
  int32_t h = qmtest::connect(qm.name());
  EXPECT_EQ(execute(h, JXCMD_PING_QMGR).outcome, failed(JXRC_NO_COMMAND_SERVER));
  const Msg ping = Msg().header(JXPCF_TYPE_COMMAND, JXCMD_PING_QMGR, 0);
  putRaw(h, ping, JXFMT_ADMIN, JXENC_NATIVE, "RQ", JXPER_PERSISTENT, 1);
  const std::string kept = putRaw(h, ping, JXFMT_ADMIN, JXENC_NATIVE, "RQ", JXPER_PERSISTENT);
  qmtest::disconnect(h);
  ASSERT_TRUE(qm.stop());
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ASSERT_TRUE(qm.start());
  h = qmtest::connect(qm.name());
  const int32_t rq = qmtest::openQueue(h, "RQ", JXOO_INPUT_SHARED);
  qmtest::Got g = qmtest::get(h, rq, JXGMO_WAIT | JXGMO_NO_SYNCPOINT, 5000);
  ASSERT_EQ(g.rc, JXRC_NONE);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(g.md.CorrelId), JX_CORREL_ID_LENGTH), kept);
  EXPECT_EQ(qmtest::get(h, rq, JXGMO_WAIT | JXGMO_NO_SYNCPOINT, 300).rc, JXRC_NO_MSG_AVAILABLE);

  // Stopping the server's own connection stops the server; its reply to
  // that command still goes out.
  std::string server;
  for (const Reply &r : execute(h, JXCMD_INQUIRE_CONNECTIONS).replies)
    if (r.text(JXCA_APPL_NAME) == "jxqmgr command server") server = r.text(JXCA_CONNECTION_ID);
  ASSERT_FALSE(server.empty());
  EXPECT_EQ(execute(h, JXCMD_STOP_CONNECTION, {{JXCA_CONNECTION_ID, server}}).outcome, kOk);
  EXPECT_EQ(execute(h, JXCMD_PING_QMGR).outcome, failed(JXRC_NO_COMMAND_SERVER));
  qmtest::disconnect(h);
}

}  // namespace
