// What the codec writes to the trace: the API blocks of the two buffer
// calls, and the internal lines of the reader and the writer.
#include <algorithm>
#include <tuple>

#include "../bags/api_blocks.hpp"
#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;
using namespace apiblocks;

using PcfTrace = TracedTest;

TEST_F(PcfTrace, BufferCallBlocks) {
  Bag bag(0);
  Bytes buffer(36);
  int32_t length = 0;
  api();
  ASSERT_EQ(call(jxBagToBuffer, JXHB_NONE, bag.handle, 36, buffer.data(), &length), kOk);
  EXPECT_EQ(freshApi(),
            heading("jxBagToBuffer >>") + value("OptionsBag", JXHB_NONE) +
                value("DataBag", bag.handle) + value("Bufferlength", 36) +
                outputs({"Buffer", "DataLength", "Compcode", "Reason"}) +
                heading("jxBagToBuffer <<") + inputs({"OptionsBag", "DataBag", "BufferLength"}) +
                shown("Buffer", buffer.data(), 36) + value("Datalength", 36) + result(0, 0));
  api();
  call(jxBagToBuffer, JXHB_NONE, bag.handle, 0, nullptr, nullptr);
  const Lines exitBlock = freshApi();
  const auto at = std::find(exitBlock.begin(), exitBlock.end(), "jxBagToBuffer <<");
  ASSERT_NE(at, exitBlock.end());
  EXPECT_EQ(Lines(at + 4, at + 7), (Lines{"Buffer:", "NULL", "Datalength: NULL"}));

  Msg m = Msg().header(8, 0, 1).integer(5, 1);
  api();
  ASSERT_EQ(call(jxBufferToBag, JXHB_NONE, m.size(), m.data.data(), bag.handle), kOk);
  EXPECT_EQ(freshApi(),
            heading("jxBufferToBag >>") + value("OptionsBag", JXHB_NONE) +
                value("Bufferlength", m.size()) + shown("Buffer", m.data.data(), m.data.size()) +
                value("DataBag", bag.handle) + outputs({"Compcode", "Reason"}) +
                heading("jxBufferToBag <<") +
                inputs({"OptionsBag", "BufferLength", "Buffer", "DataBag"}) + result(0, 0));
}

TEST_F(PcfTrace, ReaderShowsTheHeaderEachOffsetAndTheFailingStructure) {
  Bag bag(0);
  Msg m = Msg().header(8, 0, 2).integer(5, 1).integer(6, 2).patch(36 + 16 + 4, 12);
  set(1, 0, XTR_OPT_PARMS, 1);
  EXPECT_EQ(read(bag, m.data), failed(JXRC_BAD_PCF));
  Lines lines = freshApi();
  const auto header = std::find(lines.begin(), lines.end(), "PCF Header");
  ASSERT_NE(header, lines.end());
  EXPECT_EQ(*(header + 1), dumpOf(m.data.data(), 36));
  for (const std::string &line :
       {std::string("msgOffset:36, *pParmType:3"), std::string("msgOffset:52, *pParmType:3"),
        dumpOf(m.data.data() + 52, 12)})
    EXPECT_TRUE(contains(lines, line)) << line;

  set(0, 0, XTR_OPT_PARMS, 1);
  EXPECT_EQ(read(bag, m.data), failed(JXRC_BAD_PCF));
  EXPECT_FALSE(contains(freshApi(), "PCF Header"));
}

TEST_F(PcfTrace, WriterShowsTheControlAreaAfterEachStep) {
  Bag bag(0);
  bag.add(5, 1);
  set(1, 0, XTR_OPT_PARMS, 1);
  ASSERT_EQ(write(bag, 0).outcome, kOk);
  Lines lines = freshApi();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "PCF Buffer Control Area"), 2)
      << "the header and the one parameter";
  const auto area = std::find(lines.begin(), lines.end(), "PCF Buffer Control Area");
  ASSERT_NE(area + 1, lines.end());
  EXPECT_EQ((area + 1)->rfind("00000000  5A 50 42 43", 0), 0u)
      << "the dump starts with the eye-catcher";
}

// The writer takes its fast loops only while its parameter lines are off,
// and records their marks at once while the thread is not traced at all.
// Every way must write the same bytes and record the same marks, whether
// the message fits or not, and for runs longer than the history ring.
TEST_F(PcfTrace, TracingChangesNeitherTheMessageNorTheMarks) {
  const auto writeWithMarks = [&](const Bag &bag, int32_t length) {
    const uint32_t from = thread->HistoryIndex;
    const Written w = write(bag, 0, length);
    const uint32_t marks = thread->HistoryIndex - from;
    return std::make_tuple(
        w.outcome, w.dataLength, w.bytes, marks,
        marksSince(thread->HistoryIndex - std::min<uint32_t>(marks, XIH_HISTORY_SIZE)));
  };
  Bag small(0), smallLists(JXBAG_LIST_FORM), smallAdmin(JXBAG_ADMIN);
  for (Bag *bag : {&small, &smallLists, &smallAdmin}) {
    for (int32_t i = 1; i <= 4; ++i) bag->add(i, i * 10);
    bag->add(7, 70).add(7, 71).add(7, 72).add(9, 90).add(7, 73).add(8, 80);
    bag->add(3001, "A").add(3002, "B").add(3002, "CC").add(5, 50);
  }
  Bag large(0), largeLists(JXBAG_LIST_FORM);
  for (int32_t i = 0; i < 700; ++i) large.add(i, i);
  for (int32_t i = 0; i < 1500; ++i) largeLists.add(1 + i / 700, i);
  const Bag *bags[] = {&small, &smallLists, &smallAdmin, &large, &largeLists};
  for (size_t b = 0; b < std::size(bags); ++b) {
    for (int32_t length : {16384, 100}) {
      set(0, 0, 0, 0);
      const auto plain = writeWithMarks(*bags[b], length);
      for (uint32_t options : {XTR_OPT_PARMS, 0u}) {
        set(1, 0, options, 1);
        EXPECT_EQ(writeWithMarks(*bags[b], length), plain)
            << "bag " << b << ", buffer " << length << ", trace options " << options;
      }
    }
  }
}

}  // namespace
