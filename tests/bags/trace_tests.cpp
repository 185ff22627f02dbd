// What the bag calls write to the trace: the API blocks with their labels
// and buffer displays, the internal parameter lines, and the bag contents
// trace with its switch, compared with the captured trace file.
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <string>

#include "bag_test_util.hpp"
#include "trace_file.hpp"

namespace {

std::string ptr(const void *p) {
  char buf[32];
  snprintf(buf, sizeof buf, "%p", p);
  return buf;
}
std::string dump32(int32_t v) {
  return dumpOf(&v, sizeof v);
}
using Lines = std::vector<std::string>;

// Trace switched on for the test, with this thread traced.
class TraceOn : public ::testing::Test {
 protected:
  void SetUp() override {
    xcsInitialize(48, 1030, 0, 0, 0);
    thread = xihThreadAddress();
    savedActive = thread->TraceActive;
  }
  void TearDown() override { thread->TraceActive = savedActive; }
  // Switches the words and this thread's trace, and marks where the new
  // lines start.
  void set(int32_t enabled, int32_t level, uint32_t options, int32_t active = 1) {
    words.set(enabled, level, options, 0);
    thread->TraceActive = active;
    mark = traceTexts().size();
  }
  Lines fresh() const { return since(traceTexts(), mark); }
  Lines freshApi() const { return apiLines(fresh()); }

  TraceWordsGuard words;
  xihTHREADANCHOR *thread = nullptr;
  int32_t savedActive = 0;
  size_t mark = 0;
};

using ApiBlocks = TraceOn;
using BagContents = TraceOn;

TEST_F(ApiBlocks, CreateAndDeleteBag) {
  set(0, 0, XTR_OPT_API, 0);
  JXHBAG h = JXHB_NONE;
  Outcome o;
  jxCreateBag(JXBAG_LIST_FORM, &h, &o.cc, &o.rc);
  const Lines create = {"__________",
                        "jxCreateBag >>",
                        "Options:",
                        dump32(JXBAG_LIST_FORM),
                        "Bag           : Output Parm",
                        "Compcode      : Output Parm",
                        "Reason        : Output Parm",
                        "__________",
                        "jxCreateBag <<",
                        "Options       : Input  Parm",
                        "Bag:",
                        dump32(h),
                        "Compcode:",
                        dump32(0),
                        "Reason:",
                        dump32(0)};
  EXPECT_EQ(freshApi(), create);

  set(0, 0, XTR_OPT_API, 0);
  const JXHBAG old = h;
  jxDeleteBag(&h, &o.cc, &o.rc);
  const Lines del = {"__________",
                     "jxDeleteBag >>",
                     "Bag:",
                     dump32(old),
                     "Compcode      : Output Parm",
                     "Reason        : Output Parm",
                     "__________",
                     "jxDeleteBag <<",
                     "Bag:",
                     dump32(JXHB_DELETED),
                     "Compcode:",
                     dump32(0),
                     "Reason:",
                     dump32(0)};
  EXPECT_EQ(freshApi(), del);
}

TEST_F(ApiBlocks, StringBuffersWholeElidedOrNull) {
  JXHBAG h;
  Outcome o;
  jxCreateBag(0, &h, &o.cc, &o.rc);
  char big[200];
  for (size_t i = 0; i < sizeof big; ++i) big[i] = static_cast<char>('A' + i % 26);

  set(0, 0, XTR_OPT_API, 0);
  jxAddString(h, 1, sizeof big, big, &o.cc, &o.rc);
  Lines lines = freshApi();
  const int32_t sel = 1, len = sizeof big;
  const Lines entry = {"__________",
                       "jxAddString >>",
                       "Bag:",
                       dump32(h),
                       "Selector:",
                       dump32(sel),
                       "BufferLength:",
                       dump32(len),
                       "Buffer:",
                       dumpOf(big, 64),
                       "..............",
                       dumpOf(big + 136, 64),
                       "Compcode      : Output Parm",
                       "Reason        : Output Parm"};
  ASSERT_GE(lines.size(), entry.size());
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + entry.size()), entry);
  const Lines exit = {"__________",
                      "jxAddString <<",
                      "Bag           : Input  Parm",
                      "Selector      : Input  Parm",
                      "BufferLength  : Input  Parm",
                      "Buffer        : Input  Parm",
                      "Compcode:",
                      dump32(0),
                      "Reason:",
                      dump32(0)};
  EXPECT_EQ(Lines(lines.begin() + entry.size(), lines.end()), exit);

  // A C string shows its resolved length; 127 bytes are still shown whole.
  set(0, 0, XTR_OPT_API, 0);
  jxAddString(h, 1, -1, "hello", &o.cc, &o.rc);
  lines = freshApi();
  ASSERT_GE(lines.size(), 10u);
  EXPECT_EQ(lines[8], "Buffer:");
  EXPECT_EQ(lines[9], dumpOf("hello", 5));
  set(0, 0, XTR_OPT_API, 0);
  jxAddString(h, 1, 127, big, &o.cc, &o.rc);
  lines = freshApi();
  EXPECT_EQ(lines[9], dumpOf(big, 127));
  set(0, 0, XTR_OPT_API, 0);
  jxAddString(h, 1, 0, nullptr, &o.cc, &o.rc);
  EXPECT_EQ(freshApi()[9], "NULL");

  // Set never shows the caller's bytes.
  set(0, 0, XTR_OPT_API, 0);
  jxSetString(h, 1, 0, 5, "world", &o.cc, &o.rc);
  lines = freshApi();
  ASSERT_GE(lines.size(), 12u);
  EXPECT_EQ(lines[10], "Buffer:");
  EXPECT_EQ(lines[11], "NULL");

  // Inquire shows the buffer, the length and the CCSID on the way out.
  char buf[8];
  int32_t sl = 0;
  set(0, 0, XTR_OPT_API, 0);
  jxInquireString(h, 1, 0, sizeof buf, buf, &sl, nullptr, &o.cc, &o.rc);
  lines = freshApi();
  const Lines tail = {"Buffer:",
                      dumpOf("world   ", 8),
                      "StringLength:",
                      dump32(5),
                      "CodedCharSetId: NULL",
                      "Compcode:",
                      dump32(0),
                      "Reason:",
                      dump32(0)};
  ASSERT_GE(lines.size(), tail.size());
  EXPECT_EQ(Lines(lines.end() - tail.size(), lines.end()), tail);
  EXPECT_TRUE(contains(lines, "CodedCharSetId: Output Parm"));
  jxDeleteBag(&h, &o.cc, &o.rc);
}

