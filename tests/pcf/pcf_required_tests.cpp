// Required parameters: every row of the table, written first in its order,
// each mandatory one missing, and the alternative sequences.
#include <jx/jxqm.h>

#include <string>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;
using Ints = std::vector<int32_t>;

// A parameter: a string where its selector is a string attribute's.
struct P {
  P(int32_t selector, bool optional = false) : selector(selector), optional(optional) {}
  int32_t selector;
  bool optional;
};

void add(Bag &bag, int32_t s) {
  s >= JXCA_FIRST ? bag.add(s, "V" + std::to_string(s)) : bag.add(s, s);
}

const std::vector<std::pair<Ints, std::vector<P>>> kTable = {
    {{3, 5, 6, 7, 19}, {2012}},
    {{4}, {3003, 3004}},
    {{8, 11}, {2016, 20}},
    {{9, 12, 17, 18}, {2016}},
    {{10}, {3001, 3002, 20}},
    {{13}, {2016, {20, true}}},
    {{20, 24, 26, 27, 28, 29, 42}, {3501}},
    {{21, 23}, {3501, 1511}},
    {{22}, {3007, 3008, 1511}},
    {{25}, {3501, {1511, true}}},
    {{30}, {2008}},
    {{32, 34, 35, 36}, {2010}},
    {{33}, {3005, 3006}},
    {{38}, {1017, 3014}},
    {{39}, {3501, 1516}},
    {{70}, {2031}},
    {{73}, {2029}},
    {{79, 82, 83, 84}, {2045}},
    {{80}, {3009, 3010, 66}},
    {{81}, {2045, 66, 2053}},
};

// An administration bag holding an unrelated item first and then the given
// parameters in reverse order, so that writing them first is visible; each
// one left out in turn must be missed unless it is optional.
TEST(PcfRequired, EveryRowIsWrittenFirstInItsOrderAndEachMandatoryOneIsMissed) {
  for (const auto &[commands, parms] : kTable) {
    for (int32_t skip = -1; skip < static_cast<int32_t>(parms.size()); ++skip) {
      Ints expected;
      for (const P &p : parms) expected.push_back(p.selector);
      expected.push_back(JXSEL_INT_FIRST);
      for (int32_t command : skip < 0 ? commands : Ints{commands.front()}) {
        Bag bag(JXBAG_ADMIN);
        bag.add(JXSEL_INT_FIRST, 77);
        for (int32_t k = static_cast<int32_t>(parms.size()) - 1; k >= 0; --k)
          if (k != skip) add(bag, parms[k].selector);
        Written w = write(bag, command);
        SCOPED_TRACE(testing::Message() << "command " << command << ", without item " << skip);
        if (skip >= 0 && !parms[skip].optional) {
          EXPECT_EQ(w.outcome, failed(JXRC_PARM_MISSING));
        } else {
          ASSERT_EQ(w.outcome, kOk);
          if (skip < 0) {
            EXPECT_EQ(identifiers(w.bytes), expected);
          }
        }
      }
    }
  }
}

// Bags added to in the order given: each row shows the order written or the
// reason of the refusal.
TEST(PcfRequired, AlternativeAndRepeatedParameters) {
  const Ints authInfo = {71, 72}, copy = {74};  // change, create authentication information
  const struct {
    const char *name;
    Ints commands, items, written;
    int32_t reason = JXRC_NONE;
  } rows[] = {
      {"repeated", {JXCMD_DELETE_QUEUE}, {2016, 2016}, {}, JXRC_SELECTOR_NOT_UNIQUE},
      {"optional repeated", {JXCMD_INQUIRE_QUEUE}, {2016, 20, 20}, {}, JXRC_SELECTOR_NOT_UNIQUE},
      {"alternative name stands in", authInfo, {1, 2030}, {2030, 1}},
      {"first name wins over the alternative", authInfo, {2030, 2029}, {2029, 2030}},
      {"neither name", authInfo, {}, {}, JXRC_PARM_MISSING},
      // Only a missing name tries the alternative.
      {"repeated name", authInfo, {2029, 2029, 2030}, {}, JXRC_SELECTOR_NOT_UNIQUE},
      {"copy by names", copy, {1086, 2032, 2029}, {2029, 2032, 1086}},
      {"copy by queue manager", copy, {1086, 2015}, {2015, 1086}},
      // The first name is written already when the queue-manager name stands
      // in for the missing second one.
      {"copy mixed", copy, {1086, 2015, 2029}, {2029, 2015, 1086}},
      {"copy without a type", copy, {2032, 2029}, {}, JXRC_PARM_MISSING},
      {"copy without names", copy, {1086}, {}, JXRC_PARM_MISSING},
  };
  for (const auto &row : rows) {
    for (int32_t command : row.commands) {
      SCOPED_TRACE(testing::Message() << row.name << ", command " << command);
      Bag bag(JXBAG_ADMIN);
      for (int32_t s : row.items) add(bag, s);
      Written w = write(bag, command);
      EXPECT_EQ(w.outcome, row.reason ? failed(row.reason) : kOk);
      if (row.reason == JXRC_NONE) {
        EXPECT_EQ(identifiers(w.bytes), row.written);
      }
    }
  }
  Bag wrongType(JXBAG_ADMIN);
  wrongType.add(2016, 1);
  EXPECT_EQ(write(wrongType, JXCMD_DELETE_QUEUE).outcome, failed(JXRC_WRONG_ITEM_TYPE));
}

TEST(PcfRequired, OnlyCommandBagsThatReorderRequireParameters) {
  Bag noReorder(JXBAG_LIST_FORM | JXBAG_COMMAND), otherType(JXBAG_ADMIN), unlisted(JXBAG_ADMIN);
  ASSERT_EQ(noReorder.integer(JXSYS_MSG_TYPE), JXPCF_TYPE_COMMAND);
  EXPECT_EQ(write(noReorder, 71).outcome, kOk);
  otherType.set(JXSYS_MSG_TYPE, JXPCF_TYPE_USER);
  EXPECT_EQ(write(otherType, 71).outcome, kOk);
  for (int32_t command : {0, 1, 2, 41, 85, -3})
    EXPECT_EQ(write(unlisted, command).outcome, kOk) << command;
}

}  // namespace
