// Helpers of the PCF suite: bags that clean up after themselves, expected
// messages built field by field, and the writer and reader called directly.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxai.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "pcf_format.hpp"
#include "pcf_message.hpp"

namespace pcftest {

// A bag created through the API and deleted at the end of the test.
class Bag {
 public:
  explicit Bag(int32_t options) {
    int32_t cc = -1, rc = -1;
    jxCreateBag(options, &handle, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
  }
  ~Bag() {
    int32_t cc, rc;
    if (handle != JXHB_NONE) jxDeleteBag(&handle, &cc, &rc);
  }
  Bag(const Bag &) = delete;
  Bag &operator=(const Bag &) = delete;

  Bag &add(int32_t selector, int32_t value) {
    int32_t cc = -1, rc = -1;
    zaiAddInteger(block(), selector, value, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
    return *this;
  }
  Bag &add(int32_t selector, std::string_view s, int32_t ccsid = kCcsid) {
    int32_t cc = -1, rc = -1;
    zaiAddString(block(), selector, static_cast<int32_t>(s.size()), s.data(), ccsid, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
    return *this;
  }
  Bag &set(int32_t selector, int32_t value) {
    int32_t cc = -1, rc = -1;
    zaiSetInteger(block(), selector, JXIDX_ONLY, value, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
    return *this;
  }
  int32_t integer(int32_t selector, int32_t index = JXIDX_ONLY) const {
    int32_t cc = -1, rc = -1, value = 0;
    zaiInquireInteger(block(), selector, index, &value, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
    return value;
  }
  std::string string(int32_t selector, int32_t index = JXIDX_ONLY, int32_t *ccsid = nullptr) const {
    char buffer[512];
    int32_t cc = -1, rc = -1, length = 0, id = 0;
    zaiInquireString(block(), selector, index, sizeof buffer, buffer, &length, &id, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
    if (ccsid) *ccsid = id;
    return std::string(buffer, static_cast<size_t>(length));
  }
  int32_t count(int32_t selector) const {
    int32_t cc = -1, rc = -1, n = -1;
    jxCountItems(handle, selector, &n, &cc, &rc);
    EXPECT_EQ(cc, JXCC_OK) << rc;
    return n;
  }
  zaiBAG *block() const { return jxai::blockOf(handle); }

  JXHBAG handle = JXHB_NONE;
};

struct Written {
  int32_t cc = -1, rc = -1, dataLength = -1, msgType = -1;
  char format[8] = {};
  Bytes bytes;  // the first dataLength bytes of the buffer (at most its length)
};

// Writes a bag with the writer into a buffer prefilled with kUnwritten.
inline Written write(const Bag &bag, int32_t command, int32_t bufferLength = 8192) {
  Written w;
  Bytes buffer(static_cast<size_t>(bufferLength > 0 ? bufferLength : 0), kUnwritten);
  zaiBagToPCFMsg(bag.block(), command, bufferLength, buffer.data(), &w.dataLength, &w.msgType,
                 w.format, &w.cc, &w.rc);
  const int32_t kept = std::min(w.dataLength, bufferLength);
  if (kept > 0) w.bytes.assign(buffer.begin(), buffer.begin() + kept);
  return w;
}

struct Result {
  int32_t cc = -1, rc = -1;
};

// Reads a message from an exactly sized heap copy, so any read past its
// end is caught by the address sanitizer.
inline Result read(const Bag &bag, const Bytes &message, int32_t length = -1) {
  Result r;
  const int32_t n = length < 0 ? static_cast<int32_t>(message.size()) : length;
  std::vector<uint8_t> copy(message.begin(), message.begin() + n);
  zaiPCFMsgToBag(n, copy.data(), bag.block(), &r.cc, &r.rc);
  return r;
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
