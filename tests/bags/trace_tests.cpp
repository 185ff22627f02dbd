// What the bag calls write to the trace: the API blocks with their labels
// and buffer displays, the internal parameter lines, and the bag contents
// trace with its switch, compared with the captured trace file.
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <functional>
#include <string>

#include "api_blocks.hpp"
#include "bag_test_util.hpp"

namespace {

using namespace apiblocks;

std::string ptr(const void *p) {
  char buf[32];
  snprintf(buf, sizeof buf, "%p", p);
  return buf;
}
Lines tail(const Lines &lines, size_t n) {
  return Lines(lines.end() - static_cast<long>(std::min(n, lines.size())), lines.end());
}

// Trace switched for the test, and a bag.
class TraceOn : public TracedTest {
 protected:
  void SetUp() override {
    TracedTest::SetUp();
    ASSERT_EQ(call(jxCreateBag, 0, &h), kOk);
  }
  void TearDown() override {
    TracedTest::TearDown();
    if (h != JXHB_DELETED) call(jxDeleteBag, &h);
  }
  JXHBAG h = JXHB_NONE;
};

using ApiBlocks = TraceOn;
using BagContents = TraceOn;

TEST_F(ApiBlocks, CreateAndDeleteBag) {
  api();
  JXHBAG b = JXHB_NONE;
  call(jxCreateBag, JXBAG_LIST_FORM, &b);
  EXPECT_EQ(freshApi(), heading("jxCreateBag >>") + value("Options", JXBAG_LIST_FORM) +
                            outputs({"Bag", "Compcode", "Reason"}) + heading("jxCreateBag <<") +
                            inputs({"Options"}) + value("Bag", b) + result(0, 0));
  api();
  const JXHBAG old = b;
  call(jxDeleteBag, &b);
  EXPECT_EQ(freshApi(), heading("jxDeleteBag >>") + value("Bag", old) +
                            outputs({"Compcode", "Reason"}) + heading("jxDeleteBag <<") +
                            value("Bag", JXHB_DELETED) + result(0, 0));
}

TEST_F(ApiBlocks, StringBuffersWholeElidedOrNull) {
  char big[200];
  for (size_t i = 0; i < sizeof big; ++i) big[i] = static_cast<char>('A' + i % 26);
  api();
  call(jxAddString, h, 1, sizeof big, big);
  const Lines elided = {"Buffer:", dumpOf(big, 64), "..............", dumpOf(big + 136, 64)};
  EXPECT_EQ(freshApi(), heading("jxAddString >>") + value("Bag", h) + value("Selector", 1) +
                            value("BufferLength", sizeof big) + elided +
                            outputs({"Compcode", "Reason"}) + heading("jxAddString <<") +
                            inputs({"Bag", "Selector", "BufferLength", "Buffer"}) + result(0, 0));

  // A C string shows its resolved length; 127 bytes are still shown whole;
  // no bytes show as NULL.
  const struct {
    int32_t length;
    const char *buffer;
    std::string shown;
  } rows[] = {
      {-1, "hello", dumpOf("hello", 5)}, {127, big, dumpOf(big, 127)}, {0, nullptr, "NULL"}};
  for (const auto &r : rows) {
    api();
    call(jxAddString, h, 1, r.length, r.buffer);
    const Lines lines = freshApi();
    ASSERT_GE(lines.size(), 10u);
    EXPECT_EQ(Lines(lines.begin() + 8, lines.begin() + 10), (Lines{"Buffer:", r.shown}))
        << "length " << r.length;
  }

  // Set never shows the caller's bytes.
  api();
  call(jxSetString, h, 1, 0, 5, "world");
  const Lines set = freshApi();
  ASSERT_GE(set.size(), 12u);
  EXPECT_EQ(Lines(set.begin() + 10, set.begin() + 12), (Lines{"Buffer:", "NULL"}));

  // Inquire shows the buffer, the length and the CCSID on the way out.
  char buf[8];
  int32_t sl = 0;
  api();
  call(jxInquireString, h, 1, 0, sizeof buf, buf, &sl, nullptr);
  const Lines inquire = freshApi();
  EXPECT_EQ(tail(inquire, 9), shown("Buffer", "world   ", 8) + value("StringLength", 5) +
                                  Lines{"CodedCharSetId: NULL"} + result(0, 0));
  EXPECT_TRUE(contains(inquire, "CodedCharSetId: Output Parm"));
}

TEST_F(ApiBlocks, ItemInfoExitShowsTheCallersReason) {
  api();
  int32_t sel = 0, type = 0;
  call(jxInquireItemInfo, h, 3, 0, &sel, &type);
  EXPECT_EQ(tail(freshApi(), 8), value("OutSelector", 0) + value("ItemType", 0) +
                                     result(JXCC_FAILED, JXRC_SELECTOR_NOT_PRESENT));
}

TEST_F(ApiBlocks, TruncateWritesItsExitBlockEvenWithTheApiTraceOff) {
  set(1, XTR_LEVEL_UNSET, 0, 0);
  call(jxTruncateBag, h, 3);
  EXPECT_EQ(freshApi(), heading("jxTruncateBag <<") + inputs({"Bag", "ItemCount"}) +
                            result(JXCC_FAILED, JXRC_BAD_ITEM_COUNT));
  // With the process's tracing off, not even that block.
  set(0, XTR_LEVEL_UNSET, 0, 0);
  call(jxTruncateBag, h, 3);
  call(jxClearBag, h);
  EXPECT_TRUE(fresh().empty());
}

TEST_F(ApiBlocks, InternalParameterLines) {
  set(1, 0, XTR_OPT_PARMS_A);
  zaiBAG *bag = nullptr;
  call(zaiCreateBag, JXBAG_ADMIN, &bag);
  const std::string p = "pBag:" + ptr(bag);
  const Lines created = fresh();
  for (const std::string &line : {std::string("options:1 "), p, p + ", selector:-8",
                                  p + ", startIndex:0, selector:-7, itemIndex:0"})
    EXPECT_TRUE(contains(created, line)) << line;
  int32_t ccsid = 0;
  const struct {
    std::function<void()> run;
    std::string line;
  } rows[] = {
      {[&] { call(zaiInquireInteger, bag, -1, 0, &ccsid); }, p + ", selector:-1, itemIndex:0"},
      {[&] { call(zaiCheckSelector, bag, 5, 2); }, p + ", selector:5, type: 2"},
      {[&] { call(zaiFreeItem, bag, 7); }, p + ", vectorIdx:7"},
      {[&] { dropBag(bag); }, "*ppBag:" + ptr(bag)},
  };
  for (const auto &r : rows) {
    set(1, 0, XTR_OPT_PARMS_A);
    r.run();
    EXPECT_TRUE(contains(fresh(), r.line)) << r.line;
  }
}

// An integer item line: "  %-2d     %-4d     (%d)".
std::string intLine(int32_t index, int32_t selector, int32_t value) {
  std::string i = std::to_string(index), s = std::to_string(selector);
  i.resize(2, ' ');
  s.resize(4, ' ');
  return "  " + i + "     " + s + "     (" + std::to_string(value) + ")";
}

TEST_F(BagContents, ListsEveryItemAttributedToTheCaller) {
  zaiBAG *bag = newBag(0);
  call(zaiSetInteger, bag, JXSYS_CCSID, 0, 437);
  call(zaiAddString, bag, 2001, 5, "abcde", 437);
  call(zaiAddString, bag, 2002, 0, nullptr, 850);
  zaiBAG *nested = newBag(0);
  call(zaiAddBag, bag, 4001, jxai::handleOf(nested));
  call(zaiAddInteger, bag, 12345, -6);

  set(1, 0, XTR_OPT_BAG);
  zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiBagToPCFMsg, bag);
  Lines expected = {"Bag Details " + ptr(bag), "Size:12", "Index: Selector: Value:"};
  const int32_t selectors[] = {-8, -2, -1, -3, -4, -5, -6, -7},
                values[] = {0, 8, 437, 0, 1, 1, 0, 0};
  for (int32_t i = 0; i < 8; ++i) expected.push_back(intLine(i, selectors[i], values[i]));
  expected = expected + Lines{"  8      2001      ccsid: 437   String->", dumpOf("abcde", 5),
                              "  9      2002      ccsid: 850   String->",
                              "  10     4001     (" + ptr(nested) + ")", "  11     12345     (-6)"};
  EXPECT_EQ(apiLines(fresh()), expected);

