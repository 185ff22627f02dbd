// jxPad and jxTrim through the public API: byte-exact results, check order
// and outputs left alone on failure.
#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "outcome.hpp"

namespace {

Outcome pad(const char *s, int32_t len, char *buf) {
  return call(jxPad, s, len, buf);
}
Outcome trim(int32_t len, const char *buf, char *s) {
  return call(jxTrim, len, buf, s);
}

// Three pages in a row: writable, read-only, inaccessible.
struct Pages {
  Pages() {
    page = sysconf(_SC_PAGESIZE);
    base = static_cast<char *>(
        mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    memset(base, 'r', 2 * page);
    base[2 * page - 1] = '\0';  // strings in the read-only page end there
    readOnly = base + page;
    none = base + 2 * page;
    mprotect(readOnly, page, PROT_READ);
    mprotect(none, page, PROT_NONE);
  }
  ~Pages() { munmap(base, 3 * page); }
  long page;
  char *base;
  char *readOnly;
  char *none;
};

TEST(Pad, FillsWithBlanksCutsWithAWarningAndWritesNoNull) {
  const struct {
    const char *string;
    int32_t length;
    bool buffer;
    int32_t cc, rc;
    const char *after;  // the 8-byte buffer, '#' where nothing was written
  } rows[] = {
      {"AB", 5, true, JXCC_OK, JXRC_NONE, "AB   ###"},
      {"AB", 2, true, JXCC_OK, JXRC_NONE, "AB######"},
      {"AB", 1, true, JXCC_WARNING, JXRC_STRING_TRUNCATED, "A#######"},
      {nullptr, 6, true, JXCC_OK, JXRC_NONE, "      ##"},
      // Length 0 with a null buffer writes nothing but still warns for a string.
      {"AB", 0, false, JXCC_WARNING, JXRC_STRING_TRUNCATED, "########"},
      {"", 0, false, JXCC_OK, JXRC_NONE, "########"},
  };
  for (const auto &r : rows) {
    char buf[8];
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(pad(r.string, r.length, r.buffer ? buf : nullptr), (Outcome{r.cc, r.rc})) << r.after;
    EXPECT_EQ(std::string(buf, 8), r.after);
  }
  char inPlace[8] = "XY";
  EXPECT_EQ(pad(inPlace, 8, inPlace), kOk);
  EXPECT_EQ(std::string(inPlace, 8), "XY      ");
}

TEST(Pad, ChecksRunInOrderAndLeaveTheBufferAlone) {
  Pages pages;
  char buf[4] = {'#', '#', '#', '#'};
  // Negative length wins over a null buffer and an unreadable string.
  EXPECT_EQ(pad(pages.none, -1, nullptr), failed(JXRC_BUFFER_LENGTH_ERROR));
  // A bad buffer wins over an unreadable string.
  EXPECT_EQ(pad(pages.none, 4, nullptr), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(pad("A", 4, pages.readOnly), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(pad("A", 4, pages.none), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(pad(pages.none, 4, buf), failed(JXRC_BAD_STRING));
  EXPECT_EQ(std::string(buf, 4), "####");
  // A read-only string is fine: it is only read.
  EXPECT_EQ(pad(pages.readOnly + pages.page - 2, 0, nullptr),
            (Outcome{JXCC_WARNING, JXRC_STRING_TRUNCATED}));
  // A buffer that runs from a writable into a read-only page is refused.
  EXPECT_EQ(pad("A", 4, pages.readOnly - 2), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(pad("A", 2, pages.readOnly - 2), kOk);
}

TEST(Trim, RemovesTrailingBlanksOnly) {
  // A null byte or a tab is not a blank: it stays, and a null follows it.
  const struct {
    std::string in, out;  // '#' where nothing was written
  } rows[] = {
      {"AB  C   ", std::string("AB  C\0", 6)},
      {"        ", std::string("\0", 1)},
      {std::string("AB\0     ", 8), std::string("AB\0\0", 4)},
      {"A\t ", std::string("A\t\0", 3)},
      {"", std::string("\0#", 2)},
  };
  for (const auto &r : rows) {
    char out[16];
    memset(out, '#', sizeof out);
    EXPECT_EQ(trim(static_cast<int32_t>(r.in.size()), r.in.empty() ? nullptr : r.in.data(), out),
              kOk);
    EXPECT_EQ(std::string(out, r.out.size()), r.out) << r.in;
  }
  char field[6] = {'Q', 'M', ' ', ' ', ' ', '#'};
  EXPECT_EQ(trim(5, field, field), kOk);
  EXPECT_STREQ(field, "QM");
}

TEST(Trim, ChecksRunInOrderAndLeaveTheStringAlone) {
  Pages pages;
  char out[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(trim(-1, nullptr, out), failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(std::string(out, 4), "####");
  EXPECT_EQ(trim(4, nullptr, nullptr), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(trim(4, pages.none, nullptr), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(trim(3, "AB ", nullptr), failed(JXRC_BAD_STRING));
  EXPECT_EQ(trim(3, "AB ", pages.readOnly), failed(JXRC_BAD_STRING));
  // The output must hold the length plus its null.
  EXPECT_EQ(trim(3, "AB ", pages.readOnly - 3), failed(JXRC_BAD_STRING));
  EXPECT_EQ(trim(3, "AB ", pages.readOnly - 4), kOk);
  // A buffer running into an inaccessible page cannot be read.
  EXPECT_EQ(trim(4, pages.none - 2, out), failed(JXRC_BUFFER_ERROR));
}

}  // namespace
