// The writer: exact bytes of every structure, the list rules, inquiry
// mapping, the fitting rule and its failures.
#include <jx/jxcs.h>
#include <jx/jxqm.h>

#include <functional>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

constexpr int32_t kNoCommand = 0;
constexpr int32_t kListForm = JXBAG_LIST_FORM;
constexpr int32_t kReorder = JXBAG_LIST_FORM | JXBAG_REORDER;

struct Case {
  std::string name;
  int32_t options;
  std::function<void(Bag &)> fill;
  int32_t command;
  Msg expected;
};

std::vector<Case> byteCases() {
  std::vector<Case> cases = {
      {"system items only", 0, [](Bag &) {}, kNoCommand, Msg().header(8, kNoCommand, 0)},
      {"header from the command argument and the system items", 0,
       [](Bag &b) {
         b.set(JXSYS_COMMAND, 99).set(JXSYS_SEQUENCE, 7).set(JXSYS_CONTROL, 0);
         b.set(JXSYS_COMP_CODE, 2).set(JXSYS_REASON, 3008).set(JXSYS_MSG_TYPE, 2);
       },
       JXCMD_INQUIRE_QUEUE, Msg().header(2, JXCMD_INQUIRE_QUEUE, 0, 7, 0, 2, 3008)},
      {"integer and strings leave their padding unwritten", 0,
       [](Bag &b) { b.add(5, -17).add(2001, "ABCDE").add(2002, "ABCDEFGH").add(2003, ""); },
       kNoCommand,
       Msg()
           .header(8, kNoCommand, 4)
           .integer(5, -17)
           .string(2001, "ABCDE")
           .string(2002, "ABCDEFGH")
           .string(2003, "")},
      {"adjacent strings form one list at the longest length", kListForm,
       [](Bag &b) { b.add(3001, "AB").add(3001, "ABCDEFG").add(3001, "ABCD"); }, kNoCommand,
       Msg().header(8, kNoCommand, 1).stringList(3001, 7, {"AB", "ABCDEFG", "ABCD"})},
      {"strings of another character set stay apart", kListForm,
       [](Bag &b) { b.add(3001, "AB", 850).add(3001, "CD", 1208); }, kNoCommand,
       Msg().header(8, kNoCommand, 2).string(3001, "AB", 850).string(3001, "CD", 1208)},
      {"unbroken integer run forms a list", kListForm,
       [](Bag &b) { b.add(5, 10).add(5, 11).add(6, 12); }, kNoCommand,
       Msg().header(8, kNoCommand, 2).intList(5, {10, 11}).integer(6, 12)},
      {"broken integer run stays single", kListForm,
       [](Bag &b) { b.add(5, 10).add(6, 11).add(5, 12); }, kNoCommand,
       Msg().header(8, kNoCommand, 3).integer(5, 10).integer(6, 11).integer(5, 12)},
      {"reordering joins a broken run", kReorder,
       [](Bag &b) { b.add(5, 10).add(6, 11).add(5, 12); }, kNoCommand,
       Msg().header(8, kNoCommand, 2).intList(5, {10, 12}).integer(6, 11)},
      {"without list form repeated items stay single", 0,
       [](Bag &b) { b.add(5, 1).add(5, 2).add(JXSEL_QUEUE_ATTRS, 3); }, kNoCommand,
       Msg().header(8, kNoCommand, 3).integer(5, 1).integer(5, 2).integer(JXSEL_QUEUE_ATTRS, 3)},
      {"administration bag writes required parameters first", JXBAG_ADMIN,
       [](Bag &b) {
         call(jxAddInquiry, b.handle, 20), call(jxAddInquiry, b.handle, 2016);
         b.add(JXIA_Q_TYPE, 1).add(JXCA_Q_NAME, "Q1", 0);
       },
       JXCMD_INQUIRE_QUEUE,
       Msg()
           .header(1, JXCMD_INQUIRE_QUEUE, 3)
           .string(JXCA_Q_NAME, "Q1", 0)
           .integer(JXIA_Q_TYPE, 1)
           .intList(JXSEL_QUEUE_ATTRS, {20, 2016})},
  };
  for (int32_t selector : {JXSEL_QMGR_ATTRS, JXSEL_QUEUE_ATTRS, 1003, 1004, 1015, 1019,
                           JXSEL_Q_STATUS_ATTRS, 1093, 1524}) {
    cases.push_back({"attribute list " + std::to_string(selector), kListForm,
                     [selector](Bag &b) { b.add(selector, 42); }, kNoCommand,
                     Msg().header(8, kNoCommand, 1).intList(selector, {42})});
  }
  const std::pair<int32_t, int32_t> inquiries[] = {{JXCMD_INQUIRE_QMGR, 1001},
                                                   {7, 1003},
                                                   {JXCMD_INQUIRE_QUEUE, 1002},
                                                   {25, 1015},
                                                   {36, 1004},
                                                   {JXCMD_INQUIRE_QUEUE_STATUS, 1026},
                                                   {42, 1524},
                                                   {70, 1093},
                                                   {83, 1019}};
  for (const auto &[command, list] : inquiries) {
    cases.push_back({"inquiry items of command " + std::to_string(command), kReorder,
                     [](Bag &b) { b.add(JXSEL_INQUIRE, 20).add(7, 1).add(JXSEL_INQUIRE, 3); },
                     command, Msg().header(8, command, 2).intList(list, {20, 3}).integer(7, 1)});
  }
  return cases;
}

