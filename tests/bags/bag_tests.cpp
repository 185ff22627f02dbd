// What only the library can set up: system bags (option 32), nested bags
// added with zaiAddBag, and the storage behind string items.
#include <string.h>

#include <thread>
#include <vector>

#include "bag_test_util.hpp"

namespace {

constexpr int32_t kReplyOptions = JXBAG_SYSTEM | JXBAG_CHECK_SELECTORS;
constexpr int32_t kReply = JXSEL_BAG_FIRST;

bool isLive(JXHBAG h) {
  int32_t n;
  return call(jxCountItems, h, JXSEL_ANY, &n) == kOk;
}

// Nests a new bag made with `options` in `bag`; the nested bag's handle.
JXHBAG nest(zaiBAG *bag, int32_t selector, int32_t options) {
  const JXHBAG h = jxai::handleOf(newBag(options));
  EXPECT_EQ(call(zaiAddBag, bag, selector, h), kOk);
  return h;
}

// A response bag holding two reply bags, each with an integer and a string.
struct Response {
  Response() {
    for (int32_t i = 0; i < 2; ++i) {
      replies[i] = nest(bag, kReply, kReplyOptions);
      call(zaiAddInteger, jxai::blockOf(replies[i]), 1, 100 + i);
      call(zaiAddString, jxai::blockOf(replies[i]), 2001, 5, "reply", 0);
    }
  }
  ~Response() {
    if (bag) dropBag(bag);
  }
  zaiBAG *bag = newBag(0);
  JXHBAG h = jxai::handleOf(bag);
  JXHBAG replies[2];
};

TEST(SystemBag, CallersMayReadButNeitherChangeNorDelete) {
  zaiBAG *bag = newBag(kReplyOptions);
  JXHBAG h = jxai::handleOf(bag), copy = h;
  int32_t v = 0;
  char buf[4];
  EXPECT_EQ(call(jxInquireInteger, h, JXSYS_OPTIONS, 0, &v), kOk);
  EXPECT_EQ(v, 40);
  EXPECT_EQ(call(jxCountItems, h, JXSEL_ANY, &v), kOk);
  EXPECT_EQ(call(jxInquireString, h, JXSEL_ANY, 0, 4, buf, &v, nullptr),
            failed(JXRC_WRONG_ITEM_TYPE))
      << "read, and found an integer";
  const Outcome readOnly = failed(JXRC_SYSTEM_BAG_READ_ONLY);
  EXPECT_EQ(call(jxAddInteger, h, -1, 1), readOnly) << "before the selector check";
  EXPECT_EQ(call(jxSetInteger, h, JXSYS_OPTIONS, 0, 1), readOnly);
  EXPECT_EQ(call(jxAddString, h, 2001, -5, nullptr), readOnly) << "the buffer check puts it back";
  EXPECT_EQ(call(jxSetString, h, 2001, 0, 1, "x"), readOnly);
  EXPECT_EQ(call(jxAddInquiry, h, 1), readOnly);
  EXPECT_EQ(call(jxClearBag, h), readOnly);
  EXPECT_EQ(call(jxTruncateBag, h, -1), readOnly);
  EXPECT_EQ(call(jxDeleteItem, h, 1, 0), readOnly);
  EXPECT_EQ(call(jxDeleteItem, h, -1, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE))
      << "the selector check replaces 2315";
  EXPECT_EQ(call(jxDeleteBag, &copy), failed(JXRC_SYSTEM_BAG_UNDELETABLE));
  EXPECT_EQ(copy, h);
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 8);
  dropBag(bag);
}

