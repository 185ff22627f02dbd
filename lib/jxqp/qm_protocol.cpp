#include "qm_protocol.hpp"

#include <cstring>

namespace jxqp {

namespace {
constexpr uint8_t kMagic[4] = {'J', 'X', 'Q', 'P'};
}

bool validRequestOp(uint8_t op) {
  return op >= static_cast<uint8_t>(Op::Hello) && op <= static_cast<uint8_t>(Op::Disc);
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

void Writer::md(const JXMD &m) {
  fixed(m.StrucId, 4);
  i32(m.Version);
  i32(m.Report);
  i32(m.MsgType);
  i32(m.Expiry);
  i32(m.Feedback);
  i32(m.Encoding);
  i32(m.CodedCharSetId);
  fixed(m.Format, 8);
  i32(m.Priority);
  i32(m.Persistence);
  fixed(m.MsgId, 24);
  fixed(m.CorrelId, 24);
  i32(m.BackoutCount);
  fixed(m.ReplyToQ, 48);
  fixed(m.ReplyToQMgr, 48);
  fixed(m.UserIdentifier, 12);
  fixed(m.AccountingToken, 32);
  fixed(m.ApplIdentityData, 32);
  i32(m.PutApplType);
  fixed(m.PutApplName, 28);
  fixed(m.PutDate, 8);
  fixed(m.PutTime, 8);
  fixed(m.ApplOriginData, 4);
  fixed(m.GroupId, 24);
  i32(m.MsgSeqNumber);
  i32(m.Offset);
  i32(m.MsgFlags);
  i32(m.OriginalLength);
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

void Reader::md(JXMD &m) {
  fixed(m.StrucId, 4);
  m.Version = i32();
  m.Report = i32();
  m.MsgType = i32();
  m.Expiry = i32();
  m.Feedback = i32();
  m.Encoding = i32();
  m.CodedCharSetId = i32();
  fixed(m.Format, 8);
  m.Priority = i32();
  m.Persistence = i32();
  fixed(m.MsgId, 24);
  fixed(m.CorrelId, 24);
  m.BackoutCount = i32();
  fixed(m.ReplyToQ, 48);
  fixed(m.ReplyToQMgr, 48);
  fixed(m.UserIdentifier, 12);
  fixed(m.AccountingToken, 32);
  fixed(m.ApplIdentityData, 32);
  m.PutApplType = i32();
  fixed(m.PutApplName, 28);
  fixed(m.PutDate, 8);
  fixed(m.PutTime, 8);
  fixed(m.ApplOriginData, 4);
  fixed(m.GroupId, 24);
  m.MsgSeqNumber = i32();
  m.Offset = i32();
  m.MsgFlags = i32();
  m.OriginalLength = i32();
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

void encodeHello(Writer &w, const char *qmgr48, std::string_view user, std::string_view password,
                 uint32_t pid) {
  w.fixed(qmgr48, 48);
  w.str(user);
  w.str(password);
  w.u32(pid);
}

void encodeObject(Writer &w, const JXOD &od) {
  w.i32(od.ObjectType);
  w.fixed(od.ObjectName, 48);
  w.fixed(od.ObjectQMgrName, 48);
  w.fixed(od.DynamicQName, 48);
}

namespace {

void readObject(Reader &r, ObjectRef &o) {
  o.objectType = r.i32();
  r.fixed(o.objectName, 48);
  r.fixed(o.objectQMgrName, 48);
  r.fixed(o.dynamicQName, 48);
}

bool readIntList(Reader &r, std::vector<int32_t> &out) {
  uint32_t n = r.u32();
  if (!r.ok() || n > static_cast<uint32_t>(kMaxSelectors)) return false;
  out.resize(n);
  for (auto &v : out) v = r.i32();
  return r.ok();
}

}  // namespace

bool decodeRequest(uint8_t op, const uint8_t *payload, size_t n, Request &q) {
  if (!validRequestOp(op)) return false;
  Reader r(payload, n);
  q.op = static_cast<Op>(op);
  switch (q.op) {
    case Op::Hello:
      r.fixed(q.qmgrName, 48);
      q.user = r.blob(kMaxCredential);
      q.password = r.blob(kMaxCredential);
      q.pid = r.u32();
      break;
    case Op::Open:
      q.options = r.i32();
      readObject(r, q.obj);
      break;
    case Op::Close:
      q.hobj = r.i32();
      q.options = r.i32();
      break;
    case Op::Put:
      q.hobj = r.i32();
      q.options = r.i32();
      r.md(q.md);
      q.data = r.blob(JX_MAX_MSG_LENGTH);
      break;
    case Op::Put1:
      readObject(r, q.obj);
      q.options = r.i32();
      r.md(q.md);
      q.data = r.blob(JX_MAX_MSG_LENGTH);
      break;
    case Op::Get:
      q.hobj = r.i32();
      q.options = r.i32();
      q.waitInterval = r.i32();
      q.matchOptions = r.i32();
      r.fixed(q.md.MsgId, 24);
      r.fixed(q.md.CorrelId, 24);
      q.bufferLength = r.i32();
      break;
    case Op::Inq:
      q.hobj = r.i32();
      if (!readIntList(r, q.selectors)) return false;
      q.intCount = r.i32();
      q.charLength = r.i32();
      break;
    case Op::Set:
      q.hobj = r.i32();
      if (!readIntList(r, q.selectors)) return false;
      if (!readIntList(r, q.intValues)) return false;
      q.charValues = r.blob(static_cast<size_t>(kMaxCharAttrLength));
      break;
    case Op::Begin:
      q.options = r.i32();
      break;
    case Op::Commit:
    case Op::Backout:
    case Op::Disc:
      break;
  }
  return r.done();
}

}  // namespace jxqp
