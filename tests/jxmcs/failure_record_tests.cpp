// Failure records: the file's place, name and every field, dumps as hex
// with unreadable areas reported, and the dump-list builder.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <thread>

#include "test_util.hpp"

using namespace jxtest;

namespace {

char g_adminNames[160][XCS_FUNC_NAME_LEN];

void registerAdminNames() {
  strcpy(g_adminNames[93], "zaiJXCreateBag");
  strcpy(g_adminNames[117], "zaiVectorCreate");
  xtrRegisterNames(XCS_COMP_ADMIN, g_adminNames, 160);
}

std::string hexLine(uint32_t offset, const std::string &bytes) {
  char buf[128];
  int n = snprintf(buf, sizeof buf, "%08X ", offset);
  std::string s(buf, (size_t)n);
  for (size_t i = 0; i < 16; i++) {
    if (i < bytes.size()) {
      snprintf(buf, sizeof buf, " %02X", (unsigned char)bytes[i]);
      s += buf;
    } else {
      s += "   ";
    }
  }
  s += "  |";
  for (char c : bytes) s += (c >= 0x20 && c < 0x7F) ? c : '.';
  return s + "|";
}

// True when text has the shape: each '9' of the shape a digit, '+' one or
// more digits, any other character itself.
bool hasShape(const std::string &text, const std::string &shape) {
  size_t i = 0;
  for (char c : shape) {
    if (c == '9' || c == '+') {
      if (i >= text.size() || !isdigit((unsigned char)text[i])) return false;
      i++;
      while (c == '+' && i < text.size() && isdigit((unsigned char)text[i])) i++;
    } else if (i >= text.size() || text[i++] != c) {
      return false;
    }
  }
  return i == text.size();
}

}  // namespace

