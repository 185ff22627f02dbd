// Failure records: the file's place, name and every field, dumps as hex
// with unreadable areas reported, and the dump-list builder.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>
#include <sys/stat.h>

#include <thread>

#include "test_util.hpp"
#include "trace_file.hpp"

using namespace jxtest;

namespace {

char g_adminNames[160][XCS_FUNC_NAME_LEN];

std::string ptr(const void *p) {
  char b[32];
  snprintf(b, sizeof b, "%p", p);
  return b;
}

// The lines that open a dump in a record.
std::string dumpHead(int n, const char *label, const void *at, uint32_t length) {
  return "Dump " + std::to_string(n) + ": " + label + "\n  Address: " + ptr(at) +
         "\n  Length: " + std::to_string(length) + "\n";
}

// Record dump lines are indented by two blanks.
std::string indented(const std::string &dump) {
  std::string out;
  for (char c : dump) out += c == '\n' ? std::string("\n  ") : std::string(1, c);
  return out;
}

}  // namespace

TEST(FailureRecord, FileHoldsEveryField) {
  strcpy(g_adminNames[93], "zaiJXCreateBag");
  strcpy(g_adminNames[117], "zaiVectorCreate");
  xtrRegisterNames(XCS_COMP_ADMIN, g_adminNames, 160);
  EdgePage area;
  ASSERT_NE(area.page, nullptr);
  char *edge = area.gone() - 16;  // 16 readable bytes, then an unmapped page
  memcpy(edge, "EDGE-of-the-page", 16);
  const char vec[20] = {'Z', 'V',  'E', 'C', 0, 0, 0, 28, 'a', 'b',
                        'c', '\n', 1,   2,   3, 4, 5, 6,  7,   8};

  std::string record;
  std::thread([&] {
    xcsInitialize(48, 1030, 0, 0, 0);
    xihTHREADANCHOR *t = xihThreadAddress();
    xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(25, 93));
    xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(25, 117));
    xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(25, 150));  // a row without a name
    xcsINSERTS ins = {{'X', 'M', 'S', 'A'}, 5, 0xFFFFFFFFu, 1, 2, 0xDEADBEEFu};
    // Entries out of range or without a list are ignored; filling them out
    // of order keeps the highest as the count.
    xcsDUMPLIST dumps = {};
    xcsBuildDumpPtr(&dumps, 0, "zero", "x", 1);
    xcsBuildDumpPtr(&dumps, XCS_MAX_DUMPS + 1, "past the end", "x", 1);
    xcsBuildDumpPtr(nullptr, 1, "no list", "x", 1);
    xcsBuildDumpPtr(&dumps, 4, "Empty", vec, 0);
    xcsBuildDumpPtr(&dumps, 1, "Invalid zaiVECTOR", vec, sizeof vec);
    xcsBuildDumpPtr(&dumps, 2, "Gone", area.gone(), 32);
    xcsBuildDumpPtr(&dumps, 3, "Edge", edge, 40);
    ASSERT_EQ(xcsRecordFailure(25, 117, 4, 0x20805452u, &ins, &dumps, 0, 0), 0);
    record = xcsLastFailureRecord();
  }).join();

  const std::string dir = errorsDir();
  EXPECT_TRUE(
      matchesWhole(record, dir + "/jxmcs_tests\\." + std::to_string(getpid()) + "\\.[0-9]+\\.rec"))
      << record;
  struct stat st;
  ASSERT_EQ(stat(dir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  ASSERT_EQ(stat(record.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  const std::vector<std::string> lines = splitLines(readFile(record));
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(lines[0], "JX failure record");
  EXPECT_TRUE(matchesWhole(
      lines[1], "Time: [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} UTC"))
      << lines[1];
  EXPECT_EQ(lines[2], "Program: jxmcs_tests");
  EXPECT_EQ(lines[3], "Process: " + std::to_string(getpid()));
  EXPECT_TRUE(matchesWhole(lines[4], "Thread: [0-9]+")) << lines[4];
  EXPECT_NE(lines[4], "Thread: " + std::to_string(getpid())) << "the recording thread, not main";
  std::string rest;
  for (size_t i = 5; i < lines.size(); i++) rest += lines[i] + "\n";
  EXPECT_EQ(rest,
            "Component: 25\nProbe: 117 zaiVectorCreate\nFlags: 4\nError: 0x20805452\n"
            "Inserts: XMSA 0x00000005 0xFFFFFFFF 0x00000001 0x00000002 0xDEADBEEF\n"
            "Stack: 3\n  F000645D zaiJXCreateBag\n  F0006475 zaiVectorCreate\n  F0006496 25/150\n" +
                dumpHead(1, "Invalid zaiVECTOR", vec, 20) + "  " + indented(dumpOf(vec, 20)) +
                "\n" + dumpHead(2, "Gone", area.gone(), 32) +
                "  00000000-0000001F  not readable\n" + dumpHead(3, "Edge", edge, 40) + "  " +
                dumpOf(edge, 16) + "\n  00000010-00000027  not readable\n" +
                dumpHead(4, "Empty", vec, 0) + "End\n");
}

TEST(FailureRecord, MissingUnreadableAndHugeParts) {
  char *gone = unmappedPages(4);
  char small[4] = {'a', 'b', 'c', 'd'};
  xcsDUMPLIST badLabel = {}, huge = {};
  xcsBuildDumpPtr(&badLabel, 1, gone, "abc", 3);
  // A length read from a damaged block can be anything: a bounded part shows.
  xcsBuildDumpPtr(&huge, 1, "Damaged", gone, 0xF9000000u);
  xcsBuildDumpPtr(&huge, 2, "Small", small, 4);
  const struct {
    const char *name;
    const xcsINSERTS *inserts;
    const xcsDUMPLIST *dumps;
    std::string expected;
  } rows[] = {
      {"none", nullptr, nullptr, "\nInserts: none\nStack: none\nEnd\n"},
      {"unreadable", reinterpret_cast<xcsINSERTS *>(gone), reinterpret_cast<xcsDUMPLIST *>(gone),
       "\nInserts: not readable\nStack: none\nDumps: not readable\nEnd\n"},
      {"unreadable label", nullptr, &badLabel, "\nDump 1: (label not readable)\n"},
      {"huge", nullptr, &huge,
       "  Length: 4177526784\n  Shown: first 16384 bytes\n  00000000-00003FFF  not readable\n"
       "Dump 2: Small\n  Address: " +
           ptr(small) + "\n  Length: 4\n  00000000  61 62 63 64"},
  };
  for (const auto &r : rows) {
    std::string text;
    // A thread without an anchor has no stack to show.
    std::thread([&] {
      ASSERT_EQ(xihThreadAddress(), nullptr);
      ASSERT_EQ(xcsRecordFailure(32, 43, 0, 0x20806001u, r.inserts, r.dumps, 0, 0), 0);
      text = readFile(xcsLastFailureRecord());
    }).join();
    EXPECT_NE(text.find("\nProbe: 43 32/43\n"), std::string::npos) << r.name;
    EXPECT_NE(text.find(r.expected), std::string::npos) << r.name << ":\n" << text;
  }
}