TEST_F(ApiBlocks, ItemInfoExitShowsTheCallersReason) {
  JXHBAG h;
  Outcome o;
  jxCreateBag(0, &h, &o.cc, &o.rc);
  set(0, 0, XTR_OPT_API, 0);
  int32_t sel = 0, type = 0;
  jxInquireItemInfo(h, 3, 0, &sel, &type, &o.cc, &o.rc);
  const Lines lines = freshApi();
  const Lines tail = {
      "OutSelector:", dump32(0),           "ItemType:", dump32(0),
      "Compcode:",    dump32(JXCC_FAILED), "Reason:",   dump32(JXRC_SELECTOR_NOT_PRESENT)};
  ASSERT_GE(lines.size(), tail.size());
  EXPECT_EQ(Lines(lines.end() - tail.size(), lines.end()), tail);
  jxDeleteBag(&h, &o.cc, &o.rc);
}

TEST_F(ApiBlocks, TruncateWritesItsExitBlockEvenWithTheApiTraceOff) {
  JXHBAG h;
  Outcome o;
  jxCreateBag(0, &h, &o.cc, &o.rc);
  set(0, XTR_LEVEL_UNSET, 0, 0);
  jxTruncateBag(h, 3, &o.cc, &o.rc);
  const Lines expected = {"__________",
                          "jxTruncateBag <<",
                          "Bag           : Input  Parm",
                          "ItemCount     : Input  Parm",
                          "Compcode:",
                          dump32(JXCC_FAILED),
                          "Reason:",
                          dump32(JXRC_BAD_ITEM_COUNT)};
  EXPECT_EQ(freshApi(), expected);
  // Another call writes nothing with the switch off.
  set(0, XTR_LEVEL_UNSET, 0, 0);
  jxClearBag(h, &o.cc, &o.rc);
  EXPECT_TRUE(fresh().empty());
  jxDeleteBag(&h, &o.cc, &o.rc);
}

