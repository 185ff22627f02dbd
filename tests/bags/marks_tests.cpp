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
    ASSERT_EQ(call(jxCreateBag, 0, &h), kOk);
    depth = xihThreadAddress()->StackDepth;
  }
  void TearDown() override {
    EXPECT_EQ(xihThreadAddress()->StackDepth, depth) << "every entry has its exit";
    if (h != JXHB_DELETED) call(jxDeleteBag, &h);
  }
  // The marks `f` leaves in this thread's history.
  template <typename F>
  std::vector<uint32_t> marksOf(F f) {
    const uint32_t start = historyNow();
    f();
    return marksSince(start);
  }
  JXHBAG h = JXHB_NONE;
  uint32_t depth = 0;
};

TEST_F(BagMarks, CreateBag) {
  JXHBAG b;
  Marks m;
  m.in(kFn_zaiJXCreateBag).in(kFn_zaiCreateBag).leaf(kFn_zaiVectorCreate).systemItems();
  m.out(kFn_zaiCreateBag).out(kFn_zaiJXCreateBag);
  EXPECT_EQ(marksOf([&] { call(jxCreateBag, JXBAG_ADMIN, &b); }), m.v);
  call(jxDeleteBag, &b);
}

TEST_F(BagMarks, DeleteBag) {
  Marks m;
  m.in(kFn_zaiJXDeleteBag).in(kFn_zaiDeleteBag);
  for (int i = 0; i < 8; ++i) m.freeItem();
  m.leaf(kFn_zaiVectorDestroy).out(kFn_zaiDeleteBag).out(kFn_zaiJXDeleteBag);
  EXPECT_EQ(marksOf([&] { call(jxDeleteBag, &h); }), m.v);
}

TEST_F(BagMarks, AddIntegerThenSetIt) {
  Marks m;
  m.in(kFn_zaiJXAddInteger).leaf(kFn_zaiCheckSelector).addNew().out(kFn_zaiJXAddInteger);
  EXPECT_EQ(marksOf([&] { call(jxAddInteger, h, 5, 1); }), m.v);
  Marks s;
  s.in(kFn_zaiJXSetInteger).leaf(kFn_zaiCheckSelector);
  s.in(kFn_zaiSetInteger).leaf(kFn_zaiFindSelector).out(kFn_zaiSetInteger);
  s.out(kFn_zaiJXSetInteger);
  EXPECT_EQ(marksOf([&] { call(jxSetInteger, h, 5, 0, 2); }), s.v);
}

TEST_F(BagMarks, InquireTheOnlyOccurrenceCountsThroughTheUniquenessTest) {
  call(jxAddInteger, h, 5, 1);
  call(jxAddInteger, h, 5, 2);
  int32_t v;
  Marks m;
  m.in(kFn_zaiJXInquireInteger).leaf(kFn_zaiCheckSelector);
  m.in(kFn_zaiInquireInteger).in(kFn_zaiFindSelector).in(kFn_zaiCheckUniqueSelector);
  m.leaf(kFn_zaiCountItems, 2).out(kFn_zaiCheckUniqueSelector, JXRC_SELECTOR_NOT_UNIQUE);
  m.out(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_UNIQUE).out(kFn_zaiInquireInteger, 2305);
  m.out(kFn_zaiJXInquireInteger, JXRC_SELECTOR_NOT_UNIQUE);
  EXPECT_EQ(marksOf([&] { call(jxInquireInteger, h, 5, JXIDX_ONLY, &v); }), m.v);
}

