// Writing a bag as a PCF message into a caller's buffer. Every structure
// advances the running length whether it fitted or not, so the caller always
// learns the length the whole message needs.
#include <jx/jxcs.h>
#include <jx/jxqm.h>
#include <stdlib.h>

#include <algorithm>

#include "pcf_format.hpp"

using jxai::Frame;
using jxai::itemAt;
using jxai::ItemRecords;
using jxai::kComponent;
using jxai::LeafFrame;
using jxai::LeafFrameRun;
using jxai::setFailure;
using namespace jxai::pcf;

namespace {

// How far ahead of the item being written the writer asks for the cache
// lines it will need: item records, and bytes of the buffer.
constexpr int32_t kItemsAhead = 8;
constexpr int32_t kBytesAhead = 512;

constexpr const char *kAreaLine = "PCF Buffer Control Area";
constexpr const char *kBadItemLabel = "Invalid zaiPROPERTY";
constexpr const char *kLookupLabel = "zaiPROPERTY";

bool ok(const int32_t *cc) {
  return *cc == JXCC_OK;
}

// Whether tracing is on is decided once a message: the steps of one
// message trace all or nothing.
inline void traceArea(bool trace, uint16_t function, const zaiPCFBUFCTL *area) {
  if (__builtin_expect(trace, 0)) {
    traceData(function, kAreaLine, area, static_cast<uint32_t>(area->AreaSize));
  }
}

// Where a structure of `size` bytes goes: the place at the running length, or
// null when it does not fit. The running length grows either way; it stops
// at the largest length a message can report.
inline char *reserveAt(char *buffer, int64_t bufferLength, int64_t &running, int64_t size) {
  const int64_t end = running + size;
  char *at = end <= bufferLength ? buffer + running : nullptr;
  running = std::min<int64_t>(end, INT32_MAX);
  return at;
}

char *reserve(zaiPCFBUFCTL *area, int64_t size) {
  int64_t running = area->RunningLength;
  char *at = reserveAt(area->Buffer, area->BufferLength, running, size);
  area->RunningLength = static_cast<int32_t>(running);
  return at;
}

// A parameter structure that was written counts in the header.
void countParameter(const zaiPCFBUFCTL *area, const char *written) {
  if (written && area->Header) add32(area->Header, kHdrParameterCount, 1);
}

int32_t markCount(const zaiPCFBUFCTL *area) {
  return area->AreaSize - static_cast<int32_t>(ZAI_PCFBC_FIXED);
}
bool marked(const zaiPCFBUFCTL *area, int32_t position) {
  return position < markCount(area) && area->Written[position];
}

// The first position from i on, before end, whose mark is clear (or end).
int32_t firstUnmarked(const uint8_t *written, int32_t i, int32_t end) {
  if (i >= end) return i;
  const void *clear = memchr(written + i, 0, static_cast<size_t>(end - i));
  return clear ? static_cast<int32_t>(static_cast<const uint8_t *>(clear) - written) : end;
}

// Selectors of the attribute lists: their items always go out as lists.
// Those of commands the system does not serve keep their plain numbers.
bool isAttributeList(int32_t selector) {
  switch (selector) {
    case JXSEL_QMGR_ATTRS:
    case JXSEL_QUEUE_ATTRS:
    case JXSEL_Q_STATUS_ATTRS:
    case 1003:  // process
    case 1004:  // namelist
    case 1015:  // channel
    case 1019:  // storage class
    case 1093:  // authentication information
    case 1524:  // channel status
      return true;
    default:
      return false;
  }
}

void setMessageKind(int32_t pcfType, PJXLONG msgType, char *format) {
  const char *name = JXFMT_PCF;
  int32_t type = JXMT_DATAGRAM;
  switch (pcfType) {
    case JXPCF_TYPE_COMMAND:
      type = JXMT_REQUEST;
      name = JXFMT_ADMIN;
      break;
    case JXPCF_TYPE_RESPONSE:
      type = JXMT_REPLY;
      name = JXFMT_ADMIN;
      break;
    case JXPCF_TYPE_EVENT:
      name = JXFMT_EVENT;
      break;
    default:
      break;
  }
  *msgType = type;
  memcpy(format, name, JX_FORMAT_LENGTH);
}

// The writer's area: in the frame for up to 40 items, obtained for larger
// bags whose items may be reordered or grouped (they need a mark each).
class ControlArea {
 public:
  ControlArea(const zaiBAG *bag, int32_t items, PJXLONG cc, PJXLONG rc) {
    size_t marks = ZAI_PCFBC_FRAME_MARKS;
    area_ = reinterpret_cast<zaiPCFBUFCTL *>(local_);
    if (items > ZAI_PCFBC_FRAME_MARKS && (bag->ListForm || bag->Reorder)) {
      marks = static_cast<size_t>(items);
      void *block = nullptr;
      if (xcsGetMem(kComponent, kFn_zaiBagToPCFMsg, ZAI_PCFBC_FIXED + marks, &block) != XCS_OK) {
        area_ = nullptr;
        setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
        return;
      }
      area_ = static_cast<zaiPCFBUFCTL *>(block);
      obtained_ = true;
    }
    memset(area_, 0, ZAI_PCFBC_FIXED + marks);
    memcpy(area_->StrucId, ZAI_PCFBC_EYE, sizeof area_->StrucId);
    area_->AreaSize = static_cast<int32_t>(ZAI_PCFBC_FIXED + marks);
  }
  ~ControlArea() {
    if (obtained_) xcsFreeMem(kComponent, area_);
  }
  ControlArea(const ControlArea &) = delete;
  ControlArea &operator=(const ControlArea &) = delete;
  zaiPCFBUFCTL *get() const { return area_; }

