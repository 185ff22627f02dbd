// Fuzz target of the PCF reader. The first byte chooses the bag's options,
// the rest is the message, read through jxBufferToBag at an odd address.
// A message that reads cleanly into a bag without list form must write back
// and read again to the same number of items.
//
// A string list of empty strings is valid at any count, so a few bytes can
// ask for millions of items; such inputs are skipped to keep the runs fast
// (they only cost time and storage, which is what they are meant to do).
#include <jx/jxai.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

namespace {

constexpr uint8_t kCheckSelectorsBit = 1;
constexpr uint8_t kListFormBit = 2;

constexpr int32_t kMaxEmptyStrings = 4096;
constexpr size_t kCountOffset = 32;
constexpr size_t kStrListCount = 16;
constexpr size_t kStrListLength = 20;

int32_t field(const uint8_t *message, size_t length, size_t offset) {
  int32_t v = 0;
  if (offset + sizeof v <= length) memcpy(&v, message + offset, sizeof v);
  return v;
}

bool asksForMillions(const uint8_t *message, size_t length) {
  if (length < JXPCF_HEADER_LENGTH) return false;
  const int32_t count = field(message, length, kCountOffset);
  size_t offset = JXPCF_HEADER_LENGTH;
  for (int32_t k = 0; k < count && offset + 8 <= length; ++k) {
    const int32_t type = field(message, length, offset);
    const int32_t strucLength = field(message, length, offset + 4);
    if (type == JXPCF_TYPE_STRING_LIST && field(message, length, offset + kStrListLength) == 0 &&
        field(message, length, offset + kStrListCount) > kMaxEmptyStrings) {
      return true;
    }
    if (strucLength <= 0) return false;
    offset += static_cast<size_t>(strucLength);
  }
  return false;
}

int32_t userItems(JXHBAG bag) {
  int32_t n = -1, cc, rc;
  jxCountItems(bag, JXSEL_USER, &n, &cc, &rc);
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0 || size > INT32_MAX) return 0;
  int32_t options = 0;
  if (data[0] & kCheckSelectorsBit) options |= JXBAG_CHECK_SELECTORS;
  if (data[0] & kListFormBit) options |= JXBAG_LIST_FORM | JXBAG_REORDER;
  const int32_t length = static_cast<int32_t>(size - 1);
  if (asksForMillions(data + 1, size - 1)) return 0;

  JXHBAG bag = JXHB_NONE;
  int32_t cc, rc;
  jxCreateBag(options, &bag, &cc, &rc);
  if (cc != JXCC_OK) abort();
  jxBufferToBag(JXHB_NONE, length, data + 1, bag, &cc, &rc);
  if (cc == JXCC_OK && !(options & JXBAG_LIST_FORM)) {
    int32_t needed = 0;
    jxBagToBuffer(JXHB_NONE, bag, 0, nullptr, &needed, &cc, &rc);
    std::vector<uint8_t> out(static_cast<size_t>(needed));
    jxBagToBuffer(JXHB_NONE, bag, needed, out.data(), &needed, &cc, &rc);
    if (cc != JXCC_OK) abort();
    JXHBAG again = JXHB_NONE;
    jxCreateBag(options, &again, &cc, &rc);
    jxBufferToBag(JXHB_NONE, needed, out.data(), again, &cc, &rc);
    if (cc != JXCC_OK || userItems(again) != userItems(bag)) abort();
    jxDeleteBag(&again, &cc, &rc);
  }
  jxDeleteBag(&bag, &cc, &rc);
  return 0;
}
