// The completion code and reason a call ends with, compared as one value.
#pragma once

#include <stdint.h>

#include <ostream>

struct Outcome {
  int32_t cc = -1;
  int32_t rc = -1;
  bool operator==(const Outcome &o) const { return cc == o.cc && rc == o.rc; }
};
inline std::ostream &operator<<(std::ostream &os, const Outcome &o) {
  return os << "{cc " << o.cc << ", rc " << o.rc << "}";
}
inline const Outcome kOk{0, 0};
inline Outcome failed(int32_t rc) {
  return {2, rc};
}
// Runs a call that ends with a completion code and a reason.
template <typename F, typename... A>
Outcome call(F f, A... args) {
  Outcome o;
  f(args..., &o.cc, &o.rc);
  return o;
}
