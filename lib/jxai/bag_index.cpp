#include "bag_index.hpp"

#include <jx/jxcs.h>
#include <string.h>

#include <algorithm>

#include "call_frame.hpp"
#include "fill_ahead.hpp"

namespace jxai {
namespace {

constexpr int32_t kFirstLinkCapacity = ZAI_INITIAL_ITEMS;
constexpr uint32_t kFirstTableSize = 32;
constexpr int32_t kFirstDenseCapacity = 32;
// The array starts at the first system selector, so that the system items of
// every bag need no table.
constexpr int32_t kDenseBase = JXSYS_FIRST;
constexpr int64_t kDenseSlotsPerItem = 4;
constexpr int32_t kFirstSystemCapacity = 16;
constexpr uint32_t kHashMultiplier = 0x9E3779B9u;  // Fibonacci hashing
// The index's storage is tagged as the lookup's, which it serves.
constexpr uint16_t kStorageTag = kFn_zaiFindSelector;

// Every slot of a zeroed table or array starts absent (count 0).
template <typename T>
T *getZeroedStorage(size_t count) {
  void *block = nullptr;
  return xcsGetZeroedMem(kComponent, kStorageTag, count * sizeof(T), &block) == XCS_OK
             ? static_cast<T *>(block)
             : nullptr;
}

void freeStorage(void *block) {
  xcsFreeMem(kComponent, block);
}

// The array slot of a selector; selectors below the base wrap to slots far
// beyond any capacity.
uint32_t denseSlot(int32_t selector) {
  return static_cast<uint32_t>(selector) - static_cast<uint32_t>(kDenseBase);
}

bool isDense(const BagIndex &ix, int32_t selector) {
  return denseSlot(selector) < static_cast<uint32_t>(ix.denseCapacity);
}

// Selectors the array does not cover are often runs (2001, 2002, ...), and
// runs placed side by side would make one long cluster that every removal
// walks to its end: Fibonacci hashing spreads them.
uint32_t home(const BagIndex &ix, int32_t selector) {
  return (static_cast<uint32_t>(selector) * kHashMultiplier) >> (32 - ix.tableBits);
}

// The table slot holding the selector's entry, or the free slot ending its
// probe run.
uint32_t probe(const BagIndex &ix, int32_t selector) {
  if (ix.memoValid && ix.memoSelector == selector) return ix.memoSlot;
  uint32_t i = home(ix, selector);
  while (ix.table[i].occ.count != 0 && ix.table[i].selector != selector) {
    i = (i + 1) & ix.tableMask;
  }
  ix.memoSelector = selector;
  ix.memoSlot = i;
  ix.memoValid = 1;
  return i;
}

Occurrences *lookup(const BagIndex &ix, int32_t selector) {
  if (isDense(ix, selector)) {
    Occurrences &o = ix.dense[denseSlot(selector)];
    return o.count != 0 ? &o : nullptr;
  }
  if (!ix.table) return nullptr;
  SelectorEntry &e = ix.table[probe(ix, selector)];
  return e.occ.count != 0 ? &e.occ : nullptr;
}

// Takes the place of an absent selector; the caller sets the count.
Occurrences *insertNew(BagIndex &ix, int32_t selector) {
  if (isDense(ix, selector)) return &ix.dense[denseSlot(selector)];
  SelectorEntry &e = ix.table[probe(ix, selector)];
  ix.tableUsed++;
  e.selector = selector;
  // Other selectors' free slots may be taken now; this one's entry stays.
  ix.memoSelector = selector;
  return &e.occ;
}

// Backward-shift deletion keeps every table entry reachable from its home
// slot without tombstones.
void erase(BagIndex &ix, int32_t selector, Occurrences *occ) {
  if (isDense(ix, selector)) {
    occ->count = 0;
    return;
  }
  const uint32_t mask = ix.tableMask;
  uint32_t hole = static_cast<uint32_t>(probe(ix, selector));
  for (uint32_t j = (hole + 1) & mask; ix.table[j].occ.count != 0; j = (j + 1) & mask) {
    const uint32_t h = home(ix, ix.table[j].selector);
    if (((j - h) & mask) >= ((j - hole) & mask)) {
      ix.table[hole] = ix.table[j];
      hole = j;
    }
  }
  ix.table[hole].occ.count = 0;
  ix.tableUsed--;
  ix.memoValid = 0;
}

// A table of `size` slots holding the entries of the current one that
// `keep` accepts; null when storage is not obtained.
template <typename Keep>
SelectorEntry *rebuiltTable(const BagIndex &ix, uint32_t size, BagIndex &into, Keep keep) {
  SelectorEntry *table = getZeroedStorage<SelectorEntry>(size);
  if (!table) return nullptr;
  into = ix;
  into.table = table;
  into.tableMask = size - 1;
  into.tableBits = static_cast<uint32_t>(__builtin_ctz(size));
  into.tableUsed = 0;
  into.memoValid = 0;      // it named a slot of the old table
  into.denseCapacity = 0;  // every entry goes to the table
  if (ix.table) {
    for (uint32_t i = 0; i <= ix.tableMask; ++i) {
      const SelectorEntry &e = ix.table[i];
      if (e.occ.count != 0 && keep(e.selector)) *insertNew(into, e.selector) = e.occ;
    }
  }
  into.denseCapacity = ix.denseCapacity;
  return table;
}

bool growTable(BagIndex &ix) {
  const uint32_t size = ix.table ? (ix.tableMask + 1) * 2 : kFirstTableSize;
  BagIndex grown;
  if (!rebuiltTable(ix, size, grown, [](int32_t) { return true; })) return false;
  freeStorage(ix.table);
  ix = grown;
  return true;
}

// Whether the array may grow to cover this selector: at most a fixed number
// of slots per item.
int64_t denseCapacityFor(int32_t selector) {
  const uint32_t slot = denseSlot(selector);
  if (slot < static_cast<uint32_t>(kFirstDenseCapacity)) return kFirstDenseCapacity;
  return int64_t{2} << (31 - __builtin_clz(slot));  // the power of two above slot
}

// Grows the array to cover the selector and moves the table entries it now
// covers into it. False, with the index unchanged, when storage is not
// obtained.
bool growDense(BagIndex &ix, int64_t capacity) {
  const auto covered = [&](int32_t s) { return denseSlot(s) < capacity; };
  int32_t moving = 0;
  if (ix.table) {
    for (uint32_t i = 0; i <= ix.tableMask; ++i) {
      if (ix.table[i].occ.count != 0 && covered(ix.table[i].selector)) moving++;
    }
  }
  BagIndex grown = ix;
  if (moving > 0 &&
      !rebuiltTable(ix, ix.tableMask + 1, grown, [&](int32_t s) { return !covered(s); })) {
    return false;
  }
  void *block = ix.dense;
  if (xcsGrowZeroedMem(kComponent, kStorageTag,
                       static_cast<size_t>(ix.denseCapacity) * sizeof(Occurrences),
                       static_cast<size_t>(capacity) * sizeof(Occurrences), &block) != XCS_OK) {
    if (moving > 0) freeStorage(grown.table);
    return false;
  }
  auto *dense = static_cast<Occurrences *>(block);
  if (moving > 0) {
    for (uint32_t i = 0; i <= ix.tableMask; ++i) {
      const SelectorEntry &e = ix.table[i];
      if (e.occ.count != 0 && covered(e.selector)) dense[denseSlot(e.selector)] = e.occ;
    }
    freeStorage(ix.table);
  }
  grown.dense = dense;
  grown.denseCapacity = static_cast<int32_t>(capacity);
  grown.memoValid = 0;
  ix = grown;
  return true;
}

// Makes a place for an absent selector: in the array when it may cover it,
// else in the table.
bool reservePlace(BagIndex &ix, int32_t itemCount, int32_t selector) {
  if (isDense(ix, selector)) return true;
  if (selector >= kDenseBase) {
    const int64_t capacity = denseCapacityFor(selector);
    if (capacity <= kFirstDenseCapacity ||
        capacity <= kDenseSlotsPerItem * (int64_t{itemCount} + 1)) {
      return growDense(ix, capacity);
    }
  }
  if (ix.table && (int64_t{ix.tableUsed} + 1) * 4 <= (int64_t{ix.tableMask} + 1) * 3) return true;
  return growTable(ix);
}

// Doubles an array, keeping its contents; the places it adds read as zero.
template <typename T>
bool growArray(T *&array, int32_t &capacity, int32_t first) {
  const int64_t wanted = capacity ? int64_t{capacity} * 2 : first;
  if (wanted > INT32_MAX) return false;
  void *block = array;
  if (xcsGrowZeroedMem(kComponent, kStorageTag, static_cast<size_t>(capacity) * sizeof(T),
                       static_cast<size_t>(wanted) * sizeof(T), &block) != XCS_OK) {
    return false;
  }
  array = static_cast<T *>(block);
  capacity = static_cast<int32_t>(wanted);
  return true;
}

int32_t systemFrom(const BagIndex &ix, int32_t start) {
  return static_cast<int32_t>(std::lower_bound(ix.system, ix.system + ix.systemCount, start) -
                              ix.system);
}

int32_t last(const BagIndex &ix, const Occurrences &e) {
  return e.first + ix.links[e.first].prev;
}

// Walks `steps` occurrences forward (or backward) from position p.
int32_t walk(const BagIndex &ix, int32_t p, int32_t steps, bool forward) {
  while (steps-- > 0) p += forward ? ix.links[p].next : ix.links[p].prev;
  return p;
}

// Earliest occurrence at or after start (from the last one backwards), and
// how many occurrences lie there.
IndexMatch fromStart(const BagIndex &ix, const Occurrences &e, int32_t start) {
  IndexMatch m{-1, 0};
  int32_t p = last(ix, e);
  while (m.candidates < e.count && p >= start) {
    m.position = p;
    m.candidates++;
    p += ix.links[p].prev;
  }
  return m;
}

}  // namespace

bool indexReserve(BagIndex &ix, int32_t itemCount, int32_t selector) {
  if (itemCount >= ix.linkCapacity && !growArray(ix.links, ix.linkCapacity, kFirstLinkCapacity)) {
    return false;
  }
  // The first item (a system item of a new bag) brings the array for the
  // system and the first user selectors, as the vector comes with its first
  // places.
  if (!ix.dense && !growDense(ix, kFirstDenseCapacity)) return false;
  if (!lookup(ix, selector) && !reservePlace(ix, itemCount, selector)) return false;
  if (selector < 0 && ix.systemCount == ix.systemCapacity &&
      !growArray(ix.system, ix.systemCapacity, kFirstSystemCapacity)) {
    return false;
  }
  return true;
}

// Links past the last item are kept at {0, 0}, the links of an item whose
// selector occurs once: a bag of distinct selectors never writes its links,
// and their pages are never touched.
void indexAppend(BagIndex &ix, int32_t selector, int32_t position) {
  Occurrences *e = lookup(ix, selector);
  if (!e) {
    e = insertNew(ix, selector);
    if (isDense(ix, selector) && fillsAhead(static_cast<size_t>(ix.denseCapacity) * sizeof *e)) {
      fillAhead(e, sizeof *e, ix.dense + ix.denseCapacity);
    }
    e->count = 1;
    e->first = position;
  } else {
    if (fillsAhead(static_cast<size_t>(ix.linkCapacity) * sizeof(ItemLink))) {
      fillAhead(&ix.links[position], sizeof(ItemLink), ix.links + ix.linkCapacity);
    }
    const int32_t f = e->first;
    const int32_t l = last(ix, *e);
    ix.links[l].next = position - l;
    ix.links[position] = {l - position, f - position};
    ix.links[f].prev = position - f;
    e->count++;
  }
  if (selector < 0) ix.system[ix.systemCount++] = position;
}

void indexRemove(BagIndex &ix, const zaiVECTOR *items, int32_t selector, int32_t k) {
  const int32_t oldCount = items->Count + 1;
  Occurrences *e = lookup(ix, selector);
  if (e->count == 1) {
    erase(ix, selector, e);
  } else {
    const int32_t p = k + ix.links[k].prev;
    const int32_t n = k + ix.links[k].next;
    ix.links[p].next = n - p;
    ix.links[n].prev = p - n;
    if (e->first == k) e->first = n;
    e->count--;
  }
  // Items after k move down one place: only links that cross k change, and
  // first positions after k.
  for (int32_t p = k + 1; p < oldCount; ++p) {
    ItemLink &l = ix.links[p];
    if (l.prev >= 0) {
      // The first occurrence is the one whose ring predecessor (the last) is
      // not before it.
      const auto *item = static_cast<const zaiPROPERTY *>(zaiVectorAt(items, p - 1));
      lookup(ix, item->Selector)->first--;
    } else if (p + l.prev < k) {
      ix.links[p + l.prev].next--;
      l.prev++;
    }
    if (p + l.next < k) {
      ix.links[p + l.next].prev--;
      l.next++;
    }
  }
  if (k + 1 < oldCount) {
    memmove(ix.links + k, ix.links + k + 1,
            static_cast<size_t>(oldCount - k - 1) * sizeof(ItemLink));
  }
  ix.links[oldCount - 1] = {0, 0};

  // Most removals come after every system item: nothing there to move.
  if (selector >= 0 && (ix.systemCount == 0 || ix.system[ix.systemCount - 1] < k)) return;
  int32_t i = systemFrom(ix, k);
  if (selector < 0) {
    memmove(ix.system + i, ix.system + i + 1,
            static_cast<size_t>(ix.systemCount - i - 1) * sizeof(int32_t));
    ix.systemCount--;
  }
  for (; i < ix.systemCount; ++i) ix.system[i]--;
}

void indexRelease(BagIndex &ix) {
  freeStorage(ix.links);
  freeStorage(ix.dense);
  freeStorage(ix.table);
  freeStorage(ix.system);
  ix = BagIndex{};
}

IndexMatch indexFind(const BagIndex &ix, int32_t itemCount, int32_t start, int32_t selector,
                     int32_t index) {
  start = std::max(start, 0);
  const int32_t remaining = std::max(itemCount - start, 0);
  switch (selector) {
    case JXSEL_ANY:
      if (index < remaining) return {start + index, remaining};
      return {-1, remaining};
    case JXSEL_SYSTEM: {
      const int32_t i0 = systemFrom(ix, start);
      const int32_t available = ix.systemCount - i0;
      if (index < available) return {ix.system[i0 + index], available};
      return {-1, available};
    }
    case JXSEL_USER: {
      const int32_t i0 = systemFrom(ix, start);
      const int32_t available = remaining - (ix.systemCount - i0);
      if (index >= available) return {-1, available};
      // Every system item at or before the candidate pushes it one further.
      int32_t p = start + index;
      for (int32_t i = i0; i < ix.systemCount && ix.system[i] <= p; ++i) ++p;
      return {p, available};
    }
    default:
      break;
  }
  const Occurrences *e = lookup(ix, selector);
  if (!e) return {-1, 0};
  if (start == 0) {
    if (index >= e->count) return {-1, e->count};
    // From whichever end is nearer.
    const int32_t p = index <= e->count / 2 ? walk(ix, e->first, index, true)
                                            : walk(ix, last(ix, *e), e->count - 1 - index, false);
    return {p, e->count};
  }
  IndexMatch m = fromStart(ix, *e, start);
  if (index >= m.candidates) return {-1, m.candidates};
  m.position = walk(ix, m.position, index, true);
  return m;
}

int32_t indexCount(const BagIndex &ix, int32_t itemCount, int32_t start, int32_t selector) {
  start = std::max(start, 0);
  const int32_t remaining = std::max(itemCount - start, 0);
  switch (selector) {
    case JXSEL_ANY:
      return remaining;
    case JXSEL_SYSTEM:
      return ix.systemCount - systemFrom(ix, start);
    case JXSEL_USER:
      return remaining - (ix.systemCount - systemFrom(ix, start));
    default:
      break;
  }
  const Occurrences *e = lookup(ix, selector);
  if (!e) return 0;
  return start == 0 ? e->count : fromStart(ix, *e, start).candidates;
}

}  // namespace jxai
