// The entry and exit marks one representative call of each kind leaves in
// the thread's function history: every internal function in call order,
// each exit carrying its reason (the count for zaiCountItems), whatever
// shortcuts the selector index takes.
#include "bag_test_util.hpp"

namespace {

// Builds an expected mark sequence.
struct Marks {
  std::vector<uint32_t> v;
  Marks &in(uint16_t fn) {
    v.push_back(entryMark(fn));
    return *this;
  }
  Marks &out(uint16_t fn, int32_t result = 0) {
    v.push_back(exitMark(fn, result));
    return *this;
  }
  Marks &leaf(uint16_t fn, int32_t result = 0) { return in(fn).out(fn, result); }
  // zaiAddInteger of a selector the bag does not hold yet.
  Marks &addNew(uint16_t worker = kFn_zaiAddInteger) {
    return in(worker)
        .leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT)
        .leaf(kFn_zaiVectorAdd)
        .out(worker);
  }
  Marks &systemItems() {
    in(kFn_zaiAddDefaultSystemItems);
    for (int i = 0; i < 8; ++i) addNew();
    return out(kFn_zaiAddDefaultSystemItems);
  }
  Marks &freeItem() { return in(kFn_zaiFreeItem).leaf(kFn_zaiVectorRemoveAt).out(kFn_zaiFreeItem); }
};

class BagMarks : public ::testing::Test {
 protected:
  void SetUp() override {
    jxCreateBag(0, &h, &o.cc, &o.rc);
    ASSERT_EQ(o, kOk);
    depth = xihThreadAddress()->StackDepth;
  }
  void TearDown() override {
    EXPECT_EQ(xihThreadAddress()->StackDepth, depth) << "every entry has its exit";
    if (h != JXHB_DELETED) jxDeleteBag(&h, &o.cc, &o.rc);
  }
  JXHBAG h = JXHB_NONE;
  Outcome o;
  uint32_t depth = 0;
};

TEST_F(BagMarks, CreateBag) {
  JXHBAG b;
  const uint32_t start = historyNow();
  jxCreateBag(JXBAG_ADMIN, &b, &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXCreateBag).in(kFn_zaiCreateBag).leaf(kFn_zaiVectorCreate).systemItems();
  m.out(kFn_zaiCreateBag).out(kFn_zaiJXCreateBag);
  EXPECT_EQ(marksSince(start), m.v);
  jxDeleteBag(&b, &o.cc, &o.rc);
}

TEST_F(BagMarks, DeleteBag) {
  const uint32_t start = historyNow();
  jxDeleteBag(&h, &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXDeleteBag).in(kFn_zaiDeleteBag);
  for (int i = 0; i < 8; ++i) m.freeItem();
  m.leaf(kFn_zaiVectorDestroy).out(kFn_zaiDeleteBag).out(kFn_zaiJXDeleteBag);
  EXPECT_EQ(marksSince(start), m.v);
}

TEST_F(BagMarks, AddIntegerThenSetIt) {
  uint32_t start = historyNow();
  jxAddInteger(h, 5, 1, &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXAddInteger).leaf(kFn_zaiCheckSelector).addNew().out(kFn_zaiJXAddInteger);
  EXPECT_EQ(marksSince(start), m.v);

  start = historyNow();
  jxSetInteger(h, 5, 0, 2, &o.cc, &o.rc);
  Marks s;
  s.in(kFn_zaiJXSetInteger).leaf(kFn_zaiCheckSelector);
  s.in(kFn_zaiSetInteger).leaf(kFn_zaiFindSelector).out(kFn_zaiSetInteger);
  s.out(kFn_zaiJXSetInteger);
  EXPECT_EQ(marksSince(start), s.v);
}

TEST_F(BagMarks, InquireTheOnlyOccurrenceCountsThroughTheUniquenessTest) {
  jxAddInteger(h, 5, 1, &o.cc, &o.rc);
  jxAddInteger(h, 5, 2, &o.cc, &o.rc);
  const uint32_t start = historyNow();
  int32_t v;
  jxInquireInteger(h, 5, JXIDX_ONLY, &v, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SELECTOR_NOT_UNIQUE));
  Marks m;
  m.in(kFn_zaiJXInquireInteger).leaf(kFn_zaiCheckSelector);
  m.in(kFn_zaiInquireInteger).in(kFn_zaiFindSelector).in(kFn_zaiCheckUniqueSelector);
  m.leaf(kFn_zaiCountItems, 2).out(kFn_zaiCheckUniqueSelector, JXRC_SELECTOR_NOT_UNIQUE);
  m.out(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_UNIQUE).out(kFn_zaiInquireInteger, 2305);
  m.out(kFn_zaiJXInquireInteger, JXRC_SELECTOR_NOT_UNIQUE);
  EXPECT_EQ(marksSince(start), m.v);
}

