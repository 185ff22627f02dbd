// A bag filled for the first time in a fresh process, against a doubling
// realloc array of 24-byte records filled the same way in a fresh process of
// its own: what the first growth of each costs, page faults included, and
// the resident memory it leaves per item. One run a process:
//   bench_first_fill bag|array [ITEMS]
// prints one JSON object; bench/support/targets.py runs both sides in turn.
//
// Targets: the bag at most 2x the array's time, and at most 96 resident
// bytes per item, at 100,000 items.
#include <jx/jxai.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "item_record.hpp"
#include "tracing_off.hpp"

namespace {

constexpr int32_t kFirstSelector = 1;
constexpr int32_t kDefaultItems = 100000;
constexpr size_t kFirstRecords = 40;  // as a bag's first item places

long residentBytes() {
  long pages = 0, resident = 0;
  FILE *f = fopen("/proc/self/statm", "r");
  if (!f) return 0;
  if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
  fclose(f);
  return resident * sysconf(_SC_PAGESIZE);
}

double nowNs() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

bool fillBag(int32_t n) {
  JXHBAG h;
  int32_t cc, rc;
  jxCreateBag(0, &h, &cc, &rc);
  for (int32_t i = 0; cc == JXCC_OK && i < n; ++i) {
    jxAddInteger(h, kFirstSelector + i, i, &cc, &rc);
  }
  return cc == JXCC_OK;
}

// Not inlined, so that each record costs a call as each bag item does.
__attribute__((noinline)) bool append(Record *&records, size_t &capacity, size_t &count,
                                      const Record &r) {
  if (count == capacity) {
    const size_t grown = capacity ? capacity * 2 : kFirstRecords;
    auto *p = static_cast<Record *>(realloc(records, grown * sizeof(Record)));
    if (!p) return false;
    records = p;
    capacity = grown;
  }
  records[count++] = r;
  return true;
}

bool fillArray(int32_t n) {
  Record *records = nullptr;
  size_t capacity = 0, count = 0;
  bool ok = true;
  for (int32_t i = 0; ok && i < n; ++i) {
    ok = append(records, capacity, count, {{'Z', 'A', 'P', 'R'}, kFirstSelector + i, 1, i, 0, 0});
  }
  asm volatile("" : : "r"(records) : "memory");
  return ok;
}

}  // namespace

int main(int argc, char **argv) {
  const bool bag = argc > 1 && strcmp(argv[1], "bag") == 0;
  if (argc < 2 || (!bag && strcmp(argv[1], "array") != 0)) {
    fprintf(stderr, "usage: %s bag|array [ITEMS]\n", argv[0]);
    return 2;
  }
  const int32_t n = argc > 2 ? atoi(argv[2]) : kDefaultItems;
  if (bag) tracingOff();  // common services up: the library's start is not the fill
  const long before = residentBytes();
  const double start = nowNs();
  const bool ok = bag ? fillBag(n) : fillArray(n);
  const double elapsed = nowNs() - start;
  const long after = residentBytes();
  if (!ok) {
    fprintf(stderr, "%s: the fill failed\n", argv[1]);
    return 1;
  }
  printf("{\"ns\": %.0f, \"resident_bytes_per_item\": %.2f}\n", elapsed,
         static_cast<double>(after - before) / n);
  return 0;
}
