// Failure records: one text file per record,
// <data root>/errors/<program>.<pid>.<seq>.rec (mode 0600, folder 0700):
//
//   JX failure record
//   Time: 2026-11-22 05:12:33.123456 UTC
//   Program: jxmcs_tests
//   Process: 12345
//   Thread: 12346
//   Component: 25
//   Probe: 117 zaiVectorCreate
//   Flags: 0
//   Error: 0x20805452
//   Inserts: XMSA 0x00000005 0x00000000 0x00000000 0x00000000 0x00000000
//   Stack: 2
//     F000645D zaiJXCreateBag
//     F0006475 zaiCreateBag
//   Dump 1: Invalid zaiVECTOR
//     Address: 0x40001008
//     Length: 64
//     00000000  5A 56 45 43 ...                                  |ZVEC...|
//   End
//
// Inserts is "none" without an insert record; Stack is "none" on a thread
// without an anchor, otherwise the depth followed by the kept marks,
// outermost first. Unreadable dump lines read "XXXXXXXX-YYYYYYYY  not
// readable"; a dump longer than 16384 bytes shows its first 16384 after a
// line "  Shown: first 16384 bytes". Everything the caller passes is read through the probe, and
// nothing here allocates, so the fault handler writes records too.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "cs_internal.hpp"

namespace jxcs {
namespace {

// A record is for reading: a dump longer than this (a length taken from a
// damaged block, say) is cut.
constexpr uint32_t kMaxDump = 16384;

std::atomic<uint32_t> g_sequence{0};
char g_lastRecord[PATH_MAX];

struct Writer {
  int fd;
  char buf[2048];
  Text t{buf, sizeof buf};
  bool ok = true;
  explicit Writer(int f) : fd(f) {}
  void flush() {
    if (t.len && !writeAll(fd, buf, t.len)) ok = false;
    t.len = 0;
    buf[0] = 0;
  }
  void endLine() {
    t.add("\n");
    if (t.len > sizeof buf - 256) flush();
  }
};

void dumpSink(void *ctx, const char *line, size_t n) {
  Writer &w = *static_cast<Writer *>(ctx);
  w.t.add("  ");
  w.t.addn(line, n);
  w.endLine();
}

// A caller's label, read a byte at a time so a string that ends just before
// an unmapped page is still read whole.
void addLabel(Text &t, const char *label) {
  if (!label) {
    t.add("(no label)");
    return;
  }
  for (int i = 0; i < 64; i++) {
    char c;
    if (!safeCopy(&c, label + i, 1)) {
      if (i == 0) t.add("(label not readable)");
      return;
    }
    if (c == 0) return;
    t.addn(c >= 0x20 && c < 0x7F ? &c : "?", 1);
  }
}

}  // namespace

int32_t writeFailureRecord(uint16_t component, uint16_t probe, int32_t flags, uint32_t error,
                           const xcsINSERTS *inserts, const xcsDUMPLIST *dumps) {
  char path[PATH_MAX];
  if (!dataSubdir("errors", path, sizeof path)) return 1;
  size_t dirLen = strlen(path);
  int fd = -1;
  for (int tries = 0; fd < 0 && tries < 1000; tries++) {
    uint32_t seq = g_sequence.fetch_add(1, std::memory_order_relaxed) + 1;
    int n = snprintf(path + dirLen, sizeof path - dirLen, "/%s.%d.%u.rec", programName(),
                     (int)getpid(), seq);
    if (n < 0 || (size_t)n >= sizeof path - dirLen) return 1;
    fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 && errno != EEXIST) return 1;
  }
  if (fd < 0) return 1;

  Writer w(fd);
  Text &t = w.t;
  t.add("JX failure record");
  w.endLine();
  t.add("Time: ");
  addClock(t, true);
  t.add(" UTC");
  w.endLine();
  t.addf("Program: %s", programName());
  w.endLine();
  t.addf("Process: %d", (int)getpid());
  w.endLine();
  t.addf("Thread: %d", (int)threadId());
  w.endLine();
  t.addf("Component: %u", component);
  w.endLine();
  t.addf("Probe: %u ", probe);
  addFunctionName(t, XCS_FUNC_ID(component & 63u, probe & 1023u));
  w.endLine();
  t.addf("Flags: %d", flags);
  w.endLine();
  t.addf("Error: 0x%08X", error);
  w.endLine();

  xcsINSERTS ins;
  if (!inserts) {
    t.add("Inserts: none");
  } else if (!safeCopy(&ins, inserts, sizeof ins)) {
    t.add("Inserts: not readable");
  } else {
    t.add("Inserts: ");
    for (char c : ins.StrucId) t.addn(c >= 0x20 && c < 0x7F ? &c : "?", 1);
    t.addf(" 0x%08X 0x%08X 0x%08X 0x%08X 0x%08X", ins.Num1, ins.Num2, ins.Word1, ins.Word2,
           ins.Word3);
  }
  w.endLine();

  if (const xihTHREADANCHOR *a = xihCurrentThread) {
    uint32_t depth = a->StackDepth;
    uint32_t kept = depth < XIH_STACK_SIZE ? depth : XIH_STACK_SIZE;
    t.addf("Stack: %u", depth);
    w.endLine();
    for (uint32_t i = 0; i < kept; i++) {
      uint32_t mark = a->Stack[i];
      t.addf("  %08X ", mark);
      addFunctionName(t, mark & 0xFFFFu);
      w.endLine();
    }
  } else {
    t.add("Stack: none");
    w.endLine();
  }

  xcsDUMPLIST list;
  if (dumps && safeCopy(&list, dumps, sizeof list)) {
    int32_t count = list.Count < 0 ? 0 : list.Count > XCS_MAX_DUMPS ? XCS_MAX_DUMPS : list.Count;
    for (int32_t i = 0; i < count; i++) {
      const xcsDUMPENTRY &e = list.Entry[i];
      t.addf("Dump %d: ", (int)i + 1);
      addLabel(t, e.Label);
      w.endLine();
      t.addf("  Address: %p", e.Address);
      w.endLine();
      t.addf("  Length: %u", e.Length);
      w.endLine();
      uint32_t shown = e.Length;
      if (shown > kMaxDump) {
        shown = kMaxDump;
        t.addf("  Shown: first %u bytes", shown);
        w.endLine();
      }
      dumpLines(e.Address, shown, dumpSink, &w);
    }
  } else if (dumps) {
    t.add("Dumps: not readable");
    w.endLine();
  }
  t.add("End");
  w.endLine();
  w.flush();
  close(fd);
  if (!w.ok) return 1;
  memcpy(g_lastRecord, path, strlen(path) + 1);
  return 0;
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {

XCS_EXPORT void xcsBuildDumpPtr(xcsDUMPLIST *list, int32_t entry, const char *label,
                                const void *address, uint32_t length) {
  if (entry < 1 || entry > XCS_MAX_DUMPS) return;
  if (xcsCheckPointer(list, sizeof *list, XCS_CHECK_UPDATE) != 0) return;
  xcsDUMPENTRY &e = list->Entry[entry - 1];
  e.Label = label;
  e.Address = address;
  e.Length = length;
  if (list->Count < entry) list->Count = entry;
}

XCS_EXPORT int32_t xcsRecordFailure(uint16_t component, uint16_t probe, int32_t flags,
                                    uint32_t error, const xcsINSERTS *inserts,
                                    const xcsDUMPLIST *dumps, int32_t, int32_t) {
  return writeFailureRecord(component, probe, flags, error, inserts, dumps);
}

XCS_EXPORT const char *xcsLastFailureRecord(void) {
  return g_lastRecord;
}

}  // extern "C"
