// String items: byte strings with the CCSID the bag had when they were
// added or set, copied out blank-padded.
#include <jx/jxcs.h>
#include <string.h>

#include <algorithm>

#include "bag.hpp"
#include "call_frame.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::Frame;
using jxai::kComponent;
using jxai::setFailure;

namespace {

constexpr char kBlank = ' ';
constexpr JXLONG kNullTerminated = -1;  // BufferLength of a C string

// The length an input buffer stands for, as the trace shows it: 0 when it
// cannot be read.
JXLONG traceLength(JXLONG bufferLength, const JXCHAR *buffer) {
  if (bufferLength != kNullTerminated) return bufferLength;
  if (xcsCheckPointer(buffer, 1, XCS_CHECK_READ) != 0) return 0;
  return static_cast<JXLONG>(strlen(buffer));
}

// The buffer check of add and set: made even after an earlier check failed,
// whose result it then puts back. Returns the resolved length.
JXLONG checkInputBuffer(JXLONG bufferLength, const JXCHAR *buffer, PJXLONG cc, PJXLONG rc) {
  const JXLONG earlierCc = *cc, earlierRc = *rc;
  JXLONG length = 0;
  if (bufferLength == kNullTerminated) {
    if (xcsCheckPointer(buffer, 1, XCS_CHECK_READ) != 0) {
      setFailure(cc, rc, JXRC_BUFFER_ERROR);
    } else {
      length = static_cast<JXLONG>(strlen(buffer));
    }
  } else if (bufferLength > 0) {
    if (!buffer ||
        xcsCheckPointer(buffer, static_cast<size_t>(bufferLength), XCS_CHECK_READ) != 0) {
      setFailure(cc, rc, JXRC_BUFFER_ERROR);
    } else {
      length = bufferLength;
    }
  }
  if (earlierCc != JXCC_OK) {
    *cc = earlierCc;
    *rc = earlierRc;
  }
  return length;
}

// The bag's CCSID for a new string; fails with 2330 when it is -1.
JXLONG bagCcsid(zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  JXLONG ccsid = JXCCSID_DEFAULT;
  zaiInquireInteger(bag, JXSYS_CCSID, 0, &ccsid, cc, rc);
  if (*cc == JXCC_OK && ccsid == JXCCSID_NONE) setFailure(cc, rc, JXRC_BAD_CCSID);
  return ccsid;
}

// A copy of the bytes from common storage (null for length 0), so that a
// failing or leaking copy shows like any other block; false when out of
// storage.
bool copyBytes(uint16_t function, const char *bytes, JXLONG length, char **copy) {
  *copy = nullptr;
  if (length <= 0) return true;
  void *block = nullptr;
  if (xcsGetMem(kComponent, function, static_cast<size_t>(length), &block) != XCS_OK) return false;
  memcpy(block, bytes, static_cast<size_t>(length));
  *copy = static_cast<char *>(block);
  return true;
}

}  // namespace

extern "C" {

void zaiAddString(zaiBAG *bag, JXLONG selector, JXLONG length, const char *bytes, JXLONG ccsid,
                  PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiAddString, rc);
  frame.parms("pBag:%p, selector:%d, length:%d, ccsid:%d", static_cast<void *>(bag), selector,
              length, ccsid);
  if (!jxai::mayAddType(bag, selector, JXITEM_STRING, cc, rc)) return;
  zaiPROPERTY item = jxai::newItem(selector, JXITEM_STRING);
  item.StringLength = length;
  item.StringCCSID = ccsid;
  if (!copyBytes(kFn_zaiAddString, bytes, length, &item.Value.String)) {
    return setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
  }
  if (!jxai::appendItem(bag, item, cc, rc)) xcsFreeMem(kComponent, item.Value.String);
}

void zaiSetString(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG length, const char *bytes,
                  PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiSetString, rc);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d, length:%d", static_cast<void *>(bag), selector,
              itemIndex, length);
  const JXLONG ccsid = bagCcsid(bag, cc, rc);
  if (*cc != JXCC_OK) return;
  if (itemIndex == JXIDX_ALL) {
    zaiDeleteItem(bag, selector, JXIDX_ALL, 0, cc, rc);
    if (*cc == JXCC_OK) zaiAddString(bag, selector, length, bytes, ccsid, cc, rc);
    return;
  }
  zaiPROPERTY *item = jxai::findItemOfType(bag, selector, itemIndex, JXITEM_STRING, cc, rc);
  if (!item) return;
  if (length == item->StringLength) {
    if (length > 0) memmove(item->Value.String, bytes, static_cast<size_t>(length));
    item->StringCCSID = ccsid;
    return;
  }
  // The old copy goes only once the new one exists.
  char *copy;
  if (!copyBytes(kFn_zaiSetString, bytes, length, &copy))
    return setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
  char *old = item->StringLength > 0 ? item->Value.String : nullptr;
  item->StringCCSID = ccsid;
  item->StringLength = length;
  item->Value.String = copy;
  xcsFreeMem(kComponent, old);
}

