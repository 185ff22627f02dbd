// Reading this process's trace file in tests: the text part of each line
// (everything after the first " | "), and helpers to compare API blocks.
#pragma once

#include <jx/jxcs.h>
#include <stdio.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

// The marks the calling thread's history gained since `start`.
inline std::vector<uint32_t> marksSince(uint32_t start) {
  const xihTHREADANCHOR *t = xihThreadAddress();
  std::vector<uint32_t> out;
  for (uint32_t i = start; i != t->HistoryIndex; ++i)
    out.push_back(t->History[i % XIH_HISTORY_SIZE]);
  return out;
}

inline std::vector<std::string> traceTexts() {
  std::vector<std::string> out;
  xtrFlush();
  std::ifstream in(xtrTraceFile());
  std::string line;
  while (std::getline(in, line)) {
    const size_t at = line.find(" | ");
    out.push_back(at == std::string::npos ? line : line.substr(at + 3));
  }
  return out;
}

inline std::vector<std::string> since(const std::vector<std::string> &all, size_t mark) {
  return std::vector<std::string>(all.begin() + static_cast<long>(std::min(mark, all.size())),
                                  all.end());
}

inline bool contains(const std::vector<std::string> &lines, const std::string &text) {
  return std::find(lines.begin(), lines.end(), text) != lines.end();
}

inline bool isDumpLine(const std::string &s) {
  return s.size() > 10 && s.find_first_not_of("0123456789ABCDEF") == 8 && s[8] == ' ';
}

// The expected text of a data dump: 16 bytes a line, offset, hex columns and
// the printable bytes between bars; lines joined by '\n'.
inline std::string dumpOf(const void *address, size_t length) {
  const unsigned char *p = static_cast<const unsigned char *>(address);
  std::string out;
  for (size_t off = 0; off < length; off += 16) {
    const size_t n = std::min<size_t>(16, length - off);
    char head[24];
    snprintf(head, sizeof head, "%08zX ", off);
    std::string line = head, text;
    for (size_t i = 0; i < 16; ++i) {
      char col[4] = "   ";
      if (i < n) snprintf(col, sizeof col, " %02X", p[off + i]);
      line += col;
      if (i < n) text += (p[off + i] >= 0x20 && p[off + i] < 0x7F) ? char(p[off + i]) : '.';
    }
    line += "  |" + text + "|";
    if (!out.empty()) out += '\n';
    out += line;
  }
  return out;
}

// The API lines of a stretch of trace: function entry and exit lines dropped,
// the lines of one dump joined into one string as dumpOf makes them.
inline std::vector<std::string> apiLines(const std::vector<std::string> &lines) {
  std::vector<std::string> out;
  bool inDump = false;
  for (const auto &s : lines) {
    if (s.rfind("{ ", 0) == 0 || s.rfind("} ", 0) == 0) {
      inDump = false;
      continue;
    }
    const bool dump = isDumpLine(s);
    if (dump && inDump && s.compare(0, 8, "00000000") != 0) {
      out.back() += '\n' + s;
    } else {
      out.push_back(s);
    }
    inDump = dump;
  }
  return out;
}

// Sets the process trace words for a test and puts the old ones back. Common
// services come up first: setting up moves the trace words from the anchor's
// fallback copy to the shared ones, which a guard made earlier would miss.
class TraceWordsGuard {
 public:
  TraceWordsGuard() : words_(upAndTraceWords()), saved_(copy(words_)) {}
  ~TraceWordsGuard() { set(saved_.Enabled, saved_.Level, saved_.Options, saved_.Override); }
  void set(int32_t enabled, int32_t level, uint32_t options, int32_t override) {
    words_->Enabled = enabled;
    words_->Level = level;
    words_->Options = options;
    words_->Override = override;
  }

 private:
  static xihTRACEWORDS *upAndTraceWords() {
    xcsInitialize(48, 1030, 0, 0, 0);
    return xihProcess()->Trace;
  }
  static xihTRACEWORDS copy(const xihTRACEWORDS *w) {
    xihTRACEWORDS c;
    c.Enabled = w->Enabled;
    c.Level = w->Level;
    c.Options = w->Options;
    c.Override = w->Override;
    return c;
  }
  xihTRACEWORDS *words_;
  xihTRACEWORDS saved_;
};
