// jxExecute against a command server played by a thread of the test: the
// request as it goes out, the replies as they come back, the queues it opens
// and closes, every early refusal, storage failures and two callers at once.
#include <algorithm>
#include <set>

#include "leaks.hpp"
#include "messaging_support.hpp"
#include "trace_file.hpp"
#include "zuzt_funcs_ids.hpp"

namespace {

constexpr int32_t kRequestCcsid = 850, kResponseCcsid = 437, kShortWait = 300;
const std::vector<std::string> kNoSummary = {"-1/1=0", "-6/1=0", "-7/1=0"};

// The functions entered, in order, as the trace's entry lines show them (the
// function history is a ring too short for a whole exchange).
std::vector<std::string> entered(const std::vector<std::string> &lines,
                                 const std::set<std::string> &only) {
  std::vector<std::string> out;
  for (const auto &s : lines)
    if (s.rfind("{ ", 0) == 0 && only.count(s.substr(2))) out.push_back(s.substr(2));
  return out;
}

class Execute : public MessagingTest {
 protected:
  void SetUp() override {
    MessagingTest::SetUp();
    request.add(JXCA_Q_NAME, "QONE").set(JXSYS_CCSID, kRequestCcsid);
    response.set(JXSYS_CCSID, kResponseCcsid);
  }
  Outcome run(JXHBAG options = JXHB_NONE, int32_t requestq = 0, int32_t replyq = 0) {
    return call(jxExecute, hconn_, JXCMD_INQUIRE_QUEUE, options, request.h, response.h, requestq,
                replyq);
  }
  // Runs with a responder on `queue` answering every request with
  // `replies`; the request queue is supplied unless it is the command queue.
  Outcome serve(const char *queue, Replies replies, int32_t wait = JXEXEC_WAIT_DEFAULT) {
    Responder r(qm()->name(), queue, [&](const qmtest::Got &) { return replies; });
    ApiBag options;
    options.add(JXSEL_WAIT_INTERVAL, wait);
    const Outcome o =
        run(options.h, strcmp(queue, JXQ_ADMIN_COMMAND) ? open(queue, JXOO_OUTPUT) : 0);
    requests = r.requests();
    return o;
  }
  JXHBAG nested(int32_t index) {
    JXHBAG b = JXHB_NONE;
    EXPECT_EQ(call(jxInquireBag, response.h, JXSEL_REPLY_BAG, index, &b), kOk);
    return b;
  }
  std::vector<std::string> summary() {
    std::vector<std::string> all = contents(response.h), out;
    for (const char *s : {"-1/", "-6/", "-7/"})
      out.push_back(*std::find_if(all.begin(), all.end(), [&](auto &i) { return !i.find(s); }));
    return out;
  }

