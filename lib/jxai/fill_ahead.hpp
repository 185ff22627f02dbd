// Large arrays that fill in order (a bag's item places, its index links)
// commit their pages a stretch ahead of the fill, in one call a stretch,
// instead of taking a page fault for every page they reach.
#pragma once

#include <jx/jxcs.h>
#include <stddef.h>
#include <stdint.h>

namespace jxai {

inline constexpr size_t kFillStretch = size_t{128} << 10;

// Whether a block of this length fills a stretch at all: smaller ones are
// left to fault, which costs less than a call.
inline bool fillsAhead(size_t blockLength) {
  return blockLength >= kFillStretch;
}

// After a block grew, before it is written from `front` on: its pages up to
// a stretch beyond the front (those it kept cost only a look).
inline void commitFrom(void *block, size_t front, size_t blockLength) {
  if (!fillsAhead(blockLength)) return;
  const size_t end = front + kFillStretch < blockLength ? front + kFillStretch : blockLength;
  xcsCommitMem(block, end);
}

// Before `size` bytes are written at `at`, in a block that fills ahead and
// ends at `end`: when they enter a stretch not reached before, that stretch
// is committed, as far as the block goes.
inline void fillAhead(void *at, size_t size, const void *end) {
  const uintptr_t first = reinterpret_cast<uintptr_t>(at);
  const uintptr_t stretch = (first + size - 1) & ~(uintptr_t{kFillStretch} - 1);
  if (stretch < first) return;
  const uintptr_t limit = reinterpret_cast<uintptr_t>(end);
  const uintptr_t stop = limit - stretch < kFillStretch ? limit : stretch + kFillStretch;
  xcsCommitMem(reinterpret_cast<void *>(stretch), stop - stretch);
}

}  // namespace jxai
