// jxBagToBuffer and jxBufferToBag: their checks in order, what a failure
// leaves untouched, and the conversions through the exported calls.
#include <jx/jxcs.h>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

constexpr int32_t kUntouched = 12345;
const char kReadOnly[64] = "read-only message area";

TEST(BufferCalls, TooShortGives2005WithTheLengthAndASecondCallSucceeds) {
  Bag out(JXBAG_LIST_FORM), in(0);
  out.set(JXSYS_COMMAND, JXCMD_INQUIRE_QUEUE);
  out.add(2001, std::string(300, 'q')).add(5, 1).add(5, 2);
  const Bytes expected = Msg()
                             .header(8, JXCMD_INQUIRE_QUEUE, 2)
                             .string(2001, std::string(300, 'q'))
                             .intList(5, {1, 2})
                             .data;
  Bytes buffer(64, kUnwritten);
  int32_t length = 0;
  for (int32_t tooShort : {64, -1}) {
    length = 0;
    EXPECT_EQ(call(jxBagToBuffer, JXHB_NONE, out.handle, tooShort, buffer.data(), &length),
              failed(JXRC_BUFFER_LENGTH_ERROR))
        << tooShort;
    EXPECT_EQ(length, static_cast<int32_t>(expected.size())) << tooShort;
  }
  buffer.assign(static_cast<size_t>(length), kUnwritten);
  ASSERT_EQ(call(jxBagToBuffer, JXHB_NONE, out.handle, length, buffer.data(), &length), kOk);
  EXPECT_EQ(buffer, expected);
  ASSERT_EQ(call(jxBufferToBag, JXHB_NONE, length, buffer.data(), in.handle), kOk);
  EXPECT_EQ(in.string(2001), std::string(300, 'q'));
  EXPECT_EQ(in.integer(5, 1), 2);
  EXPECT_EQ(in.integer(JXSYS_COMMAND), JXCMD_INQUIRE_QUEUE);
}

TEST(BufferCalls, ChecksInOrderLeaveEverythingAlone) {
  Bag bag(0);
  bag.add(5, 1);
  zaiBAG *system = nullptr;
  ASSERT_EQ(call(zaiCreateBag, JXBAG_SYSTEM | JXBAG_CHECK_SELECTORS, &system), kOk);
  call(zaiAddInteger, system, 5, 9);
  const JXHBAG sys = jxai::handleOf(system), bad = 0x1235, none = JXHB_NONE;
  const Bytes m = Msg().header(8, 0, 1).integer(6, 2).data;
  const int32_t size = static_cast<int32_t>(m.size());
  Bytes buffer(64);
  int32_t length = kUntouched, *dl = &length;
  void *ro = const_cast<char *>(kReadOnly), *buf = buffer.data();
  const struct {
    const char *name;
    bool toBuffer;
    JXHBAG options, bag;
    int32_t length;
    void *buffer;
    int32_t *dataLength;
    int32_t reason;
  } rows[] = {
      {"to buffer: options bag", true, 0, bad, 64, nullptr, nullptr, JXRC_OPTIONS_ERROR},
      {"to buffer: no buffer", true, none, bad, 64, nullptr, nullptr, JXRC_BUFFER_ERROR},
      {"to buffer: read-only buffer", true, none, bad, 64, ro, dl, JXRC_BUFFER_ERROR},
      {"to buffer: no data length", true, none, bad, 0, nullptr, nullptr, JXRC_DATA_LENGTH_ERROR},
      {"to buffer: bad handle", true, none, bad, 64, buf, dl, JXRC_BAD_HANDLE},
      {"to buffer: no bag", true, none, none, 64, buf, dl, JXRC_BAD_HANDLE},
      {"to bag: options bag", false, 0, bad, -1, nullptr, nullptr, JXRC_OPTIONS_ERROR},
      {"to bag: negative length", false, none, bad, -1, nullptr, nullptr, JXRC_BUFFER_LENGTH_ERROR},
      {"to bag: no buffer", false, none, bad, 10, nullptr, nullptr, JXRC_BUFFER_ERROR},
      {"to bag: bad handle", false, none, bad, size, (void *)m.data(), nullptr, JXRC_BAD_HANDLE},
      {"to bag: negative length, good bag", false, none, bag.handle, -1, (void *)m.data(), nullptr,
       JXRC_BUFFER_LENGTH_ERROR},
      {"to bag: system bag", false, none, sys, size, (void *)m.data(), nullptr,
       JXRC_SYSTEM_BAG_READ_ONLY},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(r.toBuffer ? call(jxBagToBuffer, r.options, r.bag, r.length, r.buffer, r.dataLength)
                         : call(jxBufferToBag, r.options, r.length, r.buffer, r.bag),
              failed(r.reason));
    EXPECT_EQ(length, kUntouched);
    EXPECT_EQ(bag.count(JXSEL_USER), 1);
    EXPECT_EQ(bag.integer(5), 1);
    EXPECT_EQ(zaiCountItems(system, 0, JXSEL_USER), 1);
  }
  // A system bag may still be written as it is.
  EXPECT_EQ(call(jxBagToBuffer, none, sys, 64, buf, &length), kOk);
  EXPECT_EQ(length, 52);
  call(zaiDeleteBag, &system);
}

TEST(BufferCalls, EmptyBufferClearsTheBagThenFails) {
  Bag bag(0);
  bag.set(JXSYS_CCSID, 437).add(5, 1);
  EXPECT_EQ(call(jxBufferToBag, JXHB_NONE, 0, nullptr, bag.handle), failed(JXRC_BAD_PCF));
  EXPECT_EQ(bag.count(JXSEL_USER), 0);
  EXPECT_EQ(bag.integer(JXSYS_CCSID), 437);
}

}  // namespace
