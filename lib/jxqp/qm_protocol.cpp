#include "qm_protocol.hpp"

#include <cstring>

namespace jxqp {

namespace {
constexpr uint8_t kMagic[4] = {'J', 'X', 'Q', 'P'};
}

bool validRequestOp(uint8_t op) {
  return op >= static_cast<uint8_t>(Op::Hello) && op <= kLastOp;
}

HeaderStatus decodeHeader(const uint8_t *p, FrameHeader &h) {
  if (std::memcmp(p, kMagic, 4) != 0) return HeaderStatus::Bad;
  h.version = p[4];
  h.op = p[5];
  h.flags = static_cast<uint16_t>(p[6] | (p[7] << 8));
  h.length = static_cast<uint32_t>(p[8]) | static_cast<uint32_t>(p[9]) << 8 |
             static_cast<uint32_t>(p[10]) << 16 | static_cast<uint32_t>(p[11]) << 24;
  if (h.version != kProtocolVersion || h.flags != 0 || h.length > kMaxPayload)
    return HeaderStatus::Bad;
  return HeaderStatus::Ok;
}

void Writer::u16(uint16_t v) {
  buf_.push_back(static_cast<uint8_t>(v));
  buf_.push_back(static_cast<uint8_t>(v >> 8));
}

void Writer::u32(uint32_t v) {
  const uint8_t b[4] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8),
                        static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 24)};
  buf_.insert(buf_.end(), b, b + 4);
}

void Writer::fixed(const void *p, size_t n) {
  auto b = static_cast<const uint8_t *>(p);
  buf_.insert(buf_.end(), b, b + n);
}

void Writer::blob(const void *p, size_t n) {
  u32(static_cast<uint32_t>(n));
  if (n) fixed(p, n);
}

bool Reader::need(size_t n) {
  if (!ok_ || static_cast<size_t>(end_ - p_) < n) {
    ok_ = false;
    return false;
  }
  return true;
}

uint8_t Reader::u8() {
  return need(1) ? *p_++ : 0;
}

uint16_t Reader::u16() {
  if (!need(2)) return 0;
  uint16_t v = static_cast<uint16_t>(p_[0] | (p_[1] << 8));
  p_ += 2;
  return v;
}

uint32_t Reader::u32() {
  if (!need(4)) return 0;
  uint32_t v = static_cast<uint32_t>(p_[0]) | static_cast<uint32_t>(p_[1]) << 8 |
               static_cast<uint32_t>(p_[2]) << 16 | static_cast<uint32_t>(p_[3]) << 24;
  p_ += 4;
  return v;
}

void Reader::fixed(void *out, size_t n) {
  if (!need(n)) {
    std::memset(out, 0, n);
    return;
  }
  std::memcpy(out, p_, n);
  p_ += n;
}

std::string_view Reader::blob(size_t limit) {
  uint32_t n = u32();
  if (!ok_ || n > limit || !need(n)) {
    ok_ = false;
    return {};
  }
  std::string_view v(reinterpret_cast<const char *>(p_), n);
  p_ += n;
  return v;
}

void appendFrame(Bytes &out, uint8_t op, Writer &w) {
  Bytes &payload = w.bytes();
  uint32_t n = static_cast<uint32_t>(payload.size());
  uint8_t header[kHeaderSize] = {0, 0, 0, 0, kProtocolVersion, op, 0, 0};
  std::memcpy(header, kMagic, 4);
  for (int i = 0; i < 4; ++i) header[8 + i] = static_cast<uint8_t>(n >> (8 * i));
  out.insert(out.end(), header, header + kHeaderSize);
  out.insert(out.end(), payload.begin(), payload.end());
}

Bytes frame(uint8_t op, Writer &w) {
  Bytes out;
  out.reserve(kHeaderSize + w.bytes().size());
  appendFrame(out, op, w);
  return out;
}

