// Bags: handles, creation and deletion, the system items, selector checks,
// the lookup of an item and the removal of one item.
#include "bag.hpp"

#include <jx/jxcs.h>
#include <stdlib.h>
#include <string.h>

#include "bag_index.hpp"
#include "call_frame.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::Frame;
using jxai::indexOf;
using jxai::kComponent;
using jxai::LeafFrame;
using jxai::setFailure;

namespace jxai {

// Usable for the whole control block and starting "ZABG". Every bag block is
// aligned, so a misaligned address names no bag.
bool isBagBlock(const zaiBAG *bag) {
  return xcsCheckPointer(bag, sizeof(zaiBAG), XCS_CHECK_UPDATE) == 0 &&
         reinterpret_cast<uintptr_t>(bag) % alignof(zaiBAG) == 0 &&
         memcmp(bag, ZAI_BAG_EYE, sizeof bag->StrucId) == 0;
}

zaiBAG *resolveBag(JXHBAG handle) {
  if (handle == JXHB_NONE) return nullptr;
  zaiBAG *bag = blockOf(handle);
  return isBagBlock(bag) ? bag : nullptr;
}

bool appendItem(zaiBAG *bag, const zaiPROPERTY &item, PJXLONG cc, PJXLONG rc) {
  BagIndex &ix = indexOf(bag);
  if (!indexReserve(ix, bag->Items->Count, item.Selector) ||
      zaiVectorAdd(bag->Items, &item) != ZAI_VEC_OK) {
    setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
    return false;
  }
  indexAppend(ix, item.Selector, bag->Items->Count - 1);
  return true;
}

zaiPROPERTY *findItemOfType(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG type, PJXLONG cc,
                            PJXLONG rc) {
  JXLONG position;
  zaiPROPERTY *item = zaiFindSelector(bag, 0, selector, itemIndex, &position, cc, rc);
  if (*cc != JXCC_OK) return nullptr;
  if (item->Type == type) return item;
  setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
  return nullptr;
}

bool mayAddType(zaiBAG *bag, JXLONG selector, JXLONG type, PJXLONG cc, PJXLONG rc) {
  JXLONG position;
  const zaiPROPERTY *first = zaiFindSelector(bag, 0, selector, 0, &position, cc, rc);
  if (*cc == JXCC_OK) {
    if (first->Type == type) return true;
    setFailure(cc, rc, JXRC_INCONSISTENT_TYPE);
    return false;
  }
  if (*rc != JXRC_SELECTOR_NOT_PRESENT) return false;
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  return true;
}

bool isNestedSystemBag(JXHBAG handle) {
  const zaiBAG *nested = resolveBag(handle);
  return nested && nested->SystemBag;
}

}  // namespace jxai

extern "C" {

void zaiCreateBag(JXLONG options, zaiBAG **ppBag, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiCreateBag, rc);
  frame.parms("options:%d ", options);

  // The index header travels in the same block, after the control block.
  void *block = nullptr;
  if (xcsGetMem(kComponent, kFn_zaiCreateBag, sizeof(jxai::BagBlock), &block) != XCS_OK) {
    return setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
  }
  memset(block, 0, sizeof(jxai::BagBlock));
  zaiBAG *bag = static_cast<zaiBAG *>(block);
  // From here on a failure leaves the block (and the vector) behind: that
  // loss is accepted rather than changing what a failure leaves.
  if (zaiVectorCreate(ZAI_INITIAL_ITEMS, sizeof(zaiPROPERTY), &bag->Items) != ZAI_VEC_OK) {
    return setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
  }
  memcpy(bag->StrucId, ZAI_BAG_EYE, sizeof bag->StrucId);
  bag->SystemBag = (options & JXBAG_SYSTEM) != 0;
  if (options & JXBAG_ADMIN) {
    bag->AdminBag = bag->Reorder = bag->ListForm = bag->CheckSelectors = 1;
  } else {
    bag->CommandBag = (options & JXBAG_COMMAND) != 0;
    bag->ListForm = (options & JXBAG_LIST_FORM) != 0;
    bag->Reorder = (options & JXBAG_REORDER) != 0;
    bag->CheckSelectors = (options & JXBAG_CHECK_SELECTORS) != 0;
  }
  zaiAddDefaultSystemItems(bag, cc, rc);
  if (*cc != JXCC_OK) return;
  *ppBag = bag;
  frame.parms("pBag:%p", static_cast<void *>(bag));
}

