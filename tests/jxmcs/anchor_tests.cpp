// Anchors: set-up once per thread, one anchor per thread, the history ring
// and stack helpers, trace words from the environment, and clearing state
// inherited over fork.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "test_util.hpp"
#include "trace_control.hpp"

using namespace jxtest;

TEST(Anchors, ThreadSetUpOnceWithProcessAnchor) {
  std::thread([] {
    EXPECT_EQ(xihThreadAddress(), nullptr);
    EXPECT_EQ(xcsInitialize(48, 1030, 0, 0, 0), XCS_OK);
    xihTHREADANCHOR *t = xihThreadAddress();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(memcmp(t->StrucId, XIH_THREAD_EYE, 4), 0);
    EXPECT_EQ(t->CSReady, 1);
    EXPECT_EQ(t->StackDepth, 0u);
    EXPECT_EQ(t->HistoryIndex, 0u);
    xihPushStack(t, 7);
    EXPECT_EQ(xcsInitialize(48, 1030, 0, 0, 0), XCS_OK);
    EXPECT_EQ(xihThreadAddress(), t) << "a second set-up must keep the anchor";
    EXPECT_EQ(t->StackDepth, 1u) << "a second set-up must not reset the anchor";
  }).join();

  xihPROCESSANCHOR *p = xihProcess();
  EXPECT_EQ(memcmp(p->StrucId, XIH_PROCESS_EYE, 4), 0);
  EXPECT_EQ(p->Pid, getpid());
  EXPECT_EQ(xcsGetPid(), getpid());
  EXPECT_EQ(CSCtrl, (void *)p);
  ASSERT_NE(p->Trace, nullptr);
  EXPECT_NE(p->Trace, &p->Private) << "the words should live in the shared control file";
}

TEST(Anchors, EachThreadHasItsOwn) {
  constexpr int kThreads = 4;
  std::vector<xihTHREADANCHOR *> seen(kThreads);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; i++)
    threads.emplace_back([i, &seen, &ready] {
      xcsInitialize(48, 1030, 0, 0, 0);
      xihTHREADANCHOR *t = xihThreadAddress();
      for (uint32_t k = 0; k < 100; k++) xihRecordHistory(t, (uint32_t)i * 1000 + k);
      seen[i] = t;
      // All anchors exist at once (a finished thread's anchor is freed), and
      // the other threads' marks never show here.
      ready++;
      while (ready.load() < kThreads) std::this_thread::yield();
      EXPECT_EQ(t->HistoryIndex, 100u);
      EXPECT_EQ(xihHistoryAt(t, 0), (uint32_t)i * 1000 + 99);
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(std::set<xihTHREADANCHOR *>(seen.begin(), seen.end()).size(), (size_t)kThreads);
}

TEST(Anchors, HistoryIsARingAndStackKeepsDepth) {
  std::thread([] {
    xcsInitialize(48, 1030, 0, 0, 0);
    xihTHREADANCHOR *t = xihThreadAddress();
    const uint32_t n = XIH_HISTORY_SIZE + 10;
    for (uint32_t i = 1; i <= n; i++) xihRecordHistory(t, i);
    EXPECT_EQ(t->HistoryIndex, n);
    EXPECT_EQ(xihHistoryAt(t, 0), n);
    EXPECT_EQ(xihHistoryAt(t, XIH_HISTORY_SIZE - 1), n - XIH_HISTORY_SIZE + 1);
    EXPECT_EQ(t->History[9], n) << "the newest mark overwrote the oldest slot";

    for (uint32_t i = 0; i < XIH_STACK_SIZE + 44; i++) xihPushStack(t, 0xF0000000u + i);
    EXPECT_EQ(t->StackDepth, (uint32_t)XIH_STACK_SIZE + 44);
    EXPECT_EQ(t->Stack[XIH_STACK_SIZE - 1], 0xF0000000u + XIH_STACK_SIZE - 1);
    for (uint32_t i = 0; i < XIH_STACK_SIZE + 44; i++) xihPopStack(t);
    EXPECT_EQ(t->StackDepth, 0u);
  }).join();
}

TEST(Anchors, DataRootFromEnvironment) {
  EXPECT_STREQ(xcsDataRoot(), getenv("JX_DATA_PATH"));
}

TEST(Anchors, TraceWordsFromEnvironmentAtStart) {
  struct Case {
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
    ChildResult r = runHelper({"words"}, c.env);
    ASSERT_TRUE(r.exited(0)) << r.status;
    int traceActive = c.words.rfind("enabled=1", 0) == 0 ? 1 : 0;
    EXPECT_EQ(r.output, c.words + " shared=1 traceactive=" + std::to_string(traceActive) + "\n")
        << c.env[0];
  }
}

// A forked child keeps the parent's recorded process id until it clears the
// inherited state; then it has its own id, trace slot and trace file.
TEST(Anchors, ClearAfterForkGivesNewPidSlotAndTraceFile) {
  xcsInitialize(48, 1030, 0, 0, 0);
  xtr_text("parent line");  // the parent has a trace file open
  xihPROCESSANCHOR *p = xihProcess();
  xihTRACEWORDS *parentWords = p->Trace;
  pid_t parent = getpid();
  pid_t child = fork();
  if (child == 0) {
    int bad = 0;
    xihTHREADANCHOR *t = xihThreadAddress();
    xihPushStack(t, 1);
    xihRecordHistory(t, 1);
    if (p->Pid != parent || xcsGetPid() == p->Pid) bad |= 1;
    xcsClearCS();
    if (p->Pid != getpid()) bad |= 2;
    if (p->Trace == parentWords || p->Trace == &p->Private) bad |= 4;
    if (t->StackDepth != 0 || t->HistoryIndex != 0) bad |= 8;
    if (xtrTraceFile()[0] != 0) bad |= 16;
    xtr_text("child line");
    std::string expect = "." + std::to_string(getpid()) + ".trc";
    std::string file = xtrTraceFile();
    if (file.size() < expect.size() ||
        file.compare(file.size() - expect.size(), expect.size(), expect))
      bad |= 32;
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
  std::string childTrace =
      readFile(std::string(xcsDataRoot()) + "/trace/jxmcs_tests." + std::to_string(child) + ".trc");
  EXPECT_NE(childTrace.find(" | child line\n"), std::string::npos);
  EXPECT_EQ(readFile(xtrTraceFile()).find("child line"), std::string::npos);
}
