// PCF messages: field offsets of the header and the four parameter
// structures, the writer's buffer control area, and the reader and writer
// routines. Messages may sit at any address in a caller's buffer, so every
// field is read and written through memcpy, never through a cast pointer.
#pragma once

#include <jx/jxai.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "bag.hpp"
#include "call_frame.hpp"

namespace jxai::pcf {

// Header fields.
inline constexpr int32_t kHdrType = 0;
inline constexpr int32_t kHdrStrucLength = 4;
inline constexpr int32_t kHdrVersion = 8;
inline constexpr int32_t kHdrCommand = 12;
inline constexpr int32_t kHdrMsgSeqNumber = 16;
inline constexpr int32_t kHdrControl = 20;
inline constexpr int32_t kHdrCompCode = 24;
inline constexpr int32_t kHdrReason = 28;
inline constexpr int32_t kHdrParameterCount = 32;

// Fields every parameter structure starts with.
inline constexpr int32_t kParmType = 0;
inline constexpr int32_t kParmStrucLength = 4;
inline constexpr int32_t kParmParameter = 8;
// Type and length words: what the walk reads before choosing a reader.
inline constexpr int32_t kParmPrefix = 8;

inline constexpr int32_t kIntValue = 12;

inline constexpr int32_t kStrCCSID = 12;
inline constexpr int32_t kStrLength = 16;
inline constexpr int32_t kStrBytes = JXPCF_STRING_FIXED;

inline constexpr int32_t kIntListCount = 12;
inline constexpr int32_t kIntListValues = JXPCF_INTEGER_LIST_FIXED;
inline constexpr int32_t kIntListValueSize = 4;

inline constexpr int32_t kStrListCCSID = 12;
inline constexpr int32_t kStrListCount = 16;
inline constexpr int32_t kStrListLength = 20;
inline constexpr int32_t kStrListStrings = JXPCF_STRING_LIST_FIXED;

// Bytes of a failing structure shown in the trace, by structure.
inline constexpr uint32_t kIntTraceBytes = 12;
inline constexpr uint32_t kStrTraceBytes = 20;
inline constexpr uint32_t kIntListTraceBytes = 16;
inline constexpr uint32_t kStrListTraceBytes = 24;

inline int32_t get32(const void *base, int32_t offset) {
  int32_t v;
  memcpy(&v, static_cast<const char *>(base) + offset, sizeof v);
  return v;
}
inline void put32(void *base, int32_t offset, int32_t v) {
  memcpy(static_cast<char *>(base) + offset, &v, sizeof v);
}
// Wrapping add: a field of a caller's buffer may hold anything.
inline void add32(void *base, int32_t offset, int32_t delta) {
  put32(base, offset,
        static_cast<int32_t>(static_cast<uint32_t>(get32(base, offset)) +
                             static_cast<uint32_t>(delta)));
}
inline int64_t roundUp4(int64_t n) {
  return (n + 3) & ~int64_t{3};
}

}  // namespace jxai::pcf

