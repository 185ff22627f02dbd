// Signal actions: region save and restore semantics, and real faults in a
// child process: the record comes first, then the caller's own action.
#include <gtest/gtest.h>
#include <jx/jxcs.h>

#include <thread>

#include "test_util.hpp"

using namespace jxtest;

TEST(SignalActions, SaveReportsOnlyTheOutermostEntry) {
  std::thread([] {
    xehSaveSigActionsF(nullptr);  // enters no region
    int32_t saved = -1, inner = -1;
    xehSaveSigActionsF(&saved);
    EXPECT_EQ(saved, 1);
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

TEST(SignalActions, SaveRefreshesTraceActive) {
  xcsInitialize(48, 1030, 0, 0, 0);
  xihTRACEWORDS *w = xihProcess()->Trace;
  const int32_t was = w->Enabled;
  for (int32_t enabled : {1, 0}) {
    int32_t saved = 0;
    w->Enabled = enabled;
    xehSaveSigActionsF(&saved);
    EXPECT_EQ(xihThreadAddress()->TraceActive, enabled);
    if (saved) xehRestoreSigActionsF();
  }
  w->Enabled = was;
}

// Faults the pointer check causes on purpose never become records.
TEST(SignalActions, ProbeFaultsAreNotRecorded) {
  const size_t before = recordCount();
  int32_t saved = 0;
  xehSaveSigActionsF(&saved);
  ASSERT_EQ(saved, 1);
  EXPECT_NE(xcsCheckPointer(unmappedPages(1), 8, XCS_CHECK_READ), 0);
  EXPECT_NE(xcsCheckPointer("literal", 8, XCS_CHECK_WRITE), 0);
  xehRestoreSigActionsF();
  EXPECT_EQ(recordCount(), before);
}

TEST(SignalActions, FaultsInAndOutsideARegion) {
  const struct {
    const char *mode;
    int signal, exitCode;  // the child dies of `signal`, or exits with `exitCode`
    const char *output;
    bool recorded;
  } rows[] = {
      {"fault-default", SIGSEGV, 0, "saved=1\n", true},
      {"fault-own", 0, 42, "saved=1\nown handler sig=11 addr=0x10\n", true},
      {"fault-outside", 0, 42, "saved=0\nown handler sig=11 addr=0x10\n", false},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.mode);
    ChildResult c = runHelper(r.mode);
    EXPECT_TRUE(r.signal ? c.killedBy(r.signal) : c.exited(r.exitCode)) << "status " << c.status;
    EXPECT_EQ(c.output, r.output);
    const std::string text =
        readFile(errorsDir() + "/jxmcs_helper." + std::to_string(c.pid) + ".1.rec");
    if (!r.recorded) {
      EXPECT_EQ(text, "") << "no record outside a region";
      continue;
    }
    EXPECT_NE(text.find("\nComponent: 25\nProbe: 152 zaiCreateBag\nFlags: 0\nError: 0x20806002\n"
                        "Inserts: XMSA 0x0000000B 0x00000001 0x00000010 0x00000000 0x"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\nStack: 2\n  F000645D zaiJXCreateBag\n  F0006498 zaiCreateBag\nEnd\n"),
              std::string::npos)
        << text;
  }
}