TEST_F(BagMarks, AddAndSetAllOfAString) {
  Marks m;
  m.in(kFn_zaiJXAddString).leaf(kFn_zaiCheckSelector);
  m.in(kFn_zaiInquireInteger).leaf(kFn_zaiFindSelector).out(kFn_zaiInquireInteger);
  m.addNew(kFn_zaiAddString).out(kFn_zaiJXAddString);
  EXPECT_EQ(marksOf([&] { call(jxAddString, h, 2001, -1, "ab"); }), m.v);
  Marks s;
  s.in(kFn_zaiJXSetString).leaf(kFn_zaiCheckSelector).in(kFn_zaiSetString);
  s.in(kFn_zaiInquireInteger).leaf(kFn_zaiFindSelector).out(kFn_zaiInquireInteger);
  s.in(kFn_zaiDeleteItem).leaf(kFn_zaiFindSelector).freeItem();
  s.leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT).out(kFn_zaiDeleteItem);
  s.addNew(kFn_zaiAddString).out(kFn_zaiSetString).out(kFn_zaiJXSetString);
  EXPECT_EQ(marksOf([&] { call(jxSetString, h, 2001, JXIDX_ALL, 1, "c"); }), s.v);
}

TEST_F(BagMarks, InquireItemInfoRecordsZeroWhateverTheOutcome) {
  int32_t sel, type;
  Marks m;
  m.in(kFn_zaiJXInquireItemInfo).in(kFn_zaiInquireItemInfo);
  m.leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT);
  m.out(kFn_zaiInquireItemInfo, 0).out(kFn_zaiJXInquireItemInfo, 0);
  Outcome o;
  EXPECT_EQ(marksOf([&] { o = call(jxInquireItemInfo, h, 6, 0, &sel, &type); }), m.v);
  EXPECT_EQ(o, failed(JXRC_SELECTOR_NOT_PRESENT));
}

TEST_F(BagMarks, CountInquiryAndInquireBag) {
  int32_t n;
  EXPECT_EQ(marksOf([&] { call(jxCountItems, h, JXSEL_ANY, &n); }),
            Marks().in(kFn_zaiJXCountItems).leaf(kFn_zaiCountItems, 8).out(kFn_zaiJXCountItems).v);
  JXHBAG admin;
  call(jxCreateBag, JXBAG_ADMIN, &admin);
  EXPECT_EQ(marksOf([&] { call(jxAddInquiry, admin, 1); }),
            Marks().in(kFn_zaiJXAddInquiry).addNew().out(kFn_zaiJXAddInquiry).v);
  call(jxDeleteBag, &admin);
  JXHBAG out;
  Marks m;
  m.in(kFn_zaiJXInquireBag).in(kFn_zaiInquireBag).leaf(kFn_zaiFindSelector, 2309);
  m.out(kFn_zaiInquireBag, 2309).out(kFn_zaiJXInquireBag, 2309);
  EXPECT_EQ(marksOf([&] { call(jxInquireBag, h, JXSEL_USER, 0, &out); }), m.v);
}

TEST_F(BagMarks, DeleteAllOccurrences) {
  call(jxAddInteger, h, 5, 1);
  call(jxAddInteger, h, 5, 2);
  Marks m;
  m.in(kFn_zaiJXDeleteItem).in(kFn_zaiDeleteItem);
  m.leaf(kFn_zaiFindSelector).freeItem().leaf(kFn_zaiFindSelector).freeItem();
  m.leaf(kFn_zaiFindSelector, JXRC_SELECTOR_NOT_PRESENT).out(kFn_zaiDeleteItem);
  m.out(kFn_zaiJXDeleteItem);
  EXPECT_EQ(marksOf([&] { call(jxDeleteItem, h, 5, JXIDX_ALL); }), m.v);
}

TEST_F(BagMarks, TruncateAndClear) {
  call(jxAddInteger, h, 5, 1);
  Marks m;
  m.in(kFn_zaiJXTruncateBag).in(kFn_zaiTruncateBag).leaf(kFn_zaiCountItems, 1).freeItem();
  m.out(kFn_zaiTruncateBag).out(kFn_zaiJXTruncateBag);
  EXPECT_EQ(marksOf([&] { call(jxTruncateBag, h, 0); }), m.v);
  Marks c;
  c.in(kFn_zaiJXClearBag).in(kFn_zaiClearBag);
  for (int i = 0; i < 8; ++i) c.freeItem();
  c.systemItems().out(kFn_zaiClearBag).out(kFn_zaiJXClearBag);
  EXPECT_EQ(marksOf([&] { call(jxClearBag, h); }), c.v);
}

}  // namespace
