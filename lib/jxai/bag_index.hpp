// The selector index kept beside a bag's item vector, so that the n-th
// occurrence of a selector, the count of a selector and the uniqueness test
// do not scan the whole bag.
//
// Where it lives: the bag control block layout is fixed, so the index header
// sits right after it in the same allocation (BagBlock below): one xcsGetMem
// per bag, found from the block by address arithmetic, nothing global and no
// lock. Its arrays come from common services like every other block of the
// bag. Running out of storage gives 2071 with the bag unchanged.
//
// What it holds, for a vector of n items:
// - links[p], for every position p: the offsets from p to the previous and
//   the next occurrence of the same selector, on a ring (the first
//   occurrence's previous is the last). Offsets rather than positions, so a
//   removal at k changes only the links that cross k and costs O(n - k), like
//   the vector's own move; removing the last item is O(1).
// - for the selectors from the first system selector up, an array indexed by
//   the selector: its occurrence count and first position. Its first 32
//   slots come with a bag's system items. It covers a new selector when at
//   most four slots per item result, so bags of close selectors (the usual
//   case) need no hashing at all, and a bag of a few far-apart selectors does
//   not get a large array.
// - for every other selector, an open-addressing table selector -> (count,
//   first position), linear probing with backward-shift deletion, at most 3/4
//   full, spread by Fibonacci hashing so that runs of selectors do not form
//   clusters. Most bags never need it.
// - the sorted positions of the items with negative selectors, from which
//   the n-th system item, the n-th user item and both counts follow.
// The index never records the entry and exit marks: the functions that use
// it keep their own frames, so what a trace or the function history shows is
// unchanged.
#pragma once

#include <stdint.h>

#include "bag.hpp"

namespace jxai {

struct ItemLink {
  int32_t prev;  // offset to the previous occurrence on the ring
  int32_t next;  // offset to the next occurrence on the ring
};

// Where a selector's items are: how many, and the position of the first.
struct Occurrences {
  int32_t count;  // 0: the selector is absent (a free table slot)
  int32_t first;
};

struct SelectorEntry {
  int32_t selector;
  Occurrences occ;
};

struct BagIndex {
  ItemLink *links;
  int32_t linkCapacity;
  // Selectors 0 to denseCapacity - 1, by selector.
  Occurrences *dense;
  int32_t denseCapacity;
  // Every other selector.
  SelectorEntry *table;
  uint32_t tableMask;  // table size - 1 (a power of two), 0 before the first entry
  uint32_t tableBits;  // log2 of the table size
  int32_t tableUsed;
  // The slot of the selector probed last (its entry, or the free slot where
  // it would go): an add looks its selector up three times in a row.
  mutable int32_t memoSelector;
  mutable uint32_t memoSlot;
  mutable int32_t memoValid;
  int32_t *system;  // positions of negative selectors, ascending
  int32_t systemCount;
  int32_t systemCapacity;
};

// A bag's allocation: the control block the rest of the library sees, then
// the index header.
struct BagBlock {
  zaiBAG bag;
  BagIndex index;
};

inline BagIndex &indexOf(zaiBAG *bag) {
  return reinterpret_cast<BagBlock *>(bag)->index;
}

// Makes room for one more item with this selector, so that append cannot
// fail. False when storage is not obtained; the index is then unchanged.
bool indexReserve(BagIndex &ix, int32_t itemCount, int32_t selector);
// Records the item just appended at `position` (== the old item count).
void indexAppend(BagIndex &ix, int32_t selector, int32_t position);
// Forgets the item that was at `position` (already removed from the vector,
// whose count is now one lower); later items move down one place.
void indexRemove(BagIndex &ix, const zaiVECTOR *items, int32_t selector, int32_t position);
// Releases the index arrays.
void indexRelease(BagIndex &ix);

// Result of a lookup: the position of the match, or -1 with the number of
// candidates found from the start position (0: the selector is absent).
struct IndexMatch {
  int32_t position;
  int32_t candidates;
};
// The occurrence `index` (0 and above) counted from `start`, for a plain
// selector or one of the three position wildcards.
IndexMatch indexFind(const BagIndex &ix, int32_t itemCount, int32_t start, int32_t selector,
                     int32_t index);
// Items from `start` on with this selector (or of the wildcard's kind).
int32_t indexCount(const BagIndex &ix, int32_t itemCount, int32_t start, int32_t selector);

}  // namespace jxai