  ApiBag request{JXBAG_ADMIN}, response;
  std::vector<qmtest::Got> requests;
};

TEST_F(Execute, CommandQueueExchangeFromRequestToSummary) {
  request.add(JXSEL_INQUIRE, JXIA_CURRENT_Q_DEPTH);
  TraceWordsGuard words;
  words.set(1, 0, 0, 0);  // function entries and exits only
  const size_t mark = traceTexts().size();
  QmCallLog log;
  ASSERT_EQ(serve(JXQ_ADMIN_COMMAND,
                  {reply(0, 0, 11, 1, 1).integer(1, 100), reply(0, 0, 22, 1, 2).integer(1, 101),
                   reply(1, 0, 33, 1, 3).integer(1, 102)},
                  2500),
            kOk);
  using K = QmCall;
  ASSERT_EQ(log.kinds(), (std::vector<int>{K::Open, K::Inq, K::Open, K::Put, K::Get, K::Get, K::Get,
                                           K::Close, K::Close}));
  const QmCall &cmd = log.calls[0], &inq = log.calls[1], &temp = log.calls[2], &put = log.calls[3];
  // Handles, options and descriptor fields of the opens, inquire, put and closes.
  using V = std::vector<int32_t>;
  EXPECT_EQ(V({cmd.options, inq.hobj, inq.options, temp.options, put.hobj, put.md.MsgType,
               put.md.Expiry, put.md.CodedCharSetId, put.pmo.Options, log.calls[7].hobj,
               log.calls[7].options, log.calls[8].hobj, log.calls[8].options}),
            V({JXOO_OUTPUT | JXOO_INQUIRE, cmd.hobj, JXIA_OPEN_INPUT_COUNT, JXOO_INPUT_EXCLUSIVE,
               cmd.hobj, JXMT_REQUEST, 25, kRequestCcsid, JXPMO_NO_SYNCPOINT, temp.hobj,
               JXCO_DELETE_PURGE, cmd.hobj, JXCO_NONE}));
  const std::string replyQueue = nameOf(temp.od.ObjectName);
  EXPECT_EQ(std::vector<std::string>({nameOf(cmd.od.ObjectName), nameOf(temp.od.DynamicQName),
                                      replyQueue.substr(0, 11), nameOf(put.md.ReplyToQ),
                                      std::string(put.md.Format, 8)}),
            std::vector<std::string>(
                {JXQ_ADMIN_COMMAND, JXQ_REPLY_TEMPLATE, "JXAI.REPLY.", replyQueue, JXFMT_ADMIN}));
  const Msg expected = Msg()
                           .header(JXPCF_TYPE_COMMAND, JXCMD_INQUIRE_QUEUE, 2)
                           .string(JXCA_Q_NAME, "QONE", 0)
                           .intList(JXSEL_QUEUE_ATTRS, {JXIA_CURRENT_Q_DEPTH});
  EXPECT_EQ(put.data, std::string(expected.data.begin(), expected.data.end()));
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].data, put.data);
  // Each get waits on the reply queue for a reply to this request only.
  for (const QmCall &g : log.of(K::Get)) {
    EXPECT_EQ(V({g.hobj, g.gmo.Options, g.gmo.WaitInterval, g.md.Encoding, g.md.CodedCharSetId}),
              V({temp.hobj, JXGMO_WAIT | JXGMO_NO_SYNCPOINT | JXGMO_CONVERT, 2500, JXENC_NATIVE,
                 kResponseCcsid}));
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(g.md.MsgId), 24), std::string(24, 0));
    EXPECT_EQ(memcmp(g.md.CorrelId, requests[0].md.MsgId, JX_CORREL_ID_LENGTH), 0);
  }
  // Every call went through the library's exports; the workers ran in
  // order, the clean-up last.
  const std::vector<std::string> lines = since(traceTexts(), mark);
  EXPECT_EQ(entered(lines, {"JXOPEN", "JXINQ", "JXPUT", "JXGET", "JXCLOSE"}),
            (std::vector<std::string>{"JXOPEN", "JXINQ", "JXOPEN", "JXPUT", "JXGET", "JXGET",
                                      "JXGET", "JXCLOSE", "JXCLOSE"}));
  std::vector<std::string> workers = {"zaiProcessExecuteOptionsBag", "zaiOpenSysAdminCmdQueue",
                                      "zaiBagToPCFInJXAIBuffer",     "zaiOpenTempReplyQueue",
                                      "zaiSendReceivePCFMsg",        "zaiSendPCFMsg"};
  for (int i = 0; i < 3; ++i)
    workers.insert(workers.end(), {"zaiReceivePCFMsg", "zaiProcessPCFReplyMsg"});
  workers.insert(workers.end(), {"zaiFreeJXAIBuffer", "zaiFreeJXAIBuffer", "zaiCloseTempReplyQueue",
                                 "zaiCloseSysAdminCmdQueue"});
  EXPECT_EQ(entered(lines, std::set<std::string>(workers.begin(), workers.end())), workers);

  ASSERT_EQ(countOf(response.h, JXSEL_REPLY_BAG), 3);
  for (int32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(contents(nested(i)),
              (std::vector<std::string>{
                  "-8/1=40", "-2/1=2", "-1/1=1208", "-3/1=13", "-4/1=" + std::to_string(1 + i),
                  "-5/1=" + std::to_string(i / 2), "-6/1=0", "-7/1=" + std::to_string(11 * (i + 1)),
                  "1/1=" + std::to_string(100 + i)}));
  }
  EXPECT_EQ(summary(), (std::vector<std::string>{"-1/1=1208", "-6/1=0", "-7/1=33"}));
}

