// Benchmarks measure the call frames with tracing off: common services up,
// every trace switch of the process cleared.
#pragma once

#include <jx/jxcs.h>

inline void tracingOff() {
  xcsInitialize(48, 1030, 0, 0, 0);
  xihTRACEWORDS *w = xihProcessInline()->Trace;
  w->Enabled = 0;
  w->Level = XTR_LEVEL_UNSET;
  w->Options = 0;
  w->Override = 0;
}
