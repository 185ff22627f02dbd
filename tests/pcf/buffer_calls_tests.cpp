// jxBagToBuffer and jxBufferToBag: their checks in order, what a failure
// leaves untouched, and the conversions through the exported calls.
#include <jx/jxcs.h>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

constexpr int32_t kUntouched = 12345;
const char kReadOnly[64] = "read-only message area";

TEST(BagToBuffer, FreshBagFitsExactlyAndReportsTheLengthWhenItDoesNot) {
  Bag bag(0);
  Bytes buffer(36, kUnwritten);
  int32_t length = kUntouched, cc = -1, rc = -1;
  jxBagToBuffer(JXHB_NONE, bag.handle, 36, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(cc, JXCC_OK);
  EXPECT_EQ(length, 36);
  EXPECT_EQ(buffer, Msg().header(JXPCF_TYPE_USER, 0, 0).data);

  jxBagToBuffer(JXHB_NONE, bag.handle, 35, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(length, 36);
  jxBagToBuffer(JXHB_NONE, bag.handle, -1, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(length, 36);
}

TEST(BagToBuffer, SecondCallWithTheReportedLengthSucceeds) {
  Bag bag(JXBAG_LIST_FORM);
  bag.add(2001, std::string(300, 'q')).add(5, 1).add(5, 2);
  Bytes buffer(64, kUnwritten);
  int32_t length = 0, cc = -1, rc = -1;
  jxBagToBuffer(JXHB_NONE, bag.handle, 64, buffer.data(), &length, &cc, &rc);
  ASSERT_EQ(rc, JXRC_BAD_LENGTH);
  buffer.assign(static_cast<size_t>(length), kUnwritten);
  jxBagToBuffer(JXHB_NONE, bag.handle, length, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(cc, JXCC_OK);
  EXPECT_EQ(buffer, Msg()
                        .header(JXPCF_TYPE_USER, 0, 2)
                        .string(2001, std::string(300, 'q'))
                        .intList(5, {1, 2})
                        .data);
}

TEST(BagToBuffer, CommandComesFromTheBag) {
  Bag bag(0);
  bag.set(JXSYS_COMMAND, JXCMD_INQUIRE_QUEUE);
  Bytes buffer(36);
  int32_t length = 0, cc = -1, rc = -1;
  jxBagToBuffer(JXHB_NONE, bag.handle, 36, buffer.data(), &length, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  EXPECT_EQ(jxai::pcf::get32(buffer.data(), jxai::pcf::kHdrCommand), JXCMD_INQUIRE_QUEUE);
}

TEST(BagToBuffer, ChecksInOrder) {
  Bag bag(0);
  Bytes buffer(64);
  int32_t length = kUntouched, cc = -1, rc = -1;
  const JXHBAG badHandle = 0x1235;

  jxBagToBuffer(0, badHandle, 64, nullptr, nullptr, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_OPTIONS);
  jxBagToBuffer(JXHB_NONE, badHandle, 64, nullptr, nullptr, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_BUFFER);
  jxBagToBuffer(JXHB_NONE, badHandle, 64, const_cast<char *>(kReadOnly), &length, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_BUFFER);
  jxBagToBuffer(JXHB_NONE, badHandle, 0, nullptr, nullptr, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_DATA_LENGTH_OUT);
  jxBagToBuffer(JXHB_NONE, badHandle, 64, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(cc, JXCC_FAILED);
  EXPECT_EQ(rc, JXRC_BAD_HANDLE);
  jxBagToBuffer(JXHB_NONE, JXHB_NONE, 64, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_HANDLE);
  EXPECT_EQ(length, kUntouched);
}

TEST(BagToBuffer, SystemBagMayBeWrittenUnchanged) {
  zaiBAG *system = nullptr;
  int32_t cc = -1, rc = -1;
  zaiCreateBag(JXBAG_SYSTEM | JXBAG_CHECK_SELECTORS, &system, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  zaiAddInteger(system, 5, 9, &cc, &rc);
  Bytes buffer(52);
  int32_t length = 0;
  jxBagToBuffer(JXHB_NONE, jxai::handleOf(system), 52, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(cc, JXCC_OK);
  EXPECT_EQ(length, 52);

  // Reading into it is refused.
  jxBufferToBag(JXHB_NONE, 52, buffer.data(), jxai::handleOf(system), &cc, &rc);
  EXPECT_EQ(rc, JXRC_SYSTEM_BAG_READ_ONLY);
  int32_t n = 0;
  jxCountItems(jxai::handleOf(system), JXSEL_USER, &n, &cc, &rc);
  EXPECT_EQ(n, 1);
  zaiDeleteBag(&system, &cc, &rc);
}

TEST(BufferToBag, ChecksInOrderLeaveTheBagAlone) {
  Bag bag(0);
  bag.add(5, 1);
  Msg m = Msg().header(8, 0, 1).integer(6, 2);
  int32_t cc = -1, rc = -1;
  const JXHBAG badHandle = 0x1235;

  jxBufferToBag(0, -1, nullptr, badHandle, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_OPTIONS);
  jxBufferToBag(JXHB_NONE, -1, nullptr, badHandle, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_LENGTH);
  jxBufferToBag(JXHB_NONE, 10, nullptr, badHandle, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_BUFFER);
  jxBufferToBag(JXHB_NONE, m.size(), m.data.data(), badHandle, &cc, &rc);
  EXPECT_EQ(rc, JXRC_BAD_HANDLE);
  jxBufferToBag(JXHB_NONE, -1, m.data.data(), bag.handle, &cc, &rc);
  EXPECT_EQ(cc, JXCC_FAILED);
  EXPECT_EQ(rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(bag.integer(5), 1);
}

TEST(BufferToBag, EmptyBufferClearsTheBagThenFails) {
  Bag bag(0);
  bag.set(JXSYS_CCSID, 437).add(5, 1);
  int32_t cc = -1, rc = -1;
  jxBufferToBag(JXHB_NONE, 0, nullptr, bag.handle, &cc, &rc);
  EXPECT_EQ(cc, JXCC_FAILED);
  EXPECT_EQ(rc, JXRC_BAD_PCF);
  EXPECT_EQ(bag.count(JXSEL_USER), 0);
  EXPECT_EQ(bag.integer(JXSYS_CCSID), 437);
}

TEST(BufferToBag, MessageOfBagToBufferReadsBack) {
  Bag out(0);
  out.add(5, 1).add(2001, "text");
  Bytes buffer(128);
  int32_t length = 0, cc = -1, rc = -1;
  jxBagToBuffer(JXHB_NONE, out.handle, 128, buffer.data(), &length, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  Bag in(0);
  jxBufferToBag(JXHB_NONE, length, buffer.data(), in.handle, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  EXPECT_EQ(in.integer(5), 1);
  EXPECT_EQ(in.string(2001), "text");
}

}  // namespace
