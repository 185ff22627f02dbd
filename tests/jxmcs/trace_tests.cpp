// Trace lines: the fixed prefix, texts exactly as given, entry and exit
// lines, parameter lines under their origin, data dumps, and lines of many
// threads kept whole.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>

#include <set>
#include <thread>

#include "test_util.hpp"
#include "trace_file.hpp"

using namespace jxtest;

namespace {

char g_names[200][XCS_FUNC_NAME_LEN];

class Trace : public ::testing::Test {
 protected:
  void SetUp() override {
    strcpy(g_names[93], "zaiJXCreateBag");
    strcpy(g_names[117], "zaiVectorCreate");
    strcpy(g_names[152], "zaiCreateBag");
    // A name of the full 40 bytes has no NUL of its own.
    memset(g_names[199], 'N', XCS_FUNC_NAME_LEN);
    xtrRegisterNames(XCS_COMP_ADMIN, g_names, 200);
    words.set(1, 0, 0, 0);  // the process traces
    t = xihThreadAddress();
  }
  void TearDown() override {
    while (t->StackDepth) xihPopStack(t);
  }
  TraceWordsGuard words;
  xihTHREADANCHOR *t = nullptr;
};

// The function and text of each line written since the window opened.
using Shown = std::vector<std::pair<std::string, std::string>>;
Shown shown(const TraceWindow &w) {
  Shown out;
  for (const TraceLine &l : w.lines()) out.emplace_back(l.function, l.text);
  return out;
}

}  // namespace

TEST_F(Trace, FileLineShapeAndTextsExactlyAsGiven) {
  xtr_text("first");
  EXPECT_EQ(xtrTraceFile(),
            std::string(xcsDataRoot()) + "/trace/jxmcs_tests." + std::to_string(getpid()) + ".trc");
  TraceWindow w;
  xtr_text("shape");
  xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(25, 93));
  const char *texts[] = {"jxCreateBag >>", "  leading and trailing  ", "", "a | b"};
  for (const char *s : texts) xtr_text_api(s);
  auto lines = w.lines();
  ASSERT_EQ(lines.size(), 1 + std::size(texts));
  EXPECT_EQ(lines[0].function, "-") << "no function recorded on this thread";
  EXPECT_EQ(lines[0].text, "shape");
  for (size_t i = 0; i < lines.size(); i++) {
    EXPECT_TRUE(lines[i].wellFormed) << i;
    EXPECT_EQ(lines[i].tid, std::to_string(gettid()));
    if (i > 0) {
      EXPECT_EQ(lines[i].function, "zaiJXCreateBag");
      EXPECT_EQ(lines[i].text, texts[i - 1]);
    }
  }
}

TEST_F(Trace, EntryExitAndParameterLines) {
  TraceWindow w;
  const uint32_t id = XCS_FUNC_ID(25, 93);
  xihPushStack(t, XCS_ENTRY_MARK + id);
  xtr_FNC_entry(t);
  xihPopStack(t);
  xihRecordHistory(t, (2046u << 16) + id);
  xtr_FNC_retcode(t, 2046);
  xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(25, 500));
  xtr_FNC_entry(t);
  xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(25, 199));
  xtr_FNC_entry(t);
  // A parameter line is attributed to its origin, not to the top of stack.
  t->TraceComponent = 25;
  t->TraceFunction = 117;
  t->TraceKind = 2;
  xtr_parms("InitialSpace:%d, ElementSize:%d", 40, 24);
  const std::string longText(3000, 'x');
  xtr_parms("%s!", longText.c_str());
  EXPECT_EQ(
      shown(w),
      (Shown{{"zaiJXCreateBag", "{ zaiJXCreateBag"},
             {"zaiJXCreateBag", "} zaiJXCreateBag rc=2046"},
             {"25/500", "{ 25/500"},
             {std::string(XCS_FUNC_NAME_LEN, 'N'), "{ " + std::string(XCS_FUNC_NAME_LEN, 'N')},
             {"zaiVectorCreate", "InitialSpace:40, ElementSize:24"},
             {"zaiVectorCreate", longText + "!"}}));
}

