// Messages in buffers the library obtains itself, sized by a first attempt.
#include <jx/jxcs.h>

#include "pcf_format.hpp"

using jxai::Frame;
using jxai::kComponent;
using jxai::setFailure;

namespace {
// Size of the first attempt; a message that needs more is written again
// into a buffer of exactly the length the first attempt reported.
constexpr int32_t kFirstBufferLength = 4096;
constexpr int kAttempts = 2;
}  // namespace

extern "C" {

void zaiBagToPCFMsgInJXAIBuffer(zaiBAG *bag, JXLONG command, void **buffer, PJXLONG dataLength,
                                PJXLONG msgType, char *format, PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiBagToPCFInJXAIBuffer, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  *buffer = nullptr;
  *dataLength = kFirstBufferLength;
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    void *block = nullptr;
    if (xcsGetMem(kComponent, kFn_zaiBagToPCFInJXAIBuffer, static_cast<size_t>(*dataLength),
                  &block) != XCS_OK) {
      return setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
    }
    zaiBagToPCFMsg(bag, command, *dataLength, block, dataLength, msgType, format, cc, rc);
    if (*cc == JXCC_OK) {
      *buffer = block;
      return;
    }
    // A failed last attempt keeps its buffer: the caller has no address to
    // release, and this path accepts that loss.
    if (*rc != JXRC_BUFFER_LENGTH_ERROR || attempt == kAttempts) return;
    xcsFreeMem(kComponent, block);
    *cc = JXCC_OK;
    *rc = JXRC_NONE;
  }
}

void zaiFreeJXAIBuffer(void **buffer) {
  int32_t rc = JXRC_NONE;
  Frame frame(kFn_zaiFreeJXAIBuffer, &rc);
  if (*buffer) xcsFreeMem(kComponent, *buffer);
  *buffer = nullptr;
}

}  // extern "C"
