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

constexpr int32_t kModes[] = {XCS_CHECK_READ, XCS_CHECK_WRITE, XCS_CHECK_UPDATE};
const size_t kPage = (size_t)sysconf(_SC_PAGESIZE);

// Pages for the tests: read-write, read-only, no access, in this order;
// and an unmapped page.
struct Pages {
  char *base;
  char *unmapped = jxtest::unmappedPages(1);
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
  char *gone() const { return unmapped; }
};

}  // namespace

TEST(PointerCheck, RefusesNullSmallIntsAndBadArguments) {
  for (int32_t mode : kModes) {
    EXPECT_NE(xcsCheckPointer(nullptr, 4, mode), 0);
    EXPECT_NE(xcsCheckPointer(nullptr, 0, mode), 0) << "null is refused even for length 0";
    for (uintptr_t small : {1u, 16u, 100u, 4095u, 4096u, 65535u})
      EXPECT_NE(xcsCheckPointer(reinterpret_cast<void *>(small), 4, mode), 0) << small;
  }
  int x = 0;
  EXPECT_NE(xcsCheckPointer(&x, sizeof x, 3), 0) << "unknown mode";
  EXPECT_NE(xcsCheckPointer(&x, SIZE_MAX, XCS_CHECK_READ), 0) << "the range wraps";
  EXPECT_NE(xcsCheckPointer(reinterpret_cast<void *>(UINTPTR_MAX - 8), 16, XCS_CHECK_READ), 0);
  EXPECT_EQ(xcsCheckPointer(reinterpret_cast<void *>(16), 0, XCS_CHECK_WRITE), 0)
      << "length 0: only the null test";
}

TEST(PointerCheck, KernelAndNonCanonicalAddresses) {
  std::vector<uintptr_t> addrs;
#if UINTPTR_MAX > 0xFFFFFFFFu
  addrs = {(uintptr_t)0xFFFFFFFF80000000ull, (uintptr_t)0x0000900000000000ull,
           (uintptr_t)0x00FF000000000000ull, (uintptr_t)0x8000000000000000ull};
#else
  addrs = {(uintptr_t)0xFFFFF000u};
#endif
  for (uintptr_t a : addrs)
    for (int32_t mode : kModes)
      EXPECT_NE(xcsCheckPointer(reinterpret_cast<void *>(a), 8, mode), 0) << std::hex << a;
}

TEST(PointerCheck, ProtectionDecidesByMode) {
  Pages pg;
  for (int32_t mode : kModes) {
    EXPECT_EQ(xcsCheckPointer(pg.rw(), kPage, mode), 0);
    EXPECT_NE(xcsCheckPointer(pg.none(), 1, mode), 0);
    EXPECT_NE(xcsCheckPointer(pg.gone(), 1, mode), 0);
    EXPECT_NE(xcsCheckPointer(pg.gone() + kPage - 1, 1, mode), 0);
  }
  EXPECT_EQ(xcsCheckPointer(pg.ro(), kPage, XCS_CHECK_READ), 0);
  EXPECT_NE(xcsCheckPointer(pg.ro(), 1, XCS_CHECK_WRITE), 0);
  EXPECT_NE(xcsCheckPointer(pg.ro(), 1, XCS_CHECK_UPDATE), 0);
  static const char literal[] = "read-only data";
  EXPECT_EQ(xcsCheckPointer(literal, sizeof literal, XCS_CHECK_READ), 0);
  EXPECT_NE(xcsCheckPointer(literal, sizeof literal, XCS_CHECK_WRITE), 0);
  EXPECT_NE(xcsCheckPointer(literal, sizeof literal, XCS_CHECK_UPDATE), 0);
  EXPECT_EQ(memcmp(pg.ro(), std::string(kPage, 'r').data(), kPage), 0);
}

// Every page of the area counts, not just its first byte.
TEST(PointerCheck, AreaSpanningUsableAndUnusablePages) {
  Pages pg;
  for (int32_t mode : kModes) {
    EXPECT_EQ(xcsCheckPointer(pg.rw() + kPage - 10, 10, mode), 0);
    EXPECT_NE(xcsCheckPointer(pg.ro() + kPage - 10, 11, mode), 0) << mode;
    EXPECT_NE(xcsCheckPointer(pg.rw(), 3 * kPage, mode), 0);
  }
  EXPECT_EQ(xcsCheckPointer(pg.rw(), 2 * kPage, XCS_CHECK_READ), 0);
  EXPECT_NE(xcsCheckPointer(pg.rw(), 2 * kPage, XCS_CHECK_WRITE), 0);

  jxtest::EdgePage edge;
  ASSERT_NE(edge.page, nullptr);
  for (int32_t mode : kModes) {
    EXPECT_EQ(xcsCheckPointer(edge.page, kPage, mode), 0);
    EXPECT_NE(xcsCheckPointer(edge.page + kPage - 1, 2, mode), 0) << "mapped then unmapped";
    EXPECT_NE(xcsCheckPointer(edge.page, kPage + 1, mode), 0);
  }
}

TEST(PointerCheck, StackHeapAndSlabAreUsableAndUnchanged) {
  char stackBuf[64];
  memset(stackBuf, 's', sizeof stackBuf);
  char *heap = static_cast<char *>(malloc(100));
  memset(heap, 'h', 100);
  void *slab = nullptr;
  ASSERT_EQ(xcsGetMem(XCS_COMP_ADMIN, 1, 32, &slab), XCS_OK);
  memset(slab, 'b', 32);
  for (int32_t mode : kModes) {
    EXPECT_EQ(xcsCheckPointer(stackBuf, sizeof stackBuf, mode), 0);
    EXPECT_EQ(xcsCheckPointer(heap, 100, mode), 0);
    EXPECT_EQ(xcsCheckPointer(slab, 32, mode), 0);
  }
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
      for (int i = 0; i < 10000; i++) {
        int32_t mode = kModes[i % 3];
        pg.rw()[t] = (char)i;  // concurrent writes next to the probed bytes
        if (xcsCheckPointer(pg.rw(), 16, mode) != 0) wrong++;
        if (xcsCheckPointer(local, sizeof local, mode) != 0) wrong++;
        if (xcsCheckPointer(pg.gone(), 8, mode) == 0) wrong++;
        if (xcsCheckPointer(pg.none(), 8, mode) == 0) wrong++;
        if ((xcsCheckPointer(pg.ro(), 8, mode) == 0) != (mode == XCS_CHECK_READ)) wrong++;
        if (pg.rw()[t] != (char)i) wrong++;  // an update check never loses a write
      }
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}
