// Pointer checks never fault, whatever the address, and tell usable from
// unusable memory for reading, writing and updating.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <atomic>
#include <thread>
#include <vector>

#include "test_util.hpp"

namespace {

using jxtest::kPage;
constexpr int32_t kModes[] = {XCS_CHECK_READ, XCS_CHECK_WRITE, XCS_CHECK_UPDATE};

// Pages for the tests: read-write, read-only, no access, in this order;
// and an unmapped page.
struct Pages {
  char *base;
  char *gone = jxtest::unmappedPages(1);
  Pages() {
    base = static_cast<char *>(
        mmap(nullptr, 3 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    memset(base, 'r', 2 * kPage);
    mprotect(base + kPage, kPage, PROT_READ);
    mprotect(base + 2 * kPage, kPage, PROT_NONE);
  }
  ~Pages() { munmap(base, 3 * kPage); }
  char *rw() const { return base; }
  char *ro() const { return base + kPage; }
  char *none() const { return base + 2 * kPage; }
};

void *at(uintptr_t a) {
  return reinterpret_cast<void *>(a);
}

TEST(PointerCheck, UsableByModeWhateverTheAddress) {
  jxtest::EdgePage edge;  // first: the unmapped page of Pages then lies beyond it
  ASSERT_NE(edge.page, nullptr);
  Pages pg;
  static const char literal[] = "read-only data";
  char stackBuf[64];
  memset(stackBuf, 's', sizeof stackBuf);
  char *heap = static_cast<char *>(malloc(100));
  memset(heap, 'h', 100);
  void *slab = nullptr;
  ASSERT_EQ(xcsGetMem(XCS_COMP_ADMIN, 1, 32, &slab), XCS_OK);
  memset(slab, 'b', 32);

  const struct {
    const char *name;
    const void *address;
    size_t length;
    bool read, write;  // update follows write
  } rows[] = {
    {"null", nullptr, 4, false, false},
    {"null, length 0", nullptr, 0, false, false},
    {"16", at(16), 4, false, false},
    {"4095", at(4095), 4, false, false},
    {"65535", at(65535), 4, false, false},
    {"length 0: only the null test", at(16), 0, true, true},
    {"the range wraps", stackBuf, SIZE_MAX, false, false},
    {"wraps at the top", at(UINTPTR_MAX - 8), 16, false, false},
#if UINTPTR_MAX > 0xFFFFFFFFu
    {"kernel", at((uintptr_t)0xFFFFFFFF80000000ull), 8, false, false},
    {"non-canonical", at((uintptr_t)0x0000900000000000ull), 8, false, false},
    {"beyond user space", at((uintptr_t)0x00FF000000000000ull), 8, false, false},
    {"top bit", at((uintptr_t)0x8000000000000000ull), 8, false, false},
#else
    {"kernel", at(0xFFFFF000u), 8, false, false},
#endif
    {"read-write page", pg.rw(), kPage, true, true},
    {"read-only page", pg.ro(), kPage, true, false},
    {"no-access page", pg.none(), 1, false, false},
    {"unmapped", pg.gone, 1, false, false},
    {"unmapped, last byte", pg.gone + kPage - 1, 1, false, false},
    {"literal", literal, sizeof literal, true, false},
    {"read-write end", pg.rw() + kPage - 10, 10, true, true},
    {"read-only into no-access", pg.ro() + kPage - 10, 11, false, false},
    {"all three pages", pg.rw(), 3 * kPage, false, false},
    {"read-write into read-only", pg.rw(), 2 * kPage, true, false},
    {"edge page", edge.page, kPage, true, true},
    {"mapped then unmapped", edge.page + kPage - 1, 2, false, false},
    {"edge page and one byte", edge.page, kPage + 1, false, false},
    {"stack", stackBuf, sizeof stackBuf, true, true},
    {"heap", heap, 100, true, true},
    {"slab", slab, 32, true, true},
  };
  for (const auto &r : rows) {
    for (int32_t mode : kModes) {
      const bool usable = mode == XCS_CHECK_READ ? r.read : r.write;
      EXPECT_EQ(xcsCheckPointer(r.address, r.length, mode) == 0, usable)
          << r.name << ", mode " << mode;
    }
  }
  EXPECT_NE(xcsCheckPointer(stackBuf, 1, 3), 0) << "unknown mode";
  // The checks never change a byte.
  EXPECT_EQ(std::string(pg.ro(), kPage), std::string(kPage, 'r'));
  EXPECT_EQ(std::string(stackBuf, 64), std::string(64, 's'));
  EXPECT_EQ(std::string(heap, 100), std::string(100, 'h'));
  EXPECT_EQ(std::string(static_cast<char *>(slab), 32), std::string(32, 'b'));
  free(heap);
  xcsFreeMem(XCS_COMP_ADMIN, slab);
}

// Threads check good and bad areas at once, while others write the good ones.
TEST(PointerCheck, ConcurrentChecks) {
  Pages pg;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++)
    threads.emplace_back([&, t] {
      char local[32] = {};
      void *slab = nullptr;
      xcsGetMem(XCS_COMP_ADMIN, 1, 32, &slab);
      for (int i = 0; i < 10000; i++) {
        int32_t mode = kModes[i % 3];
        pg.rw()[t] = (char)i;  // concurrent writes next to the probed bytes
        if (xcsCheckPointer(pg.rw(), 16, mode) != 0) wrong++;
        if (xcsCheckPointer(local, sizeof local, mode) != 0) wrong++;
        if (xcsCheckPointer(slab, 32, mode) != 0) wrong++;
        if (xcsCheckPointer(nullptr, 8, mode) == 0) wrong++;
        if (xcsCheckPointer(pg.gone, 8, mode) == 0) wrong++;
        if (xcsCheckPointer(pg.none(), 8, mode) == 0) wrong++;
        if ((xcsCheckPointer(pg.ro(), 8, mode) == 0) != (mode == XCS_CHECK_READ)) wrong++;
        if (pg.rw()[t] != (char)i) wrong++;  // an update check never loses a write
      }
      xcsFreeMem(XCS_COMP_ADMIN, slab);
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
