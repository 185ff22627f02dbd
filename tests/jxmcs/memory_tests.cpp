// Storage: low, aligned slab blocks, late reuse, the failure switch, blocks
// in use, bad frees, reuse of heap blocks and its bounds, growth, and many
// threads at once.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <malloc.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "test_util.hpp"

using namespace jxtest;

namespace {

#if defined(JX_ADDRESS_SANITIZER)
constexpr bool kKeepsFreedBlocks = false;  // the sanitizer sees every block go
#else
constexpr bool kKeepsFreedBlocks = true;
#endif

void *get(size_t n, uint16_t function = 1) {
  void *p = nullptr;
  EXPECT_EQ(xcsGetMem(XCS_COMP_ADMIN, function, n, &p), XCS_OK);
  return p;
}

// A refused request answers the storage code and a null block.
void expectRefused(size_t n, uint16_t function = 1) {
  void *p = reinterpret_cast<void *>(1);
  EXPECT_EQ(xcsGetMem(XCS_COMP_ADMIN, function, n, &p), XCS_E_NO_STORAGE) << n;
  EXPECT_EQ(p, nullptr);
}

void release(std::initializer_list<void *> blocks) {
  for (void *p : blocks) xcsFreeMem(XCS_COMP_ADMIN, p);
}

}  // namespace

TEST(Memory, SlabBlocksAreLowAlignedAndDistinct) {
  int64_t before = xcsBlocksInUse();
  std::vector<void *> blocks;
  for (size_t n = 0; n <= XCS_SLAB_MAX; n++) {
    auto *p = static_cast<unsigned char *>(get(n));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ((uintptr_t)p % 8, 0u) << n;
    EXPECT_LT((uintptr_t)p, 0x80000000u) << "a slab address must fit a signed 32-bit handle";
    memset(p, (int)n, n);
    blocks.push_back(p);
  }
  for (size_t n = 0; n <= XCS_SLAB_MAX; n++)
    for (size_t k = 0; k < n; k++)
      ASSERT_EQ(static_cast<unsigned char *>(blocks[n])[k], (unsigned char)n) << "blocks overlap";
  auto *big = static_cast<unsigned char *>(get(XCS_SLAB_MAX + 1));
  ASSERT_NE(big, nullptr);
  EXPECT_EQ((uintptr_t)big % 16, 0u);
  memset(big, 0xAB, XCS_SLAB_MAX + 1);
  EXPECT_EQ(xcsBlocksInUse(), before + (int64_t)blocks.size() + 1);
  xcsFreeMem(XCS_COMP_ADMIN, big);
  for (void *p : blocks) xcsFreeMem(XCS_COMP_ADMIN, p);
  EXPECT_EQ(xcsBlocksInUse(), before);
}

// A freed block is not handed out again before the blocks freed earlier,
// and its bytes (a freed bag's "?" mark) stay as they were until then.
TEST(Memory, FreedBlocksAreReusedOldestFirst) {
  constexpr int kCount = 300;
  constexpr size_t kSize = 200;  // a size class no other test uses
  std::vector<char *> blocks;
  for (int i = 0; i < kCount; i++) blocks.push_back(static_cast<char *>(get(kSize)));
  std::vector<char *> order = blocks;
  std::shuffle(order.begin(), order.end(), std::mt19937(7));
  for (char *p : order) {
    p[0] = '?';
    xcsFreeMem(XCS_COMP_ADMIN, p);
    EXPECT_EQ(p[0], '?');
    EXPECT_EQ(xcsCheckPointer(p, kSize, XCS_CHECK_READ), 0) << "freed slab blocks stay mapped";
  }
  // Blocks of this size freed by earlier tests may come first; ours follow
  // in the order they were freed.
  std::vector<char *> again, ours;
  std::set<char *> mine(blocks.begin(), blocks.end());
  for (int i = 0; i < kCount; i++) {
    again.push_back(static_cast<char *>(get(kSize)));
    if (mine.count(again.back())) ours.push_back(again.back());
  }
  ASSERT_GE(ours.size(), (size_t)kCount / 2);
  for (size_t i = 0; i < ours.size(); i++) ASSERT_EQ(ours[i], order[i]) << "reuse order at " << i;
  EXPECT_EQ(std::count(again.begin(), again.end(), order.back()), 0)
      << "the newest freed block is not handed out yet";
  EXPECT_EQ(order.back()[0], '?');
  for (char *p : again) xcsFreeMem(XCS_COMP_ADMIN, p);
}

