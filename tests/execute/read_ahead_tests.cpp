// Read-ahead: a get from a temporary queue that the handle reads exclusively
// brings further messages, and the gets that follow with the same match hand
// them out without asking the queue manager, answering exactly as it would.
// The queue counts a message got only when the client has said so (its
// next request on the handle): that count shows what was read ahead.
#include "messaging_support.hpp"

namespace {

constexpr int32_t kNoMsg = JXRC_NO_MSG_AVAILABLE;

struct Step {
  const char *correl;  // the correlation id matched ("": any message)
  int32_t buffer;
  int32_t options;  // JXGMO_NO_SYNCPOINT unless JXGMO_SYNCPOINT is given
  int32_t reason;
  std::string data;  // what the buffer holds after
  int32_t got;       // the queue's count of messages got after
};

struct Case {
  const char *name;
  std::vector<std::pair<const char *, std::string>> messages;  // correlation id, data
  std::vector<Step> steps;
  std::vector<std::string> left;  // on the queue after the handle is closed, in order
  int32_t got;                    // messages got once it is closed
};

const std::string kLong(300, 'l');

const Case kCases[] = {
    {"match by correlation id",
     {{"A", "a1"}, {"B", "b1"}, {"A", "a2"}, {"A", "a3"}},
     {{"A", 100, 0, JXRC_NONE, "a1", 1},
      // a2 and a3 came with a1: a2 is handed out here.
      {"A", 100, 0, JXRC_NONE, "a2", 1},
      // Another match asks the queue manager: a2 is got, a3 is the queue's again.
      {"B", 100, 0, JXRC_NONE, "b1", 3},
      {"A", 100, 0, JXRC_NONE, "a3", 4},
      {"A", 100, 0, kNoMsg, "", 4}},
     {},
     4},
    {"truncation as without read-ahead",
     {{"", "first"}, {"", kLong}, {"", "last"}},
     {{"", 100, 0, JXRC_NONE, "first", 1},
      {"", 100, 0, JXRC_TRUNCATED_MSG_FAILED, kLong.substr(0, 100), 1},
      {"", 100, JXGMO_ACCEPT_TRUNCATED_MSG, JXRC_TRUNCATED_MSG_ACCEPTED, kLong.substr(0, 100), 1},
      {"", 100, 0, JXRC_NONE, "last", 1},
      {"", 100, 0, kNoMsg, "", 3}},
     {},
     3},
    {"close gives back what was not handed out",
     {{"", "m1"}, {"C", "m2"}, {"", "m3"}, {"", "m4"}},
     {{"", 100, 0, JXRC_NONE, "m1", 1}, {"", 100, 0, JXRC_NONE, "m2", 1}},
     {"m3", "m4"},
     2},
    // Committed after the step: s2 was not read ahead, so its get is counted at once.
    {"a get under syncpoint takes one message",
     {{"", "s1"}, {"", "s2"}},
     {{"", 100, JXGMO_SYNCPOINT, JXRC_NONE, "s1", 1}, {"", 100, 0, JXRC_NONE, "s2", 2}},
     {},
     2},
};

class ReadAhead : public MessagingTest, public ::testing::WithParamInterface<Case> {
 protected:
  int32_t messagesGot(int32_t inquire) {
    int32_t selector = JXIA_MSG_DEQ_COUNT, n = -1, cc, rc;
    zstJXINQ(hconn_, inquire, 1, &selector, 1, &n, 0, nullptr, &cc, &rc);
    EXPECT_EQ(rc, JXRC_NONE);
    return n;
  }
};

TEST_P(ReadAhead, HandsOutAsTheQueueManagerWould) {
  const Case &c = GetParam();
  JXOD od = JXOD_DEFAULT;
  qmtest::setName(od.ObjectName, JXQ_DEFAULT_MODEL);
  qmtest::setName(od.DynamicQName, "RA.*");
  int32_t reader = 0, cc, rc;
  zstJXOPEN(hconn_, &od, JXOO_INPUT_EXCLUSIVE, &reader, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);
  const std::string queue(od.ObjectName, strnlen(od.ObjectName, JX_Q_NAME_LENGTH));
  int32_t writer = open(queue.c_str(), JXOO_OUTPUT | JXOO_INQUIRE);
  for (const auto &[correl, data] : c.messages) {
    JXMD md = JXMD_DEFAULT;
    memcpy(md.CorrelId, correl, strlen(correl));
    ASSERT_EQ(qmtest::put(hconn_, writer, data, &md), JXRC_NONE);
  }
  for (size_t i = 0; i < c.steps.size(); ++i) {
    const Step &s = c.steps[i];
    JXMD match = JXMD_DEFAULT;
    memcpy(match.CorrelId, s.correl, strlen(s.correl));
    const qmtest::Got g = qmtest::get(
        hconn_, reader, s.options & JXGMO_SYNCPOINT ? s.options : JXGMO_NO_SYNCPOINT | s.options, 0,
        s.buffer, &match, JXMO_MATCH_CORREL_ID);
    SCOPED_TRACE("step " + std::to_string(i + 1));
    EXPECT_EQ(g.rc, s.reason);
    EXPECT_EQ(g.rc == kNoMsg ? "" : g.data, s.data);
    const bool truncated = g.cc != JXCC_OK && g.rc != kNoMsg;
    if (g.rc != kNoMsg) {
      EXPECT_EQ(g.dataLength, truncated ? int32_t(kLong.size()) : int32_t(s.data.size()));
    }
    if (s.options & JXGMO_SYNCPOINT) zstJXCMIT(hconn_, &cc, &rc);
    EXPECT_EQ(messagesGot(writer), s.got);
  }
  zstJXCLOSE(hconn_, &reader, JXCO_NONE, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);
  EXPECT_EQ(messagesGot(writer), c.got);
  reader = open(queue.c_str(), JXOO_INPUT_EXCLUSIVE);
  std::vector<std::string> left;
  for (qmtest::Got g; (g = qmtest::get(hconn_, reader)).rc == JXRC_NONE;) left.push_back(g.data);
  EXPECT_EQ(left, c.left);
  zstJXCLOSE(hconn_, &reader, JXCO_DELETE_PURGE, &cc, &rc);
  EXPECT_EQ(rc, JXRC_NONE);
  zstJXCLOSE(hconn_, &writer, JXCO_NONE, &cc, &rc);
}

INSTANTIATE_TEST_SUITE_P(Cases, ReadAhead, ::testing::ValuesIn(kCases), [](const auto &info) {
  std::string name = info.param.name;
  for (char &ch : name)
    if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
  return name;
});

}  // namespace
