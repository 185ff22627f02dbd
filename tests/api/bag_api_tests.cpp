// Data bags through the public API only: every reason of every call, check
// order, outputs left alone on failure, warnings that still fill outputs,
// wildcards and indexes, and handles that must never crash.
#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <string.h>

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "outcome.hpp"

namespace {

constexpr int32_t kUntouched = 0x5A5A5A5A;
// An address in read-only memory: refused for writing.
const int32_t kReadOnlyWord = 7;
int32_t *readOnly() {
  return const_cast<int32_t *>(&kReadOnlyWord);
}

using Items = std::vector<std::pair<int32_t, int32_t>>;
const Items kSystemItems = {{-8, 1}, {-2, 1}, {-1, 1}, {-3, 1}, {-4, 1}, {-5, 1}, {-6, 1}, {-7, 1}};

// A bag owned by the test; b(jxCall, args...) runs a call on it.
struct Bag {
  explicit Bag(int32_t options = 0) {
    EXPECT_EQ(call(jxCreateBag, options, &h), kOk) << "options " << options;
  }
  ~Bag() {
    if (h != JXHB_DELETED) call(jxDeleteBag, &h);
  }
  template <typename F, typename... A>
  Outcome operator()(F f, A... args) const {
    return call(f, h, args...);
  }
  int32_t intAt(int32_t sel, int32_t i) const {
    int32_t v = kUntouched;
    EXPECT_EQ((*this)(jxInquireInteger, sel, i, &v), kOk) << "selector " << sel << " index " << i;
    return v;
  }
  // The whole string of an item, and its CCSID.
  std::string strAt(int32_t sel, int32_t i, int32_t *ccsid = nullptr) const {
    char buf[256];
    int32_t sl = -1;
    EXPECT_EQ((*this)(jxInquireString, sel, i, sizeof buf, buf, &sl, ccsid), kOk);
    return std::string(buf, static_cast<size_t>(sl < 0 ? 0 : sl));
  }
  int32_t count(int32_t sel) const {
    int32_t n = kUntouched;
    EXPECT_EQ((*this)(jxCountItems, sel, &n), kOk);
    return n;
  }
  // Every item as (selector, type), in bag order.
  Items items() const {
    Items out;
    for (int32_t i = 0;; ++i) {
      int32_t sel = 0, type = 0;
      const Outcome o = (*this)(jxInquireItemInfo, JXSEL_ANY, i, &sel, &type);
      if (o.cc != JXCC_OK) {
        EXPECT_EQ(o, failed(JXRC_INDEX_NOT_PRESENT)) << "walk ends past the last item";
        return out;
      }
      out.emplace_back(sel, type);
    }
  }
  std::vector<int32_t> userSelectors() const {
    std::vector<int32_t> out;
    for (auto [sel, type] : items())
      if (sel >= 0) out.push_back(sel);
    return out;
  }

