// Item information, counting and removal: inquire an item's selector and
// type, count items, delete items, clear and truncate a bag.
#include <jx/jxcs.h>

#include "bag.hpp"
#include "bag_index.hpp"
#include "call_frame.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::Frame;
using jxai::LeafFrame;
using jxai::setFailure;

namespace {

// How far below the item being removed a clear asks for the records.
constexpr JXLONG kClearAhead = 16;

// The selector check of item information and counting, where no item type
// is known: any system selector or wildcard, and with the check-selectors
// flag any selector of the three user ranges.
JXLONG checkAnySelector(const zaiBAG *bag, JXLONG selector) {
  if (selector < 0) {
    return jxai::isWildcard(selector) || jxai::isSystemSelector(selector) ? JXRC_NONE
                                                                          : JXRC_BAD_SELECTOR;
  }
  if (bag->CheckSelectors && (selector < JXSEL_INT_FIRST || selector > JXSEL_BAG_LAST)) {
    return JXRC_SELECTOR_OUT_OF_RANGE;
  }
  return JXRC_NONE;
}

}  // namespace

extern "C" {

void zaiInquireItemInfo(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, PJXLONG outSelector,
                        PJXLONG itemType, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  // This worker's exit record carries 0 whatever the outcome.
  const int32_t recorded = JXRC_NONE;
  Frame frame(kFn_zaiInquireItemInfo, &recorded);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d", static_cast<void *>(bag), selector, itemIndex);
  JXLONG position;
  const zaiPROPERTY *item = zaiFindSelector(bag, 0, selector, itemIndex, &position, cc, rc);
  if (*cc != JXCC_OK) return;
  *outSelector = item->Selector;
  *itemType = item->Type;
}

JXLONG zaiCountItems(zaiBAG *bag, JXLONG start, JXLONG selector) {
  JXLONG count = 0;
  LeafFrame frame(kFn_zaiCountItems, &count);
  frame.parms("pBag:%p, startIndex:%d, selector:%d", static_cast<void *>(bag), start, selector);
  count = jxai::indexCount(jxai::indexOf(bag), bag->Items->Count, start, selector);
  return count;
}

void zaiDeleteItem(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG forced, PJXLONG cc,
                   PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiDeleteItem, rc);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d, forced:%d", static_cast<void *>(bag), selector,
              itemIndex, forced);
  const bool all = itemIndex == JXIDX_ALL;
  do {
    JXLONG position;
    const zaiPROPERTY *item =
        zaiFindSelector(bag, 0, selector, all ? 0 : itemIndex, &position, cc, rc);
    if (*cc != JXCC_OK) {
      if (all && *rc == JXRC_SELECTOR_NOT_PRESENT) {
        *cc = JXCC_OK;
        *rc = JXRC_NONE;
      }
      return;
    }
    if (!forced && (item->Selector < 0 ||
                    (item->Type == JXITEM_BAG && jxai::isNestedSystemBag(item->Value.Bag)))) {
      return setFailure(cc, rc, JXRC_SYSTEM_ITEM_UNDELETABLE);
    }
    zaiFreeItem(bag, position, cc, rc);
  } while (all && *cc == JXCC_OK);
}

void zaiClearBag(zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiClearBag, rc);
  frame.parms("pBag:%p", static_cast<void *>(bag));
  for (JXLONG position = bag->Items->Count - 1; position >= 0; --position) {
    // The records are read from the last down: ask for them ahead, which
    // a large bag otherwise waits for.
    if (position >= kClearAhead) __builtin_prefetch(jxai::itemAt(bag, position - kClearAhead));
    zaiFreeItem(bag, position, cc, rc);
    if (*cc != JXCC_OK) return;
  }
  zaiAddDefaultSystemItems(bag, cc, rc);
}

void zaiTruncateBag(zaiBAG *bag, JXLONG count, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiTruncateBag, rc);
  frame.parms("pBag:%p, count:%d", static_cast<void *>(bag), count);
  const JXLONG userItems = zaiCountItems(bag, 0, JXSEL_USER);
  if (count > userItems) return setFailure(cc, rc, JXRC_BAD_ITEM_COUNT);
  JXLONG toRemove = userItems - count;
  for (JXLONG position = bag->Items->Count - 1; position >= 0 && toRemove > 0; --position) {
    if (jxai::itemAt(bag, position)->Selector < 0) continue;
    zaiFreeItem(bag, position, cc, rc);
    if (*cc != JXCC_OK) return;
    --toRemove;
  }
}

