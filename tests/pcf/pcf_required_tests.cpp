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

// An administration bag holding an unrelated item first and then the given
// parameters in reverse order, so that writing them first is visible.
void fill(Bag &bag, const std::vector<P> &parms, int32_t skip = -1) {
  bag.add(JXSEL_INT_FIRST, 77);
  for (auto it = parms.rbegin(); it != parms.rend(); ++it) {
    if (it->selector == skip) continue;
    if (it->string) {
      bag.add(it->selector, "V" + std::to_string(it->selector));
    } else {
      bag.add(it->selector, it->selector);
    }
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

TEST(PcfRequired, WrongTypeOrRepeatedParameterFails) {
  Bag wrongType(JXBAG_ADMIN);
  wrongType.add(JXSEL_QUEUE_NAME, 5);
  Written w = write(wrongType, JXCMD_DELETE_QUEUE);
  EXPECT_EQ(w.rc, JXRC_WRONG_ITEM_TYPE);

  Bag twice(JXBAG_ADMIN);
  twice.add(JXSEL_QUEUE_NAME, "A").add(JXSEL_QUEUE_NAME, "B");
  w = write(twice, JXCMD_DELETE_QUEUE);
  EXPECT_EQ(w.rc, JXRC_SELECTOR_NOT_UNIQUE);

  Bag optionalTwice(JXBAG_ADMIN);
  optionalTwice.add(JXSEL_QUEUE_NAME, "A").add(JXSEL_QUEUE_TYPE, 1).add(JXSEL_QUEUE_TYPE, 2);
  w = write(optionalTwice, JXCMD_INQUIRE_QUEUE);
  EXPECT_EQ(w.rc, JXRC_SELECTOR_NOT_UNIQUE);
}

TEST(PcfRequired, DefineAuthInfoTakesTheAlternativeNameOnlyWhenTheFirstIsMissing) {
  for (int32_t command : {JXCMD_CHANGE_AUTH_INFO, JXCMD_CREATE_AUTH_INFO}) {
    Bag alternative(JXBAG_ADMIN);
    alternative.add(JXSEL_INT_FIRST, 1).add(JXSEL_AUTH_INFO_ALT_NAME, "ALT");
    Written w = write(alternative, command);
    ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
    EXPECT_EQ(identifiers(w.bytes), (std::vector<int32_t>{2030, 1}));

    Bag both(JXBAG_ADMIN);
    both.add(JXSEL_AUTH_INFO_ALT_NAME, "ALT").add(JXSEL_AUTH_INFO_NAME, "N");
    w = write(both, command);
    ASSERT_EQ(w.cc, JXCC_OK);
    EXPECT_EQ(identifiers(w.bytes), (std::vector<int32_t>{2029, 2030}));

    Bag neither(JXBAG_ADMIN);
    w = write(neither, command);
    EXPECT_EQ(w.rc, JXRC_PARM_MISSING);

    Bag repeated(JXBAG_ADMIN);
    repeated.add(JXSEL_AUTH_INFO_NAME, "A").add(JXSEL_AUTH_INFO_NAME, "B");
    repeated.add(JXSEL_AUTH_INFO_ALT_NAME, "ALT");
    w = write(repeated, command);
    EXPECT_EQ(w.rc, JXRC_SELECTOR_NOT_UNIQUE) << "only a missing name tries the alternative";
  }
}

TEST(PcfRequired, CopyAuthInfoSequence) {
  const int32_t cmd = JXCMD_COPY_AUTH_INFO;
  Bag full(JXBAG_ADMIN);
  full.add(1086, 1).add(2032, "TO").add(2029, "FROM");
  Written w = write(full, cmd);
  ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
  EXPECT_EQ(identifiers(w.bytes), (std::vector<int32_t>{2029, 2032, 1086}));

  Bag byQmgr(JXBAG_ADMIN);
  byQmgr.add(1086, 1).add(2015, "QM");
  w = write(byQmgr, cmd);
  ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
  EXPECT_EQ(identifiers(w.bytes), (std::vector<int32_t>{2015, 1086}));

  // The first name is written already when the queue-manager name stands in
  // for the missing second one.
  Bag mixed(JXBAG_ADMIN);
  mixed.add(1086, 1).add(2015, "QM").add(2029, "FROM");
  w = write(mixed, cmd);
  ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
  EXPECT_EQ(identifiers(w.bytes), (std::vector<int32_t>{2029, 2015, 1086}));

  Bag noType(JXBAG_ADMIN);
  noType.add(2032, "TO").add(2029, "FROM");
  w = write(noType, cmd);
  EXPECT_EQ(w.rc, JXRC_PARM_MISSING);

  Bag nothing(JXBAG_ADMIN);
  nothing.add(1086, 1);
  w = write(nothing, cmd);
  EXPECT_EQ(w.rc, JXRC_PARM_MISSING);
}

TEST(PcfRequired, OnlyCommandBagsThatReorderRequireParameters) {
  Bag noReorder(JXBAG_LIST_FORM | JXBAG_COMMAND);
  ASSERT_EQ(noReorder.integer(JXSYS_MSG_TYPE), JXPCF_TYPE_COMMAND);
  EXPECT_EQ(write(noReorder, JXCMD_CHANGE_AUTH_INFO).cc, JXCC_OK);

  Bag otherType(JXBAG_ADMIN);
  otherType.set(JXSYS_MSG_TYPE, JXPCF_TYPE_USER);
  EXPECT_EQ(write(otherType, JXCMD_CHANGE_AUTH_INFO).cc, JXCC_OK);

  Bag unlisted(JXBAG_ADMIN);
  for (int32_t command : {0, 1, 2, 41, 85, -3}) {
    EXPECT_EQ(write(unlisted, command).cc, JXCC_OK) << command;
  }
}

}  // namespace
