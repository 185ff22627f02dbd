// Writing and reading bags of 10, 1,000 and 100,000 items (integers, strings,
// and integers in runs of one selector written as lists) against a direct
// encoder and decoder of exactly the same bytes, with tracing off. The
// direct codec works on a plain array of items: no bag, no call frames.
#include <benchmark/benchmark.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "tracing_off.hpp"

namespace {

enum Shape { kIntegers, kStrings, kLists };
constexpr int32_t kRun = 100;  // items of one selector in the list shape
constexpr int32_t kStringFirst = 2001;

struct Item {
  int32_t selector;
  bool isString;
  int32_t value;
  std::string text;
};

std::vector<Item> makeItems(Shape shape, int32_t n) {
  std::vector<Item> items;
  items.reserve(static_cast<size_t>(n));
  for (int32_t i = 0; i < n; ++i) {
    switch (shape) {
      case kIntegers:
        items.push_back({i, false, i * 7, {}});
        break;
      case kStrings: {
        char text[24];
        snprintf(text, sizeof text, "OBJECT.NAME.%d", i);
        items.push_back({kStringFirst + i, true, 0, text});
        break;
      }
      case kLists:
        items.push_back({1 + i / kRun, false, i, {}});
        break;
    }
  }
  return items;
}

int32_t optionsOf(Shape shape) {
  return shape == kLists ? JXBAG_LIST_FORM : 0;
}

JXHBAG makeBag(Shape shape, const std::vector<Item> &items) {
  JXHBAG bag = JXHB_NONE;
  int32_t cc, rc;
  jxCreateBag(optionsOf(shape), &bag, &cc, &rc);
  for (const Item &item : items) {
    if (item.isString) {
      jxAddString(bag, item.selector, static_cast<int32_t>(item.text.size()), item.text.data(), &cc,
                  &rc);
    } else {
      jxAddInteger(bag, item.selector, item.value, &cc, &rc);
    }
  }
  return bag;
}

// ---- The direct codec -------------------------------------------------

inline void put(uint8_t *&p, int32_t v) {
  memcpy(p, &v, sizeof v);
  p += sizeof v;
}
inline int32_t get(const uint8_t *&p) {
  int32_t v;
  memcpy(&v, p, sizeof v);
  p += sizeof v;
  return v;
}

size_t directEncode(const std::vector<Item> &items, bool lists, uint8_t *out) {
  uint8_t *p = out;
  put(p, JXPCF_TYPE_USER);
  put(p, JXPCF_HEADER_LENGTH);
  put(p, JXPCF_HEADER_VERSION);
  put(p, 0);
  put(p, 1);
  put(p, 1);
  put(p, 0);
  put(p, 0);
  uint8_t *countAt = p;
  put(p, 0);
  int32_t parms = 0;
  for (size_t i = 0; i < items.size(); ++parms) {
    const Item &item = items[i];
    if (lists) {
      size_t end = i;
      while (end < items.size() && items[end].selector == item.selector) ++end;
      const int32_t count = static_cast<int32_t>(end - i);
      put(p, JXPCF_TYPE_INTEGER_LIST);
      put(p, JXPCF_INTEGER_LIST_FIXED + 4 * count);
      put(p, item.selector);
      put(p, count);
      for (; i < end; ++i) put(p, items[i].value);
    } else if (item.isString) {
      const int32_t length = static_cast<int32_t>(item.text.size());
      const int32_t padded = (length + 3) & ~3;
      put(p, JXPCF_TYPE_STRING);
      put(p, JXPCF_STRING_FIXED + padded);
      put(p, item.selector);
      put(p, 0);
      put(p, length);
      memcpy(p, item.text.data(), static_cast<size_t>(length));
      p += padded;
      ++i;
    } else {
      put(p, JXPCF_TYPE_INTEGER);
      put(p, JXPCF_INTEGER_LENGTH);
      put(p, item.selector);
      put(p, item.value);
      ++i;
    }
  }
  memcpy(countAt, &parms, sizeof parms);
  return static_cast<size_t>(p - out);
}

// Decodes with the checks every structure needs to be read safely.
bool directDecode(const uint8_t *message, size_t length, std::vector<Item> &items) {
  items.clear();
  if (length < JXPCF_HEADER_LENGTH) return false;
  const uint8_t *p = message + 32;
  const int32_t count = get(p);
  size_t offset = JXPCF_HEADER_LENGTH;
  for (int32_t k = 0; k < count; ++k) {
    if (offset + 8 > length) return false;
    const uint8_t *s = message + offset;
    const int32_t type = get(s);
    const int32_t strucLength = get(s);
    if (strucLength < 16 || offset + static_cast<size_t>(strucLength) > length) return false;
    const int32_t selector = get(s);
    switch (type) {
      case JXPCF_TYPE_INTEGER:
        items.push_back({selector, false, get(s), {}});
        break;
      case JXPCF_TYPE_STRING: {
        get(s);  // character set
        const int32_t n = get(s);
        if (n < 0 || n + JXPCF_STRING_FIXED > strucLength) return false;
        items.push_back({selector, true, 0,
                         std::string(reinterpret_cast<const char *>(s), static_cast<size_t>(n))});
        break;
      }
      case JXPCF_TYPE_INTEGER_LIST: {
        const int32_t n = get(s);
        if (n < 0 || JXPCF_INTEGER_LIST_FIXED + 4 * int64_t{n} > strucLength) return false;
        for (int32_t v = 0; v < n; ++v) items.push_back({selector, false, get(s), {}});
        break;
      }
      default:
        return false;
    }
    offset += static_cast<size_t>(strucLength);
  }
  return true;
}

// ---- Benchmarks -------------------------------------------------------

void setItems(benchmark::State &state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <Shape shape>
void BM_Write(benchmark::State &state) {
  tracingOff();
  const auto items = makeItems(shape, static_cast<int32_t>(state.range(0)));
  JXHBAG bag = makeBag(shape, items);
  int32_t length = 0, cc, rc;
  jxBagToBuffer(JXHB_NONE, bag, 0, nullptr, &length, &cc, &rc);
  std::vector<uint8_t> buffer(static_cast<size_t>(length));
  for (auto _ : state) {
    jxBagToBuffer(JXHB_NONE, bag, length, buffer.data(), &length, &cc, &rc);
    benchmark::DoNotOptimize(buffer.data());
  }
  if (cc != JXCC_OK) state.SkipWithError("write failed");
  setItems(state);
  jxDeleteBag(&bag, &cc, &rc);
}

template <Shape shape>
void BM_DirectEncode(benchmark::State &state) {
  const auto items = makeItems(shape, static_cast<int32_t>(state.range(0)));
  std::vector<uint8_t> buffer(items.size() * 40 + 64);
  for (auto _ : state) {
    benchmark::DoNotOptimize(directEncode(items, shape == kLists, buffer.data()));
    benchmark::ClobberMemory();
  }
  setItems(state);
}

template <Shape shape>
void BM_Read(benchmark::State &state) {
  tracingOff();
  const auto items = makeItems(shape, static_cast<int32_t>(state.range(0)));
  std::vector<uint8_t> message(items.size() * 40 + 64);
  message.resize(directEncode(items, shape == kLists, message.data()));
  JXHBAG bag = JXHB_NONE;
  int32_t cc, rc;
  jxCreateBag(optionsOf(shape), &bag, &cc, &rc);
  for (auto _ : state) {
    jxBufferToBag(JXHB_NONE, static_cast<int32_t>(message.size()), message.data(), bag, &cc, &rc);
  }
  if (cc != JXCC_OK) state.SkipWithError("read failed");
  setItems(state);
  jxDeleteBag(&bag, &cc, &rc);
}

template <Shape shape>
void BM_DirectDecode(benchmark::State &state) {
  const auto items = makeItems(shape, static_cast<int32_t>(state.range(0)));
  std::vector<uint8_t> message(items.size() * 40 + 64);
  message.resize(directEncode(items, shape == kLists, message.data()));
  std::vector<Item> decoded;
  for (auto _ : state) {
    if (!directDecode(message.data(), message.size(), decoded)) state.SkipWithError("bad message");
    benchmark::DoNotOptimize(decoded.data());
  }
  setItems(state);
}

#define PCF_BENCH(fn, shape) BENCHMARK_TEMPLATE(fn, shape)->Arg(10)->Arg(1000)->Arg(100000)

PCF_BENCH(BM_Write, kIntegers);
PCF_BENCH(BM_DirectEncode, kIntegers);
PCF_BENCH(BM_Write, kStrings);
PCF_BENCH(BM_DirectEncode, kStrings);
PCF_BENCH(BM_Write, kLists);
PCF_BENCH(BM_DirectEncode, kLists);
PCF_BENCH(BM_Read, kIntegers);
PCF_BENCH(BM_DirectDecode, kIntegers);
PCF_BENCH(BM_Read, kStrings);
PCF_BENCH(BM_DirectDecode, kStrings);
PCF_BENCH(BM_Read, kLists);
PCF_BENCH(BM_DirectDecode, kLists);

}  // namespace

BENCHMARK_MAIN();