TEST_F(Execute, SuppliedQueuesAreNeitherOpenedNorClosed) {
  const int32_t requestq = open(kRequestQueue, JXOO_OUTPUT);
  const int32_t replyq = open(kReplyQueue, JXOO_INPUT_SHARED | JXOO_INQUIRE);
  Responder r(qm()->name(), kRequestQueue, [](const qmtest::Got &) { return Replies{reply(1)}; });
  QmCallLog log;
  ASSERT_EQ(run(JXHB_NONE, requestq, replyq), kOk);
  ASSERT_EQ(log.kinds(), (std::vector<int>{QmCall::Inq, QmCall::Put, QmCall::Get}));
  const QmCall &inq = log.calls[0], &put = log.calls[1], &get = log.calls[2];
  EXPECT_EQ(std::vector<int32_t>({inq.hobj, inq.options, inq.length, put.hobj, put.md.Expiry,
                                  get.hobj, get.gmo.WaitInterval}),
            std::vector<int32_t>({replyq, JXCA_Q_NAME, JX_Q_NAME_LENGTH, requestq,
                                  JXEXEC_WAIT_DEFAULT / 100, replyq, JXEXEC_WAIT_DEFAULT}));
  EXPECT_EQ(nameOf(put.md.ReplyToQ), kReplyQueue);
}

TEST_F(Execute, RepliesDecideTheOutcome) {
  const std::string big(5000, 'b');
  const int32_t W = kShortWait, none = JXWI_UNLIMITED;
  const std::vector<std::string> failing = {"-1/1=1208", "-6/1=2", "-7/1=3002"};
  const struct {
    const char *what;
    Replies replies;
    int32_t wait;
    Outcome outcome;
    int32_t nested;
    std::vector<std::string> summary;
  } cases[] = {
      {"one of two failing", {reply(0), reply(1, 2, 3002)}, none, {1, 3008}, 2, failing},
      {"both failing", {reply(0, 2, 3001), reply(1, 2, 3002)}, 250, {2, 3008}, 2, failing},
      {"larger than 4096",
       {reply(1, 0, 0, 1).string(3000, big, 0)},
       W,
       kOk,
       1,
       {"-1/1=1208", "-6/1=0", "-7/1=0"}},
      {"no reply", {}, 50, failed(JXRC_NO_MSG_AVAILABLE), 0, kNoSummary},
      {"one, then silence", {reply(0, 0, 5)}, W, {1, JXRC_NO_MSG_AVAILABLE}, 1, kNoSummary},
      {"a malformed reply", {reply(1).patch(8, 2)}, W, failed(JXRC_BAD_PCF), 0, kNoSummary},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    QmCallLog log;
    LEAKS_ACCEPTED_BEGIN();  // the reply bag of a malformed reply
    EXPECT_EQ(serve(kRequestQueue, c.replies, c.wait), c.outcome);
    LEAKS_ACCEPTED_END();
    EXPECT_EQ(countOf(response.h, JXSEL_REPLY_BAG), c.nested);
    EXPECT_EQ(summary(), c.summary);
    ASSERT_EQ(log.of(QmCall::Put).size(), 1u);
    EXPECT_EQ(log.of(QmCall::Put)[0].md.Expiry, c.wait == none ? none : std::max(1, c.wait / 100));
    for (const auto &g : log.of(QmCall::Get)) {
      EXPECT_EQ(g.gmo.WaitInterval, c.wait);
      EXPECT_TRUE(g.length == 4096 || (g.length == g.dataLength && g.dataLength > 4096));
    }
    response.set(JXSYS_CCSID, kResponseCcsid);
  }
  // The regrown buffer read the large reply whole.
  serve(kRequestQueue, {reply(1, 0, 0, 1).string(3000, big, 0)});
  EXPECT_EQ(stringOf(nested(0), 3000), big);
}

