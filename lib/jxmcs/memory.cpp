// Storage: a low-address slab for small blocks (their addresses become
// signed 32-bit handles), the C heap for larger ones, the allocation-failure
// switch and the blocks-in-use count.
//
// The slab is one address range reserved PROT_NONE at first use and opened
// for reading and writing 1 MiB at a time. Each block has an 8-byte header
// before it (free-list link, size class, state), so the caller's bytes are
// never touched on free: a freed bag keeps its "?" mark. Freed blocks queue
// per size class and are handed out again oldest first, and only once more
// than kQuarantine blocks of the class wait, so a stale handle meets its
// "?" mark for as long as possible. Slab memory stays mapped for the life of
// the process, so any slab address can be checked by a range test alone.
//
// Blocks from kMapMinBlock on are mapped on their own, so that they grow by
// moving their pages (mremap) rather than by copying them into fresh ones.
// Pages about to be written can be committed in one call: on a virtual
// machine a fault per page costs many times the page's own zeroing.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>

#include "cs_internal.hpp"

#if defined(JX_ADDRESS_SANITIZER)
#include <sanitizer/lsan_interface.h>
#endif

namespace jxcs {
namespace {

constexpr size_t kGranule = 8;
constexpr size_t kClasses = XCS_SLAB_MAX / kGranule;
constexpr size_t kHeader = 8;
constexpr uint32_t kQuarantine = 64;
constexpr size_t kCommitStep = 1u << 20;
#if UINTPTR_MAX > 0xFFFFFFFFu
constexpr size_t kReserve = 256u << 20;
#else
constexpr size_t kReserve = 64u << 20;
#endif
constexpr uintptr_t kLowLimit = 0x80000000u;  // handles are signed 32-bit
// Larger requests fail without asking the heap: no machine has that much,
// and some allocators (the sanitizers') abort instead of returning null.
#if UINTPTR_MAX > 0xFFFFFFFFu
constexpr size_t kMaxBlock = (size_t)1 << 39;
#else
constexpr size_t kMaxBlock = 0x7FFFF000u;
#endif
constexpr uint16_t kMagic = 0x5853;  // "SX"
constexpr uint8_t kUsed = 'U';
constexpr uint8_t kFree = 'F';
constexpr uint32_t kLargeMagic = 0x4C534358;  // "XCSL"
constexpr uint32_t kLargeFreed = 0x46534358;  // "XCSF"
#if defined(JX_ADDRESS_SANITIZER)
constexpr size_t kMapMinBlock = SIZE_MAX;  // the sanitizer sees every block
#else
constexpr size_t kMapMinBlock = 16u << 10;
#endif
// Freed heap blocks from 4 KiB on are kept for reuse rather than handed back
// to the heap, which would return their pages to the system: bags that grow
// to many items and are deleted, again and again, would otherwise fault in
// fresh pages for every growth step. Two caches, for mid-sized and for large
// blocks, so that a churn of the one never pushes out the other. Each holds
// a bounded number of blocks and bytes and makes room by handing its blocks
// back in turn; a block is reused only for a request that needs nearly all
// of it (growth steps repeat the same sizes), so that reuse does not turn a
// small request into a large resident block.
// The address sanitizer is left to see every heap block come and go.
constexpr size_t kMidCacheMinBlock = 4u << 10;
constexpr size_t kLargeCacheMinBlock = 64u << 10;
#if defined(JX_ADDRESS_SANITIZER)
constexpr size_t kMidCacheMaxBytes = 0;
constexpr size_t kLargeCacheMaxBytes = 0;
#else
constexpr size_t kMidCacheMaxBytes = 2u << 20;
constexpr size_t kLargeCacheMaxBytes = 64u << 20;
#endif
constexpr size_t kCacheSlots = 64;

struct SlabHeader {
  uint32_t next;  // offset + 1 of the next free header of the class; 0 ends
  uint8_t cls;
  uint8_t state;
  uint16_t magic;
};
static_assert(sizeof(SlabHeader) == kHeader);

struct LargeHeader {
  uint32_t magic;
  uint16_t component;
  uint16_t mapped;  // 1: a mapping of its own, else a heap block
  uint64_t length;  // bytes usable after the header
};
static_assert(sizeof(LargeHeader) == 16);

struct alignas(64) FreeQueue {
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  uint32_t head = 0;  // offset + 1, oldest free block
  uint32_t tail = 0;
  uint32_t count = 0;
};

FreeQueue g_queue[kClasses];
pthread_mutex_t g_growLock = PTHREAD_MUTEX_INITIALIZER;

struct BlockCache {
  const size_t maxBytes;
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  LargeHeader *blocks[kCacheSlots] = {};
  size_t bytes = 0;
  size_t victim = 0;  // the slot handed back next when room is needed
};
BlockCache g_midCache{kMidCacheMaxBytes};
BlockCache g_largeCache{kLargeCacheMaxBytes};
std::atomic<uintptr_t> g_base{0};    // 0 until reserved
std::atomic<size_t> g_top{0};        // bytes handed out from the base
std::atomic<size_t> g_committed{0};  // bytes readable and writable
std::atomic<bool> g_reserveFailed{false};
std::atomic<int64_t> g_inUse{0};

std::atomic<bool> g_failArmed{false};
std::atomic<int32_t> g_failNth{0};
std::atomic<int32_t> g_failFunction{-1};

inline SlabHeader *headerAt(uintptr_t base, uint32_t offPlus1) {
  return reinterpret_cast<SlabHeader *>(base + offPlus1 - 1);
}

// Below 2 GiB on both targets, so handles are positive; on i386 any place
// will still do when that range is full.
uintptr_t reserveLow() {
  void *p;
#if UINTPTR_MAX > 0xFFFFFFFFu
  p = mmap(nullptr, kReserve, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_32BIT,
           -1, 0);
  if (p != MAP_FAILED) {
    if ((uintptr_t)p + kReserve <= kLowLimit) return (uintptr_t)p;
    munmap(p, kReserve);
  }
#endif
  // MAP_32BIT refused or unsupported (some tools), or i386: try fixed
  // addresses below 2 GiB that are still free.
  for (uintptr_t hint = 0x10000000; hint + kReserve <= kLowLimit; hint += kReserve) {
    p = mmap((void *)hint, kReserve, PROT_NONE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
    if (p == MAP_FAILED) continue;
    if ((uintptr_t)p == hint) return hint;
    munmap(p, kReserve);  // an old kernel took the hint as a hint
  }
#if UINTPTR_MAX > 0xFFFFFFFFu
  return 0;
#else
  p = mmap(nullptr, kReserve, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return p == MAP_FAILED ? 0 : (uintptr_t)p;
#endif
}

// Makes [0, need) of the slab usable; false when the reservation is spent.
bool growTo(size_t need) {
  if (need > kReserve) return false;
  pthread_mutex_lock(&g_growLock);
  bool ok = true;
  uintptr_t base = g_base.load(std::memory_order_relaxed);
  if (base == 0 && !g_reserveFailed.load(std::memory_order_relaxed)) {
    base = reserveLow();
    if (base == 0)
      g_reserveFailed.store(true, std::memory_order_relaxed);
    else
      g_base.store(base, std::memory_order_release);
  }
  if (base == 0) ok = false;
  size_t committed = g_committed.load(std::memory_order_relaxed);
  while (ok && committed < need) {
    size_t step = kCommitStep;
    if (committed + step > kReserve) step = kReserve - committed;
    if (mprotect((void *)(base + committed), step, PROT_READ | PROT_WRITE) != 0) {
      ok = false;
      break;
    }
#if defined(JX_ADDRESS_SANITIZER)
    // Bags in the slab hold the only pointers to their arrays: the leak
    // checker must read the slab as it reads the heap.
    __lsan_register_root_region((void *)(base + committed), step);
#endif
    committed += step;
    g_committed.store(committed, std::memory_order_release);
  }
  pthread_mutex_unlock(&g_growLock);
  return ok;
}

bool failThisOne(uint16_t function) {
  int32_t fn = g_failFunction.load(std::memory_order_relaxed);
  if (fn >= 0) return (uint32_t)fn == function;
  int32_t before = g_failNth.fetch_sub(1, std::memory_order_relaxed);
  if (before == 1) {
    g_failArmed.store(false, std::memory_order_relaxed);
    return true;
  }
  if (before <= 0) g_failNth.store(0, std::memory_order_relaxed);
  return false;
}

// Oldest free block of the class, when more than `keep` wait.
void *popFree(size_t cls, uint32_t keep) {
  FreeQueue &q = g_queue[cls];
  void *block = nullptr;
  pthread_mutex_lock(&q.lock);
  if (q.count > keep) {
    uintptr_t base = g_base.load(std::memory_order_relaxed);
    SlabHeader *h = headerAt(base, q.head);
    q.head = h->next;
    if (q.head == 0) q.tail = 0;
    q.count--;
    h->next = 0;
    h->state = kUsed;
    block = h + 1;
  }
  pthread_mutex_unlock(&q.lock);
  return block;
}

void *slabGet(size_t cls) {
  if (void *b = popFree(cls, kQuarantine)) return b;
  size_t size = kHeader + (cls + 1) * kGranule;
  size_t off = g_top.load(std::memory_order_relaxed);
  for (;;) {
    if (off + size > kReserve) break;
    if (off + size > g_committed.load(std::memory_order_acquire) && !growTo(off + size)) break;
    if (g_top.compare_exchange_weak(off, off + size, std::memory_order_relaxed)) {
      auto *h = reinterpret_cast<SlabHeader *>(g_base.load(std::memory_order_relaxed) + off);
      h->next = 0;
      h->cls = (uint8_t)cls;
      h->state = kUsed;
      h->magic = kMagic;
      return h + 1;
    }
  }
  // The slab is spent: take any free block of the class, however recent.
  return popFree(cls, 0);
}

// False when the block is not in use (freed twice).
bool slabPut(SlabHeader *h) {
  uintptr_t base = g_base.load(std::memory_order_relaxed);
  uint32_t offPlus1 = (uint32_t)((uintptr_t)h - base) + 1;
  FreeQueue &q = g_queue[h->cls];
  pthread_mutex_lock(&q.lock);
  bool inUse = h->state == kUsed;
  if (inUse) {
    h->state = kFree;
    h->next = 0;
    if (q.tail)
      headerAt(base, q.tail)->next = offPlus1;
    else
      q.head = offPlus1;
    q.tail = offPlus1;
    q.count++;
  }
  pthread_mutex_unlock(&q.lock);
  return inUse;
}

size_t pageSize() {
  static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

size_t mappedSize(size_t length) {
  const size_t page = pageSize();
  return (sizeof(LargeHeader) + length + page - 1) & ~(page - 1);
}

// A mapping of its own; fresh pages read as zero.
LargeHeader *mapBlock(size_t length) {
  const size_t size = mappedSize(length);
  void *p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  auto *h = static_cast<LargeHeader *>(p);
  h->mapped = 1;
  h->length = length;
  return h;
}

void release(LargeHeader *h) {
  if (h->mapped)
    munmap(h, mappedSize(h->length));
  else
    free(h);
}

// The cache for blocks of this length, or null for smaller ones.
BlockCache *cacheFor(size_t length) {
  if (length >= kLargeCacheMinBlock) return &g_largeCache;
  return length >= kMidCacheMinBlock ? &g_midCache : nullptr;
}

// The smallest cached block that fits `length` without wasting more than an
// eighth of itself, or null.
LargeHeader *cacheTake(BlockCache &cache, size_t length) {
  pthread_mutex_lock(&cache.lock);
  LargeHeader **best = nullptr;
  for (auto &b : cache.blocks) {
    if (b && b->length >= length && b->length - b->length / 8 <= length &&
        (!best || b->length < (*best)->length)) {
      best = &b;
    }
  }
  LargeHeader *h = nullptr;
  if (best) {
    h = *best;
    *best = nullptr;
    cache.bytes -= h->length;
  }
  pthread_mutex_unlock(&cache.lock);
  return h;
}

// Keeps a freed block, handing older ones back to the heap to make room; a
// block larger than the whole cache goes back itself.
void cachePut(LargeHeader *h) {
  BlockCache *cache = cacheFor(h->length);
  if (!cache || h->length > cache->maxBytes) {
    release(h);
    return;
  }
  LargeHeader *handedBack[kCacheSlots];
  size_t n = 0;
  pthread_mutex_lock(&cache->lock);
  LargeHeader **slot = std::find(std::begin(cache->blocks), std::end(cache->blocks), nullptr);
  if (slot == std::end(cache->blocks)) slot = nullptr;
  // At most one turn round the slots empties the whole cache.
  while (!slot || cache->bytes + h->length > cache->maxBytes) {
    LargeHeader *&victim = cache->blocks[cache->victim];
    cache->victim = (cache->victim + 1) % kCacheSlots;
    if (!victim) continue;
    cache->bytes -= victim->length;
    handedBack[n++] = victim;
    victim = nullptr;
    if (!slot) slot = &victim;
  }
  *slot = h;
  cache->bytes += h->length;
  pthread_mutex_unlock(&cache->lock);
  for (size_t i = 0; i < n; ++i) release(handedBack[i]);
}

// A zeroed block from the heap is cleared by calloc, which skips pages the
// system hands out cleared: a large table nobody fills stays unresident.
static_assert(alignof(max_align_t) >= 16, "heap blocks are 16-byte aligned");
LargeHeader *largeGet(size_t length, bool zeroed) {
  BlockCache *cache = cacheFor(length);
  LargeHeader *h = cache ? cacheTake(*cache, length) : nullptr;
  if (h) {
    if (zeroed) memset(h + 1, 0, length);
    return h;
  }
  if (length >= kMapMinBlock) return mapBlock(length);
  h = static_cast<LargeHeader *>(zeroed ? calloc(1, sizeof(LargeHeader) + length)
                                        : malloc(sizeof(LargeHeader) + length));
  if (h) {
    h->mapped = 0;
    h->length = length;
  }
  return h;
}

// Grows a heap or mapped block to `length` bytes, keeping its first `kept`
// and, when `zeroed`, clearing the rest; null, with the block as it was,
// when storage is not obtained. A block kept for reuse is taken first; a
// mapping grows where it lies or moves its pages, and the pages it adds read
// as zero untouched; a heap block becomes a mapping when it outgrows the heap.
LargeHeader *largeGrow(LargeHeader *h, size_t length, size_t kept, bool zeroed) {
  BlockCache *cache = cacheFor(length);
  LargeHeader *grown = cache ? cacheTake(*cache, length) : nullptr;
  if (!grown && h->mapped) {
    const size_t have = mappedSize(h->length), want = mappedSize(length);
    if (want > have) {
      void *p = mremap(h, have, want, MREMAP_MAYMOVE);
      if (p == MAP_FAILED) return nullptr;
      h = static_cast<LargeHeader *>(p);
    }
    const size_t dirty = std::min(length, have - sizeof(LargeHeader));
    if (zeroed && dirty > kept) memset(reinterpret_cast<char *>(h + 1) + kept, 0, dirty - kept);
    h->length = length;
    return h;
  }
  if (!grown && length < kMapMinBlock) {
    grown = static_cast<LargeHeader *>(realloc(h, sizeof(LargeHeader) + length));
    if (!grown) return nullptr;
    grown->length = length;
    if (zeroed) memset(reinterpret_cast<char *>(grown + 1) + kept, 0, length - kept);
    return grown;
  }
  const bool fresh = !grown;
  if (fresh && !(grown = mapBlock(length))) return nullptr;
  memcpy(grown + 1, h + 1, kept);
  if (zeroed && !fresh) memset(reinterpret_cast<char *>(grown + 1) + kept, 0, length - kept);
  grown->magic = h->magic;
  grown->component = h->component;
  h->magic = kLargeFreed;
  cachePut(h);
  return grown;
}

void reportBadFree(uint16_t component, const void *block) {
  xcsINSERTS ins = {{'X', 'M', 'S', 'A'},
                    component,
                    0,
                    (uint32_t)(uintptr_t)block,
                    (uint32_t)((uint64_t)(uintptr_t)block >> 32),
                    0};
  xcsDUMPLIST dumps = {};
  xcsBuildDumpPtr(&dumps, 1, "Block header", (const char *)block - 16, 32);
  writeFailureRecord(XCS_COMP_COMMON, kFnFreeMem, 0, XCS_E_BAD_BLOCK, &ins, &dumps);
}

}  // namespace

bool slabContains(uintptr_t start, uintptr_t end) {
  uintptr_t base = g_base.load(std::memory_order_acquire);
  return base != 0 && start >= base && end <= base + g_top.load(std::memory_order_acquire);
}

void memoryLockAll() {
  for (auto &q : g_queue) pthread_mutex_lock(&q.lock);
  pthread_mutex_lock(&g_growLock);
  pthread_mutex_lock(&g_midCache.lock);
  pthread_mutex_lock(&g_largeCache.lock);
}

void memoryUnlockAll() {
  pthread_mutex_unlock(&g_largeCache.lock);
  pthread_mutex_unlock(&g_midCache.lock);
  pthread_mutex_unlock(&g_growLock);
  for (auto &q : g_queue) pthread_mutex_unlock(&q.lock);
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {

namespace {

// A block of the slab or of the heap, without the failure switch.
void *allocate(uint16_t component, size_t length, bool zeroed) {
  if (length <= XCS_SLAB_MAX) {
    void *block = slabGet(length == 0 ? 0 : (length - 1) / kGranule);
    if (block && zeroed) memset(block, 0, length);
    return block;
  }
  if (length > kMaxBlock) return nullptr;
  LargeHeader *h = largeGet(length, zeroed);
  if (!h) return nullptr;
  h->magic = kLargeMagic;
  h->component = component;
  return h + 1;
}

int32_t getMem(uint16_t component, uint16_t function, size_t length, void **ppBlock, bool zeroed) {
  if (!ppBlock) return XCS_E_NO_STORAGE;
  if (g_failArmed.load(std::memory_order_relaxed) && failThisOne(function)) {
    *ppBlock = nullptr;
    return XCS_E_NO_STORAGE;
  }
  void *block = allocate(component, length, zeroed);
  *ppBlock = block;
  if (!block) return XCS_E_NO_STORAGE;
  g_inUse.fetch_add(1, std::memory_order_relaxed);
  return XCS_OK;
}

// The slab header of an address inside the slab, or null for one outside;
// `bad` is set when the address is not that of a slab block.
SlabHeader *slabBlock(uintptr_t p, bool &bad) {
  uintptr_t base = g_base.load(std::memory_order_acquire);
  if (base == 0 || p < base || p >= base + kReserve) return nullptr;
  auto *h = reinterpret_cast<SlabHeader *>(p - kHeader);
  bad = !(p >= base + kHeader && p < base + g_top.load(std::memory_order_acquire) &&
          (p - base) % kGranule == 0 && h->magic == kMagic && h->cls < kClasses);
  return h;
}

// The header of a heap or mapped block in use, or null.
LargeHeader *largeBlock(uintptr_t p) {
  LargeHeader copy;
  auto *h = reinterpret_cast<LargeHeader *>(p - sizeof(LargeHeader));
  return p % 16 == 0 && p > sizeof(LargeHeader) && safeCopy(&copy, h, sizeof copy) &&
                 copy.magic == kLargeMagic
             ? h
             : nullptr;
}

int32_t growMem(uint16_t component, uint16_t function, size_t kept, size_t length, bool zeroed,
                void **ppBlock) {
  if (!ppBlock) return XCS_E_NO_STORAGE;
  if (!*ppBlock) return getMem(component, function, length, ppBlock, zeroed);
  if (g_failArmed.load(std::memory_order_relaxed) && failThisOne(function)) {
    return XCS_E_NO_STORAGE;
  }
  uintptr_t p = (uintptr_t)*ppBlock;
  bool bad = false;
  SlabHeader *slab = slabBlock(p, bad);
  LargeHeader *large = slab ? nullptr : largeBlock(p);
  if (bad || (slab && slab->state != kUsed) || (!slab && !large)) {
    reportBadFree(component, *ppBlock);
    return XCS_E_BAD_BLOCK;
  }
  const size_t have = slab ? (slab->cls + 1) * kGranule : large->length;
  kept = std::min({kept, have, length});
  if (length <= have) {
    if (zeroed) memset(static_cast<char *>(*ppBlock) + kept, 0, length - kept);
    return XCS_OK;
  }
  if (length > kMaxBlock) return XCS_E_NO_STORAGE;
  if (large) {
    large = largeGrow(large, length, kept, zeroed);
    if (!large) return XCS_E_NO_STORAGE;
    *ppBlock = large + 1;
    return XCS_OK;
  }
  void *grown = allocate(component, length, zeroed);
  if (!grown) return XCS_E_NO_STORAGE;
  memcpy(grown, *ppBlock, kept);
  slabPut(slab);  // in use, as tested above
  *ppBlock = grown;
  return XCS_OK;
}

}  // namespace

XCS_EXPORT int32_t xcsGetMem(uint16_t component, uint16_t function, size_t length, void **ppBlock) {
  return getMem(component, function, length, ppBlock, false);
}

XCS_EXPORT int32_t xcsGetZeroedMem(uint16_t component, uint16_t function, size_t length,
                                   void **ppBlock) {
  return getMem(component, function, length, ppBlock, true);
}

XCS_EXPORT void xcsFreeMem(uint16_t component, void *block) {
  if (!block) return;
  uintptr_t p = (uintptr_t)block;
  bool bad = false;
  if (SlabHeader *h = slabBlock(p, bad)) {
    if (!bad && slabPut(h))
      g_inUse.fetch_sub(1, std::memory_order_relaxed);
    else
      reportBadFree(component, block);
    return;
  }
  if (LargeHeader *h = largeBlock(p)) {
    h->magic = kLargeFreed;
    cachePut(h);
    g_inUse.fetch_sub(1, std::memory_order_relaxed);
  } else {
    reportBadFree(component, block);
  }
}

XCS_EXPORT int32_t xcsGrowMem(uint16_t component, uint16_t function, size_t length,
                              void **ppBlock) {
  return growMem(component, function, SIZE_MAX, length, false, ppBlock);
}

XCS_EXPORT int32_t xcsGrowZeroedMem(uint16_t component, uint16_t function, size_t kept,
                                    size_t length, void **ppBlock) {
  return growMem(component, function, kept, length, true, ppBlock);
}

XCS_EXPORT void xcsCommitMem(void *start, size_t length) {
  const uintptr_t first = (uintptr_t)start & ~(uintptr_t)(pageSize() - 1);
  // A hint: where the system cannot commit, the pages fault in one by one.
  (void)madvise((void *)first, (uintptr_t)start + length - first, MADV_POPULATE_WRITE);
}

XCS_EXPORT void xcsTrimMem(void) {
  for (BlockCache *cache : {&g_midCache, &g_largeCache}) {
    pthread_mutex_lock(&cache->lock);
    for (auto &b : cache->blocks) {
      if (b) release(b);
      b = nullptr;
    }
    cache->bytes = 0;
    pthread_mutex_unlock(&cache->lock);
  }
}

XCS_EXPORT void xcsSetAllocFailure(int32_t nth, int32_t function) {
  g_failArmed.store(false, std::memory_order_relaxed);
  g_failNth.store(nth > 0 ? nth : 0, std::memory_order_relaxed);
  g_failFunction.store(nth > 0 || function < 0 ? -1 : function, std::memory_order_relaxed);
  g_failArmed.store(nth > 0 || function >= 0, std::memory_order_release);
}

XCS_EXPORT int64_t xcsBlocksInUse(void) {
  return g_inUse.load(std::memory_order_relaxed);
}

}  // extern "C"
