// What only the library can set up: system bags (option 32), nested bags
// added with zaiAddBag, and the storage behind string items.
#include <stdlib.h>
#include <string.h>

#include <thread>
#include <vector>

#include "bag_test_util.hpp"

namespace {

constexpr int32_t kReplyOptions = JXBAG_SYSTEM | JXBAG_CHECK_SELECTORS;
constexpr int32_t kReplySelector = JXSEL_BAG_FIRST;

// Whether a handle still names a bag.
bool isLive(JXHBAG h) {
  int32_t n;
  Outcome o;
  jxCountItems(h, JXSEL_ANY, &n, &o.cc, &o.rc);
  return o.cc == JXCC_OK;
}

// A response bag holding two reply bags, each with an integer and a string.
struct Response {
  Response() {
    bag = newBag(0);
    for (int32_t i = 0; i < 2; ++i) {
      zaiBAG *reply = newBag(kReplyOptions);
      zaiAddInteger(reply, 1, 100 + i, &o.cc, &o.rc);
      zaiAddString(reply, 2001, 5, "reply", 0, &o.cc, &o.rc);
      replies[i] = jxai::handleOf(reply);
      zaiAddBag(bag, kReplySelector, replies[i], &o.cc, &o.rc);
      EXPECT_EQ(o, kOk);
    }
    h = jxai::handleOf(bag);
  }
  ~Response() {
    if (bag) dropBag(bag);
  }
  zaiBAG *bag;
  JXHBAG h;
  JXHBAG replies[2];
  Outcome o;
};

TEST(SystemBag, CallersMayReadButNeitherChangeNorDelete) {
  zaiBAG *bag = newBag(kReplyOptions);
  JXHBAG h = jxai::handleOf(bag);
  Outcome o;
  int32_t v = 0;
  char buf[4];
  jxInquireInteger(h, JXSYS_OPTIONS, 0, &v, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  EXPECT_EQ(v, 40);
  jxCountItems(h, JXSEL_ANY, &v, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  jxInquireString(h, JXSEL_ANY, 0, 4, buf, &v, nullptr, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_WRONG_ITEM_TYPE)) << "read, and found an integer";

  jxAddInteger(h, -1, 1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY)) << "before the selector check";
  jxSetInteger(h, JXSYS_OPTIONS, 0, 1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY));
  jxAddString(h, 2001, -5, nullptr, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY)) << "the buffer check puts it back";
  jxSetString(h, 2001, 0, 1, "x", &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY));
  jxAddInquiry(h, 1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY));
  jxClearBag(h, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY));
  jxTruncateBag(h, -1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY));
  jxDeleteItem(h, 1, 0, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_READ_ONLY));
  jxDeleteItem(h, -1, 0, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SELECTOR_OUT_OF_RANGE)) << "the selector check replaces 2315";
  JXHBAG copy = h;
  jxDeleteBag(&copy, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_UNDELETABLE));
  EXPECT_EQ(copy, h);
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 8);
  dropBag(bag);
}

TEST(NestedBags, InquireBagByOccurrenceAndWildcard) {
  Response r;
  Outcome o;
  JXHBAG out = 0;
  jxInquireBag(r.h, kReplySelector, 0, &out, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  EXPECT_EQ(out, r.replies[0]);
  jxInquireBag(r.h, kReplySelector, 1, &out, &o.cc, &o.rc);
  EXPECT_EQ(out, r.replies[1]);
  jxInquireBag(r.h, JXSEL_USER, 1, &out, &o.cc, &o.rc);
  EXPECT_EQ(out, r.replies[1]);
  jxInquireBag(r.h, JXSEL_ANY, 8, &out, &o.cc, &o.rc);
  EXPECT_EQ(out, r.replies[0]);
  out = 0;
  jxInquireBag(r.h, kReplySelector, 2, &out, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_INDEX_NOT_PRESENT));
  jxInquireBag(r.h, kReplySelector, -1, &out, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(out, 0);
  int32_t sel = 0, type = 0;
  jxInquireItemInfo(r.h, JXSEL_USER, 0, &sel, &type, &o.cc, &o.rc);
  EXPECT_EQ(type, JXITEM_BAG);
  // A reply bag is read through its own handle.
  int32_t v = 0;
  jxInquireInteger(out = r.replies[1], 1, -1, &v, &o.cc, &o.rc);
  EXPECT_EQ(v, 101);

  zaiBAG *single = newBag(0);
  zaiAddBag(single, kReplySelector, jxai::handleOf(newBag(kReplyOptions)), &o.cc, &o.rc);
  jxInquireBag(jxai::handleOf(single), kReplySelector, -1, &out, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  dropBag(single);
}

TEST(NestedBags, AddBagKeepsOneTypePerSelector) {
  zaiBAG *bag = newBag(0);
  Outcome o;
  zaiAddInteger(bag, 4001, 1, &o.cc, &o.rc);
  zaiBAG *nested = newBag(0);
  zaiAddBag(bag, 4001, jxai::handleOf(nested), &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_INCONSISTENT_TYPE));
  EXPECT_EQ(zaiCountItems(bag, 0, 4001), 1);
  JXHBAG out;
  jxInquireBag(jxai::handleOf(bag), 4001, 0, &out, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_WRONG_ITEM_TYPE));
  dropBag(nested);
  dropBag(bag);
}

