// The call frame: initialisation once per thread, entry and exit marks in
// call order, stack depth restored on every path, signal actions restored
// only when saved, and the tracing switches.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "call_frame.hpp"
#include "trace_file.hpp"
#include "vector.hpp"
#include "zuzt_funcs_ids.hpp"

// The test program interposes these common-services calls to count them and
// to script what the signal-action save reports; each forwards to the real one.
namespace {
std::atomic<int> initCalls{0};
std::atomic<int> restoreCalls{0};
int forcedSaved = -1;  // -1: report what the real save reports

template <typename F>
F real(const char *name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" int32_t xcsInitialize(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e) {
  ++initCalls;
  static auto next =
      real<int32_t (*)(int32_t, int32_t, int32_t, int32_t, int32_t)>("xcsInitialize");
  return next(a, b, c, d, e);
}

extern "C" void xehSaveSigActionsF(int32_t *saved) {
  static auto next = real<void (*)(int32_t *)>("xehSaveSigActionsF");
  next(saved);
  if (forcedSaved == 0 && *saved) {
    real<void (*)()>("xehRestoreSigActionsF")();  // leave the region now
    *saved = 0;
  }
}

extern "C" void xehRestoreSigActionsF(void) {
  ++restoreCalls;
  static auto next = real<void (*)()>("xehRestoreSigActionsF");
  next();
}

namespace {

constexpr uint32_t id(uint16_t fn) {
  return 25u * 1024u + fn;
}
constexpr uint32_t entry(uint16_t fn) {
  return 0xF0000000u + id(fn);
}
constexpr uint32_t exitOf(uint16_t fn, int32_t reason) {
  return (static_cast<uint32_t>(reason) << 16) + id(fn);
}

void pad(const char *s, int32_t len, char *buf, int32_t *cc, int32_t *rc) {
  jxPad(s, len, buf, cc, rc);
}

TEST(CallFrame, InitialisesCommonServicesOncePerThread) {
  std::thread([] {
    EXPECT_EQ(xihThreadAddress(), nullptr) << "a new thread starts without an anchor";
    const int before = initCalls;
    char buf[4];
    int32_t cc = -1, rc = -1;
    pad("ab", 4, buf, &cc, &rc);
    EXPECT_EQ(initCalls, before + 1);
    ASSERT_NE(xihThreadAddress(), nullptr);
    EXPECT_NE(xihThreadAddress()->CSReady, 0);
    pad("ab", 4, buf, &cc, &rc);
    pad("ab", 4, buf, &cc, &rc);
    EXPECT_EQ(initCalls, before + 1) << "later calls find the thread ready";
  }).join();
}

TEST(CallFrame, RecordsEntryAndExitMarksInCallOrder) {
  char buf[8];
  int32_t cc = -1, rc = -1;
  pad("", 1, buf, &cc, &rc);  // make sure the thread is set up
  xihTHREADANCHOR *t = xihThreadAddress();
  const uint32_t depth = t->StackDepth;

  uint32_t start = t->HistoryIndex;
  pad("AB", 5, buf, &cc, &rc);
  EXPECT_EQ(cc, 0);
  EXPECT_EQ(marksSince(start),
            (std::vector<uint32_t>{entry(kFn_zaiJXPad), entry(kFn_zaiPadString),
                                   exitOf(kFn_zaiPadString, 0), exitOf(kFn_zaiJXPad, 0)}));
  EXPECT_EQ(t->StackDepth, depth);

  // A failed call records its reason in the upper half of its exit mark.
  start = t->HistoryIndex;
  pad("AB", -1, buf, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(marksSince(start),
            (std::vector<uint32_t>{entry(kFn_zaiJXPad), 2005u * 65536u + 25u * 1024u + 113u}));
  EXPECT_EQ(t->StackDepth, depth);

  // A warning is recorded the same way.
  start = t->HistoryIndex;
  pad("AB", 1, buf, &cc, &rc);
  EXPECT_EQ(cc, JXCC_WARNING);
  EXPECT_EQ(marksSince(start).back(), exitOf(kFn_zaiJXPad, JXRC_STRING_TRUNCATED));
  EXPECT_EQ(t->StackDepth, depth);
}

TEST(CallFrame, InternalFramesRecordTheirResultCode) {
  xcsInitialize(48, 1030, 0, 0, 0);
  xihTHREADANCHOR *t = xihThreadAddress();
  const uint32_t depth = t->StackDepth;
  zaiVECTOR *v = nullptr;
  uint32_t start = t->HistoryIndex;
  ASSERT_EQ(zaiVectorCreate(2, 8, &v), ZAI_VEC_OK);
  EXPECT_EQ(marksSince(start),
            (std::vector<uint32_t>{entry(kFn_zaiVectorCreate), exitOf(kFn_zaiVectorCreate, 0)}));
  start = t->HistoryIndex;
  EXPECT_EQ(zaiVectorRemoveAt(v, 3), ZAI_VEC_BAD_INDEX);
  // Only the low 16 bits of the code survive in the mark.
  EXPECT_EQ(marksSince(start), (std::vector<uint32_t>{entry(kFn_zaiVectorRemoveAt),
                                                      0x54530000u + id(kFn_zaiVectorRemoveAt)}));
  EXPECT_EQ(t->StackDepth, depth);
  zaiVectorDestroy(v);
}

TEST(CallFrame, ClearsCompletionCodeAndReasonOnEntry) {
  char buf[2];
  int32_t cc = 77, rc = 77;
  pad("A", 2, buf, &cc, &rc);
  EXPECT_EQ(cc, 0);
  EXPECT_EQ(rc, 0);
}

TEST(CallFrame, RestoresSignalActionsOnlyWhenSaved) {
  char buf[2];
  int32_t cc, rc;
  forcedSaved = 0;
  int before = restoreCalls;
  pad("A", 2, buf, &cc, &rc);
  pad("A", -5, buf, &cc, &rc);
  EXPECT_EQ(restoreCalls, before);
  forcedSaved = 1;
  pad("A", 2, buf, &cc, &rc);
  pad("A", -5, buf, &cc, &rc);
  EXPECT_EQ(restoreCalls, before + 2) << "once per call, on success and failure alike";
  forcedSaved = -1;
}

TEST(CallFrame, TraceSwitchesFollowTheProcessWords) {
  xcsInitialize(48, 1030, 0, 0, 0);
  TraceWordsGuard words;
  char buf[8];
  int32_t cc, rc;

  // Level unset and no override: no API block whatever the option bits.
  words.set(1, XTR_LEVEL_UNSET, 0xFFFFFFFFu, 0);
  size_t mark = traceTexts().size();
  pad("AB", 5, buf, &cc, &rc);
  for (const auto &line : since(traceTexts(), mark)) EXPECT_NE(line, "jxPad >>");

  // Override alone switches the API trace on, even with tracing disabled.
  words.set(0, XTR_LEVEL_UNSET, 0, 1);
  mark = traceTexts().size();
  pad("AB", 5, buf, &cc, &rc);
  EXPECT_TRUE(contains(since(traceTexts(), mark), "jxPad >>"));

  // Level and API bit: on, with the enabled word not consulted.
  words.set(0, 0, XTR_OPT_API, 0);
  mark = traceTexts().size();
  pad("AB", 5, buf, &cc, &rc);
  EXPECT_TRUE(contains(since(traceTexts(), mark), "jxPad <<"));

  // Internal parameter lines need enabled, a level and bit 18 or 19. The
  // thread's trace-active word follows the process at each API call.
  for (uint32_t bit : {XTR_OPT_PARMS_A, XTR_OPT_PARMS_B}) {
    words.set(1, 0, bit, 0);
    pad("", 0, nullptr, &cc, &rc);
    mark = traceTexts().size();
    zaiVECTOR *v = nullptr;
    ASSERT_EQ(zaiVectorCreate(40, 24, &v), ZAI_VEC_OK);
    zaiVectorDestroy(v);
    EXPECT_TRUE(contains(since(traceTexts(), mark), "InitialSpace:40, ElementSize:24"));
  }
  words.set(0, 0, XTR_OPT_PARMS, 0);
  pad("", 0, nullptr, &cc, &rc);
  mark = traceTexts().size();
  zaiVECTOR *v = nullptr;
  ASSERT_EQ(zaiVectorCreate(40, 24, &v), ZAI_VEC_OK);
  zaiVectorDestroy(v);
  EXPECT_FALSE(contains(since(traceTexts(), mark), "InitialSpace:40, ElementSize:24"));
}

TEST(CallFrame, ApiTraceBlocksOfPad) {
  xcsInitialize(48, 1030, 0, 0, 0);
  TraceWordsGuard words;
  words.set(1, 0, XTR_OPT_API, 0);
  char buf[5];
  int32_t cc, rc;
  const size_t mark = traceTexts().size();
  pad("AB", 5, buf, &cc, &rc);
  int32_t five = 5, zero = 0;
  EXPECT_EQ(
      apiLines(since(traceTexts(), mark)),
      (std::vector<std::string>{"__________", "jxPad >>", "String:", dumpOf("AB", 2),
                                "BufferLength:", dumpOf(&five, 4), "Buffer        : Output Parm",
                                "Compcode      : Output Parm", "Reason        : Output Parm",
                                "__________", "jxPad <<", "String        : Input  Parm",
                                "BufferLength  : Input  Parm", "Buffer:", dumpOf("AB   ", 5),
                                "Compcode:", dumpOf(&zero, 4), "Reason:", dumpOf(&zero, 4)}));
}

TEST(CallFrame, LongBuffersShowBothEnds) {
  xcsInitialize(48, 1030, 0, 0, 0);
  TraceWordsGuard words;
  words.set(1, 0, XTR_OPT_API, 0);
  std::string text(200, 'x');
  for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 26);
  std::vector<char> out(201);
  int32_t cc, rc;
  const size_t mark = traceTexts().size();
  jxTrim(200, text.data(), out.data(), &cc, &rc);
  ASSERT_EQ(cc, 0);
  auto lines = apiLines(since(traceTexts(), mark));
  auto at = std::find(lines.begin(), lines.end(), "Buffer:");
  ASSERT_NE(at, lines.end());
  EXPECT_EQ(*(at + 1), dumpOf(text.data(), 64));
  EXPECT_EQ(*(at + 2), "..............");
  EXPECT_EQ(*(at + 3), dumpOf(text.data() + 136, 64));
  // A null string output is shown as NULL on the way out.
  const size_t mark2 = traceTexts().size();
  jxTrim(0, nullptr, nullptr, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_STRING);
  auto exitLines = apiLines(since(traceTexts(), mark2));
  auto s = std::find(exitLines.begin(), exitLines.end(), "String:");
  ASSERT_NE(s, exitLines.end());
  EXPECT_EQ(*(s + 1), "NULL");
}

TEST(CallFrame, FaultInsideACallLeavesARecordWithTheFunctionStack) {
  const pid_t pid = fork();
  if (pid == 0) {
    int32_t cc, rc;
    jxai::ApiFrame api(kFn_zaiJXPad, &cc, &rc);
    jxai::Frame worker(kFn_zaiPadString, &rc);
    volatile int *volatile target = reinterpret_cast<volatile int *>(16);
    *target = 1;
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
#if defined(__SANITIZE_ADDRESS__)
  // The caller's action is the sanitizer's report, which exits.
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << status;
#else
  ASSERT_TRUE(WIFSIGNALED(status)) << "the caller's (default) action still runs";
  EXPECT_EQ(WTERMSIG(status), SIGSEGV);
#endif
  // The child's record carries its process id in the file name.
  std::stringstream text;
  const std::string tag = "." + std::to_string(pid) + ".";
  for (const auto &entry :
       std::filesystem::directory_iterator(std::string(getenv("JX_DATA_PATH")) + "/errors")) {
    if (entry.path().filename().string().find(tag) == std::string::npos) continue;
    std::ifstream in(entry.path());
    text << in.rdbuf();
  }
  EXPECT_NE(text.str().find("Stack: 2\n  F0006471 zaiJXPad\n  F0006473 zaiPadString\n"),
            std::string::npos)
      << text.str();
}

TEST(CallFrame, FunctionNameTable) {
  EXPECT_STREQ(zuzt_funcs[71], "jxCreateBag");
  EXPECT_STREQ(zuzt_funcs[93], "zaiJXCreateBag");
  EXPECT_STREQ(zuzt_funcs[130], "zaiBagToPCFInJXAIBuffer");
  EXPECT_STREQ(zuzt_funcs[148], "zaiReadPCFStringParm");
  EXPECT_STREQ(zuzt_funcs[149], "zaiReadPCFStringListParm");
  EXPECT_STREQ(zuzt_funcs[171], "zaiAddDefaultSystemItems");
  EXPECT_EQ(zuzt_funcs[70][0], '\0');
  EXPECT_EQ(zuzt_funcs[172][0], '\0');
  EXPECT_EQ(sizeof zuzt_funcs, 196u * 40u);
  for (int row = 71; row <= 171; ++row) {
    EXPECT_NE(zuzt_funcs[row][0], '\0') << row;
    EXPECT_EQ(zuzt_funcs[row][39], '\0') << row;
  }
}

}  // namespace
