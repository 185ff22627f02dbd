// jxPutBag and jxGetBag: a bag as a PCF message on a queue the caller opened,
// with the caller's own descriptor and options.
#include <jx/jxcs.h>
#include <string.h>

#include "call_frame.hpp"
#include "messaging.hpp"
#include "pcf_format.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::kComponent;

namespace {

// The part of a descriptor each call must be able to use.
constexpr size_t kPutMdLength = JXMD_LENGTH_1;
constexpr size_t kGetMdLength = offsetof(JXMD, BackoutCount);
constexpr size_t kGmoOptionsEnd = offsetof(JXGMO, WaitInterval);
// A message that still does not fit a buffer of its reported length (it may
// grow in conversion) is given this many times that length, once.
constexpr int64_t kConversionGrowth = 3;

const char *const kPcfFormats[] = {JXFMT_ADMIN, JXFMT_EVENT, JXFMT_PCF};

// Descriptors and options may sit at any address: fields are copied out.
int32_t field(const void *record, size_t offset) {
  int32_t v;
  memcpy(&v, static_cast<const char *>(record) + offset, sizeof v);
  return v;
}
void setField(void *record, size_t offset, int32_t v) {
  memcpy(static_cast<char *>(record) + offset, &v, sizeof v);
}
const char *formatOf(const void *md) {
  return static_cast<const char *>(md) + offsetof(JXMD, Format);
}

// The caller's selection and conversion request, put back before each retry.
struct Selection {
  uint8_t msgId[JX_MSG_ID_LENGTH];
  uint8_t correlId[JX_CORREL_ID_LENGTH];
  int32_t ccsid = 0, encoding = 0;
  bool convert = false;

  void keep(const void *md) {
    memcpy(msgId, static_cast<const char *>(md) + offsetof(JXMD, MsgId), sizeof msgId);
    memcpy(correlId, static_cast<const char *>(md) + offsetof(JXMD, CorrelId), sizeof correlId);
  }
  void keepConversion(const void *md) {
    convert = true;
    ccsid = field(md, offsetof(JXMD, CodedCharSetId));
    encoding = field(md, offsetof(JXMD, Encoding));
  }
  void restore(void *md) const {
    memcpy(static_cast<char *>(md) + offsetof(JXMD, MsgId), msgId, sizeof msgId);
    memcpy(static_cast<char *>(md) + offsetof(JXMD, CorrelId), correlId, sizeof correlId);
    if (!convert) return;
    setField(md, offsetof(JXMD, CodedCharSetId), ccsid);
    setField(md, offsetof(JXMD, Encoding), encoding);
  }
};

bool isPcfFormat(const char *format) {
  for (const char *f : kPcfFormats)
    if (memcmp(format, f, JX_FORMAT_LENGTH) == 0) return true;
  return false;
}

bool getBuffer(int64_t length, void **buffer) {
  return xcsGetMem(kComponent, kFn_zaiJXGetBag, static_cast<size_t>(length), buffer) == XCS_OK;
}

}  // namespace

extern "C" {

void zaiJXPutBag(JXHCONN Hconn, JXHOBJ Hobj, void *Msgdesc, void *Putmsgopts, JXHBAG Bag,
                 PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXPutBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Hconn", &Hconn);
    t.value("Hobj", &Hobj);
    t.text("Msgdesc       : Refer to JXPUT");
    t.text("Putmsgopts    : Refer to JXPUT");
    t.value("Bag", &Bag);
  });
  [&] {
    zaiBAG *bag = jxai::resolveBag(Bag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (xcsCheckPointer(Msgdesc, kPutMdLength, XCS_CHECK_UPDATE) != 0) {
      return f.fail(JXRC_MD_ERROR);
    }
    if (field(Msgdesc, offsetof(JXMD, Encoding)) != JXENC_NATIVE) {
      return f.fail(JXRC_BAD_ENCODING);
    }
    if (!isPcfFormat(formatOf(Msgdesc))) return f.fail(JXRC_BAD_FORMAT);
    JXLONG command = 0;
    zaiInquireInteger(bag, JXSYS_COMMAND, JXIDX_ONLY, &command, CompCode, Reason);
    if (f.failed()) return;
    // The caller's descriptor is sent as the caller set it.
    void *message = nullptr;
    JXLONG length = 0, msgType = 0;
    char format[JX_FORMAT_LENGTH];
    zaiBagToPCFMsgInJXAIBuffer(bag, command, &message, &length, &msgType, format, CompCode, Reason);
    if (!f.failed()) {
      zaiSendPCFMsg(Hconn, Hobj, Msgdesc, Putmsgopts, length, message, CompCode, Reason);
    }
    if (message) zaiFreeJXAIBuffer(&message);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Hconn");
    t.input("Hobj");
    t.valueOrNull("Msgdesc", Msgdesc, JXMD_LENGTH_2);
    t.text("Putmsgopts    : Refer to JXPUT");
    t.input("Bag");
  });
}