TEST(Memory, FailureSwitchAndImpossibleRequests) {
  const int64_t before = xcsBlocksInUse();
  xcsSetAllocFailure(3, -1);
  void *a = get(16), *b = get(400);
  expectRefused(16);
  EXPECT_EQ(xcsBlocksInUse(), before + 2);
  void *c = get(16);  // the switch fires once
  release({a, b, c});
  xcsSetAllocFailure(1, -1);
  xcsSetAllocFailure(0, -1);  // switched off before it fired
  release({get(16)});

  xcsSetAllocFailure(0, 117);  // every allocation of one function
  for (size_t n : {8u, 28u, 1000u}) expectRefused(n, 117);
  release({get(28, 118)});
  xcsSetAllocFailure(0, -1);
  release({get(28, 117)});

  EXPECT_EQ(xcsGetMem(XCS_COMP_ADMIN, 1, 16, nullptr), XCS_E_NO_STORAGE);
  for (size_t n : {SIZE_MAX, SIZE_MAX - 8, SIZE_MAX / 2 + 1}) expectRefused(n);
  EXPECT_EQ(xcsBlocksInUse(), before);
}

TEST(Memory, BadFreesAreRecordedNotObeyed) {
  const size_t recordsBefore = recordCount();
  const int64_t before = xcsBlocksInUse();
  xcsFreeMem(XCS_COMP_ADMIN, nullptr);  // allowed, nothing to do
  EXPECT_EQ(recordCount(), recordsBefore);

  char *slab = static_cast<char *>(get(40));
  char *large = static_cast<char *>(get(1000));
  int onStack[8];
  for (void *p : {(void *)slab, (void *)slab /* twice */, (void *)(slab + 8), (void *)(large + 16),
                  (void *)&onStack[4], reinterpret_cast<void *>(4096 * 3)})
    xcsFreeMem(XCS_COMP_ADMIN, p);
  EXPECT_EQ(xcsBlocksInUse(), before + 1);
  EXPECT_EQ(recordCount(), recordsBefore + 5);
  const std::string last = readFile(xcsLastFailureRecord());
  EXPECT_NE(last.find("Error: 0x20806003\n"), std::string::npos);
  EXPECT_NE(last.find("Probe: 3 xcsFreeMem\n"), std::string::npos);
  xcsFreeMem(XCS_COMP_ADMIN, large);
  EXPECT_EQ(xcsBlocksInUse(), before);
}

TEST(Memory, LargeFreedBlocksAreReusedWhenTheyFit) {
#if defined(JX_ADDRESS_SANITIZER)
  GTEST_SKIP() << "large blocks go straight back to the sanitizer's heap";
#endif
  const int64_t before = xcsBlocksInUse();
  char *big = static_cast<char *>(get(1u << 20));
  memset(big, 'x', 1u << 20);
  xcsFreeMem(XCS_COMP_ADMIN, big);
  // Well below its size: a fresh block, the cached one stays for later.
  char *small = static_cast<char *>(get(800u << 10));
  EXPECT_NE(small, big);
  char *again = static_cast<char *>(get((1u << 20) - 4096));
  EXPECT_EQ(again, big);
  EXPECT_EQ(xcsBlocksInUse(), before + 2);
  xcsFreeMem(XCS_COMP_ADMIN, again);
  const size_t recordsBefore = recordCount();
  xcsFreeMem(XCS_COMP_ADMIN, again);  // a cached block freed twice
  EXPECT_EQ(recordCount(), recordsBefore + 1);
  xcsFreeMem(XCS_COMP_ADMIN, small);
  EXPECT_EQ(xcsBlocksInUse(), before);
}

// Freed heap blocks kept for reuse: mid-sized ones beside large ones, each
// kind bounded, all handed back by a trim. The C heap's own count of bytes in
// use shows what is kept (blocks from 16 KiB on are mappings it does not
// count).
TEST(Memory, KeptHeapBlocksAreBoundedAndTrimmed) {
#if defined(JX_ADDRESS_SANITIZER)
  GTEST_SKIP() << "heap blocks go straight back to the sanitizer's heap";
#endif
  constexpr size_t kMid = 6u << 10, kLarge = 96u << 10;
  constexpr int kMany = 200;
  const auto heapBytes = [] { return static_cast<int64_t>(mallinfo2().uordblks); };
  const int64_t before = xcsBlocksInUse();
  std::vector<void *> mids;
  mids.reserve(kMany);
  xcsTrimMem();
  const int64_t heapBefore = heapBytes();

  for (int i = 0; i < kMany; ++i) mids.push_back(get(kMid));
  for (void *p : mids) xcsFreeMem(XCS_COMP_ADMIN, p);
  const int64_t keptMid = heapBytes() - heapBefore;
  EXPECT_GE(keptMid, int64_t{kMid});
  EXPECT_LE(keptMid, 64 * int64_t{kMid + 128});  // far below the kMany blocks freed

  // A full cache hands an older block back to keep the newest.
  xcsFreeMem(XCS_COMP_ADMIN, get(2 * kMid));
  EXPECT_EQ(heapBytes() - heapBefore, keptMid + int64_t{kMid});

  // Large blocks come and go without pushing the mid-sized ones out.
  void *large = get(kLarge);
  xcsFreeMem(XCS_COMP_ADMIN, large);
  for (int i = 0; i < 3; ++i) {
    void *p = get(kLarge);
    EXPECT_EQ(p, large);
    xcsFreeMem(XCS_COMP_ADMIN, p);
  }
  void *again = get(kMid - 512);
  EXPECT_NE(std::find(mids.begin(), mids.end(), again), mids.end());

  // Below the smallest kept length a block goes back to the heap at once.
  const int64_t heapNow = heapBytes();
  xcsFreeMem(XCS_COMP_ADMIN, get(2u << 10));
  EXPECT_EQ(heapBytes(), heapNow);

  xcsFreeMem(XCS_COMP_ADMIN, again);
  xcsTrimMem();
  EXPECT_EQ(heapBytes(), heapBefore);
  EXPECT_EQ(xcsBlocksInUse(), before);
}