  JXHBAG h = JXHB_NONE;
};

// ---- jxCreateBag, jxDeleteBag and handles ------------------------------------

TEST(CreateBag, EightSystemItemsInOrderWithTheOptionsRebuiltFromTheFlags) {
  Bag b;
  EXPECT_EQ(b.items(), kSystemItems);
  const int32_t values[] = {0, 8, 0, 0, 1, 1, 0, 0};
  for (int32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(b.intAt(JXSEL_ANY, i), values[i]) << "item " << i;
    EXPECT_EQ(b.intAt(JXSEL_SYSTEM, i), values[i]) << "item " << i;
  }
  // {options, options item, message type}
  const int32_t cases[][3] = {{0, 0, 8}, {1, 15, 1},  {2, 2, 8},   {4, 4, 8},
                              {8, 8, 8}, {16, 16, 1}, {15, 15, 1}, {30, 30, 1}};
  for (const auto &c : cases) {
    Bag o(c[0]);
    EXPECT_EQ(o.intAt(JXSYS_OPTIONS, 0), c[1]) << "options " << c[0];
    EXPECT_EQ(o.intAt(JXSYS_MSG_TYPE, 0), c[2]) << "options " << c[0];
  }
}

TEST(CreateBag, RefusesBadOptionsAndLeavesTheHandleAlone) {
  for (int32_t options : {17, 31, 32, 33, 64, -1, INT32_MIN}) {
    JXHBAG h = kUntouched;
    EXPECT_EQ(call(jxCreateBag, options, &h), failed(JXRC_OPTIONS_ERROR)) << "options " << options;
    EXPECT_EQ(h, kUntouched);
  }
  EXPECT_EQ(call(jxCreateBag, 32, nullptr), failed(JXRC_OPTIONS_ERROR)) << "options before output";
  EXPECT_EQ(call(jxCreateBag, 0, nullptr), failed(JXRC_BAD_HANDLE));
  EXPECT_EQ(call(jxCreateBag, 0, readOnly()), failed(JXRC_BAD_HANDLE));
}

// Every handle-taking call refuses a handle that names no bag.
void expectEveryCallRefuses(JXHBAG h) {
  int32_t v = 0, v2 = 0;
  char buf[8];
  JXHBAG out = 0, copy = h;
  const Outcome refused = failed(JXRC_BAD_HANDLE);
  EXPECT_EQ(call(jxAddInteger, h, 1, 1), refused) << h;
  EXPECT_EQ(call(jxSetInteger, h, 1, 0, 1), refused) << h;
  EXPECT_EQ(call(jxInquireInteger, h, 1, 0, &v), refused) << h;
  EXPECT_EQ(call(jxAddString, h, 2001, 1, "x"), refused) << h;
  EXPECT_EQ(call(jxSetString, h, 2001, 0, 1, "x"), refused) << h;
  EXPECT_EQ(call(jxInquireString, h, 2001, 0, 8, buf, &v, &v2), refused) << h;
  EXPECT_EQ(call(jxInquireBag, h, 4001, 0, &out), refused) << h;
  EXPECT_EQ(call(jxAddInquiry, h, 1), refused) << h;
  EXPECT_EQ(call(jxInquireItemInfo, h, 1, 0, &v, &v2), refused) << h;
  EXPECT_EQ(call(jxCountItems, h, 1, &v), refused) << h;
  EXPECT_EQ(call(jxDeleteItem, h, 1, 0), refused) << h;
  EXPECT_EQ(call(jxClearBag, h), refused) << h;
  EXPECT_EQ(call(jxTruncateBag, h, 0), refused) << h;
  EXPECT_EQ(call(jxDeleteBag, &copy), refused) << h;
  EXPECT_EQ(copy, h) << "the handle is changed only by a deletion";
}

// A deletion leaves -1 in the handle; the old handle is then refused.
TEST(Handles, NoBagOddAndDeletedHandlesGive2320) {
  for (JXHBAG h : {JXHB_NONE, JXHB_DELETED, 0, 1, 3, 0x7FFFFFFF, INT32_MIN, INT32_MIN + 1})
    expectEveryCallRefuses(h);
  JXHBAG h;
  ASSERT_EQ(call(jxCreateBag, 0, &h), kOk);
  const JXHBAG old = h;
  EXPECT_EQ(call(jxDeleteBag, &h), kOk);
  EXPECT_EQ(h, JXHB_DELETED);
  expectEveryCallRefuses(old);
  expectEveryCallRefuses(old + 1);
}

TEST(Handles, RandomEvenHandlesNeverCrash) {
  Bag live;  // a real bag somewhere among the random values
  std::mt19937 gen(20261122);
  for (int i = 0; i < 5000; ++i) {
    const JXHBAG h = static_cast<JXHBAG>(gen() & ~1u);
    if (h == live.h) continue;
    int32_t n = kUntouched;
    ASSERT_EQ(call(jxCountItems, h, JXSEL_ANY, &n), failed(JXRC_BAD_HANDLE)) << "handle " << h;
    EXPECT_EQ(n, kUntouched);
    ASSERT_EQ(call(jxAddInteger, h, 1, 1), failed(JXRC_BAD_HANDLE)) << "handle " << h;
  }
  EXPECT_EQ(live.count(JXSEL_ANY), 8);
}

// ---- Integers ----------------------------------------------------------------

TEST(AddInteger, AppendsNeverReplacesAndKeepsOneTypePerSelector) {
  Bag b, plain, checked(JXBAG_CHECK_SELECTORS);
  EXPECT_EQ(b(jxAddInteger, 7, 70), kOk);
  EXPECT_EQ(b(jxAddInteger, 3, 30), kOk);
  EXPECT_EQ(b(jxAddInteger, 7, 71), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{7, 3, 7}));
  EXPECT_EQ(b.intAt(7, 0), 70);
  EXPECT_EQ(b.intAt(7, 1), 71);
  int32_t v = kUntouched;
  EXPECT_EQ(b(jxInquireInteger, 7, -1, &v), failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(b(jxInquireInteger, 7, 2, &v), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(v, kUntouched);
  // One type per selector, whichever came first.
  ASSERT_EQ(b(jxAddString, 5, -1, "text"), kOk);
  EXPECT_EQ(b(jxAddInteger, 5, 1), failed(JXRC_INCONSISTENT_TYPE));
  EXPECT_EQ(b(jxAddString, 7, -1, "x"), failed(JXRC_INCONSISTENT_TYPE));
  EXPECT_EQ(b.count(5), 1);
  EXPECT_EQ(b.count(7), 2);
  // Selector ranges, with and without the check flag.
  EXPECT_EQ(plain(jxAddInteger, -1, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE)) << "no system items";
  EXPECT_EQ(plain(jxAddInteger, JXSEL_ANY, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(plain(jxAddInteger, 0, 0), kOk);
  EXPECT_EQ(plain(jxAddInteger, 2001, 0), kOk);
  EXPECT_EQ(checked(jxAddInteger, 0, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxAddInteger, 1, 0), kOk);
  EXPECT_EQ(checked(jxAddInteger, 2000, 0), kOk);
  EXPECT_EQ(checked(jxAddInteger, 2001, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked.count(JXSEL_USER), 2);
}

TEST(SetInteger, ChangesInPlaceOrReplacesAll) {
  Bag b;
  b(jxAddInteger, 5, 50), b(jxAddInteger, 6, 60), b(jxAddInteger, 5, 51), b(jxAddInteger, 5, 52);
  EXPECT_EQ(b(jxSetInteger, 5, 1, 99), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{5, 6, 5, 5}));
  EXPECT_EQ(b.intAt(5, 1), 99);
  // Index -2 leaves one item, at the end of the bag; on an absent selector
  // it adds the item; it replaces items of another type too.
  EXPECT_EQ(b(jxSetInteger, 5, JXIDX_ALL, 7), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{6, 5}));
  EXPECT_EQ(b.intAt(5, -1), 7);
  EXPECT_EQ(b(jxSetInteger, 9, JXIDX_ALL, 90), kOk);
  EXPECT_EQ(b.intAt(9, 0), 90);
  ASSERT_EQ(b(jxAddString, 11, -1, "s"), kOk);
  EXPECT_EQ(b(jxSetInteger, 11, JXIDX_ALL, 3), kOk);
  EXPECT_EQ(b.intAt(11, 0), 3);
}

TEST(SetInteger, Reasons) {
  Bag b, checked(JXBAG_CHECK_SELECTORS);
  b(jxAddInteger, 5, 50), b(jxAddInteger, 5, 51), b(jxAddString, 6, -1, "x");
  EXPECT_EQ(b(jxSetInteger, JXSYS_COMMAND, 0, 13), kOk);
  EXPECT_EQ(b.intAt(JXSYS_COMMAND, 0), 13);
  EXPECT_EQ(b(jxSetInteger, JXSYS_OPTIONS, 0, 1), failed(JXRC_READ_ONLY_SELECTOR));
  EXPECT_EQ(b(jxSetInteger, JXSYS_COMMAND, JXIDX_ALL, 1), failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(b.intAt(JXSYS_COMMAND, 0), 13) << "a refused -2 set changes nothing";
  EXPECT_EQ(b(jxSetInteger, -9, 0, 1), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(b(jxSetInteger, 5, -1, 1), failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(b(jxSetInteger, 5, 2, 1), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxSetInteger, 5, -3, 1), failed(JXRC_BAD_INDEX));
  EXPECT_EQ(b(jxSetInteger, 8, 0, 1), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxSetInteger, 6, 0, 1), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(checked(jxSetInteger, 2001, JXIDX_ALL, 1), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b.intAt(5, 0), 50);
  EXPECT_EQ(b.intAt(5, 1), 51);
  // The options item is refused before the selector check.
  EXPECT_EQ(checked(jxSetInteger, JXSYS_OPTIONS, -5, 1), failed(JXRC_READ_ONLY_SELECTOR));
}

TEST(InquireInteger, WildcardsCountByKind) {
  Bag b, empty;
  b(jxAddString, 3, -1, "s"), b(jxAddInteger, 4, 40);
  int32_t v = kUntouched;
  EXPECT_EQ(b.intAt(JXSEL_USER, 1), 40);
  EXPECT_EQ(b.intAt(JXSEL_ANY, 9), 40);
  EXPECT_EQ(b(jxInquireInteger, JXSEL_USER, 0, &v), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(b(jxInquireInteger, JXSEL_USER, 2, &v), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireInteger, JXSEL_SYSTEM, 8, &v), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireInteger, JXSEL_ANY, 10, &v), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(empty(jxInquireInteger, JXSEL_USER, 0, &v), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(v, kUntouched);
}

TEST(InquireInteger, ChecksInOrderAndWritesOnlyOnSuccess) {
  Bag b(JXBAG_CHECK_SELECTORS);
  b(jxAddInteger, 5, 50);
  EXPECT_EQ(call(jxInquireInteger, JXHB_NONE, -9, 0, nullptr), failed(JXRC_BAD_HANDLE));
  EXPECT_EQ(b(jxInquireInteger, -9, 0, nullptr), failed(JXRC_BAD_SELECTOR))
      << "selector before output";
  EXPECT_EQ(b(jxInquireInteger, 2001, 0, nullptr), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxInquireInteger, 5, 0, nullptr), failed(JXRC_BAD_ITEM_VALUE_OUT));
  EXPECT_EQ(b(jxInquireInteger, 5, 0, readOnly()), failed(JXRC_BAD_ITEM_VALUE_OUT));
  EXPECT_EQ(b(jxInquireInteger, JXSEL_ANY, 0, nullptr), failed(JXRC_BAD_ITEM_VALUE_OUT));
  int32_t v = kUntouched;
  EXPECT_EQ(b(jxInquireInteger, 6, 0, &v), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireInteger, 5, 1, &v), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(v, kUntouched);
  EXPECT_EQ(b(jxInquireInteger, 5, -1, &v), kOk);
  EXPECT_EQ(v, 50);
}

// ---- Strings -----------------------------------------------------------------

TEST(AddString, StoresExactBytesWithTheBagsCcsid) {
  Bag b;
  EXPECT_EQ(b(jxAddString, 1, -1, "ABC"), kOk);
  const char bytes[] = {'a', '\0', ' ', 'b', ' '};
  EXPECT_EQ(b(jxAddString, 2, sizeof bytes, bytes), kOk);
  EXPECT_EQ(b(jxAddString, 3, 0, nullptr), kOk);
  EXPECT_EQ(b.strAt(2, 0), std::string(bytes, sizeof bytes));
  EXPECT_EQ(b.strAt(3, 0), "");
  // Each string takes the CCSID the bag has at the time; none while it is -1.
  for (int32_t ccsid : {437, 850}) {
    EXPECT_EQ(b(jxSetInteger, JXSYS_CCSID, 0, ccsid), kOk);
    EXPECT_EQ(b(jxAddString, 1, -1, "DEF"), kOk);
  }
  const int32_t stamped[] = {0, 437, 850};
  for (int32_t i : {0, 1, 2}) {
    int32_t ccsid = kUntouched;
    EXPECT_EQ(b.strAt(1, i, &ccsid), i ? "DEF" : "ABC");
    EXPECT_EQ(ccsid, stamped[i]) << "string " << i;
  }
  ASSERT_EQ(b(jxSetInteger, JXSYS_CCSID, 0, JXCCSID_NONE), kOk);
  EXPECT_EQ(b(jxAddString, 2001, -1, "x"), failed(JXRC_BAD_CCSID));
  EXPECT_EQ(b.count(JXSEL_ANY), 13);
}

TEST(AddString, ChecksInOrderAndBufferCheckKeepsTheFirstFailure) {
  Bag b, checked(JXBAG_CHECK_SELECTORS);
  EXPECT_EQ(call(jxAddString, JXHB_NONE, -1, -2, nullptr), failed(JXRC_BAD_HANDLE));
  EXPECT_EQ(b(jxAddString, -1, 5, nullptr), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxAddString, JXSEL_USER, -1, "x"), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxAddString, 2000, -1, nullptr), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxAddString, 4001, -1, "x"), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxAddString, 0, -1, "x"), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxAddString, 1, -2, nullptr), failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(b(jxAddString, 1, -2, "abc"), failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(b(jxAddString, 1, -1, nullptr), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(b(jxAddString, 1, 3, nullptr), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(checked(jxAddString, 2001, -1, "x"), kOk);
  EXPECT_EQ(checked(jxAddString, 4000, -1, "x"), kOk);
  EXPECT_EQ(b.count(JXSEL_USER), 0);
}

TEST(SetString, ReplacesOneInPlaceOrAllAtTheEndAndRestamps) {
  Bag b;
  b(jxAddString, 1, -1, "first"), b(jxAddInteger, 2, 0), b(jxAddString, 1, -1, "second");
  b(jxSetInteger, JXSYS_CCSID, 0, 1208);
  EXPECT_EQ(b(jxSetString, 1, 1, -1, "SECOND"), kOk) << "same length";
  EXPECT_EQ(b(jxSetString, 1, 0, -1, "a longer first"), kOk);
  EXPECT_EQ(b(jxSetString, 1, 0, 1, "x"), kOk) << "shorter again";
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{1, 2, 1}));
  int32_t ccsid = 0;
  EXPECT_EQ(b.strAt(1, 0, &ccsid), "x");
  EXPECT_EQ(ccsid, 1208);
  EXPECT_EQ(b.strAt(1, 1, &ccsid), "SECOND");
  EXPECT_EQ(ccsid, 1208);
  EXPECT_EQ(b(jxSetString, 1, 1, 0, nullptr), kOk);
  EXPECT_EQ(b.strAt(1, 1), "");
  // Index -2 leaves one string at the end, whatever the items were, and adds
  // one for an absent selector.
  b(jxAddInteger, 3, 1), b(jxAddInteger, 4, 0), b(jxAddInteger, 3, 2);
  EXPECT_EQ(b(jxSetString, 3, JXIDX_ALL, -1, "only"), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{1, 2, 1, 4, 3}));
  EXPECT_EQ(b.strAt(3, -1), "only");
  EXPECT_EQ(b(jxSetString, 9, JXIDX_ALL, -1, "new"), kOk);
  EXPECT_EQ(b.strAt(9, 0), "new");
}

TEST(SetString, Reasons) {
  Bag b, checked(JXBAG_CHECK_SELECTORS);
  b(jxAddString, 1, -1, "a"), b(jxAddString, 1, -1, "b"), b(jxAddInteger, 2, 0);
  EXPECT_EQ(b(jxSetString, JXSYS_OPTIONS, 0, -1, "x"), failed(JXRC_READ_ONLY_SELECTOR));
  EXPECT_EQ(b(jxSetString, JXSYS_CCSID, 0, -1, "x"), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(b(jxSetString, JXSYS_CCSID, JXIDX_ALL, -1, "x"), failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(b(jxSetString, -9, 0, -1, "x"), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(checked(jxSetString, 1, 0, -1, "x"), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxSetString, 1, -1, -1, "x"), failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(b(jxSetString, 1, 2, -1, "x"), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxSetString, 1, -3, -1, "x"), failed(JXRC_BAD_INDEX));
  EXPECT_EQ(b(jxSetString, 7, 0, -1, "x"), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxSetString, 2, 0, -1, "x"), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(b(jxSetString, 1, 0, -2, "x"), failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(b(jxSetString, 1, 0, 2, nullptr), failed(JXRC_BUFFER_ERROR));
  // The buffer check runs after an earlier failure and puts it back.
  EXPECT_EQ(b(jxSetString, JXSYS_OPTIONS, 0, 2, nullptr), failed(JXRC_READ_ONLY_SELECTOR));
  b(jxSetInteger, JXSYS_CCSID, 0, JXCCSID_NONE);
  EXPECT_EQ(b(jxSetString, 1, 0, -1, "x"), failed(JXRC_BAD_CCSID));
  b(jxSetInteger, JXSYS_CCSID, 0, 0);
  EXPECT_EQ(b.strAt(1, 0), "a");
  EXPECT_EQ(b.strAt(1, 1), "b");
}

TEST(InquireString, PadsWithBlanksOrTruncatesWithAWarning) {
  Bag b;
  b(jxAddString, 1, -1, "ABC"), b(jxAddString, 2, 0, nullptr);
  b(jxSetInteger, JXSYS_CCSID, 0, 37);
  b(jxAddString, 3, -1, "XY");
  const Outcome truncated{JXCC_WARNING, JXRC_STRING_TRUNCATED};
  // {selector, buffer length, outcome, buffer after, string length, CCSID}
  const struct {
    int32_t sel, length;
    Outcome outcome;
    const char *buffer;
    int32_t sl, ccsid;
  } rows[] = {
      {1, 8, kOk, "ABC     ", 3, 0},
      {1, 2, truncated, "AB######", 3, 0},  // the warning still fills every output
      {2, 4, kOk, "    ####", 0, 0},
      {3, 2, kOk, "XY######", 2, 37},
  };
  for (const auto &r : rows) {
    char buf[9] = "########";
    int32_t sl = kUntouched, ccsid = kUntouched;
    EXPECT_EQ(b(jxInquireString, r.sel, 0, r.length, buf, &sl, &ccsid), r.outcome) << r.sel;
    EXPECT_EQ(std::string(buf, 8), r.buffer) << r.sel;
    EXPECT_EQ(sl, r.sl) << r.sel;
    EXPECT_EQ(ccsid, r.ccsid) << r.sel;
  }
  int32_t sl = kUntouched;
  EXPECT_EQ(b(jxInquireString, 1, 0, 0, nullptr, &sl, nullptr), truncated) << "length only";
  EXPECT_EQ(sl, 3);
}

TEST(InquireString, ChecksInOrderAndWritesNothingOnFailure) {
  Bag b(JXBAG_CHECK_SELECTORS);
  b(jxAddString, 2001, -1, "ABC"), b(jxAddInteger, 1, 5);
  char buf[8] = "#######";
  char *roBuf = reinterpret_cast<char *>(readOnly());
  int32_t sl = kUntouched, ccsid = kUntouched;
  EXPECT_EQ(b(jxInquireString, 2001, 0, 4, nullptr, &sl, &ccsid), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(b(jxInquireString, 2001, 0, -1, nullptr, &sl, &ccsid), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(b(jxInquireString, 2001, 0, 4, roBuf, &sl, &ccsid), failed(JXRC_BUFFER_ERROR));
  EXPECT_EQ(b(jxInquireString, -9, 0, -1, buf, nullptr, &ccsid),
            failed(JXRC_BAD_STRING_LENGTH_OUT));
  EXPECT_EQ(b(jxInquireString, -9, 0, -1, buf, &sl, readOnly()), failed(JXRC_BAD_CCSID));
  EXPECT_EQ(b(jxInquireString, -9, 0, -1, buf, &sl, &ccsid), failed(JXRC_BUFFER_LENGTH_ERROR));
  EXPECT_EQ(b(jxInquireString, -9, 0, 4, buf, &sl, &ccsid), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(b(jxInquireString, 1, 0, 4, buf, &sl, &ccsid), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxInquireString, 2002, 0, 4, buf, &sl, &ccsid), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireString, 2001, 1, 4, buf, &sl, &ccsid), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireString, JXSEL_USER, 1, 4, buf, &sl, &ccsid), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(std::string(buf), "#######");
  EXPECT_EQ(sl, kUntouched);
  EXPECT_EQ(ccsid, kUntouched);
  EXPECT_EQ(b(jxInquireString, JXSEL_USER, 0, 3, buf, &sl, nullptr), kOk);
  EXPECT_EQ(std::string(buf, 3), "ABC");
}

// ---- jxInquireBag and jxAddInquiry (nested bags themselves: bag_tests) -------

TEST(InquireBag, ChecksAndTypes) {
  Bag b(JXBAG_CHECK_SELECTORS);
  b(jxAddInteger, 1, 5);
  JXHBAG out = kUntouched;
  EXPECT_EQ(b(jxInquireBag, -9, 0, nullptr), failed(JXRC_BAD_ITEM_VALUE_OUT)) << "output first";
  EXPECT_EQ(b(jxInquireBag, -9, 0, &out), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(b(jxInquireBag, 4000, 0, &out), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxInquireBag, 4001, 0, &out), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireBag, JXSEL_USER, 0, &out), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(b(jxInquireBag, JXSEL_SYSTEM, 3, &out), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(b(jxInquireBag, JXSYS_CCSID, 0, &out), failed(JXRC_WRONG_ITEM_TYPE));
  EXPECT_EQ(out, kUntouched);
}

TEST(AddInquiry, OnlyAdministrationBagsAndAttributeSelectors) {
  Bag plain, command(JXBAG_COMMAND), admin(JXBAG_ADMIN);
  EXPECT_EQ(call(jxAddInquiry, plain.h, 1), failed(JXRC_NOT_ADMIN_BAG));
  EXPECT_EQ(call(jxAddInquiry, command.h, 1), failed(JXRC_NOT_ADMIN_BAG));
  EXPECT_EQ(call(jxAddInquiry, command.h, -1), failed(JXRC_NOT_ADMIN_BAG)) << "admin test first";
  for (int32_t sel : {0, -1, 4001, JXSEL_ANY})
    EXPECT_EQ(call(jxAddInquiry, admin.h, sel), failed(JXRC_SELECTOR_OUT_OF_RANGE)) << sel;
  for (int32_t sel : {1, 4000, 1}) EXPECT_EQ(call(jxAddInquiry, admin.h, sel), kOk) << sel;
  EXPECT_EQ(admin.count(JXSEL_INQUIRE), 3);
  EXPECT_EQ(admin.intAt(JXSEL_INQUIRE, 0), 1);
  EXPECT_EQ(admin.intAt(JXSEL_INQUIRE, 1), 4000);
  EXPECT_EQ(admin.intAt(JXSEL_INQUIRE, 2), 1) << "the same attribute twice";
}

// ---- Indexes -1 and -2 and the three wildcards, call by call -----------------

TEST(IndexesAndWildcards, EveryCallThatTakesThem) {
  Bag b;
  b(jxAddInteger, 1, 10), b(jxAddString, 2001, -1, "s");
  char buf[4];
  int32_t v = 0, v2 = 0;
  JXHBAG out = 0;
  const Outcome ok = kOk, badIndex = failed(JXRC_BAD_INDEX), badSel = failed(JXRC_BAD_SELECTOR),
                wrongType = failed(JXRC_WRONG_ITEM_TYPE);
  struct Case {
    const char *call;
    std::function<Outcome(int32_t, int32_t)> run;
    Outcome any0, user0, system0, wildcardMinus1, wildcardMinus2;
  };
  const Case cases[] = {
      {"InquireInteger", [&](int32_t s, int32_t i) { return b(jxInquireInteger, s, i, &v); }, ok,
       ok, ok, badIndex, badIndex},
      {"InquireString",
       [&](int32_t s, int32_t i) { return b(jxInquireString, s, i, sizeof buf, buf, &v, nullptr); },
       wrongType, wrongType, wrongType, badIndex, badIndex},
      {"InquireBag", [&](int32_t s, int32_t i) { return b(jxInquireBag, s, i, &out); }, wrongType,
       wrongType, wrongType, badIndex, badIndex},
      {"InquireItemInfo", [&](int32_t s, int32_t i) { return b(jxInquireItemInfo, s, i, &v, &v2); },
       ok, ok, ok, badIndex, badIndex},
      {"SetInteger", [&](int32_t s, int32_t i) { return b(jxSetInteger, s, i, 1); }, badSel, badSel,
       badSel, badSel, badSel},
      {"SetString", [&](int32_t s, int32_t i) { return b(jxSetString, s, i, -1, "x"); }, badSel,
       badSel, badSel, badSel, badSel},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(c.run(JXSEL_ANY, 0), c.any0) << c.call;
    EXPECT_EQ(c.run(JXSEL_USER, 0), c.user0) << c.call;
    EXPECT_EQ(c.run(JXSEL_SYSTEM, 0), c.system0) << c.call;
    for (int32_t w : {JXSEL_ANY, JXSEL_USER, JXSEL_SYSTEM}) {
      EXPECT_EQ(c.run(w, JXIDX_ONLY), c.wildcardMinus1) << c.call << " " << w;
      EXPECT_EQ(c.run(w, JXIDX_ALL), c.wildcardMinus2) << c.call << " " << w;
    }
  }
  // A plain selector: -1 is its only occurrence; -2 is refused where one
  // item is read, and means all of them where items are replaced.
  EXPECT_EQ(b(jxInquireInteger, 1, JXIDX_ONLY, &v), ok);
  EXPECT_EQ(b(jxInquireInteger, 1, JXIDX_ALL, &v), badIndex);
  EXPECT_EQ(b(jxInquireString, 2001, JXIDX_ONLY, sizeof buf, buf, &v, nullptr), ok);
  EXPECT_EQ(b(jxInquireString, 2001, JXIDX_ALL, sizeof buf, buf, &v, nullptr), badIndex);
  EXPECT_EQ(b(jxInquireBag, 4001, JXIDX_ALL, &out), badIndex);
  EXPECT_EQ(b(jxInquireBag, 4001, JXIDX_ONLY, &out), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireItemInfo, 1, JXIDX_ALL, &v, &v2), badIndex);
  EXPECT_EQ(b(jxSetInteger, 1, JXIDX_ONLY, 11), ok);
  EXPECT_EQ(b(jxSetString, 2001, JXIDX_ONLY, -1, "t"), ok);
  EXPECT_EQ(b(jxSetInteger, 1, JXIDX_ALL, 12), ok);
  EXPECT_EQ(b(jxSetString, 2001, JXIDX_ALL, -1, "u"), ok);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{1, 2001}));
  // Deletion: wildcards name one position and take no -1 or -2; system items
  // are never deleted.
  for (int32_t w : {JXSEL_ANY, JXSEL_USER})
    for (int32_t i : {JXIDX_ONLY, JXIDX_ALL, -3})
      EXPECT_EQ(b(jxDeleteItem, w, i), badIndex) << w << i;
  EXPECT_EQ(b(jxDeleteItem, JXSEL_ANY, 0), failed(JXRC_SYSTEM_ITEM_UNDELETABLE));
  EXPECT_EQ(b(jxDeleteItem, JXSEL_SYSTEM, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxDeleteItem, JXSEL_USER, 0), ok);
  EXPECT_EQ(b(jxDeleteItem, 2001, JXIDX_ONLY), ok);
  EXPECT_EQ(b(jxDeleteItem, 1, JXIDX_ALL), ok);
  EXPECT_EQ(b.count(JXSEL_USER), 0);
}

// ---- jxInquireItemInfo and jxCountItems --------------------------------------

TEST(InquireItemInfo, ReportsSelectorAndTypeOrAReasonAndLeavesThemAlone) {
  Bag b, checked(JXBAG_CHECK_SELECTORS), empty;
  b(jxAddInteger, 7, 1), b(jxAddString, 8, -1, "s"), b(jxAddInteger, 7, 2);
  Items expected = kSystemItems;
  expected.insert(expected.end(), {{7, JXITEM_INTEGER}, {8, JXITEM_STRING}, {7, JXITEM_INTEGER}});
  EXPECT_EQ(b.items(), expected);
  int32_t sel = kUntouched, type = kUntouched;
  EXPECT_EQ(b(jxInquireItemInfo, JXSEL_USER, 1, &sel, &type), kOk);
  EXPECT_EQ(std::make_pair(sel, type), std::make_pair(8, JXITEM_STRING));
  EXPECT_EQ(b(jxInquireItemInfo, 7, 1, &sel, &type), kOk);
  EXPECT_EQ(std::make_pair(sel, type), std::make_pair(7, JXITEM_INTEGER));
  sel = type = kUntouched;
  EXPECT_EQ(b(jxInquireItemInfo, 7, -1, &sel, &type), failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(b(jxInquireItemInfo, 7, 2, &sel, &type), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireItemInfo, 7, -2, &sel, &type), failed(JXRC_BAD_INDEX));
  EXPECT_EQ(b(jxInquireItemInfo, JXSEL_SYSTEM, 8, &sel, &type), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(empty(jxInquireItemInfo, JXSEL_USER, 0, &sel, &type),
            failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireItemInfo, -9, 0, nullptr, nullptr), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(b(jxInquireItemInfo, -30004, 0, &sel, &type), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(checked(jxInquireItemInfo, 6001, 0, nullptr, nullptr),
            failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxInquireItemInfo, 0, 0, &sel, &type), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxInquireItemInfo, 6000, 0, &sel, &type), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireItemInfo, 6001, 0, &sel, &type), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxInquireItemInfo, 7, 0, nullptr, nullptr), failed(JXRC_BAD_OUT_SELECTOR));
  EXPECT_EQ(b(jxInquireItemInfo, 7, 0, &sel, readOnly()), failed(JXRC_BAD_ITEM_TYPE_OUT));
  EXPECT_EQ(std::make_pair(sel, type), std::make_pair(kUntouched, kUntouched));
}

TEST(CountItems, CountsBySelectorAndKind) {
  Bag b, checked(JXBAG_CHECK_SELECTORS);
  EXPECT_EQ(b.count(JXSEL_USER), 0);
  EXPECT_EQ(b.count(JXSEL_SYSTEM), 8);
  EXPECT_EQ(b.count(5), 0);
  EXPECT_EQ(b.count(JXSYS_CCSID), 1);
  b(jxAddInteger, 5, 0), b(jxAddString, 6, -1, "x"), b(jxAddInteger, 5, 1);
  EXPECT_EQ(b.count(5), 2);
  EXPECT_EQ(b.count(JXSEL_USER), 3);
  EXPECT_EQ(b.count(JXSEL_ANY), 11);
  EXPECT_EQ(b.count(6001), 0) << "no range check without the flag";
  int32_t n = kUntouched;
  EXPECT_EQ(b(jxCountItems, -9, &n), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(b(jxCountItems, -30004, &n), failed(JXRC_BAD_SELECTOR));
  EXPECT_EQ(checked(jxCountItems, 6001, &n), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxCountItems, 0, &n), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxCountItems, -9, nullptr), failed(JXRC_BAD_ITEM_COUNT)) << "output before selector";
  EXPECT_EQ(b(jxCountItems, 1, readOnly()), failed(JXRC_BAD_ITEM_COUNT));
  EXPECT_EQ(n, kUntouched);
}

