// The bag contents trace: one line per item, attributed to the caller, so a
// trace shows what was converted to or from a PCF message.
#include <jx/jxcs.h>

#include "bag.hpp"
#include "call_frame.hpp"

namespace {

// The bag trace needs tracing enabled, a level set (or override), and all
// three of its option bits.
bool bagTraceOn() {
  const xihTRACEWORDS *w = jxai::traceWords();
  return w && w->Enabled && (w->Level != XTR_LEVEL_UNSET || w->Override) &&
         (w->Options & XTR_OPT_BAG) == XTR_OPT_BAG;
}

// Where the next line is attributed; null when the line is not to be written.
xihTHREADANCHOR *lineTarget(uint16_t component, uint16_t function) {
  xihTHREADANCHOR *t = xihCurrentThread;
  if (!t || !t->TraceActive || !jxai::parmTraceOn()) return nullptr;
  t->TraceComponent = component;
  t->TraceFunction = function;
  t->TraceKind = jxai::kParmKindInternal;
  return t;
}

template <typename... Args>
bool line(uint16_t component, uint16_t function, const char *format, Args... args) {
  if (!lineTarget(component, function)) return false;
  xtr_parms(format, args...);
  return true;
}

}  // namespace

extern "C" {

void zaiTraceBagContents(uint16_t component, uint16_t function, zaiBAG *bag) {
  if (!bagTraceOn()) return;
  const JXLONG count = bag->Items->Count;
  line(component, function, "Bag Details %p", static_cast<void *>(bag));
  line(component, function, "Size:%d", count);
  line(component, function, "Index: Selector: Value:");
  for (JXLONG i = 0; i < count; ++i) {
    const zaiPROPERTY *item = jxai::itemAt(bag, i);
    switch (item->Type) {
      case JXITEM_INTEGER:
        line(component, function, "  %-2d     %-4d     (%d)", i, item->Selector,
             item->Value.Integer);
        break;
      case JXITEM_STRING:
        if (line(component, function, "  %-2d     %-4d      ccsid: %d   String->", i,
                 item->Selector, item->StringCCSID)) {
          xtr_data_detail(component, function, item->Value.String,
                          static_cast<uint32_t>(item->StringLength));
        }
        break;
      default:
        line(component, function, "  %-2d     %-4d     (%p)", i, item->Selector,
             reinterpret_cast<void *>(static_cast<intptr_t>(item->Value.Bag)));
        break;
    }
  }
}

}  // extern "C"
