// Storage failures: fail the 1st, 2nd, 3rd... allocation of a call until it
// succeeds; every failure must report 2071, leave the bag as it was and leak
// nothing, except the creation paths that knowingly leave the block behind.
#include <functional>

#include "bag_test_util.hpp"
#include "leaks.hpp"

namespace {

// Selectors and types of every item, in order.
std::vector<std::pair<int32_t, int32_t>> snapshot(const zaiBAG *bag) {
  std::vector<std::pair<int32_t, int32_t>> out;
  for (int32_t i = 0; i < bag->Items->Count; ++i) {
    const auto *item = static_cast<const zaiPROPERTY *>(zaiVectorAt(bag->Items, i));
    out.emplace_back(item->Selector, item->Type);
  }
  return out;
}

// Runs `call` with the nth allocation failing, n = 1, 2, ... until it
// succeeds; returns how many failures it met.
int failUntilSuccess(zaiBAG *bag, const std::function<Outcome()> &call) {
  for (int n = 1;; ++n) {
    const auto before = snapshot(bag);
    const int64_t blocks = xcsBlocksInUse();
    xcsSetAllocFailure(n, -1);
    const Outcome o = call();
    xcsSetAllocFailure(0, -1);
    if (o == kOk) return n - 1;
    EXPECT_EQ(o, failed(JXRC_STORAGE_NOT_AVAILABLE)) << "allocation " << n;
    EXPECT_EQ(xcsBlocksInUse(), blocks) << "allocation " << n;
    EXPECT_EQ(snapshot(bag), before) << "allocation " << n;
    if (n > 20) {
      ADD_FAILURE() << "never succeeded";
      return n;
    }
  }
}

TEST(AllocFailure, AddsGrowingTheVectorAndTheIndex) {
  zaiBAG *bag = newBag(0);
  const JXHBAG h = jxai::handleOf(bag);
  int failures = 0;
  // Through 80 items: the vector and the index's item links double at 40
  // and 80 items, the index's table at 24 and 48 selectors.
  for (int32_t i = 0; i < 80; ++i) {
    failures += failUntilSuccess(bag, [&] {
      return i % 3 == 1 ? call(jxAddString, h, 100 + i, 2, "ab")
                        : call(jxAddInteger, h, 100 + i, i);
    });
  }
  EXPECT_GE(failures, 6) << "every growth step met failures";
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_USER), 80);
  int32_t v = 0;
  call(jxInquireInteger, h, 178, -1, &v);
  EXPECT_EQ(v, 78);
  dropBag(bag);
}

TEST(AllocFailure, AddsMovingSelectorsFromTheTableToTheArray) {
  zaiBAG *bag = newBag(0);
  const JXHBAG h = jxai::handleOf(bag);
  call(jxAddInteger, h, 1000, 1);
  call(jxAddInteger, h, 300, 2);
  int failures = 0;
  for (int32_t i = 1; i <= 260; ++i)
    failures += failUntilSuccess(bag, [&] { return call(jxAddInteger, h, i, i); });
  EXPECT_GE(failures, 4) << "the array's growth steps met failures";
  int32_t v = 0;
  call(jxInquireInteger, h, 1000, JXIDX_ONLY, &v);
  EXPECT_EQ(v, 1);
  call(jxInquireInteger, h, 300, JXIDX_ONLY, &v);
  EXPECT_EQ(v, 2);
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_USER), 262);
  dropBag(bag);
}

TEST(AllocFailure, AddBagLeavesTheNestedBagToItsCaller) {
  zaiBAG *bag = newBag(0);
  for (int32_t i = 0; i < 32; ++i) call(zaiAddInteger, bag, i, i);
  const JXHBAG nested = jxai::handleOf(newBag(0));
  EXPECT_GE(failUntilSuccess(bag, [&] { return call(zaiAddBag, bag, 4001, nested); }), 1);
  dropBag(bag);  // takes the nested bag with it
}

TEST(AllocFailure, SetAllAndClear) {
  zaiBAG *bag = newBag(0);
  const JXHBAG h = jxai::handleOf(bag);
  for (int32_t i = 0; i < 39; ++i) call(jxAddInteger, h, 1, i);
  call(jxAddInteger, h, 2, 0);
  // Index -2 removes before it adds: nothing left to grow, nothing fails.
  EXPECT_EQ(failUntilSuccess(bag, [&] { return call(jxSetInteger, h, 1, JXIDX_ALL, 7); }), 0);
  EXPECT_EQ(failUntilSuccess(bag, [&] { return call(jxClearBag, h); }), 0);
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 8);
  dropBag(bag);
}

// A string's copy comes from common storage: a new length that cannot be
// copied keeps the old value, one of the same length needs no storage.
TEST(AllocFailure, SetStringKeepsTheOldValue) {
  zaiBAG *bag = newBag(0);
  const JXHBAG h = jxai::handleOf(bag);
  call(jxAddString, h, 1, 3, "abc");
  EXPECT_EQ(failUntilSuccess(bag, [&] { return call(jxSetString, h, 1, 0, 3, "xyz"); }), 0);
  EXPECT_EQ(failUntilSuccess(bag, [&] { return call(jxSetString, h, 1, 0, 5, "hello"); }), 1);
  char buf[8] = {};
  int32_t length = 0, ccsid = 0;
  EXPECT_EQ(call(jxInquireString, h, 1, 0, sizeof buf, buf, &length, &ccsid), kOk);
  EXPECT_EQ(std::string(buf, static_cast<size_t>(length)), "hello");
  xcsSetAllocFailure(1, -1);
  EXPECT_EQ(call(jxSetString, h, 1, 0, 2, "no"), failed(JXRC_STORAGE_NOT_AVAILABLE));
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(call(jxInquireString, h, 1, 0, sizeof buf, buf, &length, &ccsid), kOk);
  EXPECT_EQ(std::string(buf, static_cast<size_t>(length)), "hello");
  dropBag(bag);
}

TEST(AllocFailure, CreateBagReportsEveryFailureAndFinallySucceeds) {
  for (int n = 1;; ++n) {
    const int64_t blocks = xcsBlocksInUse();
    JXHBAG h = JXHB_NONE;
    LEAKS_ACCEPTED_BEGIN();
    xcsSetAllocFailure(n, -1);
    const Outcome o = call(jxCreateBag, JXBAG_ADMIN, &h);
    xcsSetAllocFailure(0, -1);
    LEAKS_ACCEPTED_END();
    if (o == kOk) {
      EXPECT_EQ(n, 7) << "the block, the vector's data and control block, and the index's "
                         "links, array and system positions failed";
      call(jxDeleteBag, &h);
      EXPECT_EQ(xcsBlocksInUse(), blocks);
      break;
    }
    EXPECT_EQ(o, failed(JXRC_STORAGE_NOT_AVAILABLE)) << "allocation " << n;
    EXPECT_EQ(h, JXHB_NONE) << "no handle on failure";
    // The control block itself failing leaves nothing; later failures leave
    // the block behind, as creation accepts.
    if (n == 1) {
      EXPECT_EQ(xcsBlocksInUse(), blocks);
    }
    ASSERT_LT(n, 20);
  }
}

}  // namespace
