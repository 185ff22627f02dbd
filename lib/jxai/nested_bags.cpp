// Nested bags (appended only by the library, read by callers) and inquiry
// items (integers under the inquiry selector naming an attribute).
#include <jx/jxcs.h>

#include "bag.hpp"
#include "call_frame.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::Frame;
using jxai::setFailure;

extern "C" {

void zaiAddBag(zaiBAG *bag, JXLONG selector, JXHBAG nested, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiAddBag, rc);
  frame.parms("pBag:%p, selector:%d, hNestedBag:%d", static_cast<void *>(bag), selector, nested);
  if (!jxai::mayAddType(bag, selector, JXITEM_BAG, cc, rc)) return;
  zaiPROPERTY item = jxai::newItem(selector, JXITEM_BAG);
  item.Value.Bag = nested;
  jxai::appendItem(bag, item, cc, rc);
}

void zaiInquireBag(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, PJXHBAG nested, PJXLONG cc,
                   PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiInquireBag, rc);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d", static_cast<void *>(bag), selector, itemIndex);
  const zaiPROPERTY *item = jxai::findItemOfType(bag, selector, itemIndex, JXITEM_BAG, cc, rc);
  if (!item) return;
  *nested = item->Value.Bag;
}

void zaiJXInquireBag(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXHBAG ItemValue,
                     PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXInquireBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
    t.output("ItemValue");
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (xcsCheckPointer(ItemValue, sizeof *ItemValue, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BAD_ITEM_VALUE_OUT);
    }
    if (!jxai::isWildcard(Selector)) {
      zaiCheckSelector(bag, Selector, JXITEM_BAG, CompCode, Reason);
      if (f.failed()) return;
    }
    zaiInquireBag(bag, Selector, ItemIndex, ItemValue, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
    t.valueOrNull("ItemValue", ItemValue);
  });
}

void zaiJXAddInquiry(JXHBAG Bag, JXLONG Selector, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXAddInquiry, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    if (!bag->AdminBag) return f.fail(JXRC_NOT_ADMIN_BAG);
    if (Selector < 0) return f.fail(JXRC_SELECTOR_OUT_OF_RANGE);
    // Integer and string attributes may be inquired, bag selectors not.
    if (bag->CheckSelectors && (Selector < JXSEL_INT_FIRST || Selector > JXSEL_STR_LAST)) {
      return f.fail(JXRC_SELECTOR_OUT_OF_RANGE);
    }
    zaiAddInteger(bag, JXSEL_INQUIRE, Selector, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
  });
}

}  // extern "C"