TEST(NestedBags, ReplyItemsCannotBeDeletedByCallers) {
  Response r;
  Outcome o;
  jxDeleteItem(r.h, kReplySelector, 0, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  jxDeleteItem(r.h, JXSEL_USER, 1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  jxSetInteger(r.h, kReplySelector, JXIDX_ALL, 1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(zaiCountItems(r.bag, 0, kReplySelector), 2);
  JXHBAG reply = r.replies[0];
  jxDeleteBag(&reply, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_BAG_UNDELETABLE));
}

TEST(NestedBags, DeletionStopsAtASystemBagAndKeepsWhatWasRemoved) {
  zaiBAG *bag = newBag(0);
  Outcome o;
  zaiAddBag(bag, 4001, jxai::handleOf(newBag(0)), &o.cc, &o.rc);
  zaiAddBag(bag, 4001, jxai::handleOf(newBag(kReplyOptions)), &o.cc, &o.rc);
  zaiAddBag(bag, 4001, jxai::handleOf(newBag(0)), &o.cc, &o.rc);
  jxDeleteItem(jxai::handleOf(bag), 4001, JXIDX_ALL, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(zaiCountItems(bag, 0, 4001), 2) << "the first was removed before the refusal";
  dropBag(bag);
}

TEST(NestedBags, TruncateClearAndDeleteTakeTheNestedBagsWithThem) {
  const int64_t before = xcsBlocksInUse();
  {
    Response r;
    jxTruncateBag(r.h, 1, &r.o.cc, &r.o.rc);
    EXPECT_EQ(r.o, kOk);
    EXPECT_EQ(zaiCountItems(r.bag, 0, kReplySelector), 1);
    EXPECT_FALSE(isLive(r.replies[1])) << "the truncated reply is gone";
    EXPECT_TRUE(isLive(r.replies[0]));
    jxClearBag(r.h, &r.o.cc, &r.o.rc);
    EXPECT_EQ(r.o, kOk);
    EXPECT_FALSE(isLive(r.replies[0]));
  }
  {
    Response r;
    zaiBAG *inner = jxai::blockOf(r.replies[0]);
    zaiBAG *deeper = newBag(0);
    zaiAddString(deeper, 1, 3, "abc", 0, &r.o.cc, &r.o.rc);
    zaiAddBag(inner, 4002, jxai::handleOf(deeper), &r.o.cc, &r.o.rc);
    JXHBAG h = r.h;
    jxDeleteBag(&h, &r.o.cc, &r.o.rc);
    EXPECT_EQ(r.o, kOk);
    EXPECT_FALSE(isLive(jxai::handleOf(deeper))) << "recursively";
    r.bag = nullptr;
  }
  EXPECT_EQ(xcsBlocksInUse(), before) << "every block of every nested bag released";
}

TEST(NestedBags, AnOddNestedHandleDeletesNothing) {
  zaiBAG *bag = newBag(0);
  Outcome o;
  zaiAddBag(bag, 4001, 3, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  zaiDeleteItem(bag, 4001, 0, 0, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  dropBag(bag);
}

TEST(StringStorage, SameLengthReusesTheCopyOtherLengthsReplaceIt) {
  zaiBAG *bag = newBag(0);
  Outcome o;
  zaiAddString(bag, 2001, 3, "abc", 0, &o.cc, &o.rc);
  JXLONG position;
  zaiPROPERTY *item = zaiFindSelector(bag, 0, 2001, 0, &position, &o.cc, &o.rc);
  char *copy = item->Value.String;
  zaiSetString(bag, 2001, 0, 3, "xyz", &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  EXPECT_EQ(item->Value.String, copy);
  EXPECT_EQ(memcmp(copy, "xyz", 3), 0);
  zaiSetString(bag, 2001, 0, 0, nullptr, &o.cc, &o.rc);
  EXPECT_EQ(item->Value.String, nullptr) << "an empty string has no copy";
  EXPECT_EQ(item->StringLength, 0);
  zaiSetString(bag, 2001, 0, 4, "long", &o.cc, &o.rc);
  EXPECT_EQ(item->StringLength, 4);
  EXPECT_EQ(memcmp(item->Value.String, "long", 4), 0);
  EXPECT_EQ(memcmp(item->StrucId, ZAI_PROPERTY_EYE, 4), 0);
  EXPECT_EQ(item->Type, JXITEM_STRING);
  dropBag(bag);
}

TEST(Workers, FindSelectorFromALaterStart) {
  zaiBAG *bag = newBag(0);
  Outcome o;
  for (int32_t v : {1, 2, 3}) zaiAddInteger(bag, 5, v, &o.cc, &o.rc);
  JXLONG position = -1;
  const zaiPROPERTY *item = zaiFindSelector(bag, 9, 5, 1, &position, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  EXPECT_EQ(position, 10);
  EXPECT_EQ(item->Value.Integer, 3);
  zaiFindSelector(bag, 9, 5, 2, &position, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(position, 9);
  zaiFindSelector(bag, 11, 5, 0, &position, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(zaiCountItems(bag, 9, 5), 2);
  EXPECT_EQ(zaiCountItems(bag, 4, JXSEL_SYSTEM), 4);
  zaiFreeItem(bag, 11, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_INDEX_NOT_PRESENT));
  zaiFreeItem(bag, -1, &o.cc, &o.rc);
  EXPECT_EQ(o, failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 11);
  dropBag(bag);
}

TEST(Workers, CheckSelectorRanges) {
  zaiBAG *checked = newBag(JXBAG_CHECK_SELECTORS), *plain = newBag(0);
  Outcome o;
  const struct {
    int32_t selector, type, checkedRc, plainRc;
  } cases[] = {
      {1, JXITEM_INTEGER, 0, 0},        {2000, JXITEM_INTEGER, 0, 0},
      {2001, JXITEM_INTEGER, 2304, 0},  {0, JXITEM_INTEGER, 2304, 0},
      {2001, JXITEM_STRING, 0, 0},      {4000, JXITEM_STRING, 0, 0},
      {4001, JXITEM_STRING, 2304, 0},   {4001, JXITEM_BAG, 0, 0},
      {6000, JXITEM_BAG, 0, 0},         {6001, JXITEM_BAG, 2304, 0},
      {0, JXITEM_BAG, 2304, 0},         {9999, 4, 0, 0},
      {-8, JXITEM_INTEGER, 0, 0},       {-1, JXITEM_STRING, 0, 0},
      {-9, JXITEM_INTEGER, 2318, 2318}, {JXSEL_ANY, JXITEM_BAG, 2318, 2318},
  };
  for (const auto &c : cases) {
    zaiCheckSelector(checked, c.selector, c.type, &o.cc, &o.rc);
    EXPECT_EQ(o.rc, c.checkedRc) << c.selector << " type " << c.type;
    zaiCheckSelector(plain, c.selector, c.type, &o.cc, &o.rc);
    EXPECT_EQ(o.rc, c.plainRc) << c.selector << " type " << c.type;
  }
  dropBag(checked);
  dropBag(plain);
}

TEST(Threads, BagsOnDifferentThreadsShareNothing) {
  // Each thread fills, inquires and empties bags of its own at the same time.
  std::vector<std::thread> threads;
  std::vector<int> errors(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &errors] {
      for (int round = 0; round < 20; ++round) {
        JXHBAG h;
        Outcome o;
        jxCreateBag(0, &h, &o.cc, &o.rc);
        for (int32_t i = 0; i < 200; ++i) jxAddInteger(h, i % 50, t * 1000 + i, &o.cc, &o.rc);
        int32_t n = 0, v = 0;
        jxCountItems(h, 7, &n, &o.cc, &o.rc);
        jxInquireInteger(h, 7, 3, &v, &o.cc, &o.rc);
        errors[t] += n != 4 || v != t * 1000 + 157;
        jxDeleteItem(h, 7, JXIDX_ALL, &o.cc, &o.rc);
        jxTruncateBag(h, 10, &o.cc, &o.rc);
        jxCountItems(h, JXSEL_USER, &n, &o.cc, &o.rc);
        errors[t] += n != 10;
        jxDeleteBag(&h, &o.cc, &o.rc);
        errors[t] += o.cc != JXCC_OK;
      }
    });
  }
  for (auto &th : threads) th.join();
  EXPECT_EQ(errors, std::vector<int>(4, 0));
}

}  // namespace