TEST(PcfWriter, ExactBytes) {
  for (const Case &c : byteCases()) {
    SCOPED_TRACE(c.name);
    Bag bag(c.options);
    c.fill(bag);
    Written w = write(bag, c.command);
    ASSERT_EQ(w.outcome, kOk);
    EXPECT_EQ(w.dataLength, c.expected.size());
    EXPECT_EQ(w.bytes, c.expected.data);
  }
  // The expected messages rely on the helper's padding: pin one by hand.
  EXPECT_EQ(Msg().stringList(3001, 7, {"AB", "ABCDEFG", "ABCD"}).size(), 48);
  EXPECT_EQ(
      Msg().integer(5, -17).string(2001, "ABCDE").string(2002, "ABCDEFGH").string(2003, "").size(),
      16 + 28 + 28 + 20);
}

TEST(PcfWriter, MessageTypeAndFormatFollowTheBagsType) {
  const struct {
    int32_t options, type, msgType;
    const char *format;
  } kinds[] = {{0, -1, 8, JXFMT_PCF},  {JXBAG_ADMIN, -1, 1, JXFMT_ADMIN},
               {0, 1, 1, JXFMT_ADMIN}, {0, 2, 2, JXFMT_ADMIN},
               {0, 7, 8, JXFMT_EVENT}, {0, 99, 8, JXFMT_PCF}};
  for (const auto &k : kinds) {
    SCOPED_TRACE(testing::Message() << "type " << k.type << " options " << k.options);
    Bag bag(k.options);
    if (k.type >= 0) bag.set(JXSYS_MSG_TYPE, k.type);
    Written w = write(bag, kNoCommand);
    ASSERT_EQ(w.outcome, kOk);
    EXPECT_EQ(w.msgType, k.msgType);
    EXPECT_EQ(std::string(w.format, 8), k.format);
  }
}

TEST(PcfWriter, ListHeavyBagBeyondFortyItemsUsesObtainedMarks) {
  const int64_t blocks = xcsBlocksInUse();
  {
    Bag bag(kReorder);
    Msg m;
    m.header(8, kNoCommand, 45 + 3);
    bag.add(7, 100);
    for (int32_t k = 0; k < 45; ++k) bag.add(100 + k, k);
    bag.add(7, 101).add(2500, "XY").add(8, 5).add(2500, "XYZ12");
    m.intList(7, {100, 101});
    for (int32_t k = 0; k < 45; ++k) m.integer(100 + k, k);
    m.stringList(2500, 5, {"XY", "XYZ12"}).integer(8, 5);
    EXPECT_EQ(write(bag, kNoCommand).bytes, m.data);
  }
  EXPECT_EQ(xcsBlocksInUse(), blocks);
}