TEST(FailureRecord, FileHoldsEveryField) {
  registerAdminNames();
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
    xcsDUMPLIST dumps = {};
    xcsBuildDumpPtr(&dumps, 1, "Invalid zaiVECTOR", vec, sizeof vec);
    xcsBuildDumpPtr(&dumps, 2, "Gone", area.gone(), 32);
    xcsBuildDumpPtr(&dumps, 3, "Edge", edge, 40);
    xcsBuildDumpPtr(&dumps, 4, "Empty", vec, 0);
    ASSERT_EQ(xcsRecordFailure(25, 117, 4, 0x20805452u, &ins, &dumps, 0, 0), 0);
    record = xcsLastFailureRecord();
  }).join();

  std::string dir = errorsDir();
  std::string prefix = dir + "/jxmcs_tests." + std::to_string(getpid()) + ".";
  EXPECT_EQ(record.compare(0, prefix.size(), prefix), 0) << record;
  EXPECT_TRUE(hasShape(record.substr(std::min(prefix.size(), record.size())), "+.rec")) << record;
  struct stat st;
  ASSERT_EQ(stat(dir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  ASSERT_EQ(stat(record.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  std::vector<std::string> lines = splitLines(readFile(record));
  ASSERT_GE(lines.size(), 30u);
  EXPECT_EQ(lines[0], "JX failure record");
  EXPECT_TRUE(hasShape(lines[1], "Time: 9999-99-99 99:99:99.999999 UTC")) << lines[1];
  EXPECT_EQ(lines[2], "Program: jxmcs_tests");
  EXPECT_EQ(lines[3], "Process: " + std::to_string(getpid()));
  EXPECT_TRUE(hasShape(lines[4], "Thread: +")) << lines[4];
  EXPECT_NE(lines[4], "Thread: " + std::to_string(getpid())) << "the recording thread, not main";
  std::vector<std::string> expected = {
      "Component: 25",
      "Probe: 117 zaiVectorCreate",
      "Flags: 4",
      "Error: 0x20805452",
      "Inserts: XMSA 0x00000005 0xFFFFFFFF 0x00000001 0x00000002 0xDEADBEEF",
      "Stack: 3",
      "  F000645D zaiJXCreateBag",
      "  F0006475 zaiVectorCreate",
      "  F0006496 25/150",
      "Dump 1: Invalid zaiVECTOR",
      "  Address: " +
          [&] {
            char b[32];
            snprintf(b, sizeof b, "%p", (const void *)vec);
            return std::string(b);
          }(),
      "  Length: 20",
      "  " + hexLine(0, std::string(vec, 16)),
      "  " + hexLine(16, std::string(vec + 16, 4)),
      "Dump 2: Gone",
      lines[20],
      "  Length: 32",
      "  00000000-0000001F  not readable",
      "Dump 3: Edge",
      lines[24],
      "  Length: 40",
      "  " + hexLine(0, "EDGE-of-the-page"),
      "  00000010-00000027  not readable",
      "Dump 4: Empty",
      lines[29],
      "  Length: 0",
      "End",
  };
  ASSERT_EQ(lines.size(), expected.size() + 5);
  for (size_t i = 0; i < expected.size(); i++) EXPECT_EQ(lines[i + 5], expected[i]) << i + 5;
}

TEST(FailureRecord, NoInsertsNoDumpsNoAnchor) {
  std::string record;
  std::thread([&] {
    ASSERT_EQ(xihThreadAddress(), nullptr);
    ASSERT_EQ(xcsRecordFailure(32, 43, 0, 0x20806001u, nullptr, nullptr, 0, 0), 0);
    record = xcsLastFailureRecord();
  }).join();
  std::string text = readFile(record);
  EXPECT_NE(text.find("\nProbe: 43 32/43\n"), std::string::npos);
  EXPECT_NE(text.find("\nInserts: none\nStack: none\nEnd\n"), std::string::npos) << text;
}

TEST(FailureRecord, UnreadableArgumentsAreReported) {
  char *gone = unmappedPages(1);
  ASSERT_EQ(xcsRecordFailure(25, 117, 0, 1, reinterpret_cast<xcsINSERTS *>(gone),
                             reinterpret_cast<xcsDUMPLIST *>(gone), 0, 0),
            0);
  std::string text = readFile(xcsLastFailureRecord());
  EXPECT_NE(text.find("\nInserts: not readable\n"), std::string::npos);
  EXPECT_NE(text.find("\nDumps: not readable\nEnd\n"), std::string::npos);

  xcsDUMPLIST dumps = {};
  xcsBuildDumpPtr(&dumps, 1, gone, "abc", 3);
  ASSERT_EQ(xcsRecordFailure(25, 117, 0, 1, nullptr, &dumps, 0, 0), 0);
  EXPECT_NE(readFile(xcsLastFailureRecord()).find("\nDump 1: (label not readable)\n"),
            std::string::npos);
}

// A length read from a damaged block can be anything: the record shows a
// bounded part.
TEST(FailureRecord, HugeDumpIsCut) {
  char *gone = unmappedPages(4);
  char small[4] = {'a', 'b', 'c', 'd'};
  xcsDUMPLIST dumps = {};
  xcsBuildDumpPtr(&dumps, 1, "Damaged", gone, 0xF9000000u);
  xcsBuildDumpPtr(&dumps, 2, "Small", small, 4);
  ASSERT_EQ(xcsRecordFailure(25, 120, 0, 0x20805453u, nullptr, &dumps, 0, 0), 0);
  std::string text = readFile(xcsLastFailureRecord());
  EXPECT_NE(text.find("  Length: 4177526784\n  Shown: first 16384 bytes\n"
                      "  00000000-00003FFF  not readable\nDump 2: Small\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("  Length: 4\n  00000000  61 62 63 64"), std::string::npos);
}

TEST(FailureRecord, EachRecordIsANewFile) {
  size_t before = listDir(errorsDir()).size();
  ASSERT_EQ(xcsRecordFailure(25, 1, 0, 1, nullptr, nullptr, 0, 0), 0);
  std::string first = xcsLastFailureRecord();
  ASSERT_EQ(xcsRecordFailure(25, 1, 0, 2, nullptr, nullptr, 0, 0), 0);
  EXPECT_NE(first, xcsLastFailureRecord());
  EXPECT_EQ(listDir(errorsDir()).size(), before + 2);
}

TEST(FailureRecord, BuildDumpListEntries) {
  xcsDUMPLIST list = {};
  xcsBuildDumpPtr(&list, 0, "zero", "x", 1);
  xcsBuildDumpPtr(&list, XCS_MAX_DUMPS + 1, "nine", "x", 1);
  xcsBuildDumpPtr(nullptr, 1, "no list", "x", 1);
  EXPECT_EQ(list.Count, 0);
  xcsBuildDumpPtr(&list, 3, "third", "abc", 3);
  EXPECT_EQ(list.Count, 3);
  xcsBuildDumpPtr(&list, 1, "first", "a", 1);
  EXPECT_EQ(list.Count, 3) << "filling an earlier entry keeps the count";
  EXPECT_STREQ(list.Entry[2].Label, "third");
  EXPECT_EQ(list.Entry[2].Length, 3u);
  EXPECT_STREQ(static_cast<const char *>(list.Entry[0].Address), "a");
}
