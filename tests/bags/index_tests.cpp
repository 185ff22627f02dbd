// The selector index against the plain scan it replaces: random adds and
// removals anywhere in the bag, after each of which every lookup and count
// must give exactly what a scan of the item vector gives.
#include <random>

#include "bag_test_util.hpp"

namespace {

// The lookup as a scan of the item vector: the running counts of all,
// system, user and equal-selector items from the start position.
struct ScanResult {
  Outcome outcome;
  int32_t position;
};

bool counts(int32_t selector, int32_t s) {
  return selector == JXSEL_ANY      ? true
         : selector == JXSEL_SYSTEM ? s < 0
         : selector == JXSEL_USER   ? s >= 0
                                    : s == selector;
}

int32_t selectorAt(const zaiBAG *bag, int32_t i) {
  return static_cast<const zaiPROPERTY *>(zaiVectorAt(bag->Items, i))->Selector;
}

int32_t scanCount(const zaiBAG *bag, int32_t start, int32_t selector) {
  int32_t n = 0;
  for (int32_t i = start; i < bag->Items->Count; ++i) n += counts(selector, selectorAt(bag, i));
  return n;
}

ScanResult scanFind(const zaiBAG *bag, int32_t start, int32_t selector, int32_t index) {
  const bool wildcard = selector == JXSEL_ANY || selector == JXSEL_USER || selector == JXSEL_SYSTEM;
  if ((wildcard && index == -1) || index < -1) return {failed(JXRC_BAD_INDEX), -1};
  if (index == -1) {
    const int32_t n = scanCount(bag, 0, selector);
    if (n == 0) return {failed(JXRC_SELECTOR_NOT_PRESENT), -1};
    if (n > 1) return {failed(JXRC_SELECTOR_NOT_UNIQUE), -1};
  }
  const int32_t target = index == -1 ? 1 : index + 1;
  int32_t relevant = 0;
  for (int32_t i = start; i < bag->Items->Count; ++i)
    if (counts(selector, selectorAt(bag, i)) && ++relevant == target) return {kOk, i};
  return {failed(relevant > 0 ? JXRC_INDEX_NOT_PRESENT : JXRC_SELECTOR_NOT_PRESENT), start};
}

const int32_t kSelectors[] = {JXSEL_ANY, JXSEL_USER, JXSEL_SYSTEM, -8, -7, -1,   -20, 0, 1, 2, 3,
                              5,         8,          13,           21, 34, 1000, 4001};

void expectIndexMatchesScan(zaiBAG *bag, std::mt19937 &gen) {
  const int32_t n = bag->Items->Count;
  for (int32_t selector : kSelectors) {
    for (int32_t start : {0, n > 0 ? static_cast<int32_t>(gen() % n) : 0, n - 1, n}) {
      if (start < 0) continue;
      const int32_t count = scanCount(bag, start, selector);
      ASSERT_EQ(zaiCountItems(bag, start, selector), count)
          << "selector " << selector << " start " << start;
      for (int32_t index : {-3, -1, 0, 1, count / 2, count - 1, count, count + 1}) {
        Outcome o;
        int32_t position = -77;
        const zaiPROPERTY *item =
            zaiFindSelector(bag, start, selector, index, &position, &o.cc, &o.rc);
        const ScanResult expected = scanFind(bag, start, selector, index);
        ASSERT_EQ(o, expected.outcome)
            << "selector " << selector << " start " << start << " index " << index;
        if (o.cc == JXCC_OK) {
          ASSERT_EQ(position, expected.position)
              << "selector " << selector << " start " << start << " index " << index;
          ASSERT_EQ(item, zaiVectorAt(bag->Items, position));
        } else if (expected.position >= 0) {
          ASSERT_EQ(position, start) << "no match leaves the start position";
        } else {
          ASSERT_EQ(position, -77) << "a refused index leaves the position alone";
        }
      }
    }
  }
}

int32_t pick(std::mt19937 &gen) {
  const int32_t pool[] = {-20, -7, 0, 1, 2, 3, 5, 8, 13, 21, 34, 1000, 4001};
  return pool[gen() % (sizeof pool / sizeof pool[0])];
}

TEST(SelectorIndex, LookupsAndCountsMatchTheScanThroughRandomChanges) {
  std::mt19937 gen(7);
  zaiBAG *bag = newBag(0);
  for (int step = 0; step < 1500; ++step) {
    const uint32_t op = gen() % 100;
    const int32_t n = bag->Items->Count;
    if (op < 50 || n < 4) {
      // Adds of any selector, negative ones included, integers or strings
      // (the two kinds refuse each other per selector).
      const int32_t selector = pick(gen);
      if (selector % 2)
        call(zaiAddString, bag, selector, 1, "s", 0);
      else
        call(zaiAddInteger, bag, selector, step);
    } else if (op < 80) {
      ASSERT_EQ(call(zaiFreeItem, bag, static_cast<int32_t>(gen() % n)), kOk);
    } else if (op < 90) {
      const int32_t selector = pick(gen);
      call(zaiDeleteItem, bag, selector, static_cast<int32_t>(gen() % 4) - 2, 1);
    } else if (op < 93) {
      call(zaiTruncateBag, bag, static_cast<int32_t>(gen() % 5));
    } else if (op < 94) {
      ASSERT_EQ(call(zaiClearBag, bag), kOk);
    } else {
      call(zaiSetInteger, bag, pick(gen) & ~1, -2, step);
    }
    expectIndexMatchesScan(bag, gen);
    if (HasFatalFailure()) {
      ADD_FAILURE() << "at step " << step << ", op " << op;
      break;
    }
  }
  dropBag(bag);
}

TEST(SelectorIndex, ManyOccurrencesOfOneSelectorRemovedFromTheFront) {
  std::mt19937 gen(11);
  zaiBAG *bag = newBag(0);
  for (int32_t i = 0; i < 300; ++i) call(zaiAddInteger, bag, i % 3, i);
  // Deleting all of one selector removes the first occurrence each time.
  EXPECT_EQ(call(zaiDeleteItem, bag, 1, JXIDX_ALL, 0), kOk);
  EXPECT_EQ(zaiCountItems(bag, 0, 1), 0);
  expectIndexMatchesScan(bag, gen);
  int32_t value = 0;
  call(zaiInquireInteger, bag, 2, 99, &value);
  EXPECT_EQ(value, 3 * 99 + 2);
  dropBag(bag);
}

TEST(SelectorIndex, SelectorsMoveFromTheTableToTheArrayAsTheBagFills) {
  // 1000 and 700 start in the table (too far for a small bag's array) and
  // are taken over by the array when it grows to 1024 slots at selector 504
  // (the array starts at the first system selector, -8).
  std::mt19937 gen(5);
  zaiBAG *bag = newBag(0);
  call(zaiAddInteger, bag, 1000, -1);
  call(zaiAddString, bag, 700, 2, "ab", 0);
  call(zaiAddInteger, bag, 1000, -2);
  for (int32_t i = 1; i <= 600; ++i) {
    ASSERT_EQ(call(zaiAddInteger, bag, i, i), kOk) << i;
    if (i % 100 == 0 || i == 503 || i == 504) expectIndexMatchesScan(bag, gen);
  }
  EXPECT_EQ(zaiCountItems(bag, 0, 1000), 2);
  int32_t value = 0;
  call(zaiInquireInteger, bag, 1000, 1, &value);
  EXPECT_EQ(value, -2);
  call(zaiAddString, bag, 700, 1, "c", 0);
  EXPECT_EQ(call(zaiAddInteger, bag, 700, 0), failed(JXRC_INCONSISTENT_TYPE))
      << "the type check still finds the first 700";
  call(zaiDeleteItem, bag, 1000, JXIDX_ALL, 1);
  EXPECT_EQ(zaiCountItems(bag, 0, 1000), 0);
  expectIndexMatchesScan(bag, gen);
  dropBag(bag);
}

TEST(SelectorIndex, LargeBagsOfDistinctAndSpacedSelectors) {
  // Enough distinct selectors for the table to outgrow the heap, some of
  // them spaced by powers of two so they share low bits.
  zaiBAG *bag = newBag(0);
  for (int32_t i = 0; i < 6000; ++i) call(zaiAddInteger, bag, i % 2 ? i : i << 10, i);
  ASSERT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 6008);
  for (int32_t i = 0; i < 6000; i += 7) {
    JXLONG position;
    Outcome o;
    const zaiPROPERTY *item =
        zaiFindSelector(bag, 0, i % 2 ? i : i << 10, JXIDX_ONLY, &position, &o.cc, &o.rc);
    ASSERT_EQ(o, kOk) << i;
    EXPECT_EQ(position, 8 + i);
    EXPECT_EQ(item->Value.Integer, i);
  }
  std::mt19937 gen(3);
  for (int i = 0; i < 50; ++i)
    call(zaiFreeItem, bag, static_cast<int32_t>(gen() % bag->Items->Count));
  expectIndexMatchesScan(bag, gen);
  call(zaiClearBag, bag);
  EXPECT_EQ(zaiCountItems(bag, 0, JXSEL_ANY), 8);
  dropBag(bag);
}

}  // namespace
