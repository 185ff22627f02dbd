// Expected API trace blocks, piece by piece: a heading, the values shown as
// label and dump, and the parameters listed without their values.
#pragma once

#include <gtest/gtest.h>
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

// Trace switched for the test, this thread's own switch restored at the end.
class TracedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    xcsInitialize(48, 1030, 0, 0, 0);
    thread = xihThreadAddress();
    savedActive = thread->TraceActive;
  }
  void TearDown() override { thread->TraceActive = savedActive; }
  // Switches the words and this thread's trace, and marks where the new
  // lines start.
  void set(int32_t enabled, int32_t level, uint32_t options, int32_t active = 1) {
    words.set(enabled, level, options, 0);
    thread->TraceActive = active;
    mark = traceTexts().size();
  }
  void api() { set(0, 0, XTR_OPT_API, 0); }
  Lines fresh() const { return since(traceTexts(), mark); }
  Lines freshApi() const { return apiLines(fresh()); }

  TraceWordsGuard words;
  xihTHREADANCHOR *thread = nullptr;
  int32_t savedActive = 0;
  size_t mark = 0;
};

}  // namespace apiblocks
