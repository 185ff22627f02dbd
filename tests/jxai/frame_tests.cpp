// The call frame: set-up once per thread, marks in call order, stack depth
// restored on every path, signal actions restored only when saved, and the
// tracing switches.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include "../bags/api_blocks.hpp"
#include "call_frame.hpp"
#include "vector.hpp"
#include "zuzt_funcs_ids.hpp"

// Interposed to count the calls and to script what the signal-action save
// reports; each forwards to the real one.
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

using namespace apiblocks;

constexpr uint32_t entry(uint16_t fn) {
  return 0xF0000000u + 25u * 1024u + fn;
}
constexpr uint32_t exitOf(uint16_t fn, uint32_t reason) {
  return reason * 65536u + 25u * 1024u + fn;
}

TEST(CallFrame, SetsUpCommonServicesOncePerThreadAndClearsTheOutputs) {
  std::thread([] {
    EXPECT_EQ(xihThreadAddress(), nullptr) << "a new thread starts without an anchor";
    const int before = initCalls;
    char buf[4];
    int32_t cc = 77, rc = 77;
    jxPad("ab", 4, buf, &cc, &rc);
    EXPECT_EQ(cc, 0);
    EXPECT_EQ(rc, 0);
    ASSERT_NE(xihThreadAddress(), nullptr);
    EXPECT_NE(xihThreadAddress()->CSReady, 0);
    jxPad("ab", 4, buf, &cc, &rc);
    EXPECT_EQ(initCalls, before + 1) << "later calls find the thread ready";
  }).join();
}

TEST(CallFrame, MarksInCallOrderAndDepthRestoredOnEveryPath) {
  xcsInitialize(48, 1030, 0, 0, 0);
  xihTHREADANCHOR *t = xihThreadAddress();
  char buf[8];
  int32_t cc, rc;
  zaiVECTOR *v = nullptr;
  const struct {
    const char *name;
    std::function<void()> call;
    std::vector<uint32_t> marks;
  } rows[] = {
      {"pad",
       [&] { jxPad("AB", 5, buf, &cc, &rc); },
       {entry(kFn_zaiJXPad), entry(kFn_zaiPadString), exitOf(kFn_zaiPadString, 0),
        exitOf(kFn_zaiJXPad, 0)}},
      // A failed call carries its reason in the upper half of its exit mark.
      {"failed pad",
       [&] { jxPad("AB", -1, buf, &cc, &rc); },
       {entry(kFn_zaiJXPad), 2005u * 65536u + 25u * 1024u + 113u}},
      {"warning",
       [&] { jxPad("AB", 1, buf, &cc, &rc); },
       {entry(kFn_zaiJXPad), entry(kFn_zaiPadString), exitOf(kFn_zaiPadString, 0),
        exitOf(kFn_zaiJXPad, JXRC_STRING_TRUNCATED)}},
      {"internal",
       [&] { zaiVectorCreate(2, 8, &v); },
       {entry(kFn_zaiVectorCreate), exitOf(kFn_zaiVectorCreate, 0)}},
      // Only the low 16 bits of a result code survive in the mark.
      {"internal failed",
       [&] { zaiVectorRemoveAt(v, 3); },
       {entry(kFn_zaiVectorRemoveAt), exitOf(kFn_zaiVectorRemoveAt, 0x5453)}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const uint32_t depth = t->StackDepth, start = t->HistoryIndex;
    row.call();
    EXPECT_EQ(marksSince(start), row.marks);
    EXPECT_EQ(t->StackDepth, depth);
  }
  zaiVectorDestroy(v);
}

TEST(CallFrame, RestoresSignalActionsOnlyWhenSaved) {
  char buf[2];
  int32_t cc, rc;
  for (int saved : {0, 1}) {
    forcedSaved = saved;
    const int before = restoreCalls;
    jxPad("A", 2, buf, &cc, &rc);
    jxPad("A", -5, buf, &cc, &rc);
    EXPECT_EQ(restoreCalls, before + 2 * saved) << "on success and failure alike";
  }
  forcedSaved = -1;
}

TEST(CallFrame, TraceSwitchesFollowTheProcessWords) {
  xcsInitialize(48, 1030, 0, 0, 0);
  TraceWordsGuard words;
  const struct {
    int32_t enabled, level;
    uint32_t options;
    int32_t override;
    bool api, parms;
  } rows[] = {
      {1, XTR_LEVEL_UNSET, 0xFFFFFFFFu, 0, false, false},
      {0, XTR_LEVEL_UNSET, 0, 1, true, false},
      {0, 0, XTR_OPT_API, 0, true, false},
      {1, 0, XTR_OPT_PARMS_A, 0, false, true},
      {1, 0, XTR_OPT_PARMS_B, 0, false, true},
      {0, 0, XTR_OPT_PARMS, 0, false, false},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(testing::Message() << "enabled " << r.enabled << " level " << r.level
                                    << " options " << r.options << " override " << r.override);
    words.set(r.enabled, r.level, r.options, r.override);
    char buf[8];
    int32_t cc, rc;
    size_t mark = traceTexts().size();
    // The thread's trace-active word follows the process at each API call.
    jxPad("AB", 5, buf, &cc, &rc);
    EXPECT_EQ(contains(since(traceTexts(), mark), "jxPad >>"), r.api);
    mark = traceTexts().size();
    zaiVECTOR *v = nullptr;
    ASSERT_EQ(zaiVectorCreate(40, 24, &v), ZAI_VEC_OK);
    zaiVectorDestroy(v);
    EXPECT_EQ(contains(since(traceTexts(), mark), "InitialSpace:40, ElementSize:24"), r.parms);
  }
}

TEST(CallFrame, ApiTraceBlocksOfPad) {
  xcsInitialize(48, 1030, 0, 0, 0);
  TraceWordsGuard words;
  words.set(1, 0, XTR_OPT_API, 0);
  char buf[5];
  int32_t cc, rc;
  const size_t mark = traceTexts().size();
  jxPad("AB", 5, buf, &cc, &rc);
  EXPECT_EQ(apiLines(since(traceTexts(), mark)),
            heading("jxPad >>") + shown("String", "AB", 2) + value("BufferLength", 5) +
                outputs({"Buffer", "Compcode", "Reason"}) + heading("jxPad <<") +
                inputs({"String", "BufferLength"}) + shown("Buffer", "AB   ", 5) + result(0, 0));
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
#if defined(JX_ADDRESS_SANITIZER)
  // The caller's action is the sanitizer's report, which exits.
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << status;
#else
  ASSERT_TRUE(WIFSIGNALED(status)) << "the caller's (default) action still runs";
  EXPECT_EQ(WTERMSIG(status), SIGSEGV);
#endif
  std::stringstream text;
  const std::string tag = "." + std::to_string(pid) + ".";
  for (const auto &e :
       std::filesystem::directory_iterator(std::string(getenv("JX_DATA_PATH")) + "/errors")) {
    if (e.path().filename().string().find(tag) != std::string::npos)
      text << std::ifstream(e.path()).rdbuf();
  }
  EXPECT_NE(text.str().find("Stack: 2\n  F0006471 zaiJXPad\n  F0006473 zaiPadString\n"),
            std::string::npos)
      << text.str();
}

}  // namespace