void zaiDeleteBag(zaiBAG **ppBag, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiDeleteBag, rc);
  frame.parms("*ppBag:%p", static_cast<void *>(*ppBag));
  zaiBAG *bag = *ppBag;
  // A nested handle is taken as given; one that names no bag deletes nothing.
  if (jxai::isBagBlock(bag)) {
    for (JXLONG position = bag->Items->Count - 1; position >= 0; --position) {
      JXLONG itemCc, itemRc;
      zaiFreeItem(bag, position, &itemCc, &itemRc);
    }
    zaiVectorDestroy(bag->Items);
    jxai::indexRelease(indexOf(bag));
    bag->StrucId[0] = ZAI_FREED_MARK;
    xcsFreeMem(kComponent, bag);
  }
  *ppBag = nullptr;
}

void zaiAddDefaultSystemItems(zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiAddDefaultSystemItems, rc);
  frame.parms("pBag:%p", static_cast<void *>(bag));
  const JXLONG options =
      (bag->SystemBag ? JXBAG_SYSTEM : 0) + (bag->AdminBag ? JXBAG_ADMIN : 0) +
      (bag->Reorder ? JXBAG_REORDER : 0) + (bag->ListForm ? JXBAG_LIST_FORM : 0) +
      (bag->CheckSelectors ? JXBAG_CHECK_SELECTORS : 0) + (bag->CommandBag ? JXBAG_COMMAND : 0);
  const JXLONG type = bag->AdminBag || bag->CommandBag ? JXPCF_TYPE_COMMAND : JXPCF_TYPE_USER;
  const JXLONG items[][2] = {
      {JXSYS_OPTIONS, options},
      {JXSYS_MSG_TYPE, type},
      {JXSYS_CCSID, JXCCSID_DEFAULT},
      {JXSYS_COMMAND, JXPCF_COMMAND_NONE},
      {JXSYS_SEQUENCE, JXPCF_SEQUENCE_FIRST},
      {JXSYS_CONTROL, JXPCF_CONTROL_LAST},
      {JXSYS_COMP_CODE, JXCC_OK},
      {JXSYS_REASON, JXRC_NONE},
  };
  for (const auto &item : items) {
    zaiAddInteger(bag, item[0], item[1], cc, rc);
    if (*cc != JXCC_OK) return;
  }
}

void zaiCheckSelector(zaiBAG *bag, JXLONG selector, JXLONG type, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  LeafFrame frame(kFn_zaiCheckSelector, rc);
  frame.parms("pBag:%p, selector:%d, type: %d", static_cast<void *>(bag), selector, type);
  if (selector >= 0) {
    if (!bag->CheckSelectors) return;
    JXLONG low, high;
    switch (type) {
      case JXITEM_INTEGER:
        low = JXSEL_INT_FIRST, high = JXSEL_INT_LAST;
        break;
      case JXITEM_STRING:
        low = JXSEL_STR_FIRST, high = JXSEL_STR_LAST;
        break;
      case JXITEM_BAG:
        low = JXSEL_BAG_FIRST, high = JXSEL_BAG_LAST;
        break;
      default:
        return;
    }
    if (selector < low || selector > high) setFailure(cc, rc, JXRC_SELECTOR_OUT_OF_RANGE);
  } else if (!jxai::isSystemSelector(selector)) {
    setFailure(cc, rc, JXRC_BAD_SELECTOR);
  }
}