 private:
  alignas(zaiPCFBUFCTL) unsigned char local_[ZAI_PCFBC_FIXED + ZAI_PCFBC_FRAME_MARKS];
  zaiPCFBUFCTL *area_;
  bool obtained_ = false;
};

void writeHeader(zaiPCFBUFCTL *area, zaiBAG *bag, PJXLONG cc, PJXLONG rc, bool trace) {
  Frame frame(kFn_zaiWritePCFHeader, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  char *header = reserve(area, JXPCF_HEADER_LENGTH);
  if (header) {
    area->Header = header;
    zaiInquireInteger(bag, JXSYS_MSG_TYPE, JXIDX_ONLY, &area->PCFType, cc, rc);
    if (ok(cc)) {
      put32(header, kHdrType, area->PCFType);
      put32(header, kHdrStrucLength, JXPCF_HEADER_LENGTH);
      put32(header, kHdrVersion, JXPCF_HEADER_VERSION);
      put32(header, kHdrCommand, area->Command);
      static constexpr struct {
        int32_t selector;
        int32_t offset;
      } kFields[] = {{JXSYS_SEQUENCE, kHdrMsgSeqNumber},
                     {JXSYS_CONTROL, kHdrControl},
                     {JXSYS_COMP_CODE, kHdrCompCode},
                     {JXSYS_REASON, kHdrReason}};
      for (const auto &f : kFields) {
        int32_t value = 0;
        zaiInquireInteger(bag, f.selector, JXIDX_ONLY, &value, cc, rc);
        if (!ok(cc)) break;
        put32(header, f.offset, value);
      }
      if (ok(cc)) put32(header, kHdrParameterCount, 0);
    }
  }
  traceArea(trace, kFn_zaiWritePCFHeader, area);
}

// The string and fault cases of a single parameter, out of the integers' way.
__attribute__((noinline)) void writeSingleOther(zaiPROPERTY *item, zaiPCFBUFCTL *area, PJXLONG cc,
                                                PJXLONG rc) {
  if (item->Type == JXITEM_STRING) {
    const int64_t length = JXPCF_STRING_FIXED + roundUp4(item->StringLength);
    char *at = reserve(area, length);
    if (at) {
      put32(at, kParmType, JXPCF_TYPE_STRING);
      put32(at, kParmStrucLength, static_cast<int32_t>(length));
      put32(at, kParmParameter, item->Selector);
      put32(at, kStrCCSID, item->StringCCSID);
      put32(at, kStrLength, item->StringLength);
      // The padding after the string is left as the buffer held it.
      if (item->StringLength > 0) {
        memcpy(at + kStrBytes, item->Value.String, static_cast<size_t>(item->StringLength));
      }
    }
    countParameter(area, at);
  } else {
    recordItemFault(kFn_zaiWriteSinglePCFParm, ZAI_PCF_BAD_ITEM, static_cast<uint32_t>(item->Type),
                    kBadItemLabel, item);
    setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
  }
}

// Integer parameters and list values in progress: the running length, the
// parameters and the list values written are kept here and reach the control
// area, the message header and the list header when the run ends, or before
// anything else reads them (a trace of the area, a string value).
class WriteRun {
 public:
  explicit WriteRun(zaiPCFBUFCTL *area)
      : area_(area),
        buffer_(area->Buffer),
        bufferLength_(area->BufferLength),
        running_(area->RunningLength) {}
  zaiPCFBUFCTL *area() const { return area_; }
  // As reserve(), on the running length kept here.
  char *reserve(int32_t size) { return reserveAt(buffer_, bufferLength_, running_, size); }
  // An integer parameter structure.
  void putIntegerParameter(int32_t selector, int32_t value) {
    char *at = reserve(JXPCF_INTEGER_LENGTH);
    if (!at) return;
    put32(at, kParmType, JXPCF_TYPE_INTEGER);
    put32(at, kParmStrucLength, JXPCF_INTEGER_LENGTH);
    put32(at, kParmParameter, selector);
    put32(at, kIntValue, value);
    parameters_++;
  }
  // An integer value of the current list.
  void putInteger(int32_t value) {
    char *at = reserve(kIntListValueSize);
    if (at) put32(at, 0, value);
    values_++;
  }
  void flush() {
    area_->RunningLength = static_cast<int32_t>(running_);
    if (parameters_ > 0 && area_->Header) add32(area_->Header, kHdrParameterCount, parameters_);
    if (values_ > 0 && area_->IntList) {
      add32(area_->IntList, kParmStrucLength, values_ * kIntListValueSize);
      add32(area_->IntList, kIntListCount, values_);
    }
    parameters_ = values_ = 0;
  }
  void reload() { running_ = area_->RunningLength; }

 private:
  zaiPCFBUFCTL *area_;
  char *buffer_;
  int64_t bufferLength_;
  int64_t running_;
  int32_t parameters_ = 0;
  int32_t values_ = 0;
};

// Written once for every parameter of a message: kept inline.
inline __attribute__((always_inline)) void writeSingle(zaiPROPERTY *item, zaiPCFBUFCTL *area,
                                                       PJXLONG cc, PJXLONG rc, bool trace) {
  LeafFrame frame(kFn_zaiWriteSinglePCFParm, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  if (item->Type == JXITEM_INTEGER) {
    WriteRun run(area);
    run.putIntegerParameter(item->Selector, item->Value.Integer);
    run.flush();
  } else {
    writeSingleOther(item, area, cc, rc);
  }
  traceArea(trace, kFn_zaiWriteSinglePCFParm, area);
}

// A user item that writeIntegerSingles takes.
inline bool takesIntegerSingle(const zaiPROPERTY *item) {
  return item->Type == JXITEM_INTEGER && item->Selector >= 0;
}

// Writes the integer items from position i on as single parameters, while
// tracing is off and nothing is grouped: the common case, kept in a small
// function so that its state stays in registers. Each parameter is written
// as writeSingle writes it, with its frame; the completion code and reason
// it would clear are already 0. Returns the first position it did not take.

__attribute__((noinline)) int32_t writeIntegerSingles(ItemRecords records, int32_t i, int32_t count,
                                                      zaiPCFBUFCTL *area) {
  LeafFrameRun frames(kFn_zaiWriteSinglePCFParm);
  frames.run(JXRC_NONE, [&](auto &&each) {
    // Each way of recording frames has its own run, kept in registers.
    WriteRun run(area);
    for (; i < count && takesIntegerSingle(records[i]); ++i) {
      const zaiPROPERTY *item = records[i];
      each([&] { run.putIntegerParameter(item->Selector, item->Value.Integer); });
    }
    run.flush();
  });
  return i;
}

void writeListHeader(zaiPROPERTY *item, zaiPCFBUFCTL *area, JXLONG listSelector, PJXLONG cc,
                     PJXLONG rc, bool trace) {
  LeafFrame frame(kFn_zaiWritePCFListHeader, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  if (item->Type == JXITEM_INTEGER) {
    char *at = reserve(area, JXPCF_INTEGER_LIST_FIXED);
    if (at) {
      put32(at, kParmType, JXPCF_TYPE_INTEGER_LIST);
      put32(at, kParmStrucLength, JXPCF_INTEGER_LIST_FIXED);
      put32(at, kParmParameter, listSelector);
      put32(at, kIntListCount, 0);
    }
    area->IntList = at;
    area->StringListLength = JXPCF_INTEGER_LIST_FIXED;
    countParameter(area, at);
  } else if (item->Type == JXITEM_STRING) {
    char *at = reserve(area, JXPCF_STRING_LIST_FIXED);
    if (at) {
      put32(at, kParmType, JXPCF_TYPE_STRING_LIST);
      put32(at, kParmStrucLength, JXPCF_STRING_LIST_FIXED);
      put32(at, kParmParameter, listSelector);
      put32(at, kStrListCCSID, item->StringCCSID);
      put32(at, kStrListCount, 0);
      put32(at, kStrListLength, area->CommonStringLength);
    }
    area->StrList = at;
    area->StringListLength = JXPCF_STRING_LIST_FIXED;
    countParameter(area, at);
  } else {
    recordItemFault(kFn_zaiWritePCFListHeader, ZAI_PCF_BAD_ITEM, static_cast<uint32_t>(item->Type),
                    kBadItemLabel, item);
    setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
  }
  traceArea(trace, kFn_zaiWritePCFListHeader, area);
}

// The string and fault cases of a list value, out of the integers' way.
__attribute__((noinline)) void writeListValueOther(zaiPROPERTY *item, zaiPCFBUFCTL *area,
                                                   PJXLONG cc, PJXLONG rc) {
  if (item->Type == JXITEM_STRING) {
    if (item->Selector == JXSEL_INQUIRE) {
      setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
    } else {
      const int32_t common = area->CommonStringLength;
      char *at = reserve(area, common);
      if (at) {
        const int32_t copied = std::min(item->StringLength, common);
        if (copied > 0) memcpy(at, item->Value.String, static_cast<size_t>(copied));
        memset(at + copied, 0, static_cast<size_t>(common - copied));
      }
      if (area->StrList) {
        add32(area->StrList, kStrListCount, 1);
        add32(area->StrList, kParmStrucLength, common);
      }
      area->StringListLength += common;
    }
  } else {
    recordItemFault(kFn_zaiWritePCFListValue, ZAI_PCF_BAD_ITEM, static_cast<uint32_t>(item->Type),
                    kBadItemLabel, item);
    setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
  }
}

// Written once for every value of a list: kept inline.
inline __attribute__((always_inline)) void writeListValue(zaiPROPERTY *item, WriteRun &run,
                                                          PJXLONG cc, PJXLONG rc, bool trace) {
  LeafFrame frame(kFn_zaiWritePCFListValue, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  if (item->Type == JXITEM_INTEGER) {
    run.putInteger(item->Value.Integer);
  } else {
    run.flush();
    writeListValueOther(item, run.area(), cc, rc);
    run.reload();
  }
  if (__builtin_expect(trace, 0)) {
    run.flush();
    traceArea(trace, kFn_zaiWritePCFListValue, run.area());
  }
}

// Writes the integer items of the list's selector from position j on, while
// tracing is off and the completion code is still 0: the common case, kept
// in a small function so that its state stays in registers. Each value is
// written as writeListValue writes it, with its frame; the completion code
// and reason it would clear are already 0. Returns the first position it
// did not take, for the general loop.
__attribute__((noinline)) int32_t writeIntegerRun(ItemRecords records, int32_t j, int32_t count,
                                                  int32_t listSelector, uint8_t *written,
                                                  int32_t marks, WriteRun &run) {
  LeafFrameRun frames(kFn_zaiWritePCFListValue);
  const auto takes = [&](int32_t at) {
    const zaiPROPERTY *other = records[at];
    return other->Selector == listSelector && other->Type == JXITEM_INTEGER;
  };
  frames.run(JXRC_NONE, [&](auto &&each) {
    // A copy whose address nothing else knows stays in registers; each way
    // of recording frames has its own.
    WriteRun local = run;
    const auto put = [&](int32_t at) {
      const zaiPROPERTY *other = records[at];
      each([&] { local.putInteger(other->Value.Integer); });
    };
    // Items with a mark are written once; a larger bag's area has a mark
    // for every item, so the second loop is for small bags only.
    for (const int32_t end = std::min(count, marks); j < end && takes(j); ++j) {
      if (written[j]) continue;
      put(j);
      written[j] = 1;
    }
    if (j >= marks) {
      for (; j < count && takes(j); ++j) put(j);
    }
    run = local;
  });
  return j;
}

void writeSingleOrList(zaiPROPERTY *item, zaiPCFBUFCTL *area, zaiBAG *bag, JXLONG position,
                       PJXLONG cc, PJXLONG rc, bool trace) {
  Frame frame(kFn_zaiWriteSingleOrListPCFParm, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  const int32_t count = bag->Items->Count;
  int32_t listSelector = item->Selector;
  bool asList = false;

  if (item->Selector == JXSEL_INQUIRE) {
    zaiMapInquiryFromCommand(area->Command, &listSelector, cc, rc);
    if (!ok(cc)) return;
    asList = true;
  } else if (isAttributeList(item->Selector)) {
    asList = true;
  } else {
    int32_t lookupCc = JXCC_OK, lookupRc = JXRC_NONE, found = 0;
    zaiFindSelector(bag, position, item->Selector, JXIDX_ONLY, &found, &lookupCc, &lookupRc);
    if (lookupRc == JXRC_SELECTOR_NOT_UNIQUE) {
      if (item->Type == JXITEM_STRING) {
        const int32_t largest = zaiFindLargestString(bag, area, item, position + 1);
        if (largest != -1) {
          asList = true;
          area->CommonStringLength = std::max(largest, item->StringLength);
        }
      } else if (bag->Reorder) {
        asList = true;
      } else {
        asList = position + 1 < count && itemAt(bag, position + 1)->Selector == item->Selector;
      }
    } else if (lookupCc != JXCC_OK) {
      recordItemFault(kFn_zaiWriteSingleOrListPCFParm, ZAI_PCF_BAD_LOOKUP,
                      static_cast<uint32_t>(lookupRc), kLookupLabel, item);
      *cc = lookupCc;
      *rc = lookupRc;
      return;
    }
  }

  if (!asList) {
    writeSingle(item, area, cc, rc, trace);
    traceArea(trace, kFn_zaiWriteSingleOrListPCFParm, area);
    return;
  }

  writeListHeader(item, area, listSelector, cc, rc, trace);
  WriteRun run(area);
  // Writing leaves the bag as it is, so its item records stay where they are,
  // and the control area its size.
  const ItemRecords records(bag);
  const int32_t marks = markCount(area);
  uint8_t *const written = area->Written;
  const bool integerRuns = !trace && item->Type == JXITEM_INTEGER;
  for (int32_t j = position; j < count && ok(cc); ++j) {
    if (integerRuns) {
      j = writeIntegerRun(records, j, count, listSelector, written, marks, run);
      if (j == count) break;
    }
    zaiPROPERTY *other = records[j];
    int32_t selector = other->Selector;
    if (selector == JXSEL_INQUIRE) {
      int32_t mapped = 0;
      zaiMapInquiryFromCommand(area->Command, &mapped, cc, rc);
      if (!ok(cc)) break;
      selector = mapped;
    }
    const bool matches = selector == listSelector &&
                         (other->Type != JXITEM_STRING || other->StringCCSID == item->StringCCSID);
    if (!matches) {
      if (!bag->Reorder) break;
      continue;
    }
    // An integer never joins a string list, nor a string an integer list:
    // the open list of the other type is not the one being formed.
    if ((other->Type == JXITEM_INTEGER || other->Type == JXITEM_STRING) &&
        other->Type != item->Type) {
      setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
      break;
    }
    if (j >= marks) {
      writeListValue(other, run, cc, rc, trace);
    } else if (!written[j]) {
      writeListValue(other, run, cc, rc, trace);
      written[j] = 1;
    }
  }
  run.flush();
  if (ok(cc) && item->Type == JXITEM_STRING) {
    const int32_t padding =
        static_cast<int32_t>(roundUp4(area->StringListLength) - area->StringListLength);
    reserve(area, padding);
    if (area->StrList) add32(area->StrList, kParmStrucLength, padding);
  }
  traceArea(trace, kFn_zaiWriteSingleOrListPCFParm, area);
}

}  // namespace

extern "C" {

JXLONG zaiFindLargestString(zaiBAG *bag, zaiPCFBUFCTL *area, zaiPROPERTY *item, JXLONG start) {
  int32_t largest = -1;
  LeafFrame frame(kFn_zaiFindLargestString, &largest);
  const int32_t count = bag->Items->Count;
  if (start < 0 || start >= count) return largest;
  for (int32_t j = start; j < count; ++j) {
    const zaiPROPERTY *other = itemAt(bag, j);
    if (other->Selector == item->Selector && other->Type == JXITEM_STRING &&
        other->StringCCSID == item->StringCCSID) {
      if (!marked(area, j)) largest = std::max(largest, other->StringLength);
    } else if (!bag->Reorder) {
      break;
    }
  }
  return largest;
}

void zaiWritePCFHeader(zaiPCFBUFCTL *area, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  writeHeader(area, bag, cc, rc, tracing());
}

void zaiWriteSinglePCFParm(zaiPROPERTY *item, zaiPCFBUFCTL *area, PJXLONG cc, PJXLONG rc) {
  writeSingle(item, area, cc, rc, tracing());
}

void zaiWritePCFListHeader(zaiPROPERTY *item, zaiPCFBUFCTL *area, zaiBAG * /*bag*/,
                           JXLONG /*position*/, JXLONG listSelector, PJXLONG cc, PJXLONG rc) {
  writeListHeader(item, area, listSelector, cc, rc, tracing());
}

void zaiWritePCFListValue(zaiPROPERTY *item, zaiPCFBUFCTL *area, PJXLONG cc, PJXLONG rc) {
  WriteRun run(area);
  writeListValue(item, run, cc, rc, tracing());
  run.flush();
}

void zaiWriteSingleOrListPCFParm(zaiPROPERTY *item, zaiPCFBUFCTL *area, zaiBAG *bag,
                                 JXLONG position, PJXLONG cc, PJXLONG rc) {
  writeSingleOrList(item, area, bag, position, cc, rc, tracing());
}

void zaiBagToPCFMsg(zaiBAG *bag, JXLONG command, JXLONG bufferLength, void *buffer,
                    PJXLONG dataLength, PJXLONG msgType, char *format, PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiBagToPCFMsg, rc);
  zaiTraceBagContents(kComponent, kFn_zaiBagToPCFMsg, bag);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;

  const int32_t count = bag->Items->Count;
  ControlArea control(bag, count, cc, rc);
  zaiPCFBUFCTL *area = control.get();
  if (!area) {
    *dataLength = 0;
    return;
  }
  area->Command = command;
  area->Buffer = static_cast<char *>(buffer);
  area->BufferLength = bufferLength;

  const bool trace = tracing();
  writeHeader(area, bag, cc, rc, trace);
  if (ok(cc)) {
    int32_t pcfType = 0;
    zaiInquireInteger(bag, JXSYS_MSG_TYPE, JXIDX_ONLY, &pcfType, cc, rc);
    if (ok(cc) && bag->Reorder && pcfType == JXPCF_TYPE_COMMAND) {
      zaiWriteRequiredParmsForCmd(bag, area, cc, rc);
    }
  }
  const bool grouped = bag->ListForm || bag->Reorder;
  // Writing leaves the bag and the size of the control area as they are.
  const ItemRecords records(bag);
  const int32_t marks = markCount(area);
  const uint8_t *const written = area->Written;
  const bool integerSingles = !trace && !grouped;
  for (int32_t i = 0; i < count && ok(cc); ++i) {
    if (integerSingles && takesIntegerSingle(records[i])) {
      i = writeIntegerSingles(records, i, count, area);
      if (i == count) break;
    }
    // Items already written (marked) are only ever user items of an
    // integer or string type, so a run of them is skipped at once.
    if (grouped) {
      i = firstUnmarked(written, i, std::min(count, marks));
      if (i == count) break;
    }
    zaiPROPERTY *item = records[i];
    // A large bag's string values and the buffer beyond the running length
    // are asked for ahead of their turn.
    if (i + kItemsAhead < count) {
      const zaiPROPERTY *ahead = records[i + kItemsAhead];
      if (ahead->Type == JXITEM_STRING) __builtin_prefetch(ahead->Value.String);
      if (int64_t{area->RunningLength} + kBytesAhead < area->BufferLength) {
        __builtin_prefetch(area->Buffer + area->RunningLength + kBytesAhead, 1);
      }
    }
    if (item->Type == JXITEM_BAG) {
      setFailure(cc, rc, JXRC_NESTED_BAG_IN_MSG);
      break;
    }
    if (item->Selector < 0) continue;
    if (bag->ListForm) {
      writeSingleOrList(item, area, bag, i, cc, rc, trace);
    } else {
      writeSingle(item, area, cc, rc, trace);
    }
  }

  *dataLength = area->RunningLength;
  if (ok(cc)) {
    if (area->RunningLength > area->BufferLength) {
      setFailure(cc, rc, JXRC_BUFFER_LENGTH_ERROR);
    } else {
      setMessageKind(area->PCFType, msgType, format);
    }
  }
}

}  // extern "C"