TEST_F(Execute, EarlyRefusalsPutNothingAndLeaveTheResponseBag) {
  response.add(5, 55);
  const std::vector<std::string> before = contents(response.h);
  ApiBag string, twice, userBag, noQueueName(JXBAG_ADMIN);
  string.add(2001, "x");
  twice.add(JXSEL_WAIT_INTERVAL, 1).add(JXSEL_WAIT_INTERVAL, 2);
  const JXHBAG rq = request.h, rs = response.h, none = JXHB_NONE;
  const struct {
    JXHBAG options, request, response;
    int32_t reason;
  } cases[] = {
      {1, rq, rs, JXRC_BAD_HANDLE},
      {none, none, rs, JXRC_BAD_HANDLE},
      {none, rq, none, JXRC_BAD_HANDLE},
      {string.h, none, rs, JXRC_BAD_HANDLE},
      {string.h, rq, rs, JXRC_OPTIONS_ERROR},
      {twice.h, userBag.h, rs, JXRC_WAIT_INTERVAL_ERROR},
      {none, userBag.h, rs, JXRC_NOT_COMMAND_MSG},
      {none, noQueueName.h, rs, JXRC_PARM_MISSING},
  };
  const int32_t requestq = open(kRequestQueue, JXOO_OUTPUT);
  for (const auto &c : cases) {
    QmCallLog log;
    LEAKS_ACCEPTED_BEGIN();  // a message the writer refused keeps its buffer
    EXPECT_EQ(call(jxExecute, hconn_, 13, c.options, c.request, c.response, requestq, 0),
              failed(c.reason));
    LEAKS_ACCEPTED_END();
    EXPECT_TRUE(log.calls.empty());
    EXPECT_EQ(contents(response.h), before);
  }
  // No command server: the command queue is opened, found unread and closed.
  QmCallLog log;
  EXPECT_EQ(run(), failed(JXRC_NO_COMMAND_SERVER));
  EXPECT_EQ(log.kinds(), (std::vector<int>{QmCall::Open, QmCall::Inq, QmCall::Close}));
  EXPECT_EQ(log.calls.back().hobj, log.calls.front().hobj);
  EXPECT_EQ(contents(response.h), before);
  EXPECT_EQ(depth(kRequestQueue) + depth(JXQ_ADMIN_COMMAND), 0);
}

