// Anchors: set-up once per thread, one anchor per thread, the history ring
// and stack helpers, trace words from the environment, and clearing state
// inherited over fork.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "test_util.hpp"
#include "trace_control.hpp"
#include "trace_file.hpp"

using namespace jxtest;

TEST(Anchors, ThreadSetUpOnce) {
  std::thread([] {
    EXPECT_EQ(xihThreadAddress(), nullptr);
    EXPECT_EQ(xcsInitialize(48, 1030, 0, 0, 0), XCS_OK);
    xihTHREADANCHOR *t = xihThreadAddress();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(memcmp(t->StrucId, XIH_THREAD_EYE, 4), 0);
    EXPECT_EQ(t->CSReady, 1);
    xihPushStack(t, 7);
    EXPECT_EQ(xcsInitialize(48, 1030, 0, 0, 0), XCS_OK);
    EXPECT_EQ(xihThreadAddress(), t) << "a second set-up must keep the anchor";
    EXPECT_EQ(t->StackDepth, 1u) << "a second set-up must not reset the anchor";
  }).join();
  EXPECT_EQ(xcsGetPid(), getpid());
  // Other libraries find the process anchor through CSCtrl and its
  // eye-catcher, or the exported xihProcess; the header's inline path too.
  const auto exported =
      reinterpret_cast<xihPROCESSANCHOR *(*)()>(dlsym(RTLD_DEFAULT, "xihProcess"));
  ASSERT_NE(exported, nullptr);
  EXPECT_EQ(exported(), xihProcessInline());
  ASSERT_EQ(CSCtrl, (void *)xihProcess());
  EXPECT_EQ(memcmp(xihProcess()->StrucId, XIH_PROCESS_EYE, 4), 0);
}

