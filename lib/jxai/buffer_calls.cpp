// jxBufferToBag and jxBagToBuffer: the checks in front of the PCF reader and
// writer for messages held in the caller's own memory.
#include <jx/jxcs.h>
#include <jx/jxqm.h>

#include "pcf_format.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;

extern "C" {

void zaiJXBufferToBag(JXHBAG OptionsBag, JXLONG BufferLength, const void *Buffer, JXHBAG DataBag,
                      PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXBufferToBag, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("OptionsBag", &OptionsBag);
    t.value("Bufferlength", &BufferLength);
    t.buffer("Buffer", Buffer, BufferLength);
    t.value("DataBag", &DataBag);
  });
  [&] {
    if (OptionsBag != JXHB_NONE) return f.fail(JXRC_OPTIONS_ERROR);
    if (BufferLength < 0) return f.fail(JXRC_BUFFER_LENGTH_ERROR);
    if (BufferLength > 0 &&
        xcsCheckPointer(Buffer, static_cast<size_t>(BufferLength), XCS_CHECK_READ) != 0) {
      return f.fail(JXRC_BUFFER_ERROR);
    }
    zaiBAG *bag = jxai::resolveBag(DataBag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    if (bag->SystemBag) return f.fail(JXRC_SYSTEM_BAG_READ_ONLY);
    zaiPCFMsgToBag(BufferLength, Buffer, bag, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("OptionsBag");
    t.input("BufferLength");
    t.input("Buffer");
    t.input("DataBag");
  });
}

void zaiJXBagToBuffer(JXHBAG OptionsBag, JXHBAG DataBag, JXLONG BufferLength, void *Buffer,
                      PJXLONG DataLength, PJXLONG CompCode, PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXBagToBuffer, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("OptionsBag", &OptionsBag);
    t.value("DataBag", &DataBag);
    t.value("Bufferlength", &BufferLength);
    t.output("Buffer");
    t.output("DataLength");
  });
  [&] {
    if (OptionsBag != JXHB_NONE) return f.fail(JXRC_OPTIONS_ERROR);
    if (BufferLength > 0 &&
        xcsCheckPointer(Buffer, static_cast<size_t>(BufferLength), XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BUFFER_ERROR);
    }
    if (xcsCheckPointer(DataLength, sizeof *DataLength, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_DATA_LENGTH_ERROR);
    }
    zaiBAG *bag = jxai::resolveBag(DataBag);
    if (!bag) return f.fail(JXRC_BAD_HANDLE);
    int32_t command = 0;
    zaiInquireInteger(bag, JXSYS_COMMAND, JXIDX_ONLY, &command, CompCode, Reason);
    if (f.failed()) return;
    // The writer also reports a message type and format; this call has no use for them.
    int32_t msgType = 0;
    char format[JX_FORMAT_LENGTH];
    zaiBagToPCFMsg(bag, command, BufferLength, Buffer, DataLength, &msgType, format, CompCode,
                   Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("OptionsBag");
    t.input("DataBag");
    t.input("BufferLength");
    t.buffer("Buffer", Buffer, BufferLength);
    t.valueOrNull("Datalength", DataLength);
  });
}

}  // extern "C"
