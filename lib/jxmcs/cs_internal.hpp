// Internals shared by the common-services sources. Nothing here checks its
// arguments: the exported calls do that before they get here.
#pragma once

#include <jx/jxcs.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

// Thread-local words are read on every API call and from the fault handler:
// initial-exec keeps them a single segment-relative load with no
// __tls_get_addr call (which may allocate, so is unsafe in a handler).
#define JXCS_TLS __attribute__((tls_model("initial-exec")))

namespace jxcs {

// Component 1 function numbers (their names are registered in trace.cpp):
// probes of the records the services write about themselves.
enum CommonFunction : uint16_t {
  kFnFreeMem = 3,
  kFnFaultHandler = 6,
};

// ---- anchors.cpp ----
void ensureProcess();
const char *programName();
int32_t threadId();
bool makeDirs(const char *path);  // mkdir -p, mode 0700
// <data root>/<leaf>, created (mode 0700) if needed; false when impossible.
bool dataSubdir(const char *leaf, char *out, size_t outLen);

// ---- memory.cpp ----
bool slabContains(uintptr_t start, uintptr_t end);
void memoryLockAll();
void memoryUnlockAll();

// ---- pointer_check.cpp ----
// 0 when every page of [start, end) can be used in mode; end > start.
int probeRange(uintptr_t start, uintptr_t end, int32_t mode);
// Copies n bytes, reading the source under the probe; false when any byte
// of it cannot be read (dst is then partly filled).
bool safeCopy(void *dst, const void *src, size_t n);
// Called first by the fault handler: returns only when the fault was not a
// probe's.
void resumeProbe(int sig, const siginfo_t *info);

// ---- signals.cpp ----
bool installFaultActions();
void signalsLockAll();
void signalsUnlockAll();

// ---- failure_record.cpp ----
int32_t writeFailureRecord(uint16_t component, uint16_t probe, int32_t flags, uint32_t error,
                           const xcsINSERTS *inserts, const xcsDUMPLIST *dumps);

// ---- trace_control.cpp ----
// The trace words for this process: a claimed slot of the control file, or
// null when the file cannot be used.
xihTRACEWORDS *claimTraceSlot(const xihTRACEWORDS &initial);
void releaseTraceSlot();

// ---- trace.cpp ----
void traceForget();  // next line opens a new file (new process)
void traceLockAll();
void traceUnlockAll();

// ---- format.cpp ----
// A bounded text builder over a caller's buffer (no allocation, so usable in
// the fault handler). Output is silently cut at the capacity.
struct Text {
  char *buf;
  size_t cap;
  size_t len = 0;
  Text(char *b, size_t c) : buf(b), cap(c) { buf[0] = 0; }
  void add(const char *s);
  void addn(const char *s, size_t n);
  void addf(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
  void vaddf(const char *fmt, va_list ap);
};
// "HH:MM:SS.uuuuuu" (withDate: "YYYY-MM-DD HH:MM:SS.uuuuuu"), UTC.
void addClock(Text &t, bool withDate);
// One dump line: offset, 16 hex columns, printable characters.
void addHexLine(Text &t, uint32_t offset, const unsigned char *bytes, size_t n);
// Registered name of a function identifier, else "<comp>/<func>".
void addFunctionName(Text &t, uint32_t functionId);
bool writeAll(int fd, const char *p, size_t n);
// Dumps an area as hex lines, reading it safely; consecutive unreadable
// lines become one "XXXXXXXX-YYYYYYYY  not readable" line (offsets of the
// first and last byte). Each line goes to sink without a newline.
using LineSink = void (*)(void *ctx, const char *line, size_t n);
void dumpLines(const void *address, uint32_t length, LineSink sink, void *ctx);

}  // namespace jxcs