void zaiInquireString(zaiBAG *bag, JXLONG selector, JXLONG itemIndex, JXLONG bufferLength,
                      char *buffer, PJXLONG stringLength, PJXLONG ccsid, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiInquireString, rc);
  frame.parms("pBag:%p, selector:%d, itemIndex:%d, bufferLength:%d", static_cast<void *>(bag),
              selector, itemIndex, bufferLength);
  const zaiPROPERTY *item = jxai::findItemOfType(bag, selector, itemIndex, JXITEM_STRING, cc, rc);
  if (!item) return;
  const JXLONG length = item->StringLength;
  const JXLONG copied = std::min(length, bufferLength);
  if (copied > 0) memcpy(buffer, item->Value.String, static_cast<size_t>(copied));
  if (length < bufferLength) {
    memset(buffer + length, kBlank, static_cast<size_t>(bufferLength - length));
  }
  if (length > bufferLength) {
    *cc = JXCC_WARNING;
    *rc = JXRC_STRING_TRUNCATED;
  }
  *stringLength = length;
  if (ccsid) *ccsid = item->StringCCSID;
}

void zaiJXAddString(JXHBAG Bag, JXLONG Selector, JXLONG BufferLength, const JXCHAR *Buffer,
                    PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXAddString, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("BufferLength", &BufferLength);
    t.buffer("Buffer", Buffer, traceLength(BufferLength, Buffer));
  });
  zaiBAG *bag = nullptr;
  [&] {
    bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    if (Selector < 0) return f.fail(JXRC_SELECTOR_OUT_OF_RANGE);
    zaiCheckSelector(bag, Selector, JXITEM_STRING, CompCode, Reason);
    if (f.failed()) return;
    if (BufferLength < kNullTerminated) return f.fail(JXRC_BUFFER_LENGTH_ERROR);
  }();
  const JXLONG length = checkInputBuffer(BufferLength, Buffer, CompCode, Reason);
  if (!f.failed()) {
    const JXLONG ccsid = bagCcsid(bag, CompCode, Reason);
    if (!f.failed()) zaiAddString(bag, Selector, length, Buffer, ccsid, CompCode, Reason);
  }
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("BufferLength");
    t.input("Buffer");
  });
}

void zaiJXSetString(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength,
                    const JXCHAR *Buffer, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXSetString, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
    t.value("BufferLength", &BufferLength);
    t.buffer("Buffer", nullptr, 0);  // never the caller's bytes
  });
  zaiBAG *bag = nullptr;
  [&] {
    bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    if (Selector == JXSYS_OPTIONS) return f.fail(JXRC_READ_ONLY_SELECTOR);
    zaiCheckSelector(bag, Selector, JXITEM_STRING, CompCode, Reason);
    if (f.failed()) return;
    if (BufferLength < kNullTerminated) return f.fail(JXRC_BUFFER_LENGTH_ERROR);
  }();
  const JXLONG length = checkInputBuffer(BufferLength, Buffer, CompCode, Reason);
  if (!f.failed()) zaiSetString(bag, Selector, ItemIndex, length, Buffer, CompCode, Reason);
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
    t.input("BufferLength");
    t.input("Buffer");
  });
}

void zaiJXInquireString(JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength,
                        PJXCHAR Buffer, PJXLONG StringLength, PJXLONG CodedCharSetId,
                        PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXInquireString, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Bag", &Bag);
    t.value("Selector", &Selector);
    t.value("ItemIndex", &ItemIndex);
    t.value("BufferLength", &BufferLength);
    t.output("Buffer");
    t.output("StringLength");
    t.output("CodedCharSetId");
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    // Writable for BufferLength bytes: nothing to test for a length of 0 or
    // less (a negative length fails below).
    if (Buffer ? BufferLength > 0 && xcsCheckPointer(Buffer, static_cast<size_t>(BufferLength),
                                                     XCS_CHECK_WRITE) != 0
               : BufferLength != 0) {
      return f.fail(JXRC_BUFFER_ERROR);
    }
    if (xcsCheckPointer(StringLength, sizeof *StringLength, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BAD_STRING_LENGTH_OUT);
    }
    if (CodedCharSetId &&
        xcsCheckPointer(CodedCharSetId, sizeof *CodedCharSetId, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BAD_CCSID);
    }
    if (BufferLength < 0) return f.fail(JXRC_BUFFER_LENGTH_ERROR);
    if (!jxai::isWildcard(Selector)) {
      zaiCheckSelector(bag, Selector, JXITEM_STRING, CompCode, Reason);
      if (f.failed()) return;
    }
    zaiInquireString(bag, Selector, ItemIndex, BufferLength, Buffer, StringLength, CodedCharSetId,
                     CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Bag");
    t.input("Selector");
    t.input("ItemIndex");
    t.input("BufferLength");
    t.buffer("Buffer", Buffer, BufferLength);
    t.value("StringLength", StringLength);
    t.valueOrNull("CodedCharSetId", CodedCharSetId);
  });
}

}  // extern "C"
