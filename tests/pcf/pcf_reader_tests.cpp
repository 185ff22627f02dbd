// The reader: the header, every structure rule (2303), selector failures,
// the walk's bounds, and what a failure leaves in the bag.
#include <jx/jxcs.h>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;
using Ints = std::vector<int32_t>;

// The items a header sets but the message type, and the user items' count.
Ints headerItems(const Bag &bag) {
  Ints out;
  for (int32_t s : {JXSYS_COMMAND, JXSYS_SEQUENCE, JXSYS_CONTROL, JXSYS_COMP_CODE, JXSYS_REASON})
    out.push_back(bag.integer(s));
  out.push_back(bag.count(JXSEL_USER));
  return out;
}

TEST(PcfReader, HeaderSetsTheSystemItemsAndABrokenOneLeavesThemCleared) {
  Bag bag(0);
  const Msg good = Msg().header(99, 13, 0, 4, 0, 2, 3008);
  ASSERT_EQ(good.size(), 36);
  const Ints fromHeader = {13, 4, 0, 2, 3008, 0}, cleared = {0, 1, 1, 0, 0, 0};
  bag.add(5, 1);
  ASSERT_EQ(read(bag, good.data), kOk);
  EXPECT_EQ(bag.integer(JXSYS_MSG_TYPE), 99);
  EXPECT_EQ(headerItems(bag), fromHeader);
  const struct {
    size_t offset;
    int32_t value;
  } breaks[] = {{4, 40}, {4, 35}, {8, 2}, {8, 0}, {32, -1}};
  for (const auto &b : breaks) {
    ASSERT_EQ(read(bag, good.data), kOk);
    bag.add(5, 1);
    Msg m = Msg(good).patch(b.offset, b.value).fill(40, 0);
    EXPECT_EQ(read(bag, m.data), failed(JXRC_BAD_PCF)) << b.offset << " " << b.value;
    EXPECT_EQ(headerItems(bag), cleared) << b.offset << " " << b.value;
  }
  EXPECT_EQ(read(bag, good.data, 35), failed(JXRC_BAD_PCF));
  // The bag's character set survives reading, good or bad.
  for (int32_t ccsid : {850, 0, -1}) {
    bag.set(JXSYS_CCSID, ccsid);
    ASSERT_EQ(read(bag, good.data), kOk);
    EXPECT_EQ(bag.integer(JXSYS_CCSID), ccsid);
    EXPECT_EQ(read(bag, Bytes{}), failed(JXRC_BAD_PCF));
    EXPECT_EQ(bag.integer(JXSYS_CCSID), ccsid);
  }
}

TEST(PcfReader, EveryStructureBecomesItsItemsAndLongerOnesAreSkipped) {
  Bag bag(0);
  Msg m = Msg()
              .header(8, 0, 6)
              .integer(5, -9)
              .string(2001, "ABCDE", 1208)
              .intList(6, {1, 2, 3})
              .intList(7, {})
              .stringList(3001, 4, {"AAAA", "BB", "C"}, 437)
              .string(2002, "");
  ASSERT_EQ(read(bag, m.data), kOk);
  EXPECT_EQ(bag.count(JXSEL_USER), 1 + 1 + 3 + 3 + 1);
  EXPECT_EQ(bag.integer(5), -9);
  int32_t ccsid = 0;
  EXPECT_EQ(bag.string(2001, JXIDX_ONLY, &ccsid), "ABCDE");
  EXPECT_EQ(ccsid, 1208);
  for (int32_t k = 0; k < 3; ++k) EXPECT_EQ(bag.integer(6, k), k + 1);
  EXPECT_EQ(bag.count(7), 0);
  EXPECT_EQ(bag.string(3001, 0, &ccsid), "AAAA");
  EXPECT_EQ(ccsid, 437);
  EXPECT_EQ(bag.string(3001, 1), std::string("BB\0\0", 4));
  EXPECT_EQ(bag.string(3001, 2), std::string("C\0\0\0", 4));
  EXPECT_EQ(bag.string(2002), "");

  // A string of length 5 in 28 bytes, an integer list with room to spare.
  m = Msg().header(8, 0, 3).string(2001, "ABCDE").intList(6, {1});
  m.fill(8, 0).patch(36 + 28 + 4, 16 + 4 + 8).integer(7, 70);
  ASSERT_EQ(read(bag, m.data), kOk);
  EXPECT_EQ(bag.string(2001), "ABCDE");
  EXPECT_EQ(bag.integer(6), 1);
  EXPECT_EQ(bag.integer(7), 70);
}

