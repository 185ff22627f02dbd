#include "call_frame.hpp"

#include <stdio.h>
#include <string.h>

namespace jxai {
namespace {

constexpr const char *kRule = "__________";
// Labels of output and input parameters are padded to this width.
constexpr int kLabelWidth = 14;
constexpr size_t kLineMax = 128;
// Buffers longer than kWholeBufferMax show only their two ends.
constexpr int32_t kWholeBufferMax = 127;
constexpr int32_t kBufferEnd = 64;
constexpr const char *kElision = "..............";

}  // namespace

void ApiTrace::heading(const char *arrows) const {
  char line[kLineMax];
  snprintf(line, sizeof line, "%s %s", zuzt_funcs[function_ - kExportRowOffset], arrows);
  xtr_text_api(kRule);
  xtr_text_api(line);
}

void ApiTrace::value(const char *label, const void *address, uint32_t length) const {
  char line[kLineMax];
  snprintf(line, sizeof line, "%s:", label);
  xtr_text_api(line);
  xtr_data_api(kComponent, function_, address, length);
}

void ApiTrace::output(const char *label) const {
  char line[kLineMax];
  snprintf(line, sizeof line, "%-*s: Output Parm", kLabelWidth, label);
  xtr_text_api(line);
}

void ApiTrace::input(const char *label) const {
  char line[kLineMax];
  snprintf(line, sizeof line, "%-*s: Input  Parm", kLabelWidth, label);
  xtr_text_api(line);
}

void ApiTrace::valueOrNull(const char *label, const void *address, uint32_t length) const {
  if (address) {
    value(label, address, length);
    return;
  }
  char line[kLineMax];
  snprintf(line, sizeof line, "%s: NULL", label);
  xtr_text_api(line);
}

void ApiTrace::buffer(const char *label, const void *address, int32_t length) const {
  char line[kLineMax];
  snprintf(line, sizeof line, "%s:", label);
  xtr_text_api(line);
  if (!address || length <= 0 ||
      xcsCheckPointer(address, static_cast<size_t>(length), XCS_CHECK_READ) != 0) {
    xtr_text_api("NULL");
    return;
  }
  const char *bytes = static_cast<const char *>(address);
  if (length > kWholeBufferMax) {
    xtr_data_api(kComponent, function_, bytes, kBufferEnd);
    xtr_text_api(kElision);
    xtr_data_api(kComponent, function_, bytes + length - kBufferEnd, kBufferEnd);
  } else {
    xtr_data_api(kComponent, function_, bytes, static_cast<uint32_t>(length));
  }
}

void ApiTrace::text(const char *line) const {
  xtr_text_api(line);
}

void ApiTrace::openEntry() const {
  heading(">>");
}

void ApiTrace::closeEntry() const {
  output("Compcode");
  output("Reason");
}

void ApiTrace::openExit() const {
  heading("<<");
}

void ApiTrace::closeExit(const int32_t *compCode, const int32_t *reason) const {
  value("Compcode", compCode);
  value("Reason", reason);
}

}  // namespace jxai
