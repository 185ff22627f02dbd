// Signal actions: region save and restore semantics, and real faults in a
// child process: the record comes first, then the caller's own action.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <sys/mman.h>

#include <thread>

#include "test_util.hpp"

using namespace jxtest;

TEST(SignalActions, SaveReportsOnlyTheOutermostEntry) {
  std::thread([] {
    int32_t saved = -1;
    xehSaveSigActionsF(&saved);
    EXPECT_EQ(saved, 1);
    int32_t inner = -1;
    xehSaveSigActionsF(&inner);
    EXPECT_EQ(inner, 0) << "already inside a region";
    std::thread([] {
      int32_t other = -1;
      xehSaveSigActionsF(&other);
      EXPECT_EQ(other, 1) << "regions are per thread";
      xehRestoreSigActionsF();
    }).join();
    xehRestoreSigActionsF();
    xehSaveSigActionsF(&saved);
    EXPECT_EQ(saved, 1);
    xehRestoreSigActionsF();
  }).join();
}

TEST(SignalActions, SaveWithoutFlagEntersNoRegion) {
  std::thread([] {
    xehSaveSigActionsF(nullptr);
    int32_t saved = 0;
    xehSaveSigActionsF(&saved);
    EXPECT_EQ(saved, 1);
    xehRestoreSigActionsF();
  }).join();
}

TEST(SignalActions, SaveRefreshesTraceActive) {
  xcsInitialize(48, 1030, 0, 0, 0);
  xihTHREADANCHOR *t = xihThreadAddress();
  xihTRACEWORDS *w = xihProcess()->Trace;
  int32_t was = w->Enabled;
  int32_t saved = 0;
  w->Enabled = 1;
  xehSaveSigActionsF(&saved);
  EXPECT_EQ(t->TraceActive, 1);
  if (saved) xehRestoreSigActionsF();
  w->Enabled = 0;
  xehSaveSigActionsF(&saved);
  EXPECT_EQ(t->TraceActive, 0);
  if (saved) xehRestoreSigActionsF();
  w->Enabled = was;
}

// Faults the pointer check causes on purpose never become records.
TEST(SignalActions, ProbeFaultsAreNotRecorded) {
  char *gone = unmappedPages(1);
  size_t before = listDir(errorsDir()).size();
  int32_t saved = 0;
  xehSaveSigActionsF(&saved);
  ASSERT_EQ(saved, 1);
  EXPECT_NE(xcsCheckPointer(gone, 8, XCS_CHECK_READ), 0);
  EXPECT_NE(xcsCheckPointer("literal", 8, XCS_CHECK_WRITE), 0);
  xehRestoreSigActionsF();
  EXPECT_EQ(listDir(errorsDir()).size(), before);
}

namespace {

std::string recordOf(pid_t pid) {
  return errorsDir() + "/jxmcs_helper." + std::to_string(pid) + ".1.rec";
}

void expectFaultRecord(pid_t pid) {
  std::string text = readFile(recordOf(pid));
  ASSERT_FALSE(text.empty()) << "no record " << recordOf(pid);
  EXPECT_NE(text.find("\nComponent: 25\nProbe: 152 zaiCreateBag\nFlags: 0\nError: 0x20806002\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\nInserts: XMSA 0x0000000B 0x00000001 0x00000010 0x00000000 0x"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\nStack: 2\n  F000645D zaiJXCreateBag\n  F0006498 zaiCreateBag\nEnd\n"),
            std::string::npos)
      << text;
}

}  // namespace

TEST(SignalActions, FaultInRegionUnderDefaultActionDiesAfterRecord) {
  ChildResult r = runHelper({"fault-default"});
  EXPECT_TRUE(r.killedBy(SIGSEGV)) << "status " << r.status << " output " << r.output;
  EXPECT_EQ(r.output, "saved=1\n");
  expectFaultRecord(r.pid);
}

TEST(SignalActions, FaultInRegionReachesCallersHandlerAfterRecord) {
  ChildResult r = runHelper({"fault-own"});
  EXPECT_TRUE(r.exited(42)) << "status " << r.status;
  EXPECT_EQ(r.output, "saved=1\nown handler sig=11 addr=0x10\n");
  expectFaultRecord(r.pid);
}

TEST(SignalActions, FaultOutsideRegionGoesStraightToCaller) {
  ChildResult r = runHelper({"fault-outside"});
  EXPECT_TRUE(r.exited(42)) << "status " << r.status;
  EXPECT_EQ(r.output, "saved=0\nown handler sig=11 addr=0x10\n");
  EXPECT_TRUE(readFile(recordOf(r.pid)).empty()) << "no record outside a region";
}
