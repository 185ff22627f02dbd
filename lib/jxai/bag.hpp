// Bags and their items: the control block, the item record, and the workers
// every bag call and the PCF codec are built from. Workers take resolved
// control blocks and the caller's completion code and reason.
//
// Items are read directly through the vector (zaiVectorAt), and an item's
// value may be changed in place, but items are added and removed only
// through these workers: they keep the selector index beside the vector
// (bag_index.hpp). The vector never leaves an empty slot, so the empty-slot
// cases of a scan cannot arise.
#pragma once

#include <jx/jxai.h>
#include <stdint.h>
#include <string.h>

#include "vector.hpp"

extern "C" {

#define ZAI_BAG_EYE "ZABG"
#define ZAI_PROPERTY_EYE "ZAPR"
#define ZAI_FREED_MARK '?'   /* first byte of a freed bag block */
#define ZAI_INITIAL_ITEMS 40 /* item places of a new bag */

typedef struct zaiBAG {
  char StrucId[4];        /* "ZABG" */
  int32_t SystemBag;      /* option 32: callers may read but not change */
  int32_t AdminBag;       /* option 1 */
  int32_t CommandBag;     /* option 16 */
  int32_t Reorder;        /* option 4 or 1: required parameters first */
  int32_t ListForm;       /* option 2 or 1: repeated items as lists */
  int32_t CheckSelectors; /* option 8 or 1: user selectors range-checked */
  zaiVECTOR *Items;       /* zaiPROPERTY records in insertion order */
} zaiBAG;

typedef struct zaiPROPERTY {
  char StrucId[4]; /* "ZAPR" */
  int32_t Selector;
  int32_t Type; /* JXITEM_INTEGER, JXITEM_STRING, JXITEM_BAG */
  union {
    int32_t Integer;
    char *String; /* copy from common storage, null when the length is 0 */
    JXHBAG Bag;
  } Value;
  int32_t StringLength;
  int32_t StringCCSID;
} zaiPROPERTY;

#if defined(__i386__)
static_assert(sizeof(zaiBAG) == 32, "bag control block is 32 bytes on i386");
static_assert(sizeof(zaiPROPERTY) == 24, "item record is 24 bytes on i386");
#endif

JXAI_EXPORT void zaiCreateBag(JXLONG options, zaiBAG **ppBag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiDeleteBag(zaiBAG **ppBag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiAddDefaultSystemItems(zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiCheckSelector(zaiBAG *bag, JXLONG selector, JXLONG type, PJXLONG cc,
                                  PJXLONG rc);
JXAI_EXPORT void zaiCheckUniqueSelector(zaiBAG *bag, JXLONG selector, PJXLONG cc, PJXLONG rc);
/* The record of the index-th occurrence counted from position `start`
 * (meaningful only when *cc is 0). *position receives the match's position;
 * it holds `start` when nothing matched and is untouched when the index or
 * uniqueness check failed. */
JXAI_EXPORT zaiPROPERTY *zaiFindSelector(zaiBAG *bag, JXLONG start, JXLONG selector,
                                         JXLONG itemIndex, PJXLONG position, PJXLONG cc,
                                         PJXLONG rc);
JXAI_EXPORT void zaiFreeItem(zaiBAG *bag, JXLONG position, PJXLONG cc, PJXLONG rc);

JXAI_EXPORT void zaiAddInteger(zaiBAG *bag, JXLONG selector, JXLONG value, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiSetInteger(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG value,
                               PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiInquireInteger(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, PJXLONG value,
                                   PJXLONG cc, PJXLONG rc);

JXAI_EXPORT void zaiAddString(zaiBAG *bag, JXLONG selector, JXLONG length, const char *bytes,
                              JXLONG ccsid, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiSetString(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG length,
                              const char *bytes, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiInquireString(zaiBAG *bag, JXLONG selector, JXLONG itemIndex,
                                  JXLONG bufferLength, char *buffer, PJXLONG stringLength,
                                  PJXLONG ccsid, PJXLONG cc, PJXLONG rc);

JXAI_EXPORT void zaiAddBag(zaiBAG *bag, JXLONG selector, JXHBAG nested, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiInquireBag(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, PJXHBAG nested,
                               PJXLONG cc, PJXLONG rc);

JXAI_EXPORT void zaiInquireItemInfo(zaiBAG *bag, JXLONG selector, JXLONG itemIndex,
                                    PJXLONG outSelector, PJXLONG itemType, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT JXLONG zaiCountItems(zaiBAG *bag, JXLONG start, JXLONG selector);
JXAI_EXPORT void zaiDeleteItem(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG forced,
                               PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiClearBag(zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiTruncateBag(zaiBAG *bag, JXLONG count, PJXLONG cc, PJXLONG rc);

/* Lists every item of the bag in the trace, attributed to the caller. */
JXAI_EXPORT void zaiTraceBagContents(uint16_t component, uint16_t function, zaiBAG *bag);
}

namespace jxai {
// Resolves a caller's handle: null for -2, odd handles, unreadable blocks and
// blocks without "ZABG" (the caller reports 2320).
zaiBAG *resolveBag(JXHBAG handle);
// Whether an address holds a usable bag control block.
bool isBagBlock(const zaiBAG *bag);
inline JXHBAG handleOf(const zaiBAG *bag) {
  return static_cast<JXHBAG>(reinterpret_cast<intptr_t>(bag));
}
inline zaiBAG *blockOf(JXHBAG handle) {
  return (handle & 1) ? nullptr : reinterpret_cast<zaiBAG *>(static_cast<intptr_t>(handle));
}
inline bool isWildcard(JXLONG selector) {
  return selector == JXSEL_ANY || selector == JXSEL_USER || selector == JXSEL_SYSTEM;
}
inline bool isSystemSelector(JXLONG selector) {
  return selector >= JXSYS_FIRST && selector <= JXSYS_LAST;
}
inline zaiPROPERTY *itemAt(const zaiBAG *bag, JXLONG position) {
  return static_cast<zaiPROPERTY *>(zaiVectorAt(bag->Items, position));
}
// A bag's item records by position, for walks over many of them: found from
// the vector's first place, as the item vector's stride is the record's.
class ItemRecords {
 public:
  static constexpr size_t kStride = (sizeof(zaiPROPERTY) + 3) & ~size_t{3};
  explicit ItemRecords(const zaiBAG *bag) : first_(zaiVectorFirstPlace(bag->Items)) {}
  zaiPROPERTY *operator[](int32_t position) const {
    return reinterpret_cast<zaiPROPERTY *>(first_ + static_cast<size_t>(position) * kStride);
  }

 private:
  char *first_;
};
inline zaiPROPERTY newItem(JXLONG selector, JXLONG type) {
  zaiPROPERTY item = {};
  memcpy(item.StrucId, ZAI_PROPERTY_EYE, sizeof item.StrucId);
  item.Selector = selector;
  item.Type = type;
  return item;
}
// The itemIndex-th occurrence of the selector when it has the given type;
// null with the lookup's failure, or 2312 for another type.
zaiPROPERTY *findItemOfType(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG type, PJXLONG cc,
                            PJXLONG rc);
// Whether an item of this type may be added under the selector: the first
// occurrence, if any, must have the same type (else 2313); an absent selector
// is not a failure. Other lookup failures are left in cc and rc.
bool mayAddType(zaiBAG *bag, JXLONG selector, JXLONG type, PJXLONG cc, PJXLONG rc);
// Appends an item and records it in the index; 2071 when storage runs out,
// with the bag unchanged.
bool appendItem(zaiBAG *bag, const zaiPROPERTY &item, PJXLONG cc, PJXLONG rc);
// Whether a nested bag's handle names a system bag (an unusable one is not).
bool isNestedSystemBag(JXHBAG handle);
}  // namespace jxai