// Each thread fills the history past its ring and the stack past its
// array; all anchors exist at once, and no thread sees another's marks.
TEST(Anchors, EachThreadHasItsOwnHistoryRingAndStack) {
  constexpr int kThreads = 4;
  const uint32_t n = XIH_HISTORY_SIZE + 10;
  std::vector<xihTHREADANCHOR *> seen(kThreads);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; i++)
    threads.emplace_back([&, i] {
      xcsInitialize(48, 1030, 0, 0, 0);
      xihTHREADANCHOR *t = seen[i] = xihThreadAddress();
      EXPECT_EQ(t->StackDepth, 0u);
      EXPECT_EQ(t->HistoryIndex, 0u);
      const uint32_t base = (uint32_t)i * 100000;
      for (uint32_t k = 1; k <= n; k++) xihRecordHistory(t, base + k);
      for (uint32_t k = 0; k < XIH_STACK_SIZE + 44; k++) xihPushStack(t, base + k);
      ready++;
      while (ready.load() < kThreads) std::this_thread::yield();
      EXPECT_EQ(t->HistoryIndex, n);
      EXPECT_EQ(xihHistoryAt(t, 0), base + n);
      EXPECT_EQ(xihHistoryAt(t, XIH_HISTORY_SIZE - 1), base + n - XIH_HISTORY_SIZE + 1);
      EXPECT_EQ(t->History[9], base + n) << "the newest mark overwrote the oldest slot";
      EXPECT_EQ(t->StackDepth, (uint32_t)XIH_STACK_SIZE + 44);
      EXPECT_EQ(t->Stack[XIH_STACK_SIZE - 1], base + XIH_STACK_SIZE - 1);
      for (uint32_t k = 0; k < XIH_STACK_SIZE + 44; k++) xihPopStack(t);
      EXPECT_EQ(t->StackDepth, 0u);
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(std::set<xihTHREADANCHOR *>(seen.begin(), seen.end()).size(), (size_t)kThreads);
}

// Pairs recorded at once leave the ring, slot for slot, as one mark at a
// time would: from any place in the ring, across its end, and when they
// overwrite it several times.
TEST(Anchors, HistoryPairsLandAsSingleMarksWould) {
  for (uint32_t start :
       {0u, 1u, 700u, uint32_t{XIH_HISTORY_SIZE - 1}, uint32_t{XIH_HISTORY_SIZE * 5 + 3}}) {
    for (uint32_t pairs : {0u, 1u, 2u, 511u, 512u, 513u, 700u, 2000u}) {
      SCOPED_TRACE(testing::Message() << "start " << start << ", pairs " << pairs);
      xihTHREADANCHOR one{}, all{};
      for (uint32_t i = 0; i < XIH_HISTORY_SIZE; ++i) one.History[i] = all.History[i] = i * 3;
      for (uint32_t k = 0; k < pairs; ++k) {
        xihRecordHistoryAt(&one, start + 2 * k, 0xE0001u);
        xihRecordHistoryAt(&one, start + 2 * k + 1, 0x20001u);
      }
      if (pairs == 0) one.HistoryIndex = start;
      xihRecordHistoryPairsAt(&all, start, pairs, 0xE0001u, 0x20001u);
      EXPECT_EQ(all.HistoryIndex, one.HistoryIndex);
      EXPECT_EQ(memcmp(all.History, one.History, sizeof one.History), 0);
    }
  }
}

TEST(Anchors, TraceWordsFromEnvironmentAtStart) {
  const struct {
    std::vector<std::string> env;
    std::string words;
  } cases[] = {
      {{"JX_TRACE=", "JX_TRACE_LEVEL="}, "enabled=0 level=-1 options=0x0 override=0"},
      {{"JX_TRACE=api,parms", "JX_TRACE_LEVEL=3"}, "enabled=1 level=3 options=0xC0001 override=0"},
      {{"JX_TRACE=bag", "JX_TRACE_LEVEL="}, "enabled=1 level=0 options=0x80420 override=0"},
      {{"JX_TRACE=all", "JX_TRACE_LEVEL=9"}, "enabled=1 level=9 options=0xC0421 override=1"},
      {{"JX_TRACE=0x20", "JX_TRACE_LEVEL="}, "enabled=1 level=0 options=0x20 override=0"},
      {{"JX_TRACE=nonsense", "JX_TRACE_LEVEL=4"}, "enabled=0 level=-1 options=0x0 override=0"},
  };
  for (const auto &c : cases) {
    ChildResult r = runHelper("words", c.env);
    ASSERT_TRUE(r.exited(0)) << r.status;
    const char *active = c.words.rfind("enabled=1", 0) == 0 ? "1" : "0";
    EXPECT_EQ(r.output, c.words + " shared=1 traceactive=" + active + "\n") << c.env[0];
  }
}

// A forked child keeps the parent's recorded process id until it clears the
// inherited state; then it has its own id, trace slot and trace file.
TEST(Anchors, ClearAfterForkGivesNewPidSlotAndTraceFile) {
  TraceWordsGuard words;
  words.set(1, 0, 0, 0);    // the child keeps tracing in its own slot
  xtr_text("parent line");  // the parent has a trace file open
  xihPROCESSANCHOR *p = xihProcess();
  xihTRACEWORDS *parentWords = p->Trace;
  const pid_t parent = getpid();
  const std::string childTrace = std::string(xcsDataRoot()) + "/trace/jxmcs_tests.";
  const pid_t child = fork();
  if (child == 0) {
    xihTHREADANCHOR *t = xihThreadAddress();
    xihPushStack(t, 1);
    xihRecordHistory(t, 1);
    int bad = p->Pid != parent || xcsGetPid() == p->Pid;
    xcsClearCS();
    bad |= (p->Pid != getpid()) << 1;
    bad |= (p->Trace == parentWords || p->Trace == &p->Private) << 2;
    bad |= (t->StackDepth != 0 || t->HistoryIndex != 0) << 3;
    bad |= (xtrTraceFile()[0] != 0) << 4;
    xtr_text("child line");
    bad |= (xtrTraceFile() != childTrace + std::to_string(getpid()) + ".trc") << 5;
    _exit(bad);  // no exit handlers: the child's slot stays claimed for the check below
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(p->Pid, parent);

  xtrCONTROLFILE *c = xtrMapControl(xcsDataRoot(), 0, nullptr);
  ASSERT_NE(c, nullptr);
  int parentSlots = 0, childSlots = 0;
  for (const auto &s : c->Slot) {
    parentSlots += s.Pid == parent;
    childSlots += s.Pid == child;
  }
  xtrUnmapControl(c);
  EXPECT_EQ(parentSlots, 1);
  EXPECT_EQ(childSlots, 1);
  EXPECT_NE(readFile(childTrace + std::to_string(child) + ".trc").find(" | child line\n"),
            std::string::npos);
  EXPECT_EQ(readFile(xtrTraceFile()).find("child line"), std::string::npos);
}
