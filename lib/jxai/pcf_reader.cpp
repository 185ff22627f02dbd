// Reading a PCF message into a bag: the header sets the system items, each
// parameter structure adds one item per value. The bag is cleared first and
// keeps only its character-set identifier.
#include <jx/jxcs.h>

#include "pcf_format.hpp"

using jxai::Frame;
using jxai::setFailure;
using namespace jxai::pcf;

namespace {

constexpr const char *kHeaderLine = "PCF Header";
// How far ahead of the structure being read the reader asks for the bytes.
constexpr int64_t kReadAhead = 512;

bool ok(const int32_t *cc) {
  return *cc == JXCC_OK;
}

// Identifiers are checked after the structure: negative ones never name a
// user item, the bag's own range check applies to the rest.
void checkIdentifier(zaiBAG *bag, int32_t identifier, int32_t itemType, PJXLONG cc, PJXLONG rc) {
  if (identifier < 0) return setFailure(cc, rc, JXRC_SELECTOR_OUT_OF_RANGE);
  zaiCheckSelector(bag, identifier, itemType, cc, rc);
}

// Bytes of the structure each type is read from before its own length is known.
int32_t fixedLength(int32_t type) {
  switch (type) {
    case JXPCF_TYPE_INTEGER:
      return JXPCF_INTEGER_LENGTH;
    case JXPCF_TYPE_STRING:
      return JXPCF_STRING_FIXED;
    case JXPCF_TYPE_INTEGER_LIST:
      return JXPCF_INTEGER_LIST_FIXED;
    case JXPCF_TYPE_STRING_LIST:
      return JXPCF_STRING_LIST_FIXED;
    default:
      return 0;
  }
}

// The frame every structure reader shares: outputs cleared, the structure
// checked by `valid`, the identifier checked, the items added by `add`, and
// the structure's first bytes traced when anything failed.
template <typename Valid, typename Add>
void readStructure(uint16_t function, uint32_t traceBytes, int32_t itemType, const void *parm,
                   zaiBAG *bag, PJXLONG cc, PJXLONG rc, Valid valid, Add add) {
  Frame frame(function, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  const int32_t identifier = get32(parm, kParmParameter);
  if (!valid()) {
    setFailure(cc, rc, JXRC_BAD_PCF);
  } else {
    checkIdentifier(bag, identifier, itemType, cc, rc);
    if (ok(cc)) add(identifier);
  }
  if (!ok(cc)) traceData(function, nullptr, parm, traceBytes);
}

// The four structure readers: called directly by the walk, exported below.
void readInt(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  readStructure(
      kFn_zaiReadPCFIntParm, kIntTraceBytes, JXITEM_INTEGER, parm, bag, cc, rc,
      [&] {
        return get32(parm, kParmType) == JXPCF_TYPE_INTEGER &&
               get32(parm, kParmStrucLength) == JXPCF_INTEGER_LENGTH;
      },
      [&](int32_t identifier) { zaiAddInteger(bag, identifier, get32(parm, kIntValue), cc, rc); });
}

void readString(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  const int32_t length = get32(parm, kParmStrucLength);
  const int32_t stringLength = get32(parm, kStrLength);
  readStructure(
      kFn_zaiReadPCFStringParm, kStrTraceBytes, JXITEM_STRING, parm, bag, cc, rc,
      [&] {
        return get32(parm, kParmType) == JXPCF_TYPE_STRING && length % 4 == 0 &&
               stringLength >= 0 && length >= int64_t{stringLength} + JXPCF_STRING_FIXED;
      },
      [&](int32_t identifier) {
        zaiAddString(bag, identifier, stringLength, static_cast<const char *>(parm) + kStrBytes,
                     get32(parm, kStrCCSID), cc, rc);
      });
}

void readIntList(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  const int32_t length = get32(parm, kParmStrucLength);
  const int32_t count = get32(parm, kIntListCount);
  readStructure(
      kFn_zaiReadPCFIntListParm, kIntListTraceBytes, JXITEM_INTEGER, parm, bag, cc, rc,
      [&] {
        return get32(parm, kParmType) == JXPCF_TYPE_INTEGER_LIST && length % 4 == 0 && count >= 0 &&
               length >= JXPCF_INTEGER_LIST_FIXED + int64_t{kIntListValueSize} * count;
      },
      [&](int32_t identifier) {
        for (int32_t k = 0; k < count && ok(cc); ++k) {
          zaiAddInteger(bag, identifier, get32(parm, kIntListValues + kIntListValueSize * k), cc,
                        rc);
        }
      });
}

void readStringList(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  const int32_t length = get32(parm, kParmStrucLength);
  const int32_t count = get32(parm, kStrListCount);
  const int32_t stringLength = get32(parm, kStrListLength);
  readStructure(
      kFn_zaiReadPCFStringListParm, kStrListTraceBytes, JXITEM_STRING, parm, bag, cc, rc,
      [&] {
        return get32(parm, kParmType) == JXPCF_TYPE_STRING_LIST && length % 4 == 0 && count >= 0 &&
               stringLength >= 0 &&
               length >= JXPCF_STRING_LIST_FIXED + int64_t{count} * stringLength;
      },
      [&](int32_t identifier) {
        const char *strings = static_cast<const char *>(parm) + kStrListStrings;
        const int32_t ccsid = get32(parm, kStrListCCSID);
        for (int32_t k = 0; k < count && ok(cc); ++k) {
          zaiAddString(bag, identifier, stringLength,
                       strings + static_cast<size_t>(k) * stringLength, ccsid, cc, rc);
        }
      });
}

}  // namespace

extern "C" {

void zaiReadPCFHeader(const void *header, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiReadPCFHeader, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  traceData(kFn_zaiReadPCFHeader, kHeaderLine, header, JXPCF_HEADER_LENGTH);
  if (get32(header, kHdrStrucLength) != JXPCF_HEADER_LENGTH ||
      get32(header, kHdrVersion) != JXPCF_HEADER_VERSION || get32(header, kHdrParameterCount) < 0) {
    return setFailure(cc, rc, JXRC_BAD_PCF);
  }
  static constexpr struct {
    int32_t selector;
    int32_t offset;
  } kFields[] = {{JXSYS_MSG_TYPE, kHdrType},         {JXSYS_COMMAND, kHdrCommand},
                 {JXSYS_SEQUENCE, kHdrMsgSeqNumber}, {JXSYS_CONTROL, kHdrControl},
                 {JXSYS_COMP_CODE, kHdrCompCode},    {JXSYS_REASON, kHdrReason}};
  for (const auto &f : kFields) {
    zaiSetInteger(bag, f.selector, JXIDX_ONLY, get32(header, f.offset), cc, rc);
    if (!ok(cc)) return;
  }
}

void zaiPCFMsgToBag(JXLONG bufferLength, const void *buffer, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiPCFMsgToBag, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;

  int32_t ccsid = 0;
  zaiInquireInteger(bag, JXSYS_CCSID, JXIDX_ONLY, &ccsid, cc, rc);
  if (ok(cc)) {
    zaiClearBag(bag, cc, rc);
    if (ok(cc) && ccsid != 0) zaiSetInteger(bag, JXSYS_CCSID, JXIDX_ONLY, ccsid, cc, rc);
  }
  if (!ok(cc)) return;
  if (bufferLength < JXPCF_HEADER_LENGTH) return setFailure(cc, rc, JXRC_BAD_PCF);

  zaiReadPCFHeader(buffer, bag, cc, rc);
  if (!ok(cc)) return;

  const char *bytes = static_cast<const char *>(buffer);
  const int32_t count = get32(bytes, kHdrParameterCount);
  int64_t offset = get32(bytes, kHdrStrucLength);
  for (int32_t k = 0; k < count; ++k) {
    // The type and length words, and the fixed part a reader looks at, must
    // lie inside the buffer before they are read: a structure too short for
    // its fixed part fails its reader's length rule anyway.
    if (offset + kParmPrefix > bufferLength) return setFailure(cc, rc, JXRC_BAD_PCF);
    const char *parm = bytes + offset;
    if (offset + kReadAhead < bufferLength) __builtin_prefetch(parm + kReadAhead);
    const int32_t type = get32(parm, kParmType);
    frame.parms("msgOffset:%d, *pParmType:%d", static_cast<int32_t>(offset), type);
    if (type < JXPCF_TYPE_INTEGER || type > JXPCF_TYPE_STRING_LIST) {
      return setFailure(cc, rc, JXRC_BAD_PCF);
    }
    const int32_t length = get32(parm, kParmStrucLength);
    if (offset + length > bufferLength || offset + fixedLength(type) > bufferLength) {
      return setFailure(cc, rc, JXRC_BAD_PCF);
    }
    switch (type) {
      case JXPCF_TYPE_INTEGER:
        zaiReadPCFIntParm(parm, bag, cc, rc);
        break;
      case JXPCF_TYPE_STRING:
        zaiReadPCFStringParm(parm, bag, cc, rc);
        break;
      case JXPCF_TYPE_INTEGER_LIST:
        zaiReadPCFIntListParm(parm, bag, cc, rc);
        break;
      default:
        zaiReadPCFStringListParm(parm, bag, cc, rc);
        break;
    }
    if (!ok(cc)) return;
    offset += length;
  }
  zaiTraceBagContents(jxai::kComponent, kFn_zaiPCFMsgToBag, bag);
}

void zaiReadPCFIntParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  readInt(parm, bag, cc, rc);
}

void zaiReadPCFStringParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  readString(parm, bag, cc, rc);
}

void zaiReadPCFIntListParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  readIntList(parm, bag, cc, rc);
}

void zaiReadPCFStringListParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc) {
  readStringList(parm, bag, cc, rc);
}

}  // extern "C"
