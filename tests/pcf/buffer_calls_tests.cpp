// jxBagToBuffer and jxBufferToBag: their checks in order, what a failure
// leaves untouched, and the conversions through the exported calls.
#include <jx/jxcs.h>

#include <functional>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

constexpr int32_t kUntouched = 12345;
const char kReadOnly[64] = "read-only message area";

TEST(BufferCalls, TooShortGives2005WithTheLengthAndASecondCallSucceeds) {
  Bag out(JXBAG_LIST_FORM);
  out.set(JXSYS_COMMAND, JXCMD_INQUIRE_QUEUE);
  out.add(2001, std::string(300, 'q')).add(5, 1).add(5, 2);
  const Bytes expected = Msg()
                             .header(8, JXCMD_INQUIRE_QUEUE, 2)
                             .string(2001, std::string(300, 'q'))
                             .intList(5, {1, 2})
                             .data;
  Bytes buffer(64, kUnwritten);
  int32_t length = 0, cc = -1, rc = -1;
  for (int32_t tooShort : {64, -1}) {
    length = 0;
    jxBagToBuffer(JXHB_NONE, out.handle, tooShort, buffer.data(), &length, &cc, &rc);
    EXPECT_EQ(rc, JXRC_BUFFER_LENGTH_ERROR) << tooShort;
    EXPECT_EQ(length, static_cast<int32_t>(expected.size())) << tooShort;
  }
  buffer.assign(static_cast<size_t>(length), kUnwritten);
  jxBagToBuffer(JXHB_NONE, out.handle, length, buffer.data(), &length, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  EXPECT_EQ(buffer, expected);

  Bag in(0);
  jxBufferToBag(JXHB_NONE, length, buffer.data(), in.handle, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  EXPECT_EQ(in.string(2001), std::string(300, 'q'));
  EXPECT_EQ(in.integer(5, 1), 2);
  EXPECT_EQ(in.integer(JXSYS_COMMAND), JXCMD_INQUIRE_QUEUE);
}

TEST(BufferCalls, ChecksInOrderLeaveEverythingAlone) {
  Bag bag(0);
  bag.add(5, 1);
  zaiBAG *system = nullptr;
  int32_t cc = -1, rc = -1;
  zaiCreateBag(JXBAG_SYSTEM | JXBAG_CHECK_SELECTORS, &system, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  zaiAddInteger(system, 5, 9, &cc, &rc);
  const JXHBAG systemHandle = jxai::handleOf(system);
  const JXHBAG badHandle = 0x1235;
  const Bytes m = Msg().header(8, 0, 1).integer(6, 2).data;
  Bytes buffer(64);
  int32_t length = kUntouched;
  void *readOnly = const_cast<char *>(kReadOnly);
  const uint8_t *msg = m.data();
  const int32_t size = static_cast<int32_t>(m.size());
  const struct {
    const char *name;
    std::function<void()> call;
    int32_t reason;
  } rows[] = {
      {"to buffer: options bag",
       [&] { jxBagToBuffer(0, badHandle, 64, nullptr, nullptr, &cc, &rc); }, JXRC_OPTIONS_ERROR},
      {"to buffer: no buffer",
       [&] { jxBagToBuffer(JXHB_NONE, badHandle, 64, nullptr, nullptr, &cc, &rc); },
       JXRC_BUFFER_ERROR},
      {"to buffer: read-only buffer",
       [&] { jxBagToBuffer(JXHB_NONE, badHandle, 64, readOnly, &length, &cc, &rc); },
       JXRC_BUFFER_ERROR},
      {"to buffer: no data length",
       [&] { jxBagToBuffer(JXHB_NONE, badHandle, 0, nullptr, nullptr, &cc, &rc); },
       JXRC_DATA_LENGTH_ERROR},
      {"to buffer: bad handle",
       [&] { jxBagToBuffer(JXHB_NONE, badHandle, 64, buffer.data(), &length, &cc, &rc); },
       JXRC_BAD_HANDLE},
      {"to buffer: no bag",
       [&] { jxBagToBuffer(JXHB_NONE, JXHB_NONE, 64, buffer.data(), &length, &cc, &rc); },
       JXRC_BAD_HANDLE},
      {"to bag: options bag", [&] { jxBufferToBag(0, -1, nullptr, badHandle, &cc, &rc); },
       JXRC_OPTIONS_ERROR},
      {"to bag: negative length",
       [&] { jxBufferToBag(JXHB_NONE, -1, nullptr, badHandle, &cc, &rc); },
       JXRC_BUFFER_LENGTH_ERROR},
      {"to bag: no buffer", [&] { jxBufferToBag(JXHB_NONE, 10, nullptr, badHandle, &cc, &rc); },
       JXRC_BUFFER_ERROR},
      {"to bag: bad handle", [&] { jxBufferToBag(JXHB_NONE, size, msg, badHandle, &cc, &rc); },
       JXRC_BAD_HANDLE},
      {"to bag: negative length, good bag",
       [&] { jxBufferToBag(JXHB_NONE, -1, msg, bag.handle, &cc, &rc); }, JXRC_BUFFER_LENGTH_ERROR},
      {"to bag: system bag", [&] { jxBufferToBag(JXHB_NONE, size, msg, systemHandle, &cc, &rc); },
       JXRC_SYSTEM_BAG_READ_ONLY},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    cc = rc = -1;
    row.call();
    EXPECT_EQ(cc, JXCC_FAILED);
    EXPECT_EQ(rc, row.reason);
    EXPECT_EQ(length, kUntouched);
    EXPECT_EQ(bag.count(JXSEL_USER), 1);
    EXPECT_EQ(bag.integer(5), 1);
    int32_t n = 0;
    jxCountItems(systemHandle, JXSEL_USER, &n, &cc, &rc);
    EXPECT_EQ(n, 1);
  }

  // A system bag may still be written as it is.
  jxBagToBuffer(JXHB_NONE, systemHandle, 64, buffer.data(), &length, &cc, &rc);
  EXPECT_EQ(cc, JXCC_OK) << rc;
  EXPECT_EQ(length, 52);
  zaiDeleteBag(&system, &cc, &rc);
}

TEST(BufferCalls, EmptyBufferClearsTheBagThenFails) {
  Bag bag(0);
  bag.set(JXSYS_CCSID, 437).add(5, 1);
  int32_t cc = -1, rc = -1;
  jxBufferToBag(JXHB_NONE, 0, nullptr, bag.handle, &cc, &rc);
  EXPECT_EQ(cc, JXCC_FAILED);
  EXPECT_EQ(rc, JXRC_BAD_PCF);
  EXPECT_EQ(bag.count(JXSEL_USER), 0);
  EXPECT_EQ(bag.integer(JXSYS_CCSID), 437);
}

}  // namespace