namespace {

// The two directions of one field list: fields(io, message) names every
// field in wire order once, and runs with an Encoder to write it or a
// Decoder to read it.
struct Encoder {
  Writer &w;
  void i32(const int32_t &v) { w.i32(v); }
  void u32(const uint32_t &v) { w.u32(v); }
  template <size_t N>
  void fixed(const char (&a)[N]) {
    w.fixed(a, N);
  }
  template <size_t N>
  void fixed(const uint8_t (&a)[N]) {
    w.fixed(a, N);
  }
  void str(const std::string_view &s, size_t) { w.str(s); }
  template <class T, class F>
  void list(const std::vector<T> &v, size_t, F each) {
    w.u32(static_cast<uint32_t>(v.size()));
    for (const T &x : v) each(*this, const_cast<T &>(x));
  }
};

struct Decoder {
  Reader &r;
  void i32(int32_t &v) { v = r.i32(); }
  void u32(uint32_t &v) { v = r.u32(); }
  template <size_t N>
  void fixed(char (&a)[N]) {
    r.fixed(a, N);
  }
  template <size_t N>
  void fixed(uint8_t (&a)[N]) {
    r.fixed(a, N);
  }
  void str(std::string_view &s, size_t limit) { s = r.blob(limit); }
  template <class T, class F>
  void list(std::vector<T> &v, size_t limit, F each) {
    uint32_t n = r.u32();
    if (!r.ok() || n > limit) return r.fail();
    v.resize(n);
    for (T &x : v) each(*this, x);
  }
};

template <class IO>
void fields(IO &io, JXMD &m) {
  io.fixed(m.StrucId);
  io.i32(m.Version);
  io.i32(m.Report);
  io.i32(m.MsgType);
  io.i32(m.Expiry);
  io.i32(m.Feedback);
  io.i32(m.Encoding);
  io.i32(m.CodedCharSetId);
  io.fixed(m.Format);
  io.i32(m.Priority);
  io.i32(m.Persistence);
  io.fixed(m.MsgId);
  io.fixed(m.CorrelId);
  io.i32(m.BackoutCount);
  io.fixed(m.ReplyToQ);
  io.fixed(m.ReplyToQMgr);
  io.fixed(m.UserIdentifier);
  io.fixed(m.AccountingToken);
  io.fixed(m.ApplIdentityData);
  io.i32(m.PutApplType);
  io.fixed(m.PutApplName);
  io.fixed(m.PutDate);
  io.fixed(m.PutTime);
  io.fixed(m.ApplOriginData);
  io.fixed(m.GroupId);
  io.i32(m.MsgSeqNumber);
  io.i32(m.Offset);
  io.i32(m.MsgFlags);
  io.i32(m.OriginalLength);
}

template <class IO>
void fields(IO &io, ObjectRef &m) {
  io.i32(m.objectType);
  io.fixed(m.objectName);
  io.fixed(m.objectQMgrName);
  io.fixed(m.dynamicQName);
}

template <class IO>
void integer(IO &io, int32_t &v) {
  io.i32(v);
}

template <class IO>
void fields(IO &io, HelloRequest &m) {
  io.fixed(m.qmgrName);
  io.str(m.user, kMaxCredential);
  io.str(m.password, kMaxCredential);
  io.u32(m.pid);
  io.str(m.applName, JX_APPL_NAME_LENGTH);
}
template <class IO>
void fields(IO &io, OpenRequest &m) {
  io.i32(m.options);
  fields(io, m.obj);
}
template <class IO>
void fields(IO &io, CloseRequest &m) {
  io.i32(m.hobj);
  io.i32(m.options);
  io.i32(m.taken);
}
template <class IO>
void fields(IO &io, PutRequest &m) {
  io.i32(m.hobj);
  io.i32(m.options);
  fields(io, m.md);
  io.str(m.data, JX_MAX_MSG_LENGTH);
}
template <class IO>
void fields(IO &io, Put1Request &m) {
  fields(io, m.obj);
  io.i32(m.options);
  fields(io, m.md);
  io.str(m.data, JX_MAX_MSG_LENGTH);
}
template <class IO>
void fields(IO &io, GetRequest &m) {
  io.i32(m.hobj);
  io.i32(m.options);
  io.i32(m.waitInterval);
  io.i32(m.matchOptions);
  io.fixed(m.msgId);
  io.fixed(m.correlId);
  io.i32(m.bufferLength);
  io.i32(m.aheadLimit);
  io.i32(m.taken);
}
template <class IO>
void fields(IO &io, InqRequest &m) {
  io.i32(m.hobj);
  io.list(m.selectors, JX_MAX_SELECTORS, integer<IO>);
  io.i32(m.intCount);
  io.i32(m.charLength);
}
template <class IO>
void fields(IO &io, SetRequest &m) {
  io.i32(m.hobj);
  io.list(m.selectors, JX_MAX_SELECTORS, integer<IO>);
  io.list(m.intValues, JX_MAX_SELECTORS, integer<IO>);
  io.str(m.charValues, kMaxCharAttrLength);
}
template <class IO>
void fields(IO &io, BeginRequest &m) {
  io.i32(m.options);
}
template <class IO>
void fields(IO &, EmptyRequest &) {}
template <class IO>
void attribute(IO &io, AttributeArg &m) {
  io.i32(m.selector);
  io.i32(m.number);
  io.str(m.text, kMaxAttributeText);
}
template <class IO>
void fields(IO &io, AdminRequest &m) {
  io.i32(m.command);
  io.str(m.name, JX_Q_NAME_LENGTH);
  io.str(m.toName, JX_Q_NAME_LENGTH);
  io.i32(m.queueType);
  io.i32(m.flags);
  io.list(m.attributes, JX_MAX_SELECTORS, attribute<IO>);
}

template <class IO>
void fields(IO &io, CodeReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
}
template <class IO>
void fields(IO &io, HelloReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
  io.u32(m.connectionId);
  io.fixed(m.qmgrName);
}
template <class IO>
void fields(IO &io, OpenReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
  io.i32(m.hobj);
  io.fixed(m.name);
}
template <class IO>
void fields(IO &io, PutReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
  fields(io, m.md);
  io.fixed(m.resolvedQName);
}
template <class IO>
void ahead(IO &io, AheadMessage &m) {
  fields(io, m.md);
  io.str(m.data, kMaxAheadBytes);
}
template <class IO>
void fields(IO &io, GetReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
  io.i32(m.dataLength);
  fields(io, m.md);
  io.fixed(m.resolvedQName);
  io.str(m.data, JX_MAX_MSG_LENGTH);
  io.list(m.ahead, kMaxAheadCount, ahead<IO>);
}
template <class IO>
void fields(IO &io, InqReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
  io.list(m.ints, JX_MAX_SELECTORS, integer<IO>);
  io.str(m.chars, kMaxCharAttrLength);
}
template <class IO>
void fields(IO &io, AdminReply &m) {
  io.i32(m.cc);
  io.i32(m.rc);
  io.i32(m.parameter);
}

template <class M>
void encodeFields(Writer &w, const M &m) {
  Encoder e{w};
  // The encoder only reads: the field lists take the message as their
  // decoder does, by reference.
  fields(e, const_cast<M &>(m));
}

template <class M>
bool decodeFields(const uint8_t *p, size_t n, M &m) {
  Reader r(p, n);
  Decoder d{r};
  fields(d, m);
  return r.done();
}

}  // namespace

void Writer::md(const JXMD &m) {
  encodeFields(*this, m);
}

void Reader::md(JXMD &m) {
  Decoder d{*this};
  fields(d, m);
}

#define JXQP_DEFINE_CODEC(M)                      \
  void encode(Writer &w, const M &m) {            \
    encodeFields(w, m);                           \
  }                                               \
  bool decode(const uint8_t *p, size_t n, M &m) { \
    return decodeFields(p, n, m);                 \
  }
JXQP_MESSAGES(JXQP_DEFINE_CODEC)

GetFit getFit(size_t length, int32_t bufferLength, int32_t getOptions) {
  GetFit fit;
  fit.returned = length;
  if (length <= static_cast<size_t>(bufferLength)) return fit;
  fit.returned = static_cast<size_t>(bufferLength);
  fit.stays = !(getOptions & JXGMO_ACCEPT_TRUNCATED_MSG);
  fit.cc = fit.stays ? JXCC_FAILED : JXCC_WARNING;
  fit.rc = fit.stays ? JXRC_TRUNCATED_MSG_FAILED : JXRC_TRUNCATED_MSG_ACCEPTED;
  return fit;
}

}  // namespace jxqp
