// Helpers of the PCF suite: bags that clean up after themselves, expected
// messages built field by field, and the writer and reader called directly.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxai.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "outcome.hpp"
#include "pcf_format.hpp"
#include "pcf_message.hpp"

namespace pcftest {

// A bag created through the API and deleted at the end of the test.
class Bag {
 public:
  explicit Bag(int32_t options) { EXPECT_EQ(call(jxCreateBag, options, &handle), kOk); }
  ~Bag() {
    if (handle != JXHB_NONE) call(jxDeleteBag, &handle);
  }
  Bag(const Bag &) = delete;
  Bag &operator=(const Bag &) = delete;

  Bag &add(int32_t selector, int32_t value) {
    EXPECT_EQ(call(zaiAddInteger, block(), selector, value), kOk);
    return *this;
  }
  Bag &add(int32_t selector, std::string_view s, int32_t ccsid = kCcsid) {
    EXPECT_EQ(call(zaiAddString, block(), selector, int32_t(s.size()), s.data(), ccsid), kOk);
    return *this;
  }
  Bag &set(int32_t selector, int32_t value) {
    EXPECT_EQ(call(zaiSetInteger, block(), selector, JXIDX_ONLY, value), kOk);
    return *this;
  }
  int32_t integer(int32_t selector, int32_t index = JXIDX_ONLY) const {
    int32_t value = 0;
    EXPECT_EQ(call(zaiInquireInteger, block(), selector, index, &value), kOk) << selector;
    return value;
  }
  std::string string(int32_t selector, int32_t index = JXIDX_ONLY, int32_t *ccsid = nullptr) const {
    char buffer[512];
    int32_t length = 0, id = 0;
    EXPECT_EQ(call(zaiInquireString, block(), selector, index, int32_t(sizeof buffer), buffer,
                   &length, &id),
              kOk);
    if (ccsid) *ccsid = id;
    return std::string(buffer, static_cast<size_t>(length));
  }
  int32_t count(int32_t selector) const {
    int32_t n = -1;
    EXPECT_EQ(call(jxCountItems, handle, selector, &n), kOk);
    return n;
  }
  zaiBAG *block() const { return jxai::blockOf(handle); }

  JXHBAG handle = JXHB_NONE;
};

struct Written {
  Outcome outcome;
  int32_t dataLength = -1, msgType = -1;
  char format[8] = {};
  Bytes bytes;  // the first dataLength bytes of the buffer (at most its length)
};

// Writes a bag with the writer into a buffer prefilled with kUnwritten.
inline Written write(const Bag &bag, int32_t command, int32_t bufferLength = 8192) {
  Written w;
  Bytes buffer(static_cast<size_t>(bufferLength > 0 ? bufferLength : 0), kUnwritten);
  w.outcome = call(zaiBagToPCFMsg, bag.block(), command, bufferLength, buffer.data(), &w.dataLength,
                   &w.msgType, w.format);
  const int32_t kept = std::min(w.dataLength, bufferLength);
  if (kept > 0) w.bytes.assign(buffer.begin(), buffer.begin() + kept);
  return w;
}

// Reads a message from an exactly sized heap copy, so any read past its
// end is caught by the address sanitizer.
inline Outcome read(const Bag &bag, const Bytes &message, int32_t length = -1) {
  const int32_t n = length < 0 ? static_cast<int32_t>(message.size()) : length;
  std::vector<uint8_t> copy(message.begin(), message.begin() + n);
  return call(zaiPCFMsgToBag, n, copy.data(), bag.block());
}

// Parameter identifiers of a written message, in order.
inline std::vector<int32_t> identifiers(const Bytes &message) {
  std::vector<int32_t> ids;
  int32_t count = jxai::pcf::get32(message.data(), jxai::pcf::kHdrParameterCount);
  size_t offset = JXPCF_HEADER_LENGTH;
  for (int32_t k = 0; k < count && offset + 12 <= message.size(); ++k) {
    ids.push_back(jxai::pcf::get32(message.data() + offset, jxai::pcf::kParmParameter));
    offset += static_cast<size_t>(jxai::pcf::get32(message.data() + offset, 4));
  }
  return ids;
}

}  // namespace pcftest