TEST(PcfWriter, RefusedBags) {
  const struct {
    const char *name;
    int32_t options;
    void (*fill)(Bag &);
    int32_t command, reason;
  } cases[] = {
      {"inquiry without a mapping", kListForm, [](Bag &b) { b.add(JXSEL_INQUIRE, 20); }, 0,
       JXRC_NO_INQUIRY_MAPPING},
      {"inquiry string in a list", kListForm, [](Bag &b) { b.add(JXSEL_INQUIRE, "X"); },
       JXCMD_INQUIRE_QUEUE, JXRC_WRONG_ITEM_TYPE},
      // An integer record carries a character set of 0, so a string of 0 matches it.
      {"value of the other type never joins a list", kListForm,
       [](Bag &b) { b.add(JXSEL_INQUIRE, 20).add(JXSEL_QUEUE_ATTRS, "S", 0); }, JXCMD_INQUIRE_QUEUE,
       JXRC_WRONG_ITEM_TYPE},
      {"nested bag", kListForm,
       [](Bag &b) {
         zaiBAG *nested = nullptr;
         call(zaiCreateBag, 0, &nested);
         EXPECT_EQ(call(zaiAddBag, b.add(5, 1).block(), 4001, jxai::handleOf(nested)), kOk);
       },
       kNoCommand, JXRC_NESTED_BAG_IN_MSG},
  };
  for (const auto &c : cases) {
    Bag bag(c.options);
    c.fill(bag);
    EXPECT_EQ(write(bag, c.command).outcome, failed(c.reason)) << c.name;
  }
  // Only the nine inquiry commands have an attribute list.
  for (int32_t other : {0, 1, 3, 14, 84}) {
    Bag bag(kListForm);
    bag.add(JXSEL_INQUIRE, 20);
    Written w = write(bag, other);
    EXPECT_EQ(w.outcome, failed(JXRC_NO_INQUIRY_MAPPING)) << other;
    EXPECT_EQ(w.dataLength, JXPCF_HEADER_LENGTH) << "nothing written for the inquiry";
  }
}

TEST(PcfWriter, ControlAreaStorageFailureGives2071) {
  for (int32_t items : {41, 32}) {
    Bag bag(kListForm);
    for (int32_t k = 0; k < items; ++k) bag.add(100 + k, k);
    xcsSetAllocFailure(0, kFn_zaiBagToPCFMsg);
    Written w = write(bag, kNoCommand);
    xcsSetAllocFailure(0, -1);
    // 40 items or fewer: the area lives in the frame and nothing is obtained.
    EXPECT_EQ(w.outcome, items > 40 ? failed(JXRC_STORAGE_NOT_AVAILABLE) : kOk) << items;
  }
}

TEST(PcfWriter, TooSmallBufferReportsTheWholeLengthAndKeepsWhatFitted) {
  Bag bag(0);
  bag.add(5, 1).add(6, 2).add(2001, "ABCDE");
  const int32_t whole = 36 + 16 + 16 + 28;
  Written w = write(bag, kNoCommand, 36 + 16 + 8);
  EXPECT_EQ(w.outcome, failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(w.dataLength, whole);
  EXPECT_EQ(w.bytes, Msg().header(8, kNoCommand, 1).integer(5, 1).fill(8, kUnwritten).data);
  // Not even the header fits. A negative length and the second call with
  // the reported length are the buffer calls' concern.
  w = write(bag, kNoCommand, 10);
  EXPECT_EQ(w.outcome, failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(w.dataLength, whole);
}

TEST(PcfWriter, ItemOfAnUnknownTypeWritesAFailureRecord) {
  Bag bag(0);
  bag.add(5, 1);
  zaiPROPERTY *item = static_cast<zaiPROPERTY *>(zaiVectorAt(bag.block()->Items, 8));
  item->Type = 9;
  const std::string before = xcsLastFailureRecord();
  Written w = write(bag, kNoCommand);
  item->Type = JXITEM_INTEGER;
  EXPECT_EQ(w.outcome, failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_NE(std::string(xcsLastFailureRecord()), before);
}

TEST(PcfWriter, LibraryBufferIsSizedByASecondAttempt) {
  void *buffer = nullptr;
  int32_t length = 0, msgType = 0;
  char format[8];
  const auto inLibraryBuffer = [&](const Bag &bag) {
    return call(zaiBagToPCFMsgInJXAIBuffer, bag.block(), 3, &buffer, &length, &msgType, format);
  };
  const auto bytes = [&] {
    return Bytes(static_cast<uint8_t *>(buffer), (uint8_t *)buffer + length);
  };
  Bag small(0), large(0);
  small.add(5, 1);
  ASSERT_EQ(inLibraryBuffer(small), kOk);
  EXPECT_EQ(bytes(), Msg().header(8, 3, 1).integer(5, 1).data);
  zaiFreeJXAIBuffer(&buffer);
  EXPECT_EQ(buffer, nullptr);

  const std::string big(5000, 'x');
  large.add(2001, big);
  ASSERT_EQ(inLibraryBuffer(large), kOk);
  EXPECT_EQ(bytes(), Msg().header(8, 3, 1).string(2001, big).data);
  zaiFreeJXAIBuffer(&buffer);

  xcsSetAllocFailure(0, kFn_zaiBagToPCFInJXAIBuffer);
  EXPECT_EQ(inLibraryBuffer(small), failed(JXRC_STORAGE_NOT_AVAILABLE));
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(buffer, nullptr);
}

}  // namespace
