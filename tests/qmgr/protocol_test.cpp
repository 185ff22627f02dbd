// The wire codec: explicit little-endian fields, strict lengths, limits, and
// one description per message for both directions.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "qm_protocol.hpp"

using namespace jxqp;

namespace {

TEST(Protocol, FieldsAreLittleEndianWhateverTheMachine) {
  Writer w;
  w.i32(0x01020304);
  w.u16(0xA0B0);
  w.str("ab");
  EXPECT_EQ(w.bytes(), (Bytes{4, 3, 2, 1, 0xB0, 0xA0, 2, 0, 0, 0, 'a', 'b'}));
  Bytes f = frame(0x86, w);
  ASSERT_EQ(f.size(), kHeaderSize + 12);
  EXPECT_EQ(std::memcmp(f.data(), "JXQP", 4), 0);
  EXPECT_EQ(f[4], kProtocolVersion);
  EXPECT_EQ(f[5], 0x86);
  EXPECT_EQ(f[8], 12);
  EXPECT_EQ(f[9] | f[10] | f[11], 0);
}

TEST(Protocol, DescriptorRoundTripsFieldByField) {
  JXMD md = JXMD_DEFAULT;
  md.Expiry = 1234;
  md.Persistence = 1;
  for (int i = 0; i < 24; ++i) md.CorrelId[i] = static_cast<uint8_t>(i + 1);
  std::memcpy(md.PutApplName, "app", 3);
  md.OriginalLength = 77;
  Writer w;
  w.md(md);
  ASSERT_EQ(w.bytes().size(), static_cast<size_t>(JXMD_LENGTH_2));
  // Expiry sits at byte 16, little-endian.
  EXPECT_EQ(w.bytes()[16], 1234 & 0xff);
  EXPECT_EQ(w.bytes()[17], 1234 >> 8);
  Reader r(w.bytes().data(), w.bytes().size());
  JXMD back{};
  r.md(back);
  EXPECT_TRUE(r.done());
  EXPECT_EQ(std::memcmp(&back, &md, sizeof md), 0);
}

TEST(Protocol, HeaderChecksMagicVersionFlagsAndLength) {
  Writer w;
  Bytes f = frame(1, w);
  FrameHeader h;
  EXPECT_EQ(decodeHeader(f.data(), h), HeaderStatus::Ok);
  const std::pair<size_t, uint8_t> breaks[] = {
      {0, 'X'}, {4, static_cast<uint8_t>(kProtocolVersion + 1)}, {7, 1}};
  for (const auto &[offset, value] : breaks) {
    Bytes bad = f;
    bad[offset] = value;
    EXPECT_EQ(decodeHeader(bad.data(), h), HeaderStatus::Bad) << offset;
  }
  Bytes bad = f;
  uint32_t tooLong = kMaxPayload + 1;
  std::memcpy(&bad[8], &tooLong, 4);  // the test machines are little-endian
  EXPECT_EQ(decodeHeader(bad.data(), h), HeaderStatus::Bad);
  tooLong = kMaxPayload;
  std::memcpy(&bad[8], &tooLong, 4);
  EXPECT_EQ(decodeHeader(bad.data(), h), HeaderStatus::Ok);
}

// Encodes a message and decodes it again as the other side does.
template <class M>
Bytes encoded(const M &m) {
  Writer w;
  encode(w, m);
  return w.bytes();
}

// Every request and reply is consumed exactly: one byte less or more is
// refused, and what decodes encodes to the same bytes.
template <class M>
void expectExact(const char *name, const M &m) {
  SCOPED_TRACE(name);
  Bytes p = encoded(m);
  M back;
  ASSERT_TRUE(decode(p.data(), p.size(), back));
  EXPECT_EQ(encoded(back), p);
  Bytes longer = p;
  longer.push_back(0);
  EXPECT_FALSE(decode(longer.data(), longer.size(), back));
  if (!p.empty()) {
    EXPECT_FALSE(decode(p.data(), p.size() - 1, back));
  }
}

TEST(Protocol, RequestsAndRepliesMustBeExactlyConsumed) {
  expectExact("hello",
              HelloRequest{.user = "user", .password = "pw", .pid = 42, .applName = "app"});
  expectExact("open", OpenRequest{.options = JXOO_OUTPUT, .obj = {}});
  expectExact("put", PutRequest{.hobj = 3, .data = "data"});
  expectExact("put1", Put1Request{});
  expectExact("get", GetRequest{});
  expectExact("inquire",
              InqRequest{.hobj = 3, .selectors = {17, 2016}, .intCount = 1, .charLength = 48});
  expectExact("set", SetRequest{.selectors = {10}, .intValues = {1}, .charValues = "c"});
  expectExact("commit", EmptyRequest{});
  expectExact("administration",
              AdminRequest{.command = 11,
                           .name = "Q",
                           .toName = "R",
                           .attributes = {{JXIA_MAX_Q_DEPTH, 7, {}}, {JXCA_Q_DESC, 0, "text"}}});
  expectExact("code reply", CodeReply{JXCC_FAILED, JXRC_HOBJ_ERROR});
  expectExact("hello reply", HelloReply{});
  expectExact("open reply", OpenReply{});
  expectExact("put reply", PutReply{});
  expectExact("get reply", GetReply{.dataLength = 9, .data = "part", .ahead = {}});
  expectExact("inquire reply", InqReply{.ints = {1, 2}, .chars = "abc"});
  expectExact("administration reply", AdminReply{JXCC_FAILED, JXRCCF_PARM_VALUE, 15});
  EXPECT_FALSE(validRequestOp(0));
  EXPECT_FALSE(validRequestOp(kLastOp + 1));
}

// Replies lay out their fields in order: a put's is the codes, the whole
// descriptor and the resolved name.
TEST(Protocol, ReplyFieldsInOrder) {
  PutReply r;
  r.cc = JXCC_WARNING;
  r.rc = 0x0A0B;
  r.md.Priority = 7;
  r.resolvedQName[0] = 'Q';
  Bytes p = encoded(r);
  ASSERT_EQ(p.size(), 8u + JXMD_LENGTH_2 + JX_Q_NAME_LENGTH);
  EXPECT_EQ(p[0], JXCC_WARNING);
  EXPECT_EQ(p[4], 0x0B);
  EXPECT_EQ(p[5], 0x0A);
  EXPECT_EQ(p[8 + offsetof(JXMD, Priority)], 7);
  EXPECT_EQ(p[8 + JXMD_LENGTH_2], 'Q');
}

TEST(Protocol, LimitsOnCountsAndStrings) {
  Writer w;
  w.i32(1);
  w.u32(JX_MAX_SELECTORS + 1);
  for (int i = 0; i <= JX_MAX_SELECTORS; ++i) w.i32(1);
  w.i32(0);
  w.i32(0);
  InqRequest inq;
  EXPECT_FALSE(decode(w.bytes().data(), w.bytes().size(), inq));
  HelloRequest hello;
  std::string longUser(kMaxCredential + 1, 'u');
  hello.user = longUser;
  Bytes h = encoded(hello);
  EXPECT_FALSE(decode(h.data(), h.size(), hello));
  // A blob whose length runs past the end of the payload.
  Writer p;
  p.i32(1);
  p.i32(0);
  p.md(JXMD_DEFAULT);
  p.u32(1000);
  p.u8('x');
  PutRequest put;
  EXPECT_FALSE(decode(p.bytes().data(), p.bytes().size(), put));
}

}  // namespace