TEST_F(ApiBlocks, InternalParameterLines) {
  set(1, 0, XTR_OPT_PARMS_A);
  zaiBAG *bag = nullptr;
  Outcome o;
  zaiCreateBag(JXBAG_ADMIN, &bag, &o.cc, &o.rc);
  const Lines lines = fresh();
  ASSERT_FALSE(lines.empty());
  EXPECT_TRUE(contains(lines, "options:1 "));
  EXPECT_TRUE(contains(lines, "pBag:" + ptr(bag)));
  EXPECT_TRUE(contains(lines, "pBag:" + ptr(bag) + ", selector:-8"));
  EXPECT_TRUE(contains(lines, "pBag:" + ptr(bag) + ", startIndex:0, selector:-7, itemIndex:0"));
  set(1, 0, XTR_OPT_PARMS_A);
  int32_t ccsid = 0;
  zaiInquireInteger(bag, -1, 0, &ccsid, &o.cc, &o.rc);
  EXPECT_TRUE(contains(fresh(), "pBag:" + ptr(bag) + ", selector:-1, itemIndex:0"));
  set(1, 0, XTR_OPT_PARMS_A);
  zaiCheckSelector(bag, 5, 2, &o.cc, &o.rc);
  EXPECT_TRUE(contains(fresh(), "pBag:" + ptr(bag) + ", selector:5, type: 2"));
  set(1, 0, XTR_OPT_PARMS_A);
  zaiFreeItem(bag, 7, &o.cc, &o.rc);
  EXPECT_TRUE(contains(fresh(), "pBag:" + ptr(bag) + ", vectorIdx:7"));
  set(1, 0, XTR_OPT_PARMS_A);
  zaiBAG *gone = bag;
  dropBag(bag);
  EXPECT_TRUE(contains(fresh(), "*ppBag:" + ptr(gone)));
}

std::string intLine(const char *index, const char *selector, const char *value) {
  // "  %-2d     %-4d     (%d)"
  std::string i = index, s = selector;
  i.resize(2, ' ');
  s.resize(4, ' ');
  return "  " + i + "     " + s + "     (" + value + ")";
}

TEST_F(BagContents, ListsEveryItemAttributedToTheCaller) {
  zaiBAG *bag = newBag(0);
  Outcome o;
  zaiSetInteger(bag, JXSYS_CCSID, 0, 437, &o.cc, &o.rc);
  zaiAddString(bag, 2001, 5, "abcde", 437, &o.cc, &o.rc);
  zaiAddString(bag, 2002, 0, nullptr, 850, &o.cc, &o.rc);
  zaiBAG *nested = newBag(0);
  zaiAddBag(bag, 4001, jxai::handleOf(nested), &o.cc, &o.rc);
  zaiAddInteger(bag, 12345, -6, &o.cc, &o.rc);

  set(1, 0, XTR_OPT_BAG);
  zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiBagToPCFMsg, bag);
  const Lines expected = {
      "Bag Details " + ptr(bag),
      "Size:12",
      "Index: Selector: Value:",
      "  0      -8       (0)",
      intLine("1", "-2", "8"),
      intLine("2", "-1", "437"),
      intLine("3", "-3", "0"),
      intLine("4", "-4", "1"),
      intLine("5", "-5", "1"),
      intLine("6", "-6", "0"),
      intLine("7", "-7", "0"),
      "  8      2001      ccsid: 437   String->",
      dumpOf("abcde", 5),
      "  9      2002      ccsid: 850   String->",
      "  10     4001     (" + ptr(nested) + ")",
      "  11     12345     (-6)",
  };
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
  for (uint32_t bit : {XTR_OPT_BAG_A, XTR_OPT_BAG_B, XTR_OPT_PARMS_B}) {
    set(1, 0, XTR_OPT_BAG & ~bit);
    zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiPCFMsgToBag, bag);
    EXPECT_TRUE(fresh().empty()) << "bit " << bit;
  }
  set(0, 0, XTR_OPT_BAG);
  zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiPCFMsgToBag, bag);
  EXPECT_TRUE(fresh().empty()) << "tracing not enabled";
  set(1, XTR_LEVEL_UNSET, XTR_OPT_BAG);
  zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiPCFMsgToBag, bag);
  EXPECT_TRUE(fresh().empty()) << "no level";
  set(1, 0, XTR_OPT_BAG, 0);
  zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiPCFMsgToBag, bag);
  EXPECT_TRUE(fresh().empty()) << "this thread not traced";
  set(1, 0, XTR_OPT_BAG);
  zaiTraceBagContents(XCS_COMP_ADMIN, kFn_zaiPCFMsgToBag, bag);
  EXPECT_EQ(fresh().size(), 11u) << "three headings and eight system items";
  dropBag(bag);
}

}  // namespace
