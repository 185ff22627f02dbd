// Cost of the call frame with tracing off, against a plain function call in
// the same run: an empty zaiJX-style frame, an internal frame, and a whole
// exported call that does no work (jxPad of nothing).
#include <benchmark/benchmark.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>

#include "call_frame.hpp"
#include "tracing_off.hpp"

namespace {

__attribute__((noinline)) void plainCall(int32_t *cc, int32_t *rc) {
  *cc = 0;
  *rc = 0;
  benchmark::ClobberMemory();
}

__attribute__((noinline)) void emptyApiFrame(int32_t *cc, int32_t *rc) {
  jxai::ApiFrame f(kFn_zaiJXPad, cc, rc);
  f.traceEntry([](const jxai::ApiTrace &) {});
  f.traceExit([](const jxai::ApiTrace &) {});
}

__attribute__((noinline)) int32_t emptyInternalFrame() {
  int32_t rc = 0;
  jxai::Frame f(kFn_zaiPadString, &rc);
  f.parms("length:%d", 0);
  return rc;
}

void BM_PlainCall(benchmark::State &state) {
  int32_t cc, rc;
  for (auto _ : state) plainCall(&cc, &rc);
}
BENCHMARK(BM_PlainCall);

void BM_EmptyApiFrame(benchmark::State &state) {
  tracingOff();
  int32_t cc, rc;
  for (auto _ : state) emptyApiFrame(&cc, &rc);
}
BENCHMARK(BM_EmptyApiFrame);

void BM_EmptyInternalFrame(benchmark::State &state) {
  tracingOff();
  for (auto _ : state) benchmark::DoNotOptimize(emptyInternalFrame());
}
BENCHMARK(BM_EmptyInternalFrame);

void BM_JxPadNothing(benchmark::State &state) {
  tracingOff();
  int32_t cc, rc;
  for (auto _ : state) jxPad(nullptr, 0, nullptr, &cc, &rc);
}
BENCHMARK(BM_JxPadNothing);

}  // namespace

BENCHMARK_MAIN();
