// PCF messages built field by field, in the order of their fields, for
// tests that compare exact bytes or feed crafted messages.
#pragma once

#include <jx/jxai.h>
#include <string.h>

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace pcftest {

// Buffers are filled with this before writing: padding the writer leaves
// unwritten still holds it afterwards.
inline constexpr uint8_t kUnwritten = 0xAA;
inline constexpr int32_t kCcsid = 850;

using Bytes = std::vector<uint8_t>;

// An expected message, built in the order of its fields.
class Msg {
 public:
  Msg &i32(int32_t v) {
    const auto *p = reinterpret_cast<const uint8_t *>(&v);
    data.insert(data.end(), p, p + sizeof v);
    return *this;
  }
  Msg &raw(std::string_view s) {
    data.insert(data.end(), s.begin(), s.end());
    return *this;
  }
  Msg &fill(size_t n, uint8_t byte) {
    data.insert(data.end(), n, byte);
    return *this;
  }
  Msg &header(int32_t type, int32_t command, int32_t count, int32_t seq = 1, int32_t control = 1,
              int32_t compCode = 0, int32_t reason = 0) {
    for (int32_t v : {type, JXPCF_HEADER_LENGTH, JXPCF_HEADER_VERSION, command, seq, control,
                      compCode, reason, count})
      i32(v);
    return *this;
  }
  Msg &integer(int32_t selector, int32_t value) {
    return i32(JXPCF_TYPE_INTEGER).i32(JXPCF_INTEGER_LENGTH).i32(selector).i32(value);
  }
  Msg &string(int32_t selector, std::string_view s, int32_t ccsid = kCcsid,
              uint8_t pad = kUnwritten) {
    const int32_t length = static_cast<int32_t>(s.size());
    const int32_t padded = (length + 3) & ~3;
    i32(JXPCF_TYPE_STRING).i32(JXPCF_STRING_FIXED + padded).i32(selector).i32(ccsid).i32(length);
    return raw(s).fill(static_cast<size_t>(padded - length), pad);
  }
  Msg &intList(int32_t selector, std::initializer_list<int32_t> values) {
    const int32_t n = static_cast<int32_t>(values.size());
    i32(JXPCF_TYPE_INTEGER_LIST).i32(JXPCF_INTEGER_LIST_FIXED + 4 * n).i32(selector).i32(n);
    for (int32_t v : values) i32(v);
    return *this;
  }
  Msg &stringList(int32_t selector, int32_t common, std::initializer_list<std::string_view> strings,
                  int32_t ccsid = kCcsid, uint8_t pad = kUnwritten) {
    const int32_t n = static_cast<int32_t>(strings.size());
    const int32_t content = JXPCF_STRING_LIST_FIXED + n * common;
    const int32_t padded = (content + 3) & ~3;
    i32(JXPCF_TYPE_STRING_LIST).i32(padded).i32(selector).i32(ccsid).i32(n).i32(common);
    for (std::string_view s : strings) raw(s).fill(static_cast<size_t>(common) - s.size(), 0);
    return fill(static_cast<size_t>(padded - content), pad);
  }
  // Overwrites a 32-bit field already in the message.
  Msg &patch(size_t offset, int32_t v) {
    memcpy(data.data() + offset, &v, sizeof v);
    return *this;
  }
  int32_t size() const { return static_cast<int32_t>(data.size()); }
  Bytes data;
};

}  // namespace pcftest