void zaiJXInquireItemInfo(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG OutSelector,
                          PJXLONG ItemType, PJXLONG CompCode, PJXLONG Reason) {
  // The layer's exit record carries 0 whatever the outcome; the caller's
  // completion code and reason are set regardless.
  JXLONG recordedCc = JXCC_OK, recordedRc = JXRC_NONE;
  ApiFrame f(kFn_zaiJXInquireItemInfo, &recordedCc, &recordedRc);
  *CompCode = JXCC_OK;
  *Reason = JXRC_NONE;
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
    t.output("OutSelector");
    t.output("ItemType");
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return setFailure(CompCode, Reason, JXRC_BAD_HANDLE);
    if (const JXLONG reason = checkAnySelector(bag, Selector)) {
      return setFailure(CompCode, Reason, reason);
    }
    if (xcsCheckPointer(OutSelector, sizeof *OutSelector, XCS_CHECK_WRITE) != 0) {
      return setFailure(CompCode, Reason, JXRC_BAD_OUT_SELECTOR);
    }
    if (xcsCheckPointer(ItemType, sizeof *ItemType, XCS_CHECK_WRITE) != 0) {
      return setFailure(CompCode, Reason, JXRC_BAD_ITEM_TYPE_OUT);
    }
    zaiInquireItemInfo(bag, Selector, ItemIndex, OutSelector, ItemType, CompCode, Reason);
  }();
  if (jxai::apiTraceOn()) {
    ApiTrace t(kFn_zaiJXInquireItemInfo);
    t.openExit();
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
    t.valueOrNull("OutSelector", OutSelector);
    t.valueOrNull("ItemType", ItemType);
    t.closeExit(CompCode, Reason);
  }
}

void zaiJXCountItems(JXHBAG Bag, JXLONG Selector, PJXLONG ItemCount, PJXLONG CompCode,
                     PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXCountItems, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.output("ItemCount");
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (xcsCheckPointer(ItemCount, sizeof *ItemCount, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BAD_ITEM_COUNT);
    }
    if (const JXLONG reason = checkAnySelector(bag, Selector)) return f.fail(reason);
    *ItemCount = zaiCountItems(bag, 0, Selector);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.valueOrNull("ItemCount", ItemCount);
  });
}

void zaiJXDeleteItem(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG CompCode,
                     PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXDeleteItem, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
  });
  zaiBAG *bag = jxai::resolveBag(Bag);
  if (!bag) {
    f.fail(JXRC_BAD_HANDLE);
  } else if (bag->SystemBag) {
    f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
  }
  // Made whatever happened above; a failure here replaces the earlier one.
  // Without a usable bag there is no check-selectors flag to test.
  // A wildcard deletion names one position; system items are never deleted.
  const bool byPosition = Selector == JXSEL_ANY || Selector == JXSEL_USER;
  if (byPosition && (ItemIndex == JXIDX_ONLY || ItemIndex == JXIDX_ALL)) {
    f.fail(JXRC_BAD_INDEX);
  } else if (Selector < 0 && !byPosition) {
    f.fail(JXRC_SELECTOR_OUT_OF_RANGE);
  } else if (bag && bag->CheckSelectors &&
             (Selector < JXSEL_INT_FIRST || Selector > JXSEL_BAG_LAST)) {
    f.fail(JXRC_SELECTOR_OUT_OF_RANGE);
  }
  if (!f.failed()) zaiDeleteItem(bag, Selector, ItemIndex, 0, CompCode, Reason);
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
  });
}

void zaiJXClearBag(JXHBAG Bag, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXClearBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) { t.value("Bag", &Bag); });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    zaiClearBag(bag, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) { t.input("Bag"); });
}

void zaiJXTruncateBag(JXHBAG Bag, JXLONG ItemCount, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXTruncateBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("ItemCount", &ItemCount);
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    if (ItemCount < 0) return f.fail(JXRC_BAD_ITEM_COUNT);
    zaiTruncateBag(bag, ItemCount, CompCode, Reason);
  }();
  // This exit block goes to the trace service without the API-trace test.
  ApiTrace t(kFn_zaiJXTruncateBag);
  t.openExit();
  t.input("Bag");
  t.input("ItemCount");
  t.closeExit(CompCode, Reason);
}

}  // extern "C"