void zaiCheckUniqueSelector(zaiBAG *bag, JXLONG selector, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiCheckUniqueSelector, rc);
  frame.parms("pBag:%p, selector:%d", static_cast<void *>(bag), selector);
  const JXLONG count = zaiCountItems(bag, 0, selector);
  if (count == 0) setFailure(cc, rc, JXRC_SELECTOR_NOT_PRESENT);
  if (count > 1) setFailure(cc, rc, JXRC_SELECTOR_NOT_UNIQUE);
}

zaiPROPERTY *zaiFindSelector(zaiBAG *bag, JXLONG start, JXLONG selector, JXLONG itemIndex,
                             PJXLONG position, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiFindSelector, rc);
  frame.parms("pBag:%p, startIndex:%d, selector:%d, itemIndex:%d", static_cast<void *>(bag), start,
              selector, itemIndex);
  if ((jxai::isWildcard(selector) && itemIndex == JXIDX_ONLY) || itemIndex < JXIDX_ONLY) {
    setFailure(cc, rc, JXRC_BAD_INDEX);
    return nullptr;
  }
  if (itemIndex == JXIDX_ONLY) {
    zaiCheckUniqueSelector(bag, selector, cc, rc);
    if (*cc != JXCC_OK) return nullptr;
  }
  *position = start;
  const jxai::IndexMatch match = jxai::indexFind(indexOf(bag), bag->Items->Count, start, selector,
                                                 itemIndex == JXIDX_ONLY ? 0 : itemIndex);
  if (match.position < 0) {
    setFailure(cc, rc, match.candidates > 0 ? JXRC_INDEX_NOT_PRESENT : JXRC_SELECTOR_NOT_PRESENT);
    return nullptr;
  }
  *position = match.position;
  return jxai::itemAt(bag, match.position);
}

void zaiFreeItem(zaiBAG *bag, JXLONG position, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiFreeItem, rc);
  frame.parms("pBag:%p, vectorIdx:%d", static_cast<void *>(bag), position);
  if (position < 0 || position >= bag->Items->Count) {
    return setFailure(cc, rc, JXRC_INDEX_NOT_PRESENT);
  }
  const zaiPROPERTY item = *jxai::itemAt(bag, position);
  // A vector that fails its own checks has written a failure record; the
  // item then stays where it is and owns what it owned.
  if (zaiVectorRemoveAt(bag->Items, position) != ZAI_VEC_OK) {
    return setFailure(cc, rc, JXRC_INDEX_NOT_PRESENT);
  }
  jxai::indexRemove(indexOf(bag), bag->Items, item.Selector, position);
  if (item.Type == JXITEM_STRING && item.StringLength > 0) {
    xcsFreeMem(kComponent, item.Value.String);
  } else if (item.Type == JXITEM_BAG) {
    zaiBAG *nested = jxai::blockOf(item.Value.Bag);
    zaiDeleteBag(&nested, cc, rc);
  }
}

void zaiJXCreateBag(JXLONG Options, PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXCreateBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Options", &Options);
    t.output("Bag");
  });
  [&] {
    if ((Options & JXBAG_USER_OPTIONS) != Options) f.fail(JXRC_OPTIONS_ERROR);
    if ((Options & JXBAG_ADMIN) && (Options & JXBAG_COMMAND)) f.fail(JXRC_OPTIONS_ERROR);
    if (f.failed()) return;
    if (xcsCheckPointer(Bag, sizeof *Bag, XCS_CHECK_WRITE) != 0) return f.fail(JXRC_BAD_HANDLE);
    zaiBAG *bag = nullptr;
    zaiCreateBag(Options, &bag, CompCode, Reason);
    if (!f.failed()) *Bag = jxai::handleOf(bag);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Options");
    t.valueOrNull("Bag", Bag);
  });
}

void zaiJXDeleteBag(PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXDeleteBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) { t.valueOrNull("Bag", Bag); });
  [&] {
    // The caller's handle variable is read unchecked.
    zaiBAG *bag = jxai::resolveBag(*Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_UNDELETABLE);
    zaiDeleteBag(&bag, CompCode, Reason);
    *Bag = JXHB_DELETED;
  }();
  f.traceExit([&](const ApiTrace &t) { t.valueOrNull("Bag", Bag); });
}

}  // extern "C"
