// The re-exported queue-manager calls: entry and exit marks of component 32
// around the stub, the three trace lines, and the fork check of JXCONN. No
// queue manager runs here: the stubs fail, which is what the marks record.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <jx/jxqm.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qm_harness.hpp"
#include "trace_file.hpp"

namespace {

constexpr uint32_t id(uint32_t fn) {
  return 32u * 1024u + fn;
}

// Connects go to a queue manager that does not exist; the handles they
// would fill are thrown away.
char gNoQmgr[48] = "NO.SUCH.QMGR";
int32_t gHconn;

class QmExports : public ::testing::Test {
 protected:
  void SetUp() override { xcsInitialize(48, 1030, 0, 0, 0); }
};

TEST_F(QmExports, MarksCarryTheStubsReason) {
  xihTHREADANCHOR *t = xihThreadAddress();
  const uint32_t depth = t->StackDepth;
  struct Case {
    uint32_t fn;
    void (*call)(int32_t *, int32_t *);
  };
  const Case cases[] = {
      {38, [](int32_t *cc, int32_t *rc) { JXCONN(gNoQmgr, &gHconn, cc, rc); }},
      {49, [](int32_t *cc, int32_t *rc) { zrtJXCONN(gNoQmgr, &gHconn, cc, rc); }},
      {39,
       [](int32_t *cc, int32_t *rc) {
         int32_t h = 12345;
         JXDISC(&h, cc, rc);
       }},
      {47, [](int32_t *cc, int32_t *rc) { JXCMIT(12345, cc, rc); }},
      {48, [](int32_t *cc, int32_t *rc) { JXBACK(12345, cc, rc); }},
      {50, [](int32_t *cc, int32_t *rc) { JXBEGIN(12345, nullptr, cc, rc); }},
      {40,
       [](int32_t *cc, int32_t *rc) {
         JXMD md = JXMD_DEFAULT;
         JXGMO gmo = JXGMO_DEFAULT;
         char buf[8];
         int32_t len = 0;
         JXGET(12345, 1, &md, &gmo, sizeof buf, buf, &len, cc, rc);
       }},
  };
  for (const Case &c : cases) {
    int32_t cc = -1, rc = -1;
    const uint32_t start = t->HistoryIndex;
    c.call(&cc, &rc);
    EXPECT_EQ(cc, JXCC_FAILED) << c.fn;
    EXPECT_NE(rc, 0) << c.fn;
    EXPECT_EQ(marksSince(start),
              (std::vector<uint32_t>{0xF0000000u + id(c.fn),
                                     (static_cast<uint32_t>(rc) << 16) + id(c.fn)}))
        << c.fn;
    EXPECT_EQ(t->StackDepth, depth);
  }
}

TEST_F(QmExports, TraceLinesOfOpenCloseAndPut) {
  TraceWordsGuard words;
  words.set(1, 0, 0, 0);
  int32_t cc, rc;
  JXOD od = JXOD_DEFAULT;
  memset(od.ObjectName, ' ', sizeof od.ObjectName);
  memcpy(od.ObjectName, "SYSTEM.ADMIN.COMMAND.QUEUE", 26);
  int32_t hobj = 77;
  size_t mark = traceTexts().size();
  JXOPEN(12345, &od, JXOO_OUTPUT, &hobj, &cc, &rc);
  char expected[128];
  snprintf(expected, sizeof expected, "ObjHandle=%d ObjType=1 ObjName=%.48s", hobj, od.ObjectName);
  EXPECT_TRUE(contains(since(traceTexts(), mark), expected));

  // Close traces the handle before the stub resets it.
  hobj = 4242;
  mark = traceTexts().size();
  JXCLOSE(12345, &hobj, 0, &cc, &rc);
  EXPECT_TRUE(contains(since(traceTexts(), mark), "ObjHandle=4242"));

  char message[100];
  for (int i = 0; i < 100; ++i) message[i] = static_cast<char>('A' + i % 26);
  JXMD md = JXMD_DEFAULT;
  JXPMO pmo = JXPMO_DEFAULT;
  for (int32_t length : {100, 10}) {
    mark = traceTexts().size();
    JXPUT(12345, 9, &md, &pmo, length, message, &cc, &rc);
    auto lines = apiLines(since(traceTexts(), mark));
    auto at =
        std::find(lines.begin(), lines.end(), "ObjHandle=9 BufferLen=" + std::to_string(length));
    ASSERT_NE(at, lines.end()) << length;
    ASSERT_NE(at + 1, lines.end());
    EXPECT_EQ(*(at + 1), dumpOf(message, length > 32 ? 32 : length));
  }

  // Without a level (and no override) nothing is written.
  words.set(1, XTR_LEVEL_UNSET, 0xFFFFFFFFu, 0);
  mark = traceTexts().size();
  JXCLOSE(12345, &hobj, 0, &cc, &rc);
  for (const auto &line : since(traceTexts(), mark))
    EXPECT_EQ(line.find("ObjHandle="), std::string::npos);
}

TEST_F(QmExports, ConnectInAChildClearsInheritedState) {
  ASSERT_NE(CSCtrl, nullptr);
  const int32_t parent = static_cast<xihPROCESSANCHOR *>(CSCtrl)->Pid;
  ASSERT_EQ(parent, getpid());
  EXPECT_EQ(qmtest::inChild([parent] {
              auto *anchor = static_cast<xihPROCESSANCHOR *>(CSCtrl);
              if (anchor->Pid != parent) return 1;
              int32_t cc, rc;
              JXCONN(gNoQmgr, &gHconn, &cc, &rc);
              if (anchor->Pid != getpid()) return 2;
              // Only once: the recorded process is now this one.
              JXCONN(gNoQmgr, &gHconn, &cc, &rc);
              return anchor->Pid == getpid() ? 0 : 3;
            }),
            0);
  // The other entries never clear, and neither does a block without its
  // eye-catcher.
  EXPECT_EQ(qmtest::inChild([parent] {
              auto *anchor = static_cast<xihPROCESSANCHOR *>(CSCtrl);
              int32_t cc, rc;
              zrtJXCONN(gNoQmgr, &gHconn, &cc, &rc);
              if (anchor->Pid != parent) return 1;
              memcpy(anchor->StrucId, "XIHX", 4);
              JXCONN(gNoQmgr, &gHconn, &cc, &rc);
              return anchor->Pid == parent ? 0 : 2;
            }),
            0);
}

}  // namespace
