#include "vector.hpp"

#include <jx/jxcs.h>
#include <string.h>

#include "call_frame.hpp"
#include "fill_ahead.hpp"

namespace {

using jxai::commitFrom;
using jxai::fillAhead;
using jxai::fillsAhead;
using jxai::kComponent;
using jxai::LeafFrame;

// How far ahead of the place being filled an add asks for the cache line.
constexpr int32_t kPlacesAhead = 16;
constexpr int32_t kAheadFrom = 1024;

// Dumps of a block that failed its eye-catcher test cover this many bytes.
constexpr uint32_t kBadBlockDumpLength = 64;

int32_t roundUp4(int32_t n) {
  return (n + 3) & ~3;
}

void recordFault(uint16_t function, uint32_t error, const char *label, const void *address,
                 uint32_t length, uint32_t insert1) {
  xcsDUMPLIST dumps = {};
  xcsBuildDumpPtr(&dumps, 1, label, address, length);
  xcsINSERTS inserts = {};
  memcpy(inserts.StrucId, XCS_INSERTS_EYE, sizeof inserts.StrucId);
  inserts.Num1 = insert1;
  xcsRecordFailure(kComponent, function, 0, error, &inserts, &dumps, 0, 0);
}

bool eyeOk(uint16_t function, const zaiVECTOR *v) {
  if (memcmp(v->StrucId, ZAI_VECTOR_EYE, sizeof v->StrucId) == 0) return true;
  recordFault(function, ZAI_VEC_BAD_BLOCK, "Invalid zaiVECTOR", v, kBadBlockDumpLength, 0);
  return false;
}

// The index test also runs on a block that failed the eye-catcher test; its
// recorded length then comes from a foreign block, so the dump is capped.
bool indexOk(uint16_t function, const zaiVECTOR *v, int32_t index) {
  if (index >= 0 && index <= v->Count - 1) return true;
  uint32_t length = static_cast<uint32_t>(v->Length);
  if (length > kBadBlockDumpLength) length = kBadBlockDumpLength;
  recordFault(function, ZAI_VEC_BAD_INDEX, "Invalid index", v, length,
              static_cast<uint32_t>(index));
  return false;
}

// Points every slot at its place: the places follow the slot table.
void layOutSlots(void **slots, int32_t capacity, int32_t stride) {
  char *places = reinterpret_cast<char *>(slots + capacity);
  for (int32_t i = 0; i < capacity; ++i) slots[i] = places + static_cast<size_t>(i) * stride;
}

size_t dataBlockSize(int64_t capacity, int32_t stride) {
  return static_cast<size_t>(capacity) * (static_cast<size_t>(stride) + sizeof(void *));
}

// Largest data block a vector asks for: far beyond any real bag, and within
// what every allocator (sanitizers' included) can be asked for.
constexpr uint64_t kMaxDataBlock = uint64_t{1} << (sizeof(void *) == 8 ? 40 : 31);

bool fits(int64_t capacity, int32_t stride) {
  return capacity <= INT32_MAX &&
         static_cast<uint64_t>(capacity) * (static_cast<uint64_t>(stride) + sizeof(void *)) <=
             kMaxDataBlock;
}

}  // namespace

