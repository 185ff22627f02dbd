// The wire codec: explicit little-endian fields, strict lengths, limits.
#include <gtest/gtest.h>

#include <cstring>

#include "qm_protocol.hpp"

using namespace jxqp;

namespace {

// A payload of 32-bit fields.
Bytes ints(std::initializer_list<int32_t> values) {
  Writer w;
  for (int32_t v : values) w.i32(v);
  return w.bytes();
}

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
  const std::pair<size_t, uint8_t> breaks[] = {{0, 'X'}, {4, 2}, {7, 1}};
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

// Every request must be consumed exactly: one byte less or more is refused.
TEST(Protocol, RequestsMustBeExactlyConsumed) {
  JXOD od = JXOD_DEFAULT;
  JXMD md = JXMD_DEFAULT;
  Writer hello, open, put;
  char name[48] = "QM";
  encodeHello(hello, name, "user", "pw", 42);
  open.i32(JXOO_OUTPUT);
  encodeObject(open, od);
  put.i32(3);
  put.i32(0);
  put.md(md);
  put.str("data");
  const std::pair<Op, Bytes> cases[] = {
      {Op::Hello, hello.bytes()},
      {Op::Open, open.bytes()},
      {Op::Put, put.bytes()},
      // Handle, two selectors, one integer and 48 characters wanted.
      {Op::Inq, ints({3, 2, 17, 2016, 1, 48})},
      // Handle, one selector, one integer value and an empty string.
      {Op::Set, ints({3, 1, 10, 1, 1, 0})},
      {Op::Commit, {}},
  };
  for (const auto &[op, p] : cases) {
    Request r;
    uint8_t o = static_cast<uint8_t>(op);
    EXPECT_TRUE(decodeRequest(o, p.data(), p.size(), r)) << int(o);
    Bytes longer = p;
    longer.push_back(0);
    EXPECT_FALSE(decodeRequest(o, longer.data(), longer.size(), r)) << int(o);
    if (!p.empty()) {
      EXPECT_FALSE(decodeRequest(o, p.data(), p.size() - 1, r)) << int(o);
    }
  }
  Request r;
  EXPECT_FALSE(decodeRequest(0, nullptr, 0, r));
  EXPECT_FALSE(decodeRequest(13, nullptr, 0, r));
}

TEST(Protocol, LimitsOnCountsAndStrings) {
  Request r;
  Writer w;
  w.i32(1);
  w.u32(kMaxSelectors + 1);
  for (int i = 0; i <= kMaxSelectors; ++i) w.i32(1);
  w.i32(0);
  w.i32(0);
  EXPECT_FALSE(decodeRequest(static_cast<uint8_t>(Op::Inq), w.bytes().data(), w.bytes().size(), r));
  Writer h;
  char name[48] = {};
  encodeHello(h, name, std::string(kMaxCredential + 1, 'u'), "", 1);
  EXPECT_FALSE(
      decodeRequest(static_cast<uint8_t>(Op::Hello), h.bytes().data(), h.bytes().size(), r));
  // A blob whose length runs past the end of the payload.
  Writer p;
  p.i32(1);
  p.i32(0);
  p.md(JXMD_DEFAULT);
  p.u32(1000);
  p.u8('x');
  EXPECT_FALSE(decodeRequest(static_cast<uint8_t>(Op::Put), p.bytes().data(), p.bytes().size(), r));
}

}  // namespace
