// Attributes through JXINQ and JXSET on a real queue manager: the settable
// ones of queues and of the queue manager (opened as an object) with their
// defaults, ranges and refusals, kept across a restart; and the status
// ones that the queue manager works out.
#include <cstring>
#include <set>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

struct Settable {
  int32_t selector, fallback, min, max;
};
const Settable kQueue[] = {
    {JXIA_DEF_PRIORITY, 0, 0, 9},
    {JXIA_Q_DEPTH_HIGH_LIMIT, 80, 0, 100},
    {JXIA_Q_DEPTH_LOW_LIMIT, 20, 0, 100},
    {JXIA_Q_DEPTH_HIGH_EVENT, 0, 0, 1},
    {JXIA_Q_DEPTH_LOW_EVENT, 0, 0, 1},
    {JXIA_Q_FULL_EVENT, 0, 0, 1},
    {JXIA_INHIBIT_GET, 0, 0, 1},
    {JXIA_INHIBIT_PUT, 0, 0, 1},
    {JXIA_DEF_PERSISTENCE, 0, 0, 1},
    {JXIA_MAX_Q_DEPTH, 5000, 0, JX_MAX_Q_DEPTH},
    {JXIA_MAX_MSG_LENGTH, JX_MAX_MSG_LENGTH, 0, JX_MAX_MSG_LENGTH},
};
const Settable kQMgr[] = {
    {JXIA_AUTHORITY_EVENT, 1, 0, 1},
    {JXIA_PERFORMANCE_EVENT, 1, 0, 1},
    {JXIA_CONFIGURATION_EVENT, 0, 0, 1},
};

std::vector<Settable> rows(bool qmgr) {
  return qmgr ? std::vector<Settable>(std::begin(kQMgr), std::end(kQMgr))
              : std::vector<Settable>(std::begin(kQueue), std::end(kQueue));
}

class Attributes : public ConnectedTest {
 protected:
  // A handle on Q1, or on the queue manager itself.
  int32_t openObject(bool qmgr, int32_t options) {
    JXOD od = JXOD_DEFAULT;
    od.ObjectType = qmgr ? JXOT_Q_MGR : JXOT_Q;
    if (!qmgr) setName(od.ObjectName, "Q1");
    int32_t h = 0, cc, rc;
    zstJXOPEN(hconn_, &od, options, &h, &cc, &rc);
    EXPECT_EQ(rc, JXRC_NONE);
    return h;
  }
  int32_t inquire(int32_t h, int32_t selector) {
    int32_t v = -999, cc, rc;
    zstJXINQ(hconn_, h, 1, &selector, 1, &v, 0, nullptr, &cc, &rc);
    EXPECT_EQ(rc, JXRC_NONE) << selector;
    return v;
  }
  std::string inquire(int32_t h, int32_t selector, int32_t length) {
    std::string v(static_cast<size_t>(length), '?');
    int32_t cc, rc;
    zstJXINQ(hconn_, h, 1, &selector, 0, nullptr, length, v.data(), &cc, &rc);
    EXPECT_EQ(rc, JXRC_NONE) << selector;
    return v;
  }
  int32_t set(int32_t h, int32_t selector, int32_t value) {
    int32_t cc, rc;
    zstJXSET(hconn_, h, 1, &selector, 1, &value, 0, nullptr, &cc, &rc);
    return rc;
  }
  void restart() {
    disconnect(hconn_);
    ASSERT_TRUE(qm_->stop());
    ASSERT_TRUE(qm_->start());
    hconn_ = connect(qm_->name());
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
  int32_t h = openObject(true, JXOO_INQUIRE | JXOO_SET);
  char desc[JX_Q_DESC_LENGTH];
  std::memset(desc, ' ', sizeof desc);
  std::memcpy(desc, "described", 9);
  int32_t sel = JXCA_Q_MGR_DESC, cc, rc;
  zstJXSET(hconn_, h, 1, &sel, 0, nullptr, sizeof desc, desc, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);

  restart();
  for (bool qmgr : {false, true}) {
    int32_t again = openObject(qmgr, JXOO_INQUIRE);
    for (const Settable &a : rows(qmgr))
      EXPECT_EQ(inquire(again, a.selector), a.min) << a.selector << " after the restart";
  }
  EXPECT_EQ(inquire(openObject(true, JXOO_INQUIRE), JXCA_Q_MGR_DESC, JX_Q_DESC_LENGTH),
            std::string(desc, sizeof desc));
}

TEST(AttributeRows, EverySettableIntegerHasARowHere) {
  std::set<std::pair<std::string, int32_t>> tested;
  for (const Settable &a : kQueue) tested.insert({"queue", a.selector});
  for (const Settable &a : kQMgr) tested.insert({"qmgr", a.selector});
#define JX_SETTABLE_INTEGER(sel, name, word, object, length, min, max, fallback, settable) \
  EXPECT_TRUE(!(settable && length == 0) || tested.count({object, sel})) << name << " has no row";
  JXQM_ATTRIBUTE_MAP(JX_SETTABLE_INTEGER)
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
                 {false, JXIA_DEFINITION_TYPE}, {true, JXIA_CONNECTION_COUNT},
                 {true, JXIA_MAX_Q_DEPTH},      {true, JXIA_MAX_MSG_LENGTH}};
  for (const auto &r : refused)
    EXPECT_EQ(set(r.qmgr ? qmgr : q, r.selector, 0), JXRC_SELECTOR_ERROR) << r.selector;
  int32_t bad = JXIA_MAX_Q_DEPTH, v, cc, rc;
  zstJXINQ(hconn_, qmgr, 1, &bad, 1, &v, 0, nullptr, &cc, &rc);
  EXPECT_EQ(rc, JXRC_SELECTOR_ERROR) << "a queue's attribute is no queue manager's";

  JXOD od = JXOD_DEFAULT;
  od.ObjectType = JXOT_Q_MGR;
  int32_t h = 0;
  zstJXOPEN(hconn_, &od, JXOO_OUTPUT, &h, &cc, &rc);
  EXPECT_EQ(rc, JXRC_OPTION_NOT_VALID_FOR_TYPE);
  setName(od.ObjectName, "ANOTHER");
  zstJXOPEN(hconn_, &od, JXOO_INQUIRE, &h, &cc, &rc);
  EXPECT_EQ(rc, JXRC_Q_MGR_NAME_ERROR);
}

}  // namespace