TEST_F(BagMarks, AddAndSetAllOfAString) {
  uint32_t start = historyNow();
  jxAddString(h, 2001, -1, "ab", &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXAddString).leaf(kFn_zaiCheckSelector);
  m.in(kFn_zaiInquireInteger).leaf(kFn_zaiFindSelector).out(kFn_zaiInquireInteger);
  m.addNew(kFn_zaiAddString).out(kFn_zaiJXAddString);
  EXPECT_EQ(marksSince(start), m.v);

  start = historyNow();
  jxSetString(h, 2001, JXIDX_ALL, 1, "c", &o.cc, &o.rc);
  Marks s;
  s.in(kFn_zaiJXSetString).leaf(kFn_zaiCheckSelector).in(kFn_zaiSetString);
  s.in(kFn_zaiInquireInteger).leaf(kFn_zaiFindSelector).out(kFn_zaiInquireInteger);
  s.in(kFn_zaiDeleteItem).leaf(kFn_zaiFindSelector).freeItem();
  s.leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT).out(kFn_zaiDeleteItem);
  s.addNew(kFn_zaiAddString).out(kFn_zaiSetString).out(kFn_zaiJXSetString);
  EXPECT_EQ(marksSince(start), s.v);
}

TEST_F(BagMarks, InquireItemInfoRecordsZeroWhateverTheOutcome) {
  const uint32_t start = historyNow();
  int32_t sel, type;
  jxInquireItemInfo(h, 6, 0, &sel, &type, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SELECTOR_NOT_PRESENT));
  Marks m;
  m.in(kFn_zaiJXInquireItemInfo).in(kFn_zaiInquireItemInfo);
  m.leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT);
  m.out(kFn_zaiInquireItemInfo, 0).out(kFn_zaiJXInquireItemInfo, 0);
  EXPECT_EQ(marksSince(start), m.v);
}

TEST_F(BagMarks, CountInquiryAndInquireBag) {
  uint32_t start = historyNow();
  int32_t n;
  jxCountItems(h, JXSEL_ANY, &n, &o.cc, &o.rc);
  EXPECT_EQ(marksSince(start),
            Marks().in(kFn_zaiJXCountItems).leaf(kFn_zaiCountItems, 8).out(kFn_zaiJXCountItems).v);

  JXHBAG admin;
  jxCreateBag(JXBAG_ADMIN, &admin, &o.cc, &o.rc);
  start = historyNow();
  jxAddInquiry(admin, 1, &o.cc, &o.rc);
  EXPECT_EQ(marksSince(start), Marks().in(kFn_zaiJXAddInquiry).addNew().out(kFn_zaiJXAddInquiry).v);
  jxDeleteBag(&admin, &o.cc, &o.rc);

  start = historyNow();
  JXHBAG out;
  jxInquireBag(h, JXSEL_USER, 0, &out, &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXInquireBag).in(kFn_zaiInquireBag).leaf(kFn_zaiFindSelector, 2309);
  m.out(kFn_zaiInquireBag, 2309).out(kFn_zaiJXInquireBag, 2309);
  EXPECT_EQ(marksSince(start), m.v);
}

TEST_F(BagMarks, DeleteAllOccurrences) {
  jxAddInteger(h, 5, 1, &o.cc, &o.rc);
  jxAddInteger(h, 5, 2, &o.cc, &o.rc);
  const uint32_t start = historyNow();
  jxDeleteItem(h, 5, JXIDX_ALL, &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXDeleteItem).in(kFn_zaiDeleteItem);
  m.leaf(kFn_zaiFindSelector).freeItem().leaf(kFn_zaiFindSelector).freeItem();
  m.leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT).out(kFn_zaiDeleteItem);
  m.out(kFn_zaiJXDeleteItem);
  EXPECT_EQ(marksSince(start), m.v);
}

TEST_F(BagMarks, TruncateAndClear) {
  jxAddInteger(h, 5, 1, &o.cc, &o.rc);
  uint32_t start = historyNow();
  jxTruncateBag(h, 0, &o.cc, &o.rc);
  Marks m;
  m.in(kFn_zaiJXTruncateBag).in(kFn_zaiTruncateBag).leaf(kFn_zaiCountItems, 1).freeItem();
  m.out(kFn_zaiTruncateBag).out(kFn_zaiJXTruncateBag);
  EXPECT_EQ(marksSince(start), m.v);

  start = historyNow();
  jxClearBag(h, &o.cc, &o.rc);
  Marks c;
  c.in(kFn_zaiJXClearBag).in(kFn_zaiClearBag);
  for (int i = 0; i < 8; ++i) c.freeItem();
  c.systemItems().out(kFn_zaiClearBag).out(kFn_zaiJXClearBag);
  EXPECT_EQ(marksSince(start), c.v);
}

}  // namespace