extern "C" {

int32_t zaiVectorCreate(int32_t initialSpace, int32_t elementSize, zaiVECTOR **ppVector) {
  int32_t rc = ZAI_VEC_OK;
  LeafFrame frame(kFn_zaiVectorCreate, &rc);
  frame.parms("InitialSpace:%d, ElementSize:%d", initialSpace, elementSize);

  if (initialSpace < 0 || elementSize < 0 || elementSize > INT32_MAX - 3) {
    return rc = ZAI_VEC_NO_STORAGE;
  }
  const int32_t stride = roundUp4(elementSize);
  void *data = nullptr;
  if (!fits(initialSpace, stride) ||
      xcsGetMem(kComponent, kFn_zaiVectorCreate, dataBlockSize(initialSpace, stride), &data) !=
          XCS_OK) {
    return rc = ZAI_VEC_NO_STORAGE;
  }
  void *block = nullptr;
  if (xcsGetMem(kComponent, kFn_zaiVectorCreate, sizeof(zaiVECTOR), &block) != XCS_OK) {
    xcsFreeMem(kComponent, data);
    return rc = ZAI_VEC_NO_STORAGE;
  }
  zaiVECTOR *v = static_cast<zaiVECTOR *>(block);
  memcpy(v->StrucId, ZAI_VECTOR_EYE, sizeof v->StrucId);
  v->Length = sizeof(zaiVECTOR);
  v->Capacity = initialSpace;
  v->Count = 0;
  v->ElementSize = elementSize;
  v->Stride = stride;
  v->Slots = static_cast<void **>(data);
  layOutSlots(v->Slots, initialSpace, stride);
  *ppVector = v;
  return rc;
}

int32_t zaiVectorDestroy(zaiVECTOR *pVector) {
  int32_t rc = ZAI_VEC_OK;
  LeafFrame frame(kFn_zaiVectorDestroy, &rc);
  frame.parms("pVector:%.8lX", reinterpret_cast<unsigned long>(pVector));
  if (!eyeOk(kFn_zaiVectorDestroy, pVector)) return rc = ZAI_VEC_BAD_BLOCK;
  xcsFreeMem(kComponent, pVector->Slots);
  xcsFreeMem(kComponent, pVector);
  return rc;
}

int32_t zaiVectorAdd(zaiVECTOR *pVector, const void *pElement) {
  int32_t rc = ZAI_VEC_OK;
  LeafFrame frame(kFn_zaiVectorAdd, &rc);
  frame.parms("pVector:%.8lX, pElement:%.8lX", reinterpret_cast<unsigned long>(pVector),
              reinterpret_cast<unsigned long>(pElement));
  if (!eyeOk(kFn_zaiVectorAdd, pVector)) return rc = ZAI_VEC_BAD_BLOCK;

  zaiVECTOR *v = pVector;
  if (v->Count == v->Capacity) {
    // A vector created empty still has to grow.
    const int64_t capacity = v->Capacity ? int64_t{v->Capacity} * 2 : 1;
    void *data = v->Slots;
    if (!fits(capacity, v->Stride) ||
        xcsGrowMem(kComponent, kFn_zaiVectorAdd, dataBlockSize(capacity, v->Stride), &data) !=
            XCS_OK) {
      return rc = ZAI_VEC_NO_STORAGE;
    }
    // The block grows in place or moves with its pages; the places then move
    // up past the doubled slot table.
    void **slots = static_cast<void **>(data);
    const size_t kept = static_cast<size_t>(v->Capacity) * v->Stride;
    commitFrom(data, static_cast<size_t>(capacity) * sizeof(void *) + kept,
               dataBlockSize(capacity, v->Stride));
    memmove(slots + capacity, slots + v->Capacity, kept);
    v->Slots = slots;
    v->Capacity = static_cast<int32_t>(capacity);
    layOutSlots(slots, v->Capacity, v->Stride);
  }
  // Places fill in order: asking for a later one now has a large vector's
  // places in the cache by the time they are written. A small vector's
  // block is in the cache already, and its places beyond the count may
  // never be written.
  if (v->Count >= kAheadFrom && v->Count + kPlacesAhead < v->Capacity) {
    __builtin_prefetch(zaiVectorAt(v, v->Count + kPlacesAhead), 1);
  }
  void *place = zaiVectorAt(v, v->Count);
  const size_t blockLength = dataBlockSize(v->Capacity, v->Stride);
  if (fillsAhead(blockLength)) {
    fillAhead(place, v->ElementSize, reinterpret_cast<char *>(v->Slots) + blockLength);
  }
  memcpy(place, pElement, static_cast<size_t>(v->ElementSize));
  v->Count++;
  return rc;
}

int32_t zaiVectorRemoveAt(zaiVECTOR *pVector, int32_t index) {
  int32_t rc = ZAI_VEC_OK;
  LeafFrame frame(kFn_zaiVectorRemoveAt, &rc);
  frame.parms("pVector:%.8lX, index:%d", reinterpret_cast<unsigned long>(pVector), index);
  if (!eyeOk(kFn_zaiVectorRemoveAt, pVector)) rc = ZAI_VEC_BAD_BLOCK;
  if (!indexOk(kFn_zaiVectorRemoveAt, pVector, index)) rc = ZAI_VEC_BAD_INDEX;
  if (rc != ZAI_VEC_OK) return rc;

  zaiVECTOR *v = pVector;
  if (index < v->Count - 1) {
    memmove(zaiVectorAt(v, index), zaiVectorAt(v, index + 1),
            static_cast<size_t>(v->Count - index - 1) * v->Stride);
  }
  v->Count--;
  return rc;
}

int32_t zaiVectorSetAt(zaiVECTOR *pVector, const void *pElement, int32_t index) {
  int32_t rc = ZAI_VEC_OK;
  LeafFrame frame(kFn_zaiVectorSetAt, &rc);
  frame.parms("pVector:%.8lX, pElement:%.8lX, index:%d", reinterpret_cast<unsigned long>(pVector),
              reinterpret_cast<unsigned long>(pElement), index);
  if (!eyeOk(kFn_zaiVectorSetAt, pVector)) rc = ZAI_VEC_BAD_BLOCK;
  if (!indexOk(kFn_zaiVectorSetAt, pVector, index)) rc = ZAI_VEC_BAD_INDEX;
  if (rc != ZAI_VEC_OK) return rc;
  // The whole stride is copied: callers pass elements that provide it.
  memcpy(zaiVectorAt(pVector, index), pElement, static_cast<size_t>(pVector->Stride));
  return rc;
}

}  // extern "C"
