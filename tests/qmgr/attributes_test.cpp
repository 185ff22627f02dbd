// Attributes through JXINQ and JXSET on a real queue manager: the settable
// ones of queues and of the queue manager (opened as an object) with their
// defaults, ranges and refusals, kept across a restart; and the status
// ones that the queue manager works out.
#include <cstring>
#include <string>
#include <vector>

#include "outcome.hpp"
#include "qm_harness.hpp"

using namespace qmtest;

namespace {

struct Settable {
  int32_t selector, fallback, min, max;
};
// The settable integers of queues, or of the queue manager, as the
// attribute table gives them.
std::vector<Settable> rows(bool qmgr) {
  std::vector<Settable> out;
#define JX_SETTABLE_INTEGER(sel, name, word, object, length, min, max, fallback, settable) \
  if (settable && length == 0 && std::string(object) == (qmgr ? "qmgr" : "queue"))         \
    out.push_back({sel, fallback, min, max});
  JXQM_ATTRIBUTE_MAP(JX_SETTABLE_INTEGER)
#undef JX_SETTABLE_INTEGER
  EXPECT_GE(out.size(), qmgr ? 3u : 11u);
  return out;
}

class Attributes : public ConnectedTest {
 protected:
  // A handle on Q1, or on the queue manager itself.
  int32_t openObject(bool qmgr, int32_t options) {
    JXOD od = JXOD_DEFAULT;
    od.ObjectType = qmgr ? JXOT_Q_MGR : JXOT_Q;
    if (!qmgr) setName(od.ObjectName, "Q1");
    int32_t h = 0;
    EXPECT_EQ(call(zstJXOPEN, hconn_, &od, options, &h), kOk);
    return h;
  }
  int32_t inquire(int32_t h, int32_t selector) {
    int32_t v = -999;
    EXPECT_EQ(call(zstJXINQ, hconn_, h, 1, &selector, 1, &v, 0, nullptr), kOk) << selector;
    return v;
  }
  std::string inquire(int32_t h, int32_t selector, int32_t length) {
    std::string v(static_cast<size_t>(length), '?');
    EXPECT_EQ(call(zstJXINQ, hconn_, h, 1, &selector, 0, nullptr, length, v.data()), kOk)
        << selector;
    return v;
  }
  int32_t set(int32_t h, int32_t selector, int32_t value) {
    return call(zstJXSET, hconn_, h, 1, &selector, 1, &value, 0, nullptr).rc;
  }
};

TEST_F(Attributes, SettableOnesKeepTheirRangesAndSurviveARestart) {
  for (bool qmgr : {false, true}) {
    SCOPED_TRACE(qmgr ? "queue manager" : "queue");
    int32_t h = openObject(qmgr, JXOO_INQUIRE | JXOO_SET);
    for (const Settable &a : rows(qmgr)) {
      SCOPED_TRACE(a.selector);
      EXPECT_EQ(inquire(h, a.selector), a.fallback) << "default";
      EXPECT_EQ(set(h, a.selector, a.max), JXRC_NONE);
      EXPECT_EQ(set(h, a.selector, a.max + 1), JXRC_ATTR_VALUE_ERROR);
      EXPECT_EQ(set(h, a.selector, a.min - 1), JXRC_ATTR_VALUE_ERROR);
      EXPECT_EQ(inquire(h, a.selector), a.max) << "a refused set changes nothing";
      EXPECT_EQ(set(h, a.selector, a.min), JXRC_NONE);
    }
  }
  // The descriptions, queue's and queue manager's, are kept too.
  char desc[JX_Q_DESC_LENGTH];
  std::memset(desc, ' ', sizeof desc);
  std::memcpy(desc, "described", 9);
  const std::pair<bool, int32_t> descs[] = {{false, JXCA_Q_DESC}, {true, JXCA_Q_MGR_DESC}};
  for (auto [qmgr, sel] : descs)
    ASSERT_EQ(call(zstJXSET, hconn_, openObject(qmgr, JXOO_SET), 1, &sel, 0, nullptr,
                   JX_Q_DESC_LENGTH, desc),
              kOk);

  restart();
  for (bool qmgr : {false, true}) {
    int32_t again = openObject(qmgr, JXOO_INQUIRE);
    for (const Settable &a : rows(qmgr))
      EXPECT_EQ(inquire(again, a.selector), a.min) << a.selector << " after the restart";
  }
  for (auto [qmgr, sel] : descs)
    EXPECT_EQ(inquire(openObject(qmgr, JXOO_INQUIRE), sel, JX_Q_DESC_LENGTH),
              std::string(desc, sizeof desc));
}

// A set of integers and a string at once; with one bad value it changes
// nothing. Inhibited puts and gets are refused.
TEST_F(Attributes, ASetIsWholeOrNothingAndInhibitsTakeEffect) {
  const int32_t h = openObject(false, JXOO_SET | JXOO_OUTPUT | JXOO_INPUT_SHARED | JXOO_INQUIRE);
  int32_t sel[] = {JXIA_INHIBIT_PUT, JXIA_INHIBIT_GET, JXCA_Q_DESC}, halfBad[] = {1, 7},
          on[] = {1, 1};
  char desc[JX_Q_DESC_LENGTH];
  std::memset(desc, 'd', sizeof desc);
  EXPECT_EQ(call(zstJXSET, hconn_, h, 3, sel, 2, halfBad, JX_Q_DESC_LENGTH, desc),
            failed(JXRC_ATTR_VALUE_ERROR));
  EXPECT_EQ(inquire(h, JXIA_INHIBIT_PUT), 0) << "the good value before the bad one is not set";
  EXPECT_EQ(inquire(h, JXCA_Q_DESC, JX_Q_DESC_LENGTH), std::string(JX_Q_DESC_LENGTH, ' '));
  EXPECT_EQ(call(zstJXSET, hconn_, openObject(false, JXOO_INQUIRE), 2, sel, 2, on, 0, nullptr),
            failed(JXRC_NOT_OPEN_FOR_SET));
  ASSERT_EQ(call(zstJXSET, hconn_, h, 3, sel, 2, on, JX_Q_DESC_LENGTH, desc), kOk);
  EXPECT_EQ(inquire(h, JXCA_Q_DESC, JX_Q_DESC_LENGTH), std::string(desc, sizeof desc));
  EXPECT_EQ(put(hconn_, h, "x"), JXRC_PUT_INHIBITED);
  EXPECT_EQ(get(hconn_, h).rc, JXRC_GET_INHIBITED);
}

TEST_F(Attributes, StatusOnesAreWorkedOutAndRefusedForSet) {
  int32_t q = openObject(false, JXOO_INQUIRE | JXOO_SET | JXOO_OUTPUT | JXOO_INPUT_SHARED);
  int32_t qmgr = openObject(true, JXOO_INQUIRE | JXOO_SET);
  ASSERT_EQ(put(hconn_, q, "first"), JXRC_NONE);
  ASSERT_EQ(put(hconn_, q, "second", nullptr, JXPMO_SYNCPOINT), JXRC_NONE);
  ASSERT_EQ(get(hconn_, q).rc, JXRC_NONE);
  EXPECT_EQ(inquire(q, JXIA_MSG_ENQ_COUNT), 1) << "the committed put";
  EXPECT_EQ(inquire(q, JXIA_MSG_DEQ_COUNT), 1);
  EXPECT_EQ(inquire(q, JXIA_HIGH_Q_DEPTH), 2);
  EXPECT_EQ(inquire(q, JXIA_UNCOMMITTED_MSGS), 1);
  EXPECT_EQ(inquire(q, JXIA_OLDEST_MSG_AGE), 0);
  EXPECT_GE(inquire(q, JXIA_TIME_SINCE_RESET), 0);
  EXPECT_EQ(inquire(q, JXCA_LAST_GET_DATE, JX_DATE_LENGTH).substr(0, 2), "20");
  EXPECT_EQ(inquire(q, JXCA_LAST_PUT_TIME, JX_TIME_LENGTH)[5], '.');
  EXPECT_EQ(inquire(qmgr, JXIA_CONNECTION_COUNT), 2) << "this one and the command server's";
  EXPECT_EQ(inquire(qmgr, JXIA_Q_COUNT), 9) << "the system queues and Q1";
  EXPECT_EQ(inquire(qmgr, JXIA_MAX_MSG_LENGTH), JX_MAX_MSG_LENGTH);
  EXPECT_EQ(inquire(qmgr, JXCA_Q_MGR_NAME, JX_Q_MGR_NAME_LENGTH).substr(0, qm_->name().size()),
            qm_->name());
  for (int32_t selector : {JXCA_CREATION_DATE, JXCA_START_DATE})
    EXPECT_EQ(inquire(qmgr, selector, JX_DATE_LENGTH)[4], '-');

  const struct {
    bool qmgr;
    int32_t selector;
  } refused[] = {{false, JXIA_MSG_ENQ_COUNT},   {false, JXIA_Q_TYPE},
                 {false, JXIA_CURRENT_Q_DEPTH}, {false, JXIA_DEFINITION_TYPE},
                 {true, JXIA_CONNECTION_COUNT}, {true, JXIA_MAX_Q_DEPTH},
                 {true, JXIA_MAX_MSG_LENGTH}};
  for (const auto &r : refused)
    EXPECT_EQ(set(r.qmgr ? qmgr : q, r.selector, 0), JXRC_SELECTOR_ERROR) << r.selector;
  int32_t bad = JXIA_MAX_Q_DEPTH, v;
  EXPECT_EQ(call(zstJXINQ, hconn_, qmgr, 1, &bad, 1, &v, 0, nullptr), failed(JXRC_SELECTOR_ERROR))
      << "a queue's attribute is no queue manager's";
  JXOD od = JXOD_DEFAULT;
  od.ObjectType = JXOT_Q_MGR;
  int32_t h = 0;
  EXPECT_EQ(call(zstJXOPEN, hconn_, &od, JXOO_OUTPUT, &h), failed(JXRC_OPTION_NOT_VALID_FOR_TYPE));
  setName(od.ObjectName, "ANOTHER");
  EXPECT_EQ(call(zstJXOPEN, hconn_, &od, JXOO_INQUIRE, &h), failed(JXRC_Q_MGR_NAME_ERROR));
}

}  // namespace
