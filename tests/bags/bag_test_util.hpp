// Helpers shared by the bag suites: bags made through the workers, and the
// function-history marks a call leaves behind.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>

#include <vector>

#include "bag.hpp"
#include "trace_file.hpp"
#include "zuzt_funcs_ids.hpp"

struct Outcome {
  int32_t cc = -1;
  int32_t rc = -1;
  bool operator==(const Outcome &o) const { return cc == o.cc && rc == o.rc; }
};
inline std::ostream &operator<<(std::ostream &os, const Outcome &o) {
  return os << "{cc " << o.cc << ", rc " << o.rc << "}";
}
inline const Outcome kOk{JXCC_OK, JXRC_NONE};
inline Outcome failed(int32_t rc) {
  return {JXCC_FAILED, rc};
}
// Runs a call that ends with a completion code and a reason.
template <typename F, typename... A>
Outcome call(F f, A... args) {
  Outcome o;
  f(args..., &o.cc, &o.rc);
  return o;
}

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