extern "C" {

#define ZAI_PCFBC_EYE "ZPBC"
#define ZAI_PCFBC_FRAME_MARKS 40 /* marks of the area kept in the writer's frame */

// Error words of the writer's failure records.
#define ZAI_PCF_BAD_ITEM 0x20006122   /* an item of a type the writer cannot write */
#define ZAI_PCF_BAD_LOOKUP 0x20006118 /* an unexpected outcome of a selector lookup */

// The writer's working record for one message.
typedef struct zaiPCFBUFCTL {
  char StrucId[4];            /* "ZPBC" */
  int32_t AreaSize;           /* bytes of this area, marks included */
  int32_t Command;            /* written into the header */
  int32_t PCFType;            /* system item -2, read when the header is written */
  char *Buffer;               /* caller's output buffer */
  int32_t BufferLength;       /* bytes available at Buffer */
  int32_t RunningLength;      /* bytes the message needs so far */
  char *Header;               /* the written header; null when it did not fit */
  char *IntList;              /* integer list being filled; null when it did not fit */
  char *StrList;              /* string list being filled; null when it did not fit */
  int32_t CommonStringLength; /* length of every string of the string list */
  int32_t StringListLength;   /* the string list's header plus its values so far */
  uint8_t Written[1];         /* one mark per item position: already written */
} zaiPCFBUFCTL;

#define ZAI_PCFBC_FIXED offsetof(zaiPCFBUFCTL, Written)

JXAI_EXPORT void zaiPCFMsgToBag(JXLONG bufferLength, const void *buffer, zaiBAG *bag, PJXLONG cc,
                                PJXLONG rc);
JXAI_EXPORT void zaiReadPCFHeader(const void *header, zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiReadPCFIntParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiReadPCFStringParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiReadPCFIntListParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiReadPCFStringListParm(const void *parm, zaiBAG *bag, PJXLONG cc, PJXLONG rc);

JXAI_EXPORT void zaiBagToPCFMsg(zaiBAG *bag, JXLONG command, JXLONG bufferLength, void *buffer,
                                PJXLONG dataLength, PJXLONG msgType, char *format, PJXLONG cc,
                                PJXLONG rc);
JXAI_EXPORT void zaiBagToPCFMsgInJXAIBuffer(zaiBAG *bag, JXLONG command, void **buffer,
                                            PJXLONG dataLength, PJXLONG msgType, char *format,
                                            PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiFreeJXAIBuffer(void **buffer);

JXAI_EXPORT void zaiWritePCFHeader(zaiPCFBUFCTL *area, zaiBAG *bag, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiWriteSinglePCFParm(zaiPROPERTY *item, zaiPCFBUFCTL *area, PJXLONG cc,
                                       PJXLONG rc);
JXAI_EXPORT void zaiWriteSingleOrListPCFParm(zaiPROPERTY *item, zaiPCFBUFCTL *area, zaiBAG *bag,
                                             JXLONG position, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT JXLONG zaiFindLargestString(zaiBAG *bag, zaiPCFBUFCTL *area, zaiPROPERTY *item,
                                        JXLONG start);
JXAI_EXPORT void zaiWritePCFListHeader(zaiPROPERTY *item, zaiPCFBUFCTL *area, zaiBAG *bag,
                                       JXLONG position, JXLONG listSelector, PJXLONG cc,
                                       PJXLONG rc);
JXAI_EXPORT void zaiWritePCFListValue(zaiPROPERTY *item, zaiPCFBUFCTL *area, PJXLONG cc,
                                      PJXLONG rc);
JXAI_EXPORT void zaiMapInquiryFromCommand(JXLONG command, PJXLONG selector, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiWriteRequiredParmsForCmd(zaiBAG *bag, zaiPCFBUFCTL *area, PJXLONG cc,
                                             PJXLONG rc);
JXAI_EXPORT void zaiWriteMandatoryParm(zaiBAG *bag, zaiPCFBUFCTL *area, JXLONG selector,
                                       JXLONG type, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiWriteOptionalParm(zaiBAG *bag, zaiPCFBUFCTL *area, JXLONG selector, JXLONG type,
                                      PJXLONG cc, PJXLONG rc);
}

namespace jxai::pcf {

// Internal parameter tracing is on for the calling thread.
inline bool tracing() {
  const xihTHREADANCHOR *t = xihCurrentThread;
  return t && t->TraceActive && parmTraceOn();
}

// A text line (none when null) and a data dump attributed to `function`,
// when tracing is on.
void traceData(uint16_t function, const char *text, const void *address, uint32_t length);

// Failure record of an item the writer met: `label` and the item record.
void recordItemFault(uint16_t probe, uint32_t error, uint32_t insert1, const char *label,
                     const zaiPROPERTY *item);

}  // namespace jxai::pcf