// ---- jxDeleteItem, jxClearBag and jxTruncateBag ------------------------------

TEST(DeleteItem, RemovesOneOccurrenceOrAllAndLaterItemsMoveDown) {
  Bag b;
  b(jxAddInteger, 1, 10), b(jxAddInteger, 2, 20), b(jxAddInteger, 1, 11), b(jxAddInteger, 3, 30),
      b(jxAddInteger, 1, 12);
  EXPECT_EQ(b(jxDeleteItem, 1, 1), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{1, 2, 3, 1}));
  EXPECT_EQ(b.intAt(1, 1), 12) << "occurrences close up";
  EXPECT_EQ(b.intAt(JXSEL_ANY, 10), 30);
  EXPECT_EQ(b(jxDeleteItem, JXSEL_USER, 0), kOk) << "the first user item, whatever its selector";
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{2, 3, 1}));
  EXPECT_EQ(b(jxDeleteItem, 1, -1), kOk);
  EXPECT_EQ(b(jxDeleteItem, JXSEL_ANY, 9), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{2}));
  b(jxAddInteger, 1, 10), b(jxAddInteger, 1, 11);
  EXPECT_EQ(b(jxDeleteItem, 7, JXIDX_ALL), kOk) << "none to delete is no error";
  EXPECT_EQ(b(jxDeleteItem, 1, JXIDX_ALL), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{2}));
  EXPECT_EQ(b(jxDeleteItem, 1, 0), failed(JXRC_SELECTOR_NOT_PRESENT));
}

