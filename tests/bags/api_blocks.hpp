// Expected API trace blocks, piece by piece: a heading, the values shown as
// label and dump, and the parameters listed without their values.
#pragma once

#include <stdio.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "trace_file.hpp"

namespace apiblocks {

using Lines = std::vector<std::string>;

inline Lines operator+(Lines a, const Lines &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
inline Lines heading(const std::string &title) {
  return {"__________", title};
}
inline Lines shown(const std::string &label, const void *at, size_t length) {
  return {label + ":", dumpOf(at, length)};
}
inline Lines value(const std::string &label, int32_t v) {
  return shown(label, &v, sizeof v);
}
inline Lines parms(const char *kind, std::initializer_list<const char *> labels) {
  Lines out;
  for (const char *label : labels) {
    char line[64];
    snprintf(line, sizeof line, "%-14s: %s Parm", label, kind);
    out.push_back(line);
  }
  return out;
}
inline Lines outputs(std::initializer_list<const char *> labels) {
  return parms("Output", labels);
}
inline Lines inputs(std::initializer_list<const char *> labels) {
  return parms("Input ", labels);
}
inline Lines result(int32_t cc, int32_t rc) {
  return value("Compcode", cc) + value("Reason", rc);
}

}  // namespace apiblocks
