// Wire protocol between libjxiz and jxqmgr.
//
// A frame is a 12-byte header followed by a payload:
//   0  "JXQP"           magic
//   4  u8  version      kProtocolVersion
//   5  u8  op           request op, or op | kReplyBit for the answer
//   6  u16 flags        0
//   8  u32 length       payload bytes, at most kMaxPayload
// Every integer is little-endian and every field is written one by one, so
// a 32-bit client and a 64-bit server agree. A payload must be consumed
// exactly by its decoder; anything else is a malformed frame.
#pragma once

#include <jx/jxqm.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace jxqp {

inline constexpr uint8_t kProtocolVersion = 1;
inline constexpr size_t kHeaderSize = 12;
inline constexpr uint8_t kReplyBit = 0x80;
inline constexpr uint32_t kMaxPayload = JX_MAX_MSG_LENGTH + 4096;
inline constexpr int32_t kMaxSelectors = 256;
inline constexpr int32_t kMaxCharAttrLength = 64 * 1024;
inline constexpr size_t kMaxCredential = 64;

enum class Op : uint8_t {
  Hello = 1,
  Open = 2,
  Close = 3,
  Put = 4,
  Put1 = 5,
  Get = 6,
  Inq = 7,
  Set = 8,
  Commit = 9,
  Backout = 10,
  Begin = 11,
  Disc = 12,
};
bool validRequestOp(uint8_t op);

struct FrameHeader {
  uint8_t version = 0;
  uint8_t op = 0;
  uint16_t flags = 0;
  uint32_t length = 0;
};

enum class HeaderStatus { Ok, Bad };
// Validates magic, version, flags and length (not the op).
HeaderStatus decodeHeader(const uint8_t *p, FrameHeader &h);

using Bytes = std::vector<uint8_t>;

class Writer {
 public:
  // Room for a descriptor and a small message without regrowing.
  Writer() { buf_.reserve(640); }
  void u8(uint8_t v) { buf_.push_back(v); }
  void u16(uint16_t v);
  void u32(uint32_t v);
  void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
  void fixed(const void *p, size_t n);
  void blob(const void *p, size_t n);  // u32 length + bytes
  void str(std::string_view s) { blob(s.data(), s.size()); }
  void md(const JXMD &m);
  Bytes &bytes() { return buf_; }

 private:
  Bytes buf_;
};

class Reader {
 public:
  Reader(const uint8_t *p, size_t n) : p_(p), end_(p + n) {}
  uint8_t u8();
  uint16_t u16();
  uint32_t u32();
  int32_t i32() { return static_cast<int32_t>(u32()); }
  void fixed(void *out, size_t n);
  // A length-prefixed byte string of at most `limit` bytes; returns a view
  // into the frame.
  std::string_view blob(size_t limit);
  void md(JXMD &m);
  bool ok() const { return ok_; }
  bool done() const { return ok_ && p_ == end_; }

 private:
  bool need(size_t n);
  const uint8_t *p_;
  const uint8_t *end_;
  bool ok_ = true;
};

// Builds a whole frame: header plus the payload of `w`.
Bytes frame(uint8_t op, Writer &w);
// Appends the same frame to `out`, such as the replies waiting on a connection.
void appendFrame(Bytes &out, uint8_t op, Writer &w);

// ---- decoded requests (server side) ----

struct ObjectRef {
  int32_t objectType = 0;
  char objectName[48] = {};
  char objectQMgrName[48] = {};
  char dynamicQName[48] = {};
};

struct Request {
  Op op{};
  // Hello
  char qmgrName[48] = {};
  std::string_view user, password;
  uint32_t pid = 0;
  // Open / Put1
  ObjectRef obj;
  int32_t options = 0;  // open, close, put, get or begin options
  int32_t hobj = 0;
  // Put / Put1 / Get
  JXMD md{};
  std::string_view data;
  int32_t waitInterval = 0;
  int32_t matchOptions = 0;
  int32_t bufferLength = 0;
  // Inq / Set
  std::vector<int32_t> selectors;
  int32_t intCount = 0;            // Inq: slots the caller has
  std::vector<int32_t> intValues;  // Set
  int32_t charLength = 0;          // Inq: length of the caller's area
  std::string_view charValues;     // Set
};

// Strict decoder of one request payload; false on any malformation.
bool decodeRequest(uint8_t op, const uint8_t *payload, size_t n, Request &r);

// ---- request encoders (client side) ----

void encodeHello(Writer &w, const char *qmgr48, std::string_view user, std::string_view password,
                 uint32_t pid);
void encodeObject(Writer &w, const JXOD &od);

}  // namespace jxqp
