// Helpers shared by the bag suites: bags made through the workers, and the
// function-history marks a call leaves behind.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>

#include <vector>

#include "bag.hpp"
#include "outcome.hpp"
#include "trace_file.hpp"
#include "zuzt_funcs_ids.hpp"

// A bag created by the worker, so any option (system bags included) works.
inline zaiBAG *newBag(int32_t options) {
  zaiBAG *bag = nullptr;
  Outcome o;
  zaiCreateBag(options, &bag, &o.cc, &o.rc);
  EXPECT_EQ(o, kOk);
  return bag;
}
inline void dropBag(zaiBAG *bag) {
  Outcome o;
  zaiDeleteBag(&bag, &o.cc, &o.rc);
}

inline uint32_t entryMark(uint16_t fn) {
  return XCS_ENTRY_MARK + XCS_FUNC_ID(XCS_COMP_ADMIN, fn);
}
inline uint32_t exitMark(uint16_t fn, int32_t result = 0) {
  return (static_cast<uint32_t>(result) << 16) + XCS_FUNC_ID(XCS_COMP_ADMIN, fn);
}

inline uint32_t historyNow() {
  xcsInitialize(48, 1030, 0, 0, 0);
  return xihThreadAddress()->HistoryIndex;
}
