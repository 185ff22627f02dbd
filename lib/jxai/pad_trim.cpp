// Blank padding and trimming between null-terminated strings and the
// fixed-width, blank-padded fields of queue-manager structures.
#include "pad_trim.hpp"

#include <string.h>

#include "call_frame.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::LeafFrame;

namespace {
constexpr char kBlank = ' ';

// Length of a caller's string for the trace; 0 when it cannot be read.
int32_t traceLength(const char *s) {
  if (!s || xcsCheckPointer(s, 1, XCS_CHECK_READ) != 0) return 0;
  return static_cast<int32_t>(strlen(s));
}
}  // namespace

extern "C" {

char *zaiPadString(const char *string, char *buffer, int32_t length) {
  int32_t rc = 0;
  LeafFrame frame(kFn_zaiPadString, &rc);
  frame.parms("pString:%p, pBuffer:%p, length:%d", static_cast<const void *>(string),
              static_cast<void *>(buffer), length);
  const size_t n = string ? strlen(string) : 0;
  const size_t l = static_cast<size_t>(length);
  if (string != buffer && n > 0 && l > 0) memcpy(buffer, string, n < l ? n : l);
  if (n < l) memset(buffer + n, kBlank, l - n);
  return buffer;
}

char *zaiTrimBuffer(const char *buffer, int32_t length, char *string) {
  int32_t rc = 0;
  LeafFrame frame(kFn_zaiTrimBuffer, &rc);
  frame.parms("pBuffer:%p, length:%d, pString:%p", static_cast<const void *>(buffer), length,
              static_cast<void *>(string));
  if (string != buffer && length > 0) memcpy(string, buffer, static_cast<size_t>(length));
  int32_t end = length;
  while (end > 0 && string[end - 1] == kBlank) --end;
  string[end] = '\0';
  return string;
}

void zaiJXPad(const JXCHAR *String, JXLONG BufferLength, PJXCHAR Buffer, PJXLONG CompCode,
              PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXPad, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.buffer("String", String, traceLength(String));
    t.value("BufferLength", &BufferLength);
    t.output("Buffer");
  });
  [&] {
    if (BufferLength < 0) return f.fail(JXRC_BUFFER_LENGTH_ERROR);
    if (BufferLength > 0 && (!Buffer || xcsCheckPointer(Buffer, static_cast<size_t>(BufferLength),
                                                        XCS_CHECK_WRITE) != 0)) {
      return f.fail(JXRC_BUFFER_ERROR);
    }
    if (String && xcsCheckPointer(String, 1, XCS_CHECK_READ) != 0) return f.fail(JXRC_BAD_STRING);
    const size_t n = String ? strlen(String) : 0;
    zaiPadString(String, Buffer, BufferLength);
    if (n > static_cast<size_t>(BufferLength)) {
      *CompCode = JXCC_WARNING;
      *Reason = JXRC_STRING_TRUNCATED;
    }
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("String");
    t.input("BufferLength");
    t.buffer("Buffer", Buffer, *CompCode == JXCC_FAILED ? 0 : BufferLength);
  });
}

void zaiJXTrim(JXLONG BufferLength, const JXCHAR *Buffer, PJXCHAR String, PJXLONG CompCode,
               PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXTrim, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("BufferLength", &BufferLength);
    t.buffer("Buffer", Buffer, BufferLength);
    t.output("String");
  });
  [&] {
    if (BufferLength < 0) return f.fail(JXRC_BUFFER_LENGTH_ERROR);
    if (BufferLength > 0 && (!Buffer || xcsCheckPointer(Buffer, static_cast<size_t>(BufferLength),
                                                        XCS_CHECK_READ) != 0)) {
      return f.fail(JXRC_BUFFER_ERROR);
    }
    if (xcsCheckPointer(String, static_cast<size_t>(BufferLength) + 1, XCS_CHECK_WRITE) != 0) {
      return f.fail(JXRC_BAD_STRING);
    }
    zaiTrimBuffer(Buffer, BufferLength, String);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("BufferLength");
    t.input("Buffer");
    t.buffer("String", String, *CompCode == JXCC_FAILED ? 0 : static_cast<int32_t>(strlen(String)));
  });
}

}  // extern "C"
