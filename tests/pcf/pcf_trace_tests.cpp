// What the codec writes to the trace: the API blocks of the two buffer
// calls, and the internal lines of the reader and the writer.
#include <algorithm>

#include "pcf_test_support.hpp"
#include "trace_file.hpp"

namespace {

using namespace pcftest;
using Lines = std::vector<std::string>;

std::string dump32(int32_t v) {
  return dumpOf(&v, sizeof v);
}

class PcfTrace : public ::testing::Test {
 protected:
  void SetUp() override {
    xcsInitialize(48, 1030, 0, 0, 0);
    thread = xihThreadAddress();
    savedActive = thread->TraceActive;
  }
  void TearDown() override { thread->TraceActive = savedActive; }
  void set(int32_t enabled, uint32_t options, int32_t active) {
    words.set(enabled, 0, options, 0);
    thread->TraceActive = active;
    mark = traceTexts().size();
  }
  Lines fresh() const { return apiLines(since(traceTexts(), mark)); }

  TraceWordsGuard words;
  xihTHREADANCHOR *thread = nullptr;
  int32_t savedActive = 0;
  size_t mark = 0;
};

TEST_F(PcfTrace, BagToBufferBlocks) {
  Bag bag(0);
  Bytes buffer(36);
  int32_t length = 0, cc = -1, rc = -1;
  set(0, XTR_OPT_API, 0);
  jxBagToBuffer(JXHB_NONE, bag.handle, 36, buffer.data(), &length, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  EXPECT_EQ(fresh(), (Lines{"__________",
                            "jxBagToBuffer >>",
                            "OptionsBag:",
                            dump32(JXHB_NONE),
                            "DataBag:",
                            dump32(bag.handle),
                            "Bufferlength:",
                            dump32(36),
                            "Buffer        : Output Parm",
                            "DataLength    : Output Parm",
                            "Compcode      : Output Parm",
                            "Reason        : Output Parm",
                            "__________",
                            "jxBagToBuffer <<",
                            "OptionsBag    : Input  Parm",
                            "DataBag       : Input  Parm",
                            "BufferLength  : Input  Parm",
                            "Buffer:",
                            dumpOf(buffer.data(), 36),
                            "Datalength:",
                            dump32(36),
                            "Compcode:",
                            dump32(0),
                            "Reason:",
                            dump32(0)}));

  set(0, XTR_OPT_API, 0);
  jxBagToBuffer(JXHB_NONE, bag.handle, 0, nullptr, nullptr, &cc, &rc);
  Lines exitBlock = fresh();
  const auto at = std::find(exitBlock.begin(), exitBlock.end(), "jxBagToBuffer <<");
  ASSERT_NE(at, exitBlock.end());
  EXPECT_EQ(Lines(at + 4, at + 7), (Lines{"Buffer:", "NULL", "Datalength: NULL"}));
}

TEST_F(PcfTrace, BufferToBagBlocks) {
  Bag bag(0);
  Msg m = Msg().header(8, 0, 1).integer(5, 1);
  int32_t cc = -1, rc = -1;
  set(0, XTR_OPT_API, 0);
  jxBufferToBag(JXHB_NONE, m.size(), m.data.data(), bag.handle, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  EXPECT_EQ(fresh(), (Lines{"__________",
                            "jxBufferToBag >>",
                            "OptionsBag:",
                            dump32(JXHB_NONE),
                            "Bufferlength:",
                            dump32(m.size()),
                            "Buffer:",
                            dumpOf(m.data.data(), m.data.size()),
                            "DataBag:",
                            dump32(bag.handle),
                            "Compcode      : Output Parm",
                            "Reason        : Output Parm",
                            "__________",
                            "jxBufferToBag <<",
                            "OptionsBag    : Input  Parm",
                            "BufferLength  : Input  Parm",
                            "Buffer        : Input  Parm",
                            "DataBag       : Input  Parm",
                            "Compcode:",
                            dump32(0),
                            "Reason:",
                            dump32(0)}));
}

TEST_F(PcfTrace, ReaderShowsTheHeaderEachOffsetAndTheFailingStructure) {
  Bag bag(0);
  Msg m = Msg().header(8, 0, 2).integer(5, 1).integer(6, 2).patch(36 + 16 + 4, 12);
  set(1, XTR_OPT_PARMS, 1);
  EXPECT_EQ(read(bag, m.data).rc, JXRC_BAD_PCF);
  Lines lines = fresh();
  const auto header = std::find(lines.begin(), lines.end(), "PCF Header");
  ASSERT_NE(header, lines.end());
  EXPECT_EQ(*(header + 1), dumpOf(m.data.data(), 36));
  EXPECT_NE(std::find(lines.begin(), lines.end(), "msgOffset:36, *pParmType:3"), lines.end());
  EXPECT_NE(std::find(lines.begin(), lines.end(), "msgOffset:52, *pParmType:3"), lines.end());
  EXPECT_NE(std::find(lines.begin(), lines.end(), dumpOf(m.data.data() + 52, 12)), lines.end());

  set(0, XTR_OPT_PARMS, 1);
  EXPECT_EQ(read(bag, m.data).rc, JXRC_BAD_PCF);
  lines = fresh();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "PCF Header"), 0);
}

TEST_F(PcfTrace, WriterShowsTheControlAreaAfterEachStep) {
  Bag bag(0);
  bag.add(5, 1);
  set(1, XTR_OPT_PARMS, 1);
  Written w = write(bag, 0);
  ASSERT_EQ(w.cc, JXCC_OK);
  Lines lines = fresh();
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
  struct Outcome {
    Written written;
    uint32_t marks;                // marks recorded
    std::vector<uint32_t> newest;  // those the ring still holds
  };
  const auto writeWithMarks = [&](const Bag &bag, int32_t length) {
    const uint32_t from = thread->HistoryIndex;
    Written w = write(bag, 0, length);
    const uint32_t marks = thread->HistoryIndex - from;
    return Outcome{w, marks,
                   marksSince(thread->HistoryIndex - std::min<uint32_t>(marks, XIH_HISTORY_SIZE))};
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
  const struct {
    int32_t enabled;
    uint32_t options;
  } kTraced[] = {{1, XTR_OPT_PARMS}, {1, 0}};
  const Bag *bags[] = {&small, &smallLists, &smallAdmin, &large, &largeLists};
  for (size_t b = 0; b < std::size(bags); ++b) {
    const Bag *bag = bags[b];
    for (int32_t length : {16384, 100}) {
      set(0, 0, 0);
      const Outcome plain = writeWithMarks(*bag, length);
      for (const auto &traced : kTraced) {
        set(traced.enabled, traced.options, 1);
        const Outcome other = writeWithMarks(*bag, length);
        SCOPED_TRACE(testing::Message() << "bag " << b << ", buffer " << length
                                        << ", trace options " << traced.options);
        EXPECT_EQ(plain.written.cc, other.written.cc);
        EXPECT_EQ(plain.written.rc, other.written.rc);
        EXPECT_EQ(plain.written.dataLength, other.written.dataLength);
        EXPECT_EQ(plain.written.bytes, other.written.bytes);
        EXPECT_EQ(plain.marks, other.marks);
        EXPECT_EQ(plain.newest, other.newest);
      }
    }
  }
}

}  // namespace