TEST_F(Execute, ReplyBagsAreReadOnlyAndGoWithTheResponseBag) {
  const int64_t blocks = xcsBlocksInUse();
  auto response = std::make_unique<ApiBag>();
  std::swap(response->h, this->response.h);
  ASSERT_EQ(serve(kRequestQueue, {reply(0, 0, 0, 1).integer(7, 70), reply(1)}), kOk);
  std::swap(response->h, this->response.h);
  JXHBAG bag = JXHB_NONE;
  int32_t n = 0;
  ASSERT_EQ(call(jxInquireBag, response->h, JXSEL_REPLY_BAG, 0, &bag), kOk);
  EXPECT_EQ(integerOf(bag, 7), 70);
  EXPECT_EQ(call(jxAddInteger, bag, 8, 1), failed(JXRC_SYSTEM_BAG_READ_ONLY));
  EXPECT_EQ(call(jxClearBag, bag), failed(JXRC_SYSTEM_BAG_READ_ONLY));
  EXPECT_EQ(call(jxBufferToBag, JXHB_NONE, 4, &n, bag), failed(JXRC_SYSTEM_BAG_READ_ONLY));
  EXPECT_EQ(call(jxDeleteBag, &bag), failed(JXRC_SYSTEM_BAG_UNDELETABLE));
  EXPECT_EQ(call(jxDeleteItem, response->h, 4001, 0), failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(contents(bag).back(), "7/1=70");
  response.reset();
  EXPECT_EQ(call(jxCountItems, bag, 7, &n), failed(JXRC_BAD_HANDLE));
  EXPECT_EQ(xcsBlocksInUse(), blocks);
}

// Every allocation of an exchange fails in turn until one succeeds: each
// failure reports 2071 and leaks nothing but what the library accepts (the
// reply bag that failed to fill, the buffer of a failed last attempt).
TEST_F(Execute, StorageFailuresReport2071AndLeakOnlyWhatIsAccepted) {
  // A request written with an obtained control area, and enough replies
  // that the response bag outgrows its first item places.
  for (int32_t i = 0; i < 45; ++i) request.add(2100 + i % 3, "s" + std::to_string(i));
  constexpr int32_t kReplies = 40;
  Responder r(qm()->name(), JXQ_ADMIN_COMMAND, [](const qmtest::Got &) {
    Replies out(kReplies - 1, reply(0, 0, 0, 1).string(3000, "more", 0));
    out.push_back(reply(1, 0, 0, 1).integer(9, 1));
    return out;
  });
  int failures = 0;
  for (int32_t n = 1; n < 1000; ++n) {
    const int64_t blocks = xcsBlocksInUse();
    const uint32_t start = xihThreadAddress()->HistoryIndex;
    LEAKS_ACCEPTED_BEGIN();
    xcsSetAllocFailure(n, -1);
    const Outcome o = run();
    xcsSetAllocFailure(0, -1);
    LEAKS_ACCEPTED_END();
    if (o == kOk) break;
    ++failures;
    ASSERT_EQ(o, failed(JXRC_STORAGE_NOT_AVAILABLE)) << "allocation " << n;
    const std::vector<uint32_t> marks = marksSince(start);
    auto failedIn = [&](uint16_t fn) {
      return std::count(marks.begin(), marks.end(), (2071u << 16) + XCS_FUNC_ID(25, fn)) > 0;
    };
    if (!failedIn(kFn_zaiProcessPCFReplyMsg) && !failedIn(kFn_zaiBagToPCFMsg)) {
      EXPECT_EQ(xcsBlocksInUse(), blocks) << "allocation " << n;
    }
  }
  EXPECT_GE(failures, 2 * kReplies);
  EXPECT_EQ(countOf(response.h, JXSEL_REPLY_BAG), kReplies);
}

TEST_F(Execute, TwoThreadsAtOnceEachWithItsOwnReplyQueue) {
  // The responder echoes the request's queue name (the first parameter).
  Responder r(qm()->name(), JXQ_ADMIN_COMMAND, [](const qmtest::Got &q) {
    const int32_t length = *reinterpret_cast<const int32_t *>(q.data.data() + 36 + 16);
    return Replies{reply(1, 0, 0, 1).string(3000, q.data.substr(36 + 20, size_t(length)), 0)};
  });
  std::set<std::string> replyQueues[2];
  auto caller = [&](int t) {
    int32_t hconn = qmtest::connect(qm()->name());
    QmCallLog log;
    for (int i = 0; i < 20; ++i) {
      ApiBag req(JXBAG_ADMIN), resp;
      const std::string name = "T" + std::to_string(t) + "Q" + std::to_string(i);
      req.add(JXCA_Q_NAME, name);
      EXPECT_EQ(call(jxExecute, hconn, 13, JXHB_NONE, req.h, resp.h, 0, 0), kOk);
      EXPECT_EQ(contents(resp.h).size(), 9u);
      JXHBAG bag = JXHB_NONE;
      call(jxInquireBag, resp.h, JXSEL_REPLY_BAG, 0, &bag);
      EXPECT_EQ(stringOf(bag, 3000), name);
    }
    for (const auto &c : log.of(QmCall::Put)) replyQueues[t].insert(nameOf(c.md.ReplyToQ));
    qmtest::disconnect(hconn);
  };
  std::thread a(caller, 0), b(caller, 1);
  a.join();
  b.join();
  replyQueues[0].merge(replyQueues[1]);
  EXPECT_EQ(replyQueues[0].size(), 40u);
}

TEST_F(Execute, ApiTraceAndTheReplyLine) {
  TraceWordsGuard words;
  words.set(1, 0, XTR_OPT_API | XTR_OPT_PARMS, 0);
  const size_t mark = traceTexts().size();
  serve(kRequestQueue, {reply(1, 0, 4)});
  const std::vector<std::string> lines = since(traceTexts(), mark), api = apiLines(lines);
  const auto in = std::find(api.begin(), api.end(), "jxExecute >>");
  const auto out = std::find(in, api.end(), "jxExecute <<");
  ASSERT_NE(out, api.end());
  const char *labels[] = {"Hconn",    "Command",  "OptionsBag", "RequestBag",
                          "ReplyBag", "Requestq", "Replyq"};
  for (size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(in[1 + 2 * i], std::string(labels[i]) + ":");
    EXPECT_EQ(out[1 + i], (labels[i] + std::string(14, ' ')).substr(0, 14) + ": Input  Parm");
  }
  EXPECT_EQ(in[15], "Compcode      : Output Parm");
  EXPECT_EQ(out[8], "Compcode:");
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string &s) {
    return !s.find("pBag:") && s.find(", BagControl:1  BagCompCode:0, BagReason: 4") < s.size();
  }));
}

}  // namespace
