// Wire protocol between libjxiz and jxqmgr.
//
// A frame is a 12-byte header followed by a payload:
//   0  "JXQP"           magic
//   4  u8  version      kProtocolVersion
//   5  u8  op           request op, or op | kReplyBit for the answer
//   6  u16 flags        0
//   8  u32 length       payload bytes, at most kMaxPayload
// Every integer is little-endian and every field is written one by one, so
// a 32-bit client and a 64-bit server agree. Each request and reply below
// is described once, field by field, and that one description both encodes
// and decodes it. A payload must be consumed exactly by its decoder;
// anything else is a malformed frame.
#pragma once

#include <jx/jxqm.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace jxqp {

inline constexpr uint8_t kProtocolVersion = 3;
inline constexpr size_t kHeaderSize = 12;
inline constexpr uint8_t kReplyBit = 0x80;
inline constexpr uint32_t kMaxPayload = JX_MAX_MSG_LENGTH + 4096;
inline constexpr int32_t kMaxCharAttrLength = 64 * 1024;
inline constexpr size_t kMaxCredential = JX_USER_ID_LENGTH;
inline constexpr size_t kMaxAttributeText = 4096;
// Read-ahead: a get reply may carry further messages beyond its own, at
// most this many and (data and descriptors) this many bytes; the client
// says how many bytes it takes, the queue manager decides whether it may.
inline constexpr int32_t kMaxAheadCount = 256;
inline constexpr int32_t kMaxAheadBytes = 256 * 1024;
// What one message read ahead costs of those bytes beyond its data: at
// least its descriptor's and its length's wire size.
inline constexpr int32_t kAheadOverhead = static_cast<int32_t>(sizeof(JXMD)) + 4;

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
  Admin = 13,  // an administration command; administrators only
};
inline constexpr uint8_t kLastOp = static_cast<uint8_t>(Op::Admin);
inline uint8_t replyOp(Op op) {
  return static_cast<uint8_t>(static_cast<uint8_t>(op) | kReplyBit);
}

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
  void fail() { ok_ = false; }
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

// ---- requests ----
// Views (std::string_view) point into the frame they were decoded from.

struct ObjectRef {
  int32_t objectType = 0;
  char objectName[JX_Q_NAME_LENGTH] = {};
  char objectQMgrName[JX_Q_MGR_NAME_LENGTH] = {};
  char dynamicQName[JX_Q_NAME_LENGTH] = {};
};

struct HelloRequest {
  char qmgrName[JX_Q_MGR_NAME_LENGTH] = {};
  std::string_view user, password;  // TCP only
  uint32_t pid = 0;
  std::string_view applName;  // the program, at most JX_APPL_NAME_LENGTH
};
struct OpenRequest {
  int32_t options = 0;
  ObjectRef obj;
};
// `taken`, in a close and a get: how many of the messages the handle's last
// get read ahead the client handed out; the others go back to the queue.
struct CloseRequest {
  int32_t hobj = 0, options = 0;
  int32_t taken = 0;
};
struct PutRequest {
  int32_t hobj = 0, options = 0;
  JXMD md = JXMD_DEFAULT;
  std::string_view data;
};
struct Put1Request {
  ObjectRef obj;
  int32_t options = 0;
  JXMD md = JXMD_DEFAULT;
  std::string_view data;
};
struct GetRequest {
  int32_t hobj = 0, options = 0, waitInterval = 0, matchOptions = 0;
  uint8_t msgId[JX_MSG_ID_LENGTH] = {};
  uint8_t correlId[JX_CORREL_ID_LENGTH] = {};
  int32_t bufferLength = 0;
  int32_t aheadLimit = 0;  // bytes of further messages the client takes (0: none)
  int32_t taken = 0;
};
// What a get's buffer makes of a message of `length` bytes: the queue
// manager and a client answering from read-ahead report the same. A
// message too long for a get that does not accept truncation stays.
struct GetFit {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  size_t returned = 0;  // bytes handed back
  bool stays = false;
};
GetFit getFit(size_t length, int32_t bufferLength, int32_t getOptions);