TEST(Memory, ManyThreadsAtOnce) {
  int64_t before = xcsBlocksInUse();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++)
    threads.emplace_back([t] {
      std::mt19937 rng((unsigned)t);
      std::vector<std::pair<unsigned char *, size_t>> live;
      for (int i = 0; i < 10000; i++) {
        if (live.size() < 64 && rng() % 3 != 0) {
          size_t n = rng() % 300;
          auto *p = static_cast<unsigned char *>(get(n, 9));
          memset(p, t * 16 + (int)(n & 15), n);
          live.emplace_back(p, n);
        } else if (!live.empty()) {
          auto [p, n] = live.back();
          live.pop_back();
          for (size_t k = 0; k < n; k++)
            ASSERT_EQ(p[k], (unsigned char)(t * 16 + (int)(n & 15))) << "block shared by threads";
          xcsFreeMem(XCS_COMP_ADMIN, p);
        }
      }
      for (auto [p, n] : live) xcsFreeMem(XCS_COMP_ADMIN, p);
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(xcsBlocksInUse(), before);
}

// Growth keeps the bytes and, zeroed, clears the rest, from every kind of
// block to every other: slab, heap, a mapping, a larger mapping, and a kept
// block taken for it; a refused growth leaves the block where and as it was.
TEST(Memory, GrowthKeepsTheBytesAndRefusesCleanly) {
  const int64_t before = xcsBlocksInUse();
  const size_t steps[] = {24, 200, 3000, 20000, 200000, 3000000};
  for (bool zeroed : {false, true}) {
    void *p = nullptr;
    size_t have = 0;
    for (size_t length : steps) {
      const int32_t rc = zeroed ? xcsGrowZeroedMem(XCS_COMP_ADMIN, 1, have, length, &p)
                                : xcsGrowMem(XCS_COMP_ADMIN, 1, length, &p);
      ASSERT_EQ(rc, XCS_OK) << length;
      const auto *bytes = static_cast<const unsigned char *>(p);
      for (size_t i = 0; i < have; ++i) ASSERT_EQ(bytes[i], 0xA5) << length << " " << i;
      if (zeroed) {
        EXPECT_EQ(std::count(bytes + have, bytes + length, 0), std::ptrdiff_t(length - have));
      }
      memset(p, 0xA5, length);
      have = length;
    }
    EXPECT_EQ(xcsBlocksInUse(), before + 1);
    // A kept block of the wanted size is taken, the grown one kept instead.
    void *kept = get(6000000);
    xcsFreeMem(XCS_COMP_ADMIN, kept);
    ASSERT_EQ(xcsGrowZeroedMem(XCS_COMP_ADMIN, 1, 100, 5800000, &p), XCS_OK);
    if (kKeepsFreedBlocks) {
      EXPECT_EQ(p, kept);
    }
    EXPECT_EQ(static_cast<unsigned char *>(p)[99], 0xA5);
    EXPECT_EQ(static_cast<unsigned char *>(p)[100], 0);
    xcsFreeMem(XCS_COMP_ADMIN, p);
  }
  // Refusals: the switch, an impossible length, a block never handed out.
  void *p = get(100);
  void *const was = p;
  memset(p, 7, 100);
  xcsSetAllocFailure(1, -1);
  EXPECT_EQ(xcsGrowMem(XCS_COMP_ADMIN, 1, 5000, &p), XCS_E_NO_STORAGE);
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(xcsGrowMem(XCS_COMP_ADMIN, 1, SIZE_MAX / 2, &p), XCS_E_NO_STORAGE);
  EXPECT_EQ(p, was);
  EXPECT_EQ(static_cast<unsigned char *>(p)[99], 7);
  const size_t recordsBefore = recordCount();
  int local[64] = {};
  void *foreign = &local[4];
  EXPECT_EQ(xcsGrowMem(XCS_COMP_ADMIN, 1, 5000, &foreign), XCS_E_BAD_BLOCK);
  EXPECT_EQ(foreign, &local[4]);
  EXPECT_EQ(recordCount(), recordsBefore + 1);
  xcsFreeMem(XCS_COMP_ADMIN, p);
  EXPECT_EQ(xcsBlocksInUse(), before);
}
