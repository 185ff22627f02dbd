// Integer items: add, set and inquire, for callers and for the library.
#include <jx/jxcs.h>

#include "bag.hpp"
#include "call_frame.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::Frame;
using jxai::setFailure;

extern "C" {

void zaiAddInteger(zaiBAG *bag, JXLONG selector, JXLONG value, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiAddInteger, rc);
  frame.parms("pBag:%p, selector:%d", static_cast<void *>(bag), selector);
  if (!jxai::mayAddType(bag, selector, JXITEM_INTEGER, cc, rc)) return;
  zaiPROPERTY item = jxai::newItem(selector, JXITEM_INTEGER);
  item.Value.Integer = value;
  jxai::appendItem(bag, item, cc, rc);
}

void zaiSetInteger(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG value, PJXLONG cc,
                   PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiSetInteger, rc);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d", static_cast<void *>(bag), selector, itemIndex);
  if (itemIndex == JXIDX_ALL) {
    zaiDeleteItem(bag, selector, JXIDX_ALL, 0, cc, rc);
    if (*cc == JXCC_OK) zaiAddInteger(bag, selector, value, cc, rc);
    return;
  }
  zaiPROPERTY *item = jxai::findItemOfType(bag, selector, itemIndex, JXITEM_INTEGER, cc, rc);
  if (!item) return;
  item->Value.Integer = value;
}

void zaiInquireInteger(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, PJXLONG value, PJXLONG cc,
                       PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiInquireInteger, rc);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d", static_cast<void *>(bag), selector, itemIndex);
  const zaiPROPERTY *item = jxai::findItemOfType(bag, selector, itemIndex, JXITEM_INTEGER, cc, rc);
  if (!item) return;
  *value = item->Value.Integer;
}

void zaiJXAddInteger(JXHBAG Bag, JXLONG Selector, JXLONG ItemValue, PJXLONG CompCode,
                     PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXAddInteger, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemValue", &ItemValue);
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    if (Selector < 0) return f.fail(JXRC_SELECTOR_OUT_OF_RANGE);
    zaiCheckSelector(bag, Selector, JXITEM_INTEGER, CompCode, Reason);
    if (f.failed()) return;
    zaiAddInteger(bag, Selector, ItemValue, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemValue");
  });
}

void zaiJXSetInteger(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG ItemValue,
                     PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXSetInteger, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
    t.value("ItemValue", &ItemValue);
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    if (Selector == JXSYS_OPTIONS) return f.fail(JXRC_READ_ONLY_SELECTOR);
    zaiCheckSelector(bag, Selector, JXITEM_INTEGER, CompCode, Reason);
    if (f.failed()) return;
    zaiSetInteger(bag, Selector, ItemIndex, ItemValue, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
    t.input("ItemValue");
  });
}

void zaiJXInquireInteger(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG ItemValue,
                         PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXInquireInteger, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
    t.output("ItemValue");
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (!jxai::isWildcard(Selector)) {
      zaiCheckSelector(bag, Selector, JXITEM_INTEGER, CompCode, Reason);
      if (f.failed()) return;
    }
    if (xcsCheckPointer(ItemValue, sizeof *ItemValue, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BAD_ITEM_VALUE_OUT);
    }
    zaiInquireInteger(bag, Selector, ItemIndex, ItemValue, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
    t.valueOrNull("ItemValue", ItemValue);
  });
}

}  // extern "C"
