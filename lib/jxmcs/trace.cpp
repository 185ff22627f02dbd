// Trace writer and function-name tables.
//
// One file per process, <data root>/trace/<program>.<pid>.trc, opened on the
// first line. Every line has the fixed shape
//
//   HH:MM:SS.uuuuuu <thread id> <function name> | <text>
//
// (UTC time; the function name is the registered name, or "<comp>/<func>",
// or "-" when the thread has no function recorded). The prefix contains no
// " | ", so the text is everything after the first " | " (XTR_TEXT_SEPARATOR).
// Texts:
//   xtr_FNC_entry      "{ <name>"
//   xtr_FNC_retcode    "} <name> rc=<reason>"
//   xtr_text, xtr_text_api, xtr_parms   the text exactly as given/formatted
//   xtr_data*          one line per 16 bytes:
//                      "00000000  01 00 00 00 <...blank columns...>  |....|"
//                      (offset, 16 hex columns of 3 characters, two blanks,
//                      the printable bytes between bars); a zero-length dump
//                      writes no line
// Each line is one writev(2) on an O_APPEND descriptor, so lines of
// different threads never mix and nothing is buffered in the process.
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>

#include "cs_internal.hpp"

namespace jxcs {
namespace {

constexpr int kNoFile = -1;
constexpr int kCannotOpen = -2;
constexpr int64_t kNoFunction = -1;

std::atomic<int> g_fd{kNoFile};
pthread_mutex_t g_openLock = PTHREAD_MUTEX_INITIALIZER;
char g_path[PATH_MAX];

// Tables are immutable once published; a replaced table stays reachable
// through its successor because a reader may still be using it.
struct NameTable {
  const NameTable *retired;
  int32_t count;
  char names[][XCS_FUNC_NAME_LEN + 1];
};
std::atomic<const NameTable *> g_tables[64];

void publishNames(uint16_t component, const char (*names)[XCS_FUNC_NAME_LEN], int32_t count) {
  auto *tab =
      static_cast<NameTable *>(malloc(sizeof(NameTable) + (size_t)count * (XCS_FUNC_NAME_LEN + 1)));
  if (!tab) return;
  tab->count = count;
  for (int32_t i = 0; i < count; i++) {
    size_t n = strnlen(names[i], XCS_FUNC_NAME_LEN);
    memcpy(tab->names[i], names[i], n);
    tab->names[i][n] = 0;
  }
  tab->retired = g_tables[component].load(std::memory_order_relaxed);
  g_tables[component].store(tab, std::memory_order_release);
}

const char kCommonNames[][XCS_FUNC_NAME_LEN] = {
    "",
    "xcsInitialize",
    "xcsGetMem",
    "xcsFreeMem",
    "xcsCheckPointer",
    "xcsRecordFailure",
    "xehFaultHandler",
    "xcsClearCS",
};

__attribute__((constructor)) void registerCommonNames() {
  publishNames(XCS_COMP_COMMON, kCommonNames, sizeof kCommonNames / sizeof kCommonNames[0]);
}

int traceFd() {
  int fd = g_fd.load(std::memory_order_acquire);
  if (fd != kNoFile) return fd;
  pthread_mutex_lock(&g_openLock);
  fd = g_fd.load(std::memory_order_relaxed);
  if (fd == kNoFile) {
    char path[PATH_MAX];
    fd = kCannotOpen;
    if (dataSubdir("trace", path, sizeof path)) {
      size_t n = strlen(path);
      snprintf(path + n, sizeof path - n, "/%s.%d.trc", programName(), (int)getpid());
      int f = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
      if (f >= 0) {
        memcpy(g_path, path, sizeof path);
        fd = f;
      }
    }
    g_fd.store(fd, std::memory_order_release);
  }
  pthread_mutex_unlock(&g_openLock);
  return fd;
}

// Whether anything in the process may trace: the enabled or override word,
// or a level with the API option. Otherwise the service writes nothing,
// whoever calls it.
bool processTracing() {
  const xihTRACEWORDS *w = xihProcessAnchor.Trace;
  return w->Enabled || w->Override || (w->Level != XTR_LEVEL_UNSET && (w->Options & XTR_OPT_API));
}

void emit(int64_t functionId, const char *text, size_t n) {
  int fd = traceFd();
  if (fd < 0) return;
  char prefix[192];
  Text t(prefix, sizeof prefix);
  addClock(t, false);
  t.addf(" %d ", (int)threadId());
  if (functionId == kNoFunction)
    t.add("-");
  else
    addFunctionName(t, (uint32_t)functionId);
  t.add(XTR_TEXT_SEPARATOR);
  struct iovec iov[3] = {{prefix, t.len}, {const_cast<char *>(text), n}, {(void *)"\n", 1}};
  ssize_t ignored = writev(fd, iov, 3);
  (void)ignored;
}

// The function the thread is in: the top of its stack.
int64_t currentFunction(const xihTHREADANCHOR *t) {
  if (!t || t->StackDepth == 0 || t->StackDepth > XIH_STACK_SIZE) return kNoFunction;
  return t->Stack[t->StackDepth - 1] & 0xFFFFu;
}

struct DumpTarget {
  int64_t functionId;
};

void traceSink(void *ctx, const char *line, size_t n) {
  emit(static_cast<DumpTarget *>(ctx)->functionId, line, n);
}

void traceData(uint16_t component, uint16_t function, const void *address, uint32_t length) {
  if (!processTracing()) return;
  DumpTarget target{XCS_FUNC_ID(component & 63u, function & 1023u)};
  dumpLines(address, length, traceSink, &target);
}

}  // namespace

void traceForget() {
  pthread_mutex_lock(&g_openLock);
  int fd = g_fd.exchange(kNoFile);
  if (fd >= 0) close(fd);
  g_path[0] = 0;
  pthread_mutex_unlock(&g_openLock);
}

void traceLockAll() {
  pthread_mutex_lock(&g_openLock);
}
void traceUnlockAll() {
  pthread_mutex_unlock(&g_openLock);
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {

XCS_EXPORT void xtrRegisterNames(uint16_t component, const char (*names)[XCS_FUNC_NAME_LEN],
                                 int32_t count) {
  if (component > 63 || !names || count <= 0 || count > 1024) return;
  publishNames(component, names, count);
}

XCS_EXPORT const char *xtrFunctionName(uint32_t functionId) {
  const NameTable *tab = g_tables[(functionId >> 10) & 63u].load(std::memory_order_acquire);
  uint32_t fn = functionId & 1023u;
  if (!tab || fn >= (uint32_t)tab->count) return "";
  return tab->names[fn];
}

XCS_EXPORT void xtr_FNC_entry(xihTHREADANCHOR *thread) {
  if (!thread || !processTracing()) return;
  int64_t id = currentFunction(thread);
  if (id == kNoFunction && thread->HistoryIndex > 0) id = xihHistoryAt(thread, 0) & 0xFFFFu;
  char buf[96];
  Text t(buf, sizeof buf);
  t.add("{ ");
  if (id == kNoFunction)
    t.add("-");
  else
    addFunctionName(t, (uint32_t)id);
  emit(id, buf, t.len);
}

XCS_EXPORT void xtr_FNC_retcode(xihTHREADANCHOR *thread, int32_t reason) {
  if (!thread || !processTracing()) return;
  // The frame has popped the function and recorded its exit mark.
  int64_t id =
      thread->HistoryIndex > 0 ? (int64_t)(xihHistoryAt(thread, 0) & 0xFFFFu) : kNoFunction;
  char buf[112];
  Text t(buf, sizeof buf);
  t.add("} ");
  if (id == kNoFunction)
    t.add("-");
  else
    addFunctionName(t, (uint32_t)id);
  t.addf(" rc=%d", (int)reason);
  emit(id, buf, t.len);
}

XCS_EXPORT void xtr_parms(const char *format, ...) {
  if (!format || !processTracing()) return;
  const xihTHREADANCHOR *t = xihCurrentThread;
  int64_t id =
      t ? (int64_t)XCS_FUNC_ID(t->TraceComponent & 63u, t->TraceFunction & 1023u) : kNoFunction;
  char small[512];
  va_list ap;
  va_start(ap, format);
  int n = vsnprintf(small, sizeof small, format, ap);
  va_end(ap);
  if (n < 0) return;
  if ((size_t)n < sizeof small) {
    emit(id, small, (size_t)n);
    return;
  }
  char *big = static_cast<char *>(malloc((size_t)n + 1));
  if (!big) {
    emit(id, small, sizeof small - 1);
    return;
  }
  va_start(ap, format);
  vsnprintf(big, (size_t)n + 1, format, ap);
  va_end(ap);
  emit(id, big, (size_t)n);
  free(big);
}

XCS_EXPORT void xtr_text(const char *text) {
  if (text && processTracing()) emit(currentFunction(xihCurrentThread), text, strlen(text));
}

XCS_EXPORT void xtr_text_api(const char *text) {
  if (text && processTracing()) emit(currentFunction(xihCurrentThread), text, strlen(text));
}

XCS_EXPORT void xtr_data(uint16_t component, uint16_t function, const void *address,
                         uint32_t length) {
  traceData(component, function, address, length);
}

XCS_EXPORT void xtr_data_api(uint16_t component, uint16_t function, const void *address,
                             uint32_t length) {
  traceData(component, function, address, length);
}

XCS_EXPORT void xtr_data_detail(uint16_t component, uint16_t function, const void *address,
                                uint32_t length) {
  traceData(component, function, address, length);
}

XCS_EXPORT const char *xtrTraceFile(void) {
  return g_fd.load(std::memory_order_acquire) >= 0 ? g_path : "";
}

// Lines are in the file as soon as they are traced; this starts their
// write-back to the disk without waiting for it (fdatasync costs
// milliseconds, and tests flush before every read).
XCS_EXPORT void xtrFlush(void) {
  int fd = g_fd.load(std::memory_order_acquire);
  if (fd >= 0) sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

}  // extern "C"