TEST(NestedBags, InquireBagByOccurrenceAndWildcard) {
  Response r;
  JXHBAG out = 0;
  EXPECT_EQ(call(jxInquireBag, r.h, kReply, 0, &out), kOk);
  EXPECT_EQ(out, r.replies[0]);
  call(jxInquireBag, r.h, kReply, 1, &out);
  EXPECT_EQ(out, r.replies[1]);
  call(jxInquireBag, r.h, JXSEL_USER, 1, &out);
  EXPECT_EQ(out, r.replies[1]);
  call(jxInquireBag, r.h, JXSEL_ANY, 8, &out);
  EXPECT_EQ(out, r.replies[0]);
  out = 0;
  EXPECT_EQ(call(jxInquireBag, r.h, kReply, 2, &out), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(call(jxInquireBag, r.h, kReply, -1, &out), failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(out, 0);
  int32_t sel = 0, type = 0, v = 0;
  call(jxInquireItemInfo, r.h, JXSEL_USER, 0, &sel, &type);
  EXPECT_EQ(type, JXITEM_BAG);
  // A reply bag is read through its own handle.
  call(jxInquireInteger, r.replies[1], 1, -1, &v);
  EXPECT_EQ(v, 101);

  zaiBAG *single = newBag(0);
  const JXHBAG only = nest(single, kReply, kReplyOptions);
  EXPECT_EQ(call(jxInquireBag, jxai::handleOf(single), kReply, -1, &out), kOk);
  EXPECT_EQ(out, only);
  dropBag(single);
}

TEST(NestedBags, AddBagKeepsOneTypePerSelector) {
  zaiBAG *bag = newBag(0), *nested = newBag(0);
  call(zaiAddInteger, bag, 4001, 1);
  EXPECT_EQ(call(zaiAddBag, bag, 4001, jxai::handleOf(nested)), failed(JXRC_INCONSISTENT_TYPE));
  EXPECT_EQ(zaiCountItems(bag, 0, 4001), 1);
  JXHBAG out;
  EXPECT_EQ(call(jxInquireBag, jxai::handleOf(bag), 4001, 0, &out), failed(JXRC_WRONG_ITEM_TYPE));
  dropBag(nested);
  dropBag(bag);
}

TEST(NestedBags, ReplyItemsCannotBeDeletedByCallers) {
  Response r;
  const Outcome undeletable = failed(JXRC_SYSTEM_ITEM_UNDELETABLE);
  EXPECT_EQ(call(jxDeleteItem, r.h, kReply, 0), undeletable);
  EXPECT_EQ(call(jxDeleteItem, r.h, JXSEL_USER, 1), undeletable);
  EXPECT_EQ(call(jxSetInteger, r.h, kReply, JXIDX_ALL, 1), undeletable);
  EXPECT_EQ(zaiCountItems(r.bag, 0, kReply), 2);
  EXPECT_EQ(call(jxDeleteBag, &r.replies[0]), failed(JXRC_SYSTEM_BAG_UNDELETABLE));
}

TEST(NestedBags, DeletionStopsAtASystemBagAndKeepsWhatWasRemoved) {
  zaiBAG *bag = newBag(0);
  for (int32_t options : {0, kReplyOptions, 0}) nest(bag, 4001, options);
  EXPECT_EQ(call(jxDeleteItem, jxai::handleOf(bag), 4001, JXIDX_ALL),
            failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(zaiCountItems(bag, 0, 4001), 2) << "the first was removed before the refusal";
  dropBag(bag);
}

TEST(NestedBags, TruncateClearAndDeleteTakeTheNestedBagsWithThem) {
  const int64_t before = xcsBlocksInUse();
  {
    Response r;
    EXPECT_EQ(call(jxTruncateBag, r.h, 1), kOk);
    EXPECT_EQ(zaiCountItems(r.bag, 0, kReply), 1);
    EXPECT_FALSE(isLive(r.replies[1])) << "the truncated reply is gone";
    EXPECT_TRUE(isLive(r.replies[0]));
    EXPECT_EQ(call(jxClearBag, r.h), kOk);
    EXPECT_FALSE(isLive(r.replies[0]));
  }
  {
    Response r;
    const JXHBAG deeper = nest(jxai::blockOf(r.replies[0]), 4002, 0);
    call(zaiAddString, jxai::blockOf(deeper), 1, 3, "abc", 0);
    EXPECT_EQ(call(jxDeleteBag, &r.h), kOk);
    EXPECT_FALSE(isLive(deeper)) << "recursively";
    r.bag = nullptr;
  }
  EXPECT_EQ(xcsBlocksInUse(), before) << "every block of every nested bag released";
}

TEST(NestedBags, AnOddNestedHandleDeletesNothing) {
  zaiBAG *bag = newBag(0);
  EXPECT_EQ(call(zaiAddBag, bag, 4001, 3), kOk);
  EXPECT_EQ(call(zaiDeleteItem, bag, 4001, 0, 0), kOk);
  dropBag(bag);
}

TEST(StringStorage, SameLengthReusesTheCopyOtherLengthsReplaceIt) {
  zaiBAG *bag = newBag(0);
  call(zaiAddString, bag, 2001, 3, "abc", 0);
  JXLONG position;
  Outcome o;
  zaiPROPERTY *item = zaiFindSelector(bag, 0, 2001, 0, &position, &o.cc, &o.rc);
  char *copy = item->Value.String;
  EXPECT_EQ(call(zaiSetString, bag, 2001, 0, 3, "xyz"), kOk);
  EXPECT_EQ(item->Value.String, copy);
  EXPECT_EQ(memcmp(copy, "xyz", 3), 0);
  call(zaiSetString, bag, 2001, 0, 0, nullptr);
  EXPECT_EQ(item->Value.String, nullptr) << "an empty string has no copy";
  EXPECT_EQ(item->StringLength, 0);
  call(zaiSetString, bag, 2001, 0, 4, "long");
  EXPECT_EQ(item->StringLength, 4);
  EXPECT_EQ(memcmp(item->Value.String, "long", 4), 0);
  EXPECT_EQ(memcmp(item->StrucId, ZAI_PROPERTY_EYE, 4), 0) << "the item itself left whole";
  EXPECT_EQ(item->Type, JXITEM_STRING);
  dropBag(bag);
}

TEST(Workers, FreeItemRefusesPositionsOutsideTheBag) {
  zaiBAG *bag = newBag(0);
  call(zaiAddInteger, bag, 5, 1);
  EXPECT_EQ(call(zaiFreeItem, bag, 9), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(call(zaiFreeItem, bag, -1), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 9);
  dropBag(bag);
}

TEST(Workers, CheckSelectorRanges) {
  zaiBAG *checked = newBag(JXBAG_CHECK_SELECTORS), *plain = newBag(0);
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
    EXPECT_EQ(call(zaiCheckSelector, checked, c.selector, c.type).rc, c.checkedRc)
        << c.selector << " type " << c.type;
    EXPECT_EQ(call(zaiCheckSelector, plain, c.selector, c.type).rc, c.plainRc)
        << c.selector << " type " << c.type;
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
        call(jxCreateBag, 0, &h);
        for (int32_t i = 0; i < 200; ++i) call(jxAddInteger, h, i % 50, t * 1000 + i);
        int32_t n = 0, v = 0;
        call(jxCountItems, h, 7, &n);
        call(jxInquireInteger, h, 7, 3, &v);
        errors[t] += n != 4 || v != t * 1000 + 157;
        call(jxDeleteItem, h, 7, JXIDX_ALL);
        call(jxTruncateBag, h, 10);
        call(jxCountItems, h, JXSEL_USER, &n);
        errors[t] += n != 10;
        errors[t] += call(jxDeleteBag, &h) != kOk;
      }
    });
  }
  for (auto &th : threads) th.join();
  EXPECT_EQ(errors, std::vector<int>(4, 0));
}

}  // namespace