  // Every line is attributed to the caller's function.
  std::ifstream in(xtrTraceFile());
  std::string line, sizeLine;
  while (std::getline(in, line))
    if (line.size() > 9 && line.compare(line.size() - 9, 9, "| Size:12") == 0) sizeLine = line;
  EXPECT_NE(sizeLine.find(" zaiBagToPCFMsg "), std::string::npos) << sizeLine;
  dropBag(bag);
}

TEST_F(BagContents, WritesNothingUnlessAllThreeBitsAndTheThreadAreOn) {
  zaiBAG *bag = newBag(0);
  const struct {
    int32_t enabled, level;
    uint32_t options;
    int32_t active;
    size_t lines;  // three headings and eight system items, or nothing
  } rows[] = {
      {1, 0, XTR_OPT_BAG & ~XTR_OPT_BAG_A, 1, 0},
      {1, 0, XTR_OPT_BAG & ~XTR_OPT_BAG_B, 1, 0},
      {1, 0, XTR_OPT_BAG & ~XTR_OPT_PARMS_B, 1, 0},
      {0, 0, XTR_OPT_BAG, 1, 0},
      {1, XTR_LEVEL_UNSET, XTR_OPT_BAG, 1, 0},
      {1, 0, XTR_OPT_BAG, 0, 0},
      {1, 0, XTR_OPT_BAG, 1, 11},
  };
  for (const auto &r : rows) {
    set(r.enabled, r.level, r.options, r.active);
    zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiPCFMsgToBag, bag);
    EXPECT_EQ(fresh().size(), r.lines) << "enabled " << r.enabled << " level " << r.level
                                       << " options " << r.options << " active " << r.active;
  }
  dropBag(bag);
}

}  // namespace