TEST(PcfReader, EveryStructureRuleGives2303) {
  // Each case is one structure, broken in one field, after the header.
  const struct {
    const char *what;
    Msg parm;
  } cases[] = {
      {"unknown type 2", Msg().integer(5, 1).patch(0, 2)},
      {"unknown type 7", Msg().integer(5, 1).patch(0, 7)},
      {"integer length 20", Msg().integer(5, 1).patch(4, 20).fill(4, 0)},
      {"integer length 12", Msg().integer(5, 1).patch(4, 12)},
      {"string length not a multiple of 4", Msg().string(2001, "ABCDE").patch(4, 25).fill(3, 0)},
      {"string negative length", Msg().string(2001, "ABCD").patch(16, -1)},
      {"string longer than its structure", Msg().string(2001, "ABCD").patch(16, 5)},
      {"string structure shorter than fixed", Msg().string(2001, "").patch(4, 16)},
      {"integer list length not a multiple of 4", Msg().intList(6, {1}).patch(4, 21).fill(1, 0)},
      {"integer list negative count", Msg().intList(6, {}).patch(12, -1)},
      {"integer list count beyond length", Msg().intList(6, {1, 2}).patch(12, 3)},
      {"integer list huge count", Msg().intList(6, {1}).patch(12, 0x40000001)},
      {"string list length not a multiple of 4",
       Msg().stringList(3001, 4, {"AAAA"}).patch(4, 30).fill(2, 0)},
      {"string list negative count", Msg().stringList(3001, 4, {}).patch(16, -1)},
      {"string list negative string length", Msg().stringList(3001, 0, {}).patch(20, -4)},
      {"string list strings beyond length", Msg().stringList(3001, 4, {"AAAA"}).patch(16, 2)},
      {"string list overflowing product",
       Msg().stringList(3001, 4, {"AAAA"}).patch(16, 0x10000).patch(20, 0x10000)},
  };
  for (const auto &c : cases) {
    Bag bag(0);
    Msg m = Msg().header(8, 0, 2).integer(1, 10);
    m.data.insert(m.data.end(), c.parm.data.begin(), c.parm.data.end());
    EXPECT_EQ(read(bag, m.data), failed(JXRC_BAD_PCF)) << c.what;
    // The structures read before the broken one stay in the bag.
    EXPECT_EQ(bag.count(JXSEL_USER), 1) << c.what;
    EXPECT_EQ(bag.integer(JXSYS_MSG_TYPE), 8) << c.what;
  }
}

TEST(PcfReader, StructuresMustLieInsideTheBuffer) {
  // The length carries the structure past the end although its content fits.
  Bag bag(0);
  Msg m = Msg().header(8, 0, 1).string(2001, "ABCD").patch(36 + 4, 28);
  EXPECT_EQ(read(bag, m.data), failed(JXRC_BAD_PCF));
  // The count promises more structures than the buffer holds: the type and
  // length words of the next one are outside the buffer.
  for (int32_t tail : {0, 4, 7}) {
    Msg more = Msg().header(8, 0, 2).integer(5, 1).i32(JXPCF_TYPE_INTEGER).i32(16);
    EXPECT_EQ(read(bag, more.data, 36 + 16 + tail), failed(JXRC_BAD_PCF));
    EXPECT_EQ(bag.integer(5), 1);
  }
  // Type and length inside, the fixed part of a string outside.
  m = Msg().header(8, 0, 1).i32(JXPCF_TYPE_STRING).i32(-4).i32(2001);
  EXPECT_EQ(read(bag, m.data), failed(JXRC_BAD_PCF));
}

TEST(PcfReader, IdentifierFailures) {
  const Outcome range = failed(JXRC_SELECTOR_OUT_OF_RANGE), type = failed(JXRC_INCONSISTENT_TYPE);
  const struct {
    int32_t options;
    Msg m;
    Outcome outcome;
    int32_t users;  // user items in the bag afterwards
  } rows[] = {
      {0, Msg().header(8, 0, 1).integer(-1, 1), range, 0},
      {0, Msg().header(8, 0, 1).stringList(-5, 1, {"A"}), range, 0},
      {0, Msg().header(8, 0, 2).integer(0, 1).integer(5000, 2), kOk, 2},
      {JXBAG_CHECK_SELECTORS, Msg().header(8, 0, 1).integer(2001, 1), range, 0},
      {JXBAG_CHECK_SELECTORS, Msg().header(8, 0, 1).string(5, "A"), range, 0},
      {JXBAG_CHECK_SELECTORS, Msg().header(8, 0, 1).intList(4001, {1}), range, 0},
      {JXBAG_CHECK_SELECTORS, Msg().header(8, 0, 2).integer(2000, 1).string(2001, "A"), kOk, 2},
      {0, Msg().header(8, 0, 3).integer(7, 1).integer(8, 2).string(7, "A"), type, 2},
      {0, Msg().header(8, 0, 2).stringList(9, 1, {"A", "B"}).intList(9, {1}), type, 2},
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    Bag bag(rows[i].options);
    EXPECT_EQ(read(bag, rows[i].m.data), rows[i].outcome) << "row " << i;
    EXPECT_EQ(bag.count(JXSEL_USER), rows[i].users) << "row " << i;
  }
}

TEST(PcfReader, BadMessagesLeaveNoBlocksBehind) {
  const int64_t blocks = xcsBlocksInUse();
  {
    Bag bag(0);
    Msg m = Msg().header(8, 0, 3).string(2001, "ABC").intList(6, {1, 2}).integer(6, 1);
    for (int32_t k = 0; k < 3; ++k) read(bag, m.patch(36 + 24 + 4, 3).data);
  }
  EXPECT_EQ(xcsBlocksInUse(), blocks);
}

}  // namespace