TEST_F(Trace, DataDumps) {
  TraceWindow w;
  int32_t options = 1;
  xtr_data_api(25, 93, &options, 4);
  xtr_data(32, 43, "ABCDEFGHIJKLMNOP\x7F\x80QR", 20);
  xtr_data_detail(25, 152, "unused", 0);
  xtr_data_api(25, 93, unmappedPages(1), 32);
  xtr_data_api(25, 93, unmappedPages(257) + 8, 1 << 20);
  const std::string blanks(12 * 3, ' ');
  EXPECT_EQ(
      shown(w),
      (Shown{{"zaiJXCreateBag", "00000000  01 00 00 00" + blanks + "  |....|"},
             {"32/43",
              "00000000  41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50  |ABCDEFGHIJKLMNOP|"},
             {"32/43", "00000010  7F 80 51 52" + blanks + "  |..QR|"},
             {"zaiJXCreateBag", "00000000-0000001F  not readable"},
             {"zaiJXCreateBag", "00000000-000FFFFF  not readable"}}));
}

TEST_F(Trace, ThreadsWriteWholeLines) {
  TraceWindow w;
  constexpr int kThreads = 4, kLines = 500;
  std::vector<std::thread> threads;
  for (int n = 0; n < kThreads; n++)
    threads.emplace_back([n] {
      std::string pad(n * 40, 'p');
      for (int i = 0; i < kLines; i++)
        xtr_text(("t" + std::to_string(n) + " " + std::to_string(i) + pad).c_str());
    });
  for (auto &th : threads) th.join();
  std::set<std::string> texts, tids;
  for (const auto &l : w.lines()) {
    ASSERT_TRUE(l.wellFormed);
    texts.insert(l.text);
    tids.insert(l.tid);
  }
  EXPECT_EQ(texts.size(), (size_t)kThreads * kLines);
  EXPECT_EQ(tids.size(), (size_t)kThreads);
  EXPECT_EQ(texts.count("t3 499" + std::string(120, 'p')), 1u);
}

TEST(TraceNames, RegisteredNamesAndFallbacks) {
  static char names[3][XCS_FUNC_NAME_LEN] = {"zero", "one", "two"};
  static char other[2][XCS_FUNC_NAME_LEN] = {"zero", "uno"};
  xtrRegisterNames(40, names, 3);
  EXPECT_STREQ(xtrFunctionName(XCS_FUNC_ID(40, 1)), "one");
  EXPECT_STREQ(xtrFunctionName(XCS_FUNC_ID(40, 3)), "");
  EXPECT_STREQ(xtrFunctionName(XCS_FUNC_ID(41, 1)), "");
  EXPECT_STREQ(xtrFunctionName(XCS_FUNC_ID(XCS_COMP_COMMON, 2)), "xcsGetMem");
  xtrRegisterNames(40, other, 2);
  EXPECT_STREQ(xtrFunctionName(XCS_FUNC_ID(40, 2)), "") << "the new table replaces the old";
  xtrRegisterNames(40, nullptr, 5);
  xtrRegisterNames(64, names, 3);
  EXPECT_STREQ(xtrFunctionName(XCS_FUNC_ID(40, 1)), "uno") << "bad registrations change nothing";
}

TEST_F(Trace, NothingAtAllWhileTheProcessTracesNothing) {
  const struct {
    int32_t enabled, level;
    uint32_t options;
    int32_t override;
    bool writes;
  } rows[] = {
      {0, XTR_LEVEL_UNSET, 0xFFFFFFFFu, 0, false},
      {0, 0, ~XTR_OPT_API, 0, false},
      {0, 0, XTR_OPT_API, 0, true},
      {1, XTR_LEVEL_UNSET, 0, 0, true},
      {0, XTR_LEVEL_UNSET, 0, 1, true},
  };
  for (const auto &r : rows) {
    words.set(r.enabled, r.level, r.options, r.override);
    TraceWindow w;
    xtr_text("t");
    xtr_text_api("a");
    xtr_parms("p%d", 1);
    xtr_data(25, 93, "d", 1);
    xtr_data_api(25, 93, "d", 1);
    xtr_data_detail(25, 93, "d", 1);
    xtr_FNC_entry(t);
    xtr_FNC_retcode(t, 0);
    EXPECT_EQ(w.lines().size(), r.writes ? 8u : 0u)
        << r.enabled << r.level << r.options << r.override;
  }
}

TEST_F(Trace, NullArgumentsWriteNothing) {
  xtr_text("before");
  TraceWindow w;
  xtr_text(nullptr);
  xtr_text_api(nullptr);
  xtr_parms(nullptr);
  xtr_FNC_entry(nullptr);
  xtr_FNC_retcode(nullptr, 5);
  EXPECT_TRUE(w.lines().empty());
}