void zaiJXGetBag(JXHCONN Hconn, JXHOBJ Hobj, void *Msgdesc, void *Getmsgopts, JXHBAG Bag,
                 PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXGetBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Hconn", &Hconn);
    t.value("Hobj", &Hobj);
    t.text("Msgdesc       : Refer to JXGET");
    t.text("Getmsgopts    : Refer to JXGET");
    t.value("Bag", &Bag);
  });
  [&] {
    zaiBAG *bag = nullptr;
    if (Bag != JXHB_NONE) {
      if (!(bag = jxai::resolveBag(Bag))) return f.fail(JXRC_BAD_HANDLE);
      if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    }
    if (xcsCheckPointer(Msgdesc, kGetMdLength, XCS_CHECK_READ) != 0) return f.fail(JXRC_MD_ERROR);
    Selection selection;
    selection.keep(Msgdesc);
    if (xcsCheckPointer(Getmsgopts, kGmoOptionsEnd, XCS_CHECK_READ) != 0) {
      return f.fail(JXRC_GMO_ERROR);
    }
    const size_t optionsAt = offsetof(JXGMO, Options);
    const int32_t callerOptions = field(Getmsgopts, optionsAt);
    if (callerOptions & JXGMO_CONVERT) {
      selection.keepConversion(Msgdesc);
      if (selection.encoding != JXENC_NATIVE) return f.fail(JXRC_BAD_ENCODING);
    }
    if (callerOptions & JXGMO_ACCEPT_TRUNCATED_MSG) return f.fail(JXRC_OPTIONS_ERROR);
    // Without a bag the message is removed whole, whatever its length: a
    // zero-length buffer and the caller's options accepting truncation.
    int64_t length = 0;
    void *buffer = nullptr;
    if (bag) {
      length = jxai::msg::kFirstReplyLength;
      if (!getBuffer(length, &buffer)) return f.fail(JXRC_STORAGE_NOT_AVAILABLE);
    } else {
      setField(Getmsgopts, optionsAt, callerOptions | JXGMO_ACCEPT_TRUNCATED_MSG);
    }
    JXLONG dataLength = 0;
    for (;;) {
      zaiReceivePCFMsg(Hconn, Hobj, Msgdesc, Getmsgopts, static_cast<JXLONG>(length), buffer,
                       &dataLength, CompCode, Reason);
      if (*Reason != JXRC_TRUNCATED_MSG_FAILED || !bag ||
          length == kConversionGrowth * dataLength) {
        break;
      }
      length = length == dataLength ? kConversionGrowth * dataLength : dataLength;
      zaiFreeJXAIBuffer(&buffer);
      if (!getBuffer(length, &buffer)) {
        f.fail(JXRC_STORAGE_NOT_AVAILABLE);
        break;
      }
      selection.restore(Msgdesc);
    }
    // A discarded message is not read, so its format and encoding are not
    // looked at either, whatever its length.
    if (bag && !f.failed()) {
      if (!isPcfFormat(formatOf(Msgdesc))) {
        f.fail(JXRC_BAD_FORMAT);
      } else if (field(Msgdesc, offsetof(JXMD, Encoding)) != JXENC_NATIVE) {
        f.fail(JXRC_BAD_ENCODING);
      } else {
        zaiPCFMsgToBag(dataLength, buffer, bag, CompCode, Reason);
      }
    }
    if (buffer) zaiFreeJXAIBuffer(&buffer);
    if (bag) return;
    setField(Getmsgopts, optionsAt, callerOptions);
    if (*CompCode == JXCC_WARNING && *Reason == JXRC_TRUNCATED_MSG_ACCEPTED) {
      *CompCode = JXCC_OK;
      *Reason = JXRC_NONE;
    }
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Hconn");
    t.input("Hobj");
    t.valueOrNull("Msgdesc", Msgdesc, JXMD_LENGTH_2);
    t.text("Getmsgopts    : Refer to JXGET");
    t.input("Bag");
  });
}

}  // extern "C"
