// Bag calls with tracing off against a plain std::vector of 24-byte records
// doing the same work in the same run:
//   AddInteger       append N items with distinct selectors to a new bag
//   InquireInteger   read the first and the last user selector of an N-item bag
//   CountItems       count one selector of an N-item bag
// (first_fill.cpp measures a bag's first growth and its resident memory).
//
// Targets: an add at most 80 ns; inquiring the last selector of 100,000 items
// within 2x of the same call on 10 items.
#include <benchmark/benchmark.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>

#include <algorithm>
#include <vector>

#include "item_record.hpp"
#include "tracing_off.hpp"

namespace {

constexpr int32_t kFirstSelector = 1;

JXHBAG makeBag(int32_t n) {
  JXHBAG h;
  int32_t cc, rc;
  jxCreateBag(0, &h, &cc, &rc);
  for (int32_t i = 0; i < n; ++i) jxAddInteger(h, kFirstSelector + i, i, &cc, &rc);
  return h;
}

void dropBag(JXHBAG h) {
  int32_t cc, rc;
  jxDeleteBag(&h, &cc, &rc);
}

std::vector<Record> makeRecords(int32_t n) {
  std::vector<Record> v;
  for (int32_t i = 0; i < n; ++i)
    v.push_back({{'Z', 'A', 'P', 'R'}, kFirstSelector + i, 1, i, 0, 0});
  return v;
}

// Bags filled per timed stretch, so small bags are timed over many adds.
int32_t bagsPerRound(int32_t n) {
  return std::max(1, 10000 / n);
}

void perItem(benchmark::State &state, int64_t items) {
  state.SetItemsProcessed(items);
  state.counters["ns_per_item"] = benchmark::Counter(
      static_cast<double>(items), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_AddInteger(benchmark::State &state) {
  tracingOff();
  const int32_t n = static_cast<int32_t>(state.range(0));
  const int32_t k = bagsPerRound(n);
  std::vector<JXHBAG> bags(k);
  int64_t items = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (auto &h : bags) h = makeBag(0);
    state.ResumeTiming();
    int32_t cc, rc;
    for (JXHBAG h : bags)
      for (int32_t i = 0; i < n; ++i) jxAddInteger(h, kFirstSelector + i, i, &cc, &rc);
    state.PauseTiming();
    for (JXHBAG h : bags) dropBag(h);
    state.ResumeTiming();
    items += int64_t{k} * n;
  }
  perItem(state, items);
}

void BM_AddBaseline(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  const int32_t k = bagsPerRound(n);
  std::vector<std::vector<Record>> vectors(k);
  int64_t items = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (auto &v : vectors) v = std::vector<Record>();
    state.ResumeTiming();
    for (auto &v : vectors) {
      for (int32_t i = 0; i < n; ++i)
        v.push_back({{'Z', 'A', 'P', 'R'}, kFirstSelector + i, 1, i, 0, 0});
      benchmark::DoNotOptimize(v.data());
    }
    items += int64_t{k} * n;
  }
  perItem(state, items);
}

// state.range(1): 0 the first user selector, 1 the last.
int32_t wanted(const benchmark::State &state, int32_t n) {
  return state.range(1) ? kFirstSelector + n - 1 : kFirstSelector;
}

void BM_InquireInteger(benchmark::State &state) {
  tracingOff();
  const int32_t n = static_cast<int32_t>(state.range(0));
  const JXHBAG h = makeBag(n);
  const int32_t selector = wanted(state, n);
  int32_t value = 0, cc, rc;
  for (auto _ : state) {
    jxInquireInteger(h, selector, 0, &value, &cc, &rc);
    benchmark::DoNotOptimize(value);
  }
  if (cc != JXCC_OK || value != selector - kFirstSelector) state.SkipWithError("wrong value");
  dropBag(h);
}

// The plain vector's reading: the first record with the selector.
void BM_InquireBaseline(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  const std::vector<Record> v = makeRecords(n);
  const int32_t selector = wanted(state, n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(selector);
    auto it =
        std::find_if(v.begin(), v.end(), [&](const Record &r) { return r.selector == selector; });
    benchmark::DoNotOptimize(it->value);
  }
}

void BM_CountItems(benchmark::State &state) {
  tracingOff();
  const int32_t n = static_cast<int32_t>(state.range(0));
  const JXHBAG h = makeBag(n);
  const int32_t selector = kFirstSelector + n / 2;
  int32_t count = 0, cc, rc;
  for (auto _ : state) {
    jxCountItems(h, selector, &count, &cc, &rc);
    benchmark::DoNotOptimize(count);
  }
  if (cc != JXCC_OK || count != 1) state.SkipWithError("wrong count");
  dropBag(h);
}

void BM_CountBaseline(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  const std::vector<Record> v = makeRecords(n);
  const int32_t selector = kFirstSelector + n / 2;
  for (auto _ : state) {
    benchmark::DoNotOptimize(selector);
    auto count =
        std::count_if(v.begin(), v.end(), [&](const Record &r) { return r.selector == selector; });
    benchmark::DoNotOptimize(count);
  }
}

}  // namespace

BENCHMARK(BM_AddInteger)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(BM_AddBaseline)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(BM_InquireInteger)->ArgsProduct({{10, 1000, 100000}, {0, 1}});
BENCHMARK(BM_InquireBaseline)->ArgsProduct({{10, 1000, 100000}, {0, 1}});
BENCHMARK(BM_CountItems)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(BM_CountBaseline)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK_MAIN();