// Whether a get selects by this identifier: asked for, and not null (a null
// identifier selects any message).
template <size_t N>
bool selectsBy(int32_t matchOptions, int32_t option, const uint8_t (&id)[N]) {
  static const uint8_t kNone[N] = {};
  return (matchOptions & option) && std::memcmp(id, kNone, N) != 0;
}

struct InqRequest {
  int32_t hobj = 0;
  std::vector<int32_t> selectors;
  int32_t intCount = 0;    // slots the caller has
  int32_t charLength = 0;  // length of the caller's area
};
struct SetRequest {
  int32_t hobj = 0;
  std::vector<int32_t> selectors;
  std::vector<int32_t> intValues;
  std::string_view charValues;
};
struct BeginRequest {
  int32_t options = 0;
};
// Commit, backout and disconnect carry nothing.
struct EmptyRequest {};

// An attribute value of an administration command: `number` for an integer
// selector, `text` for a string one.
struct AttributeArg {
  int32_t selector = 0;
  int32_t number = 0;
  std::string_view text;
};
// JXCMD_CREATE_QUEUE (flags JXSEL_REPLACE), JXCMD_CHANGE_QUEUE,
// JXCMD_COPY_QUEUE (name from, toName to), JXCMD_DELETE_QUEUE (flags
// JXSEL_PURGE), JXCMD_CLEAR_QUEUE.
struct AdminRequest {
  int32_t command = 0;
  std::string_view name, toName;
  int32_t queueType = 0;
  int32_t flags = 0;
  std::vector<AttributeArg> attributes;
};
inline constexpr int32_t kAdminReplace = 1;
inline constexpr int32_t kAdminPurge = 2;

// ---- replies ----

// Close, set, commit, backout, begin and disconnect.
struct CodeReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
};
struct HelloReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  uint32_t connectionId = 0;
  char qmgrName[JX_Q_MGR_NAME_LENGTH] = {};
};
struct OpenReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  int32_t hobj = 0;
  char name[JX_Q_NAME_LENGTH] = {};  // the queue opened (a model's new queue)
};
struct PutReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  JXMD md = JXMD_DEFAULT;  // as the queue manager completed it
  char resolvedQName[JX_Q_NAME_LENGTH] = {};
};
// A message read ahead: whole, from the same queue, matching the same way.
struct AheadMessage {
  JXMD md = JXMD_DEFAULT;
  std::string_view data;
};
struct GetReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  int32_t dataLength = 0;  // the whole message's
  JXMD md = JXMD_DEFAULT;
  char resolvedQName[JX_Q_NAME_LENGTH] = {};
  std::string_view data;  // what fits the caller's buffer
  std::vector<AheadMessage> ahead;
};
struct InqReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  std::vector<int32_t> ints;
  std::string_view chars;
};
struct AdminReply {
  int32_t cc = JXCC_OK, rc = JXRC_NONE;
  int32_t parameter = 0;  // the selector in error, for reasons 4002-4006
};

// A reply of any kind that failed with `reason`, its other fields empty.
template <class Reply>
Reply failedReply(int32_t reason) {
  Reply r;
  r.cc = JXCC_FAILED;
  r.rc = reason;
  return r;
}

// encode appends a message's payload to a writer; decode reads one whole
// payload (false on any malformation, or bytes left over).
#define JXQP_MESSAGES(X)                                                                  \
  X(HelloRequest)                                                                         \
  X(OpenRequest)                                                                          \
  X(CloseRequest)                                                                         \
  X(PutRequest) X(Put1Request) X(GetRequest) X(InqRequest) X(SetRequest) X(BeginRequest)  \
      X(EmptyRequest) X(AdminRequest) X(CodeReply) X(HelloReply) X(OpenReply) X(PutReply) \
          X(GetReply) X(InqReply) X(AdminReply)
#define JXQP_DECLARE_CODEC(M)         \
  void encode(Writer &w, const M &m); \
  bool decode(const uint8_t *p, size_t n, M &m);
JXQP_MESSAGES(JXQP_DECLARE_CODEC)
#undef JXQP_DECLARE_CODEC

// The request each op carries is decoded by the table of the receiving side;
// this says only whether an op is one.
bool validRequestOp(uint8_t op);

}  // namespace jxqp
