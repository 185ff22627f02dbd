// The growable vector a bag keeps its items in: elements stored by value in
// one block, reached through a slot table, capacity doubled when full.
#pragma once

#include <jx/jxai.h>
#include <stddef.h>
#include <stdint.h>

extern "C" {

#define ZAI_VECTOR_EYE "ZVEC"
#define ZAI_VEC_OK 0
#define ZAI_VEC_NO_STORAGE 0x20805451 /* storage not obtained */
#define ZAI_VEC_BAD_BLOCK 0x20805452  /* block does not start with "ZVEC" */
#define ZAI_VEC_BAD_INDEX 0x20805453  /* index out of range */

typedef struct zaiVECTOR {
  char StrucId[4];     /* "ZVEC" */
  int32_t Length;      /* length of this control block */
  int32_t Capacity;    /* element places allocated */
  int32_t Count;       /* elements in use */
  int32_t ElementSize; /* bytes per element as given at creation */
  int32_t Stride;      /* element size rounded up to a multiple of 4 */
  void **Slots;        /* data block: Capacity addresses, then the places */
} zaiVECTOR;

#if defined(__i386__)
static_assert(sizeof(zaiVECTOR) == 28, "vector control block is 28 bytes on i386");
#endif

JXAI_EXPORT int32_t zaiVectorCreate(int32_t initialSpace, int32_t elementSize,
                                    zaiVECTOR **ppVector);
JXAI_EXPORT int32_t zaiVectorDestroy(zaiVECTOR *pVector);
JXAI_EXPORT int32_t zaiVectorAdd(zaiVECTOR *pVector, const void *pElement);
JXAI_EXPORT int32_t zaiVectorRemoveAt(zaiVECTOR *pVector, int32_t index);
JXAI_EXPORT int32_t zaiVectorSetAt(zaiVECTOR *pVector, const void *pElement, int32_t index);
}

// Places are laid out once per data block, in order and one stride apart,
// right after the slot table; elements move between places, places never
// move. So place i is also i strides after the first place: the library
// finds it from the control block alone, without reading the slot table.
inline char *zaiVectorFirstPlace(const zaiVECTOR *v) {
  return reinterpret_cast<char *>(v->Slots + v->Capacity);
}

// Element i of a vector, for 0 <= i < Count (the same address as Slots[i]).
inline void *zaiVectorAt(const zaiVECTOR *v, int32_t i) {
  return zaiVectorFirstPlace(v) + static_cast<size_t>(i) * static_cast<size_t>(v->Stride);
}
