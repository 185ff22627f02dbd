// The queue-manager calls of one test thread, recorded on their way to the
// interface library: the test program's own open, inquire, put, get and
// close stubs come first in symbol lookup, note each call and hand it on,
// unchanged, to the library's stub of the same name.
#pragma once

#include <jx/jxqm.h>

#include <string>
#include <vector>

struct QmCall {
  enum Kind { Open, Inq, Put, Get, Close } kind;
  explicit QmCall(Kind k) : kind(k) {}
  int32_t hobj = 0;     // open: the handle returned; others: the handle used
  int32_t options = 0;  // open and close options; inquire: the one selector
  int32_t length = 0;   // put, get and inquire: buffer length
  int32_t dataLength = -1, rc = -1;
  JXOD od{};         // open: as returned
  JXMD md{};         // put: as sent; get: the selection passed in
  JXPMO pmo{};       // put
  JXGMO gmo{};       // get: as passed in
  std::string data;  // put: the message
};

// Records the calls of the thread that made it, while it lives.
struct QmCallLog {
  QmCallLog();
  ~QmCallLog();
  std::vector<QmCall> of(QmCall::Kind kind) const;
  std::vector<int> kinds() const;
  std::vector<QmCall> calls;

  // The test's own calls, made while one lives, are not recorded.
  struct Pause {
    Pause();
    ~Pause();
    QmCallLog *paused;
  };
};
