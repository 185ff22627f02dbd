// Required parameters: every row of the table, written first in its order,
// each mandatory one missing, and the alternative sequences.
#include <algorithm>
#include <string>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

struct P {
  int32_t selector;
  bool string;
  bool optional = false;
};

struct Row {
  std::vector<int32_t> commands;
  std::vector<P> parms;
};

const std::vector<Row> &table() {
  static const std::vector<Row> rows = {
      {{3, 5, 6, 7, 19}, {{2012, true}}},
      {{4}, {{3003, true}, {3004, true}}},
      {{8, 11}, {{2016, true}, {20, false}}},
      {{9, 12, 17, 18}, {{2016, true}}},
      {{10}, {{3001, true}, {3002, true}, {20, false}}},
      {{13}, {{2016, true}, {20, false, true}}},
      {{20, 24, 26, 27, 28, 29, 42}, {{3501, true}}},
      {{21, 23}, {{3501, true}, {1511, false}}},
      {{22}, {{3007, true}, {3008, true}, {1511, false}}},
      {{25}, {{3501, true}, {1511, false, true}}},
      {{30}, {{2008, true}}},
      {{32, 34, 35, 36}, {{2010, true}}},
      {{33}, {{3005, true}, {3006, true}}},
      {{38}, {{1017, false}, {3014, true}}},
      {{39}, {{3501, true}, {1516, false}}},
      {{70}, {{2031, true}}},
      {{73}, {{2029, true}}},
      {{79, 82, 83, 84}, {{2045, true}}},
      {{80}, {{3009, true}, {3010, true}, {66, false}}},
      {{81}, {{2045, true}, {66, false}, {2053, true}}},
  };
  return rows;
}

void add(Bag &bag, const P &p) {
  if (p.string) {
    bag.add(p.selector, "V" + std::to_string(p.selector));
  } else {
    bag.add(p.selector, p.selector);
  }
}

// An administration bag holding an unrelated item first and then the given
// parameters in reverse order, so that writing them first is visible.
void fill(Bag &bag, const std::vector<P> &parms, int32_t skip = -1) {
  bag.add(JXSEL_INT_FIRST, 77);
  for (auto it = parms.rbegin(); it != parms.rend(); ++it) {
    if (it->selector != skip) add(bag, *it);
  }
}

TEST(PcfRequired, EveryRowIsWrittenFirstInItsOrder) {
  for (const Row &row : table()) {
    for (int32_t command : row.commands) {
      Bag bag(JXBAG_ADMIN);
      fill(bag, row.parms);
      Written w = write(bag, command);
      ASSERT_EQ(w.cc, JXCC_OK) << command << " " << w.rc;
      std::vector<int32_t> expected;
      for (const P &p : row.parms) expected.push_back(p.selector);
      expected.push_back(JXSEL_INT_FIRST);
      EXPECT_EQ(identifiers(w.bytes), expected) << command;
    }
  }
}

TEST(PcfRequired, MissingMandatoryGives2321AndMissingOptionalIsSkipped) {
  for (const Row &row : table()) {
    for (const P &missing : row.parms) {
      Bag bag(JXBAG_ADMIN);
      fill(bag, row.parms, missing.selector);
      Written w = write(bag, row.commands.front());
      if (missing.optional) {
        EXPECT_EQ(w.cc, JXCC_OK) << row.commands.front();
      } else {
        EXPECT_EQ(w.cc, JXCC_FAILED);
        EXPECT_EQ(w.rc, JXRC_PARM_MISSING) << row.commands.front() << " " << missing.selector;
      }
    }
  }
}

// Bags added to in the order given: each row shows the order written or the
// reason of the refusal.
struct Sequence {
  const char *name;
  std::vector<int32_t> commands;
  std::vector<P> items;
  std::vector<int32_t> written;
  int32_t reason = JXRC_NONE;
};

TEST(PcfRequired, AlternativeAndRepeatedParameters) {
  const std::vector<int32_t> authInfo = {71, 72};  // change, create authentication information
  const std::vector<int32_t> copy = {74};
  const Sequence rows[] = {
      {"wrong type", {JXCMD_DELETE_QUEUE}, {{2016, false}}, {}, JXRC_WRONG_ITEM_TYPE},
      {"repeated",
       {JXCMD_DELETE_QUEUE},
       {{2016, true}, {2016, true}},
       {},
       JXRC_SELECTOR_NOT_UNIQUE},
      {"optional repeated",
       {JXCMD_INQUIRE_QUEUE},
       {{2016, true}, {20, false}, {20, false}},
       {},
       JXRC_SELECTOR_NOT_UNIQUE},
      {"alternative name stands in", authInfo, {{1, false}, {2030, true}}, {2030, 1}},
      {"first name wins over the alternative",
       authInfo,
       {{2030, true}, {2029, true}},
       {2029, 2030}},
      {"neither name", authInfo, {}, {}, JXRC_PARM_MISSING},
      // Only a missing name tries the alternative.
      {"repeated name",
       authInfo,
       {{2029, true}, {2029, true}, {2030, true}},
       {},
       JXRC_SELECTOR_NOT_UNIQUE},
      {"copy by names", copy, {{1086, false}, {2032, true}, {2029, true}}, {2029, 2032, 1086}},
      {"copy by queue manager", copy, {{1086, false}, {2015, true}}, {2015, 1086}},
      // The first name is written already when the queue-manager name stands
      // in for the missing second one.
      {"copy mixed", copy, {{1086, false}, {2015, true}, {2029, true}}, {2029, 2015, 1086}},
      {"copy without a type", copy, {{2032, true}, {2029, true}}, {}, JXRC_PARM_MISSING},
      {"copy without names", copy, {{1086, false}}, {}, JXRC_PARM_MISSING},
  };
  for (const Sequence &row : rows) {
    for (int32_t command : row.commands) {
      SCOPED_TRACE(testing::Message() << row.name << ", command " << command);
      Bag bag(JXBAG_ADMIN);
      for (const P &p : row.items) add(bag, p);
      Written w = write(bag, command);
      EXPECT_EQ(w.rc, row.reason);
      if (row.reason == JXRC_NONE) {
        EXPECT_EQ(identifiers(w.bytes), row.written);
      }
    }
  }
}

TEST(PcfRequired, OnlyCommandBagsThatReorderRequireParameters) {
  Bag noReorder(JXBAG_LIST_FORM | JXBAG_COMMAND);
  ASSERT_EQ(noReorder.integer(JXSYS_MSG_TYPE), JXPCF_TYPE_COMMAND);
  EXPECT_EQ(write(noReorder, 71).cc, JXCC_OK);

  Bag otherType(JXBAG_ADMIN);
  otherType.set(JXSYS_MSG_TYPE, JXPCF_TYPE_USER);
  EXPECT_EQ(write(otherType, 71).cc, JXCC_OK);

  Bag unlisted(JXBAG_ADMIN);
  for (int32_t command : {0, 1, 2, 41, 85, -3}) {
    EXPECT_EQ(write(unlisted, command).cc, JXCC_OK) << command;
  }
}

}  // namespace