TEST(DeleteItem, Reasons) {
  Bag b, checked(JXBAG_CHECK_SELECTORS);
  b(jxAddInteger, 7, 1), b(jxAddInteger, 7, 2);
  EXPECT_EQ(b(jxDeleteItem, 8, 0), failed(JXRC_SELECTOR_NOT_PRESENT));
  EXPECT_EQ(b(jxDeleteItem, 7, -3), failed(JXRC_BAD_INDEX));
  EXPECT_EQ(b(jxDeleteItem, 7, -1), failed(JXRC_SELECTOR_NOT_UNIQUE));
  EXPECT_EQ(b(jxDeleteItem, 7, 2), failed(JXRC_INDEX_NOT_PRESENT));
  EXPECT_EQ(b(jxDeleteItem, JXSYS_CCSID, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b(jxDeleteItem, -9, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxDeleteItem, 6001, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(checked(jxDeleteItem, 0, JXIDX_ALL), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(b.count(JXSEL_ANY), 10);
  // The selector check replaces the handle reason; there is no flag to
  // test without a bag.
  EXPECT_EQ(call(jxDeleteItem, JXHB_NONE, 5, 0), failed(JXRC_BAD_HANDLE));
  EXPECT_EQ(call(jxDeleteItem, JXHB_NONE, 6001, 0), failed(JXRC_BAD_HANDLE));
  EXPECT_EQ(call(jxDeleteItem, JXHB_NONE, -1, 0), failed(JXRC_SELECTOR_OUT_OF_RANGE));
  EXPECT_EQ(call(jxDeleteItem, 3, JXSEL_USER, JXIDX_ALL), failed(JXRC_BAD_INDEX));
}

TEST(ClearBag, BackToTheNewBagState) {
  Bag b(JXBAG_ADMIN);
  b(jxAddInteger, 1, 1), b(jxAddString, 2001, -1, "x");
  b(jxSetInteger, JXSYS_CCSID, 0, 437);
  b(jxSetInteger, JXSYS_COMMAND, 0, 13);
  EXPECT_EQ(call(jxClearBag, b.h), kOk);
  EXPECT_EQ(b.items(), kSystemItems);
  EXPECT_EQ(b.intAt(JXSYS_CCSID, 0), 0);
  EXPECT_EQ(b.intAt(JXSYS_COMMAND, 0), 0);
  EXPECT_EQ(b.intAt(JXSYS_OPTIONS, 0), 15);
  EXPECT_EQ(b.intAt(JXSYS_MSG_TYPE, 0), 1);
  EXPECT_EQ(b(jxAddInteger, 1, 2), kOk) << "the bag works after a clear";
  EXPECT_EQ(b.intAt(1, -1), 2);
}

TEST(TruncateBag, KeepsTheFirstUserItemsInBagOrder) {
  Bag b;
  for (int32_t i = 0; i < 5; ++i) b(jxAddInteger, 100 + i, i);
  EXPECT_EQ(call(jxTruncateBag, b.h, 5), kOk);
  EXPECT_EQ(b.count(JXSEL_USER), 5);
  EXPECT_EQ(call(jxTruncateBag, b.h, 6), failed(JXRC_BAD_ITEM_COUNT));
  EXPECT_EQ(call(jxTruncateBag, b.h, -1), failed(JXRC_BAD_ITEM_COUNT));
  EXPECT_EQ(b.count(JXSEL_USER), 5);
  // A set with index -2 moves selector 100 behind the others.
  b(jxSetInteger, 100, JXIDX_ALL, 3);
  EXPECT_EQ(call(jxTruncateBag, b.h, 2), kOk);
  EXPECT_EQ(b.userSelectors(), (std::vector<int32_t>{101, 102}));
  int32_t sel = 0, type = 0;
  EXPECT_EQ(b(jxInquireItemInfo, JXSEL_ANY, 9, &sel, &type), kOk);
  EXPECT_EQ(sel, 102);
  EXPECT_EQ(call(jxTruncateBag, b.h, 0), kOk);
  EXPECT_EQ(b.items(), kSystemItems);
}

}  // namespace
