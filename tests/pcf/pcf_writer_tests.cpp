// The writer: exact bytes of every structure, the list rules, inquiry
// mapping, required parameters, the fitting rule and its failures.
#include <jx/jxcs.h>

#include "pcf_test_support.hpp"

namespace {

using namespace pcftest;

constexpr int32_t kNoCommand = 0;

TEST(PcfWriter, SystemItemsOnlyGiveAHeaderAndTheKindOfMessage) {
  Bag plain(0);
  Written w = write(plain, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
  EXPECT_EQ(w.dataLength, JXPCF_HEADER_LENGTH);
  EXPECT_EQ(w.bytes, Msg().header(JXPCF_TYPE_USER, kNoCommand, 0).data);
  EXPECT_EQ(w.msgType, 8);
  EXPECT_EQ(std::string(w.format, 8), JXFMT_PCF);

  const struct {
    int32_t type, msgType;
    const char *format;
  } kinds[] = {{1, 1, JXFMT_ADMIN}, {2, 2, JXFMT_ADMIN}, {7, 8, JXFMT_EVENT}, {99, 8, JXFMT_PCF}};
  for (const auto &k : kinds) {
    Bag bag(0);
    bag.set(JXSYS_MSG_TYPE, k.type);
    Written t = write(bag, kNoCommand);
    ASSERT_EQ(t.cc, JXCC_OK) << k.type;
    EXPECT_EQ(t.msgType, k.msgType) << k.type;
    EXPECT_EQ(std::string(t.format, 8), k.format) << k.type;
  }
}

TEST(PcfWriter, HeaderTakesTheCommandArgumentAndTheSystemItems) {
  Bag bag(0);
  bag.set(JXSYS_COMMAND, 99).set(JXSYS_SEQUENCE, 7).set(JXSYS_CONTROL, 0);
  bag.set(JXSYS_COMP_CODE, 2).set(JXSYS_REASON, 3008).set(JXSYS_MSG_TYPE, JXPCF_TYPE_RESPONSE);
  Written w = write(bag, JXCMD_INQUIRE_QUEUE);
  ASSERT_EQ(w.cc, JXCC_OK);
  EXPECT_EQ(w.bytes, Msg().header(JXPCF_TYPE_RESPONSE, JXCMD_INQUIRE_QUEUE, 0, 7, 0, 2, 3008).data);
}

TEST(PcfWriter, IntegerAndStringsLeaveTheirPaddingUnwritten) {
  Bag bag(0);
  bag.add(5, -17).add(2001, "ABCDE").add(2002, "ABCDEFGH").add(2003, "");
  Written w = write(bag, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  Msg m = Msg()
              .header(JXPCF_TYPE_USER, kNoCommand, 4)
              .integer(5, -17)
              .string(2001, "ABCDE")
              .string(2002, "ABCDEFGH")
              .string(2003, "");
  EXPECT_EQ(w.bytes, m.data);
  EXPECT_EQ(w.dataLength, 36 + 16 + 28 + 28 + 20);
}

TEST(PcfWriter, AdjacentStringsFormOneListAtTheLongestLength) {
  Bag bag(JXBAG_LIST_FORM);
  bag.add(3001, "AB").add(3001, "ABCDEFG").add(3001, "ABCD");
  Written w = write(bag, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  Msg m =
      Msg().header(JXPCF_TYPE_USER, kNoCommand, 1).stringList(3001, 7, {"AB", "ABCDEFG", "ABCD"});
  EXPECT_EQ(jxai::pcf::get32(m.data.data() + 36, 4), 48);
  EXPECT_EQ(w.bytes, m.data);
}

TEST(PcfWriter, StringsOfAnotherCharacterSetStayApart) {
  Bag bag(JXBAG_LIST_FORM);
  bag.add(3001, "AB", 850).add(3001, "CD", 1208);
  Written w = write(bag, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  EXPECT_EQ(w.bytes, Msg()
                         .header(JXPCF_TYPE_USER, kNoCommand, 2)
                         .string(3001, "AB", 850)
                         .string(3001, "CD", 1208)
                         .data);
}

TEST(PcfWriter, IntegerListsNeedAnUnbrokenRunUnlessReordering) {
  Bag run(JXBAG_LIST_FORM);
  run.add(5, 10).add(5, 11).add(6, 12);
  Written w = write(run, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  EXPECT_EQ(w.bytes,
            Msg().header(JXPCF_TYPE_USER, kNoCommand, 2).intList(5, {10, 11}).integer(6, 12).data);

  Bag broken(JXBAG_LIST_FORM);
  broken.add(5, 10).add(6, 11).add(5, 12);
  w = write(broken, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  EXPECT_EQ(w.bytes, Msg()
                         .header(JXPCF_TYPE_USER, kNoCommand, 3)
                         .integer(5, 10)
                         .integer(6, 11)
                         .integer(5, 12)
                         .data);

  Bag reordered(JXBAG_LIST_FORM | JXBAG_REORDER);
  reordered.add(5, 10).add(6, 11).add(5, 12);
  w = write(reordered, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  EXPECT_EQ(w.bytes,
            Msg().header(JXPCF_TYPE_USER, kNoCommand, 2).intList(5, {10, 12}).integer(6, 11).data);
}

TEST(PcfWriter, WithoutListFormRepeatedItemsStaySingle) {
  Bag bag(0);
  bag.add(5, 1).add(5, 2).add(JXSEL_QUEUE_ATTRS, 3);
  Written w = write(bag, kNoCommand);
  ASSERT_EQ(w.cc, JXCC_OK);
  EXPECT_EQ(w.bytes, Msg()
                         .header(JXPCF_TYPE_USER, kNoCommand, 3)
                         .integer(5, 1)
                         .integer(5, 2)
                         .integer(JXSEL_QUEUE_ATTRS, 3)
                         .data);
}

TEST(PcfWriter, AttributeListSelectorsAlwaysGoOutAsLists) {
  for (int32_t selector :
       {JXSEL_QMGR_ATTRS, JXSEL_QUEUE_ATTRS, JXSEL_PROCESS_ATTRS, JXSEL_NAMELIST_ATTRS,
        JXSEL_CHANNEL_ATTRS, JXSEL_STORAGE_CLASS_ATTRS, JXSEL_CLUSTER_QMGR_ATTRS,
        JXSEL_AUTH_INFO_ATTRS, JXSEL_CHANNEL_STATUS_ATTRS}) {
    Bag bag(JXBAG_LIST_FORM);
    bag.add(selector, 42);
    Written w = write(bag, kNoCommand);
    ASSERT_EQ(w.cc, JXCC_OK);
    EXPECT_EQ(w.bytes, Msg().header(JXPCF_TYPE_USER, kNoCommand, 1).intList(selector, {42}).data)
        << selector;
  }
}

TEST(PcfWriter, InquiryItemsMapToTheCommandsAttributeList) {
  const struct {
    int32_t command, list;
  } maps[] = {{JXCMD_INQUIRE_QMGR, 1001},           {JXCMD_INQUIRE_PROCESS, 1003},
              {JXCMD_INQUIRE_QUEUE, 1002},          {JXCMD_INQUIRE_CHANNEL, 1015},
              {JXCMD_INQUIRE_NAMELIST, 1004},       {JXCMD_INQUIRE_CLUSTER_QMGR, 1026},
              {JXCMD_INQUIRE_CHANNEL_STATUS, 1524}, {JXCMD_INQUIRE_AUTH_INFO, 1093},
              {JXCMD_INQUIRE_STORAGE_CLASS, 1019}};
  for (const auto &m : maps) {
    Bag bag(JXBAG_LIST_FORM | JXBAG_REORDER);
    bag.add(JXSEL_INQUIRE, 20).add(7, 1).add(JXSEL_INQUIRE, 3);
    Written w = write(bag, m.command);
    ASSERT_EQ(w.cc, JXCC_OK) << m.command;
    EXPECT_EQ(
        w.bytes,
        Msg().header(JXPCF_TYPE_USER, m.command, 2).intList(m.list, {20, 3}).integer(7, 1).data)
        << m.command;
  }
  for (int32_t other : {0, 1, 3, 14, 84}) {
    Bag bag(JXBAG_LIST_FORM);
    bag.add(JXSEL_INQUIRE, 20);
    Written w = write(bag, other);
    EXPECT_EQ(w.cc, JXCC_FAILED);
    EXPECT_EQ(w.rc, JXRC_NO_INQUIRY_MAPPING) << other;
    EXPECT_EQ(w.dataLength, JXPCF_HEADER_LENGTH) << "nothing written for the inquiry";
  }
}

TEST(PcfWriter, AdministrationBagWritesRequiredParametersFirst) {
  Bag bag(JXBAG_ADMIN);
  int32_t cc, rc;
  jxAddInquiry(bag.handle, 20, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  jxAddInquiry(bag.handle, 2016, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  bag.add(JXSEL_QUEUE_TYPE, 1).add(JXSEL_QUEUE_NAME, "Q1", 0);
  Written w = write(bag, JXCMD_INQUIRE_QUEUE);
  ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
  EXPECT_EQ(w.msgType, 1);
  EXPECT_EQ(std::string(w.format, 8), JXFMT_ADMIN);
  EXPECT_EQ(w.bytes, Msg()
                         .header(JXPCF_TYPE_COMMAND, JXCMD_INQUIRE_QUEUE, 3)
                         .string(JXSEL_QUEUE_NAME, "Q1", 0)
                         .integer(JXSEL_QUEUE_TYPE, 1)
                         .intList(JXSEL_QUEUE_ATTRS, {20, 2016})
                         .data);
}

TEST(PcfWriter, ListHeavyBagBeyondFortyItemsUsesObtainedMarks) {
  const int64_t blocks = xcsBlocksInUse();
  {
    Bag bag(JXBAG_LIST_FORM | JXBAG_REORDER);
    Msg m;
    m.header(JXPCF_TYPE_USER, kNoCommand, 0);
    int32_t parms = 0;
    bag.add(7, 100);
    for (int32_t k = 0; k < 45; ++k) bag.add(100 + k, k);
    bag.add(7, 101).add(2500, "XY").add(8, 5).add(2500, "XYZ12");
    m.intList(7, {100, 101});
    ++parms;
    for (int32_t k = 0; k < 45; ++k, ++parms) m.integer(100 + k, k);
    m.stringList(2500, 5, {"XY", "XYZ12"}).integer(8, 5);
    parms += 2;
    m.patch(jxai::pcf::kHdrParameterCount, parms);
    Written w = write(bag, kNoCommand);
    ASSERT_EQ(w.cc, JXCC_OK) << w.rc;
    EXPECT_EQ(w.bytes, m.data);
  }
  EXPECT_EQ(xcsBlocksInUse(), blocks);
}

TEST(PcfWriter, ControlAreaStorageFailureGives2071) {
  Bag bag(JXBAG_LIST_FORM);
  for (int32_t k = 0; k < 41; ++k) bag.add(100 + k, k);
  xcsSetAllocFailure(0, kFn_zaiBagToPCFMsg);
  Written w = write(bag, kNoCommand);
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(w.cc, JXCC_FAILED);
  EXPECT_EQ(w.rc, JXRC_NO_STORAGE);

  Bag small(JXBAG_LIST_FORM);  // 40 items or fewer: the area lives in the frame
  for (int32_t k = 0; k < 32; ++k) small.add(100 + k, k);
  xcsSetAllocFailure(0, kFn_zaiBagToPCFMsg);
  w = write(small, kNoCommand);
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(w.cc, JXCC_OK);
}

TEST(PcfWriter, TooSmallBufferReportsTheWholeLengthAndKeepsWhatFitted) {
  Bag bag(0);
  bag.add(5, 1).add(6, 2).add(2001, "ABCDE");
  const int32_t whole = 36 + 16 + 16 + 28;
  Written w = write(bag, kNoCommand, 36 + 16 + 8);
  EXPECT_EQ(w.cc, JXCC_FAILED);
  EXPECT_EQ(w.rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(w.dataLength, whole);
  Msg fitted = Msg().header(JXPCF_TYPE_USER, kNoCommand, 1).integer(5, 1).fill(8, kUnwritten);
  EXPECT_EQ(w.bytes, fitted.data);

  w = write(bag, kNoCommand, 10);
  EXPECT_EQ(w.rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(w.dataLength, whole);
  w = write(bag, kNoCommand, -1);
  EXPECT_EQ(w.rc, JXRC_BAD_LENGTH);
  EXPECT_EQ(w.dataLength, whole);

  w = write(bag, kNoCommand, whole);
  EXPECT_EQ(w.cc, JXCC_OK);
}

TEST(PcfWriter, NestedBagIsRefusedBeforeAnythingElse) {
  Bag nested(0);
  Bag bag(JXBAG_LIST_FORM);
  bag.add(5, 1);
  int32_t cc = -1, rc = -1;
  zaiAddBag(bag.block(), 4001, nested.handle, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  nested.handle = JXHB_NONE;  // owned by the outer bag now
  Written w = write(bag, kNoCommand);
  EXPECT_EQ(w.cc, JXCC_FAILED);
  EXPECT_EQ(w.rc, JXRC_NESTED_BAG_IN_MSG);
}

TEST(PcfWriter, ItemOfAnUnknownTypeWritesAFailureRecord) {
  Bag bag(0);
  bag.add(5, 1);
  zaiPROPERTY *item = static_cast<zaiPROPERTY *>(zaiVectorAt(bag.block()->Items, 8));
  item->Type = 9;
  const std::string before = xcsLastFailureRecord();
  Written w = write(bag, kNoCommand);
  item->Type = JXITEM_INTEGER;
  EXPECT_EQ(w.cc, JXCC_FAILED);
  EXPECT_EQ(w.rc, JXRC_WRONG_ITEM_TYPE);
  EXPECT_NE(std::string(xcsLastFailureRecord()), before);
}

TEST(PcfWriter, InquiryStringInAListIsRefused) {
  Bag bag(JXBAG_LIST_FORM);
  bag.add(JXSEL_INQUIRE, "X");
  Written w = write(bag, JXCMD_INQUIRE_QUEUE);
  EXPECT_EQ(w.cc, JXCC_FAILED);
  EXPECT_EQ(w.rc, JXRC_WRONG_ITEM_TYPE);
}

TEST(PcfWriter, ValueOfTheOtherTypeNeverJoinsAList) {
  Bag bag(JXBAG_LIST_FORM);
  // An integer record carries a character set of 0, so a string of 0 matches it.
  bag.add(JXSEL_INQUIRE, 20).add(JXSEL_QUEUE_ATTRS, "S", 0);
  Written w = write(bag, JXCMD_INQUIRE_QUEUE);
  EXPECT_EQ(w.cc, JXCC_FAILED);
  EXPECT_EQ(w.rc, JXRC_WRONG_ITEM_TYPE);
}

TEST(PcfWriter, LibraryBufferIsSizedByASecondAttempt) {
  Bag small(0);
  small.add(5, 1);
  void *buffer = nullptr;
  int32_t length = 0, msgType = 0, cc = -1, rc = -1;
  char format[8];
  zaiBagToPCFMsgInJXAIBuffer(small.block(), 3, &buffer, &length, &msgType, format, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(length, 52);
  EXPECT_EQ(memcmp(buffer, Msg().header(8, 3, 1).integer(5, 1).data.data(), 52), 0);
  zaiFreeJXAIBuffer(&buffer);
  EXPECT_EQ(buffer, nullptr);

  Bag large(0);
  const std::string big(5000, 'x');
  large.add(2001, big);
  zaiBagToPCFMsgInJXAIBuffer(large.block(), 3, &buffer, &length, &msgType, format, &cc, &rc);
  ASSERT_EQ(cc, JXCC_OK) << rc;
  EXPECT_EQ(length, 36 + 20 + 5000);
  EXPECT_EQ(memcmp(static_cast<char *>(buffer) + 56, big.data(), big.size()), 0);
  zaiFreeJXAIBuffer(&buffer);

  xcsSetAllocFailure(0, kFn_zaiBagToPCFInJXAIBuffer);
  zaiBagToPCFMsgInJXAIBuffer(small.block(), 3, &buffer, &length, &msgType, format, &cc, &rc);
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(rc, JXRC_NO_STORAGE);
  EXPECT_EQ(buffer, nullptr);
}

}  // namespace
