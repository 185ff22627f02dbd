// Address checks. Slab blocks pass on a range test. Any other area is
// probed: one byte of each page is touched under a thread-local jump buffer
// that the fault handler (signals.cpp) resumes when the touch faults. Reads
// are plain loads; write and update checks use `lock orb $0`, an atomic
// read-modify-write that needs write access but never changes a byte another
// thread may be writing at the same time. No system call on any path once
// the fault actions are installed.
#include <setjmp.h>

#include "cs_internal.hpp"

namespace jxcs {
namespace {

// Touching every 4 KiB is right for any page size of 4 KiB or more.
constexpr uintptr_t kStep = 4096;
#if UINTPTR_MAX > 0xFFFFFFFFu
constexpr uintptr_t kUserLimit = (uintptr_t)1 << 56;  // beyond: kernel or non-canonical
#endif

__thread sigjmp_buf *t_probe JXCS_TLS = nullptr;

enum CheckResult : int32_t { kUsable = 0, kRefused = 1, kNotUsable = 2 };

}  // namespace

// The touches themselves must not be instrumented: they read redzones and
// unmapped pages on purpose.
__attribute__((noinline, no_sanitize("address", "undefined"))) static void touchPages(
    uintptr_t p, uintptr_t end, int32_t mode) {
  // The byte read is stored, so binary translators (valgrind) that drop
  // loads with unused results still perform the read.
  [[maybe_unused]] volatile unsigned char sink;
  for (;;) {
    if (mode == XCS_CHECK_READ)
      sink = *(volatile const unsigned char *)p;
    else
      __asm__ __volatile__("lock orb $0, (%0)" : : "r"(p) : "memory", "cc");
    uintptr_t next = (p & ~(kStep - 1)) + kStep;
    if (next >= end || next < p) break;
    p = next;
  }
}

int probeRange(uintptr_t start, uintptr_t end, int32_t mode) {
  volatile uintptr_t from = start, to = end;
  volatile int32_t how = mode;
  sigjmp_buf env;
  sigjmp_buf *volatile outer = t_probe;
  if (sigsetjmp(env, 0) != 0) {
    t_probe = outer;
    return kNotUsable;
  }
  t_probe = &env;
  __asm__ __volatile__("" ::: "memory");
  touchPages(from, to, how);
  __asm__ __volatile__("" ::: "memory");
  t_probe = outer;
  return kUsable;
}

__attribute__((noinline, no_sanitize("address", "undefined"))) static void copyBytes(
    unsigned char *dst, const unsigned char *src, size_t n) {
  for (size_t i = 0; i < n; i++) dst[i] = ((const volatile unsigned char *)src)[i];
}

static bool copyUnderProbe(unsigned char *dst, const unsigned char *src, size_t n) {
  unsigned char *volatile to = dst;
  const unsigned char *volatile from = src;
  volatile size_t count = n;
  sigjmp_buf env;
  sigjmp_buf *volatile outer = t_probe;
  if (sigsetjmp(env, 0) != 0) {
    t_probe = outer;
    return false;
  }
  t_probe = &env;
  __asm__ __volatile__("" ::: "memory");
  copyBytes(to, from, count);
  __asm__ __volatile__("" ::: "memory");
  t_probe = outer;
  return true;
}

bool safeCopy(void *dst, const void *src, size_t n) {
  if (n == 0) return true;
  uintptr_t start = (uintptr_t)src, end;
  if (start < kStep || __builtin_add_overflow(start, n, &end)) return false;
#if UINTPTR_MAX > 0xFFFFFFFFu
  if (end > kUserLimit) return false;
#endif
  if (!slabContains(start, end) && !installFaultActions()) return false;
  return copyUnderProbe((unsigned char *)dst, (const unsigned char *)src, n);
}

void resumeProbe(int sig, const siginfo_t *info) {
  if ((sig == SIGSEGV || sig == SIGBUS) && t_probe && info && info->si_code > 0)
    siglongjmp(*t_probe, 1);
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {

// 0: usable; 1: refused without looking (null, unknown mode, the range wraps
// or lies outside user space); 2: some page cannot be used in that mode.
XCS_EXPORT int32_t xcsCheckPointer(const void *address, size_t length, int32_t mode) {
  if (!address) return kRefused;
  if (mode != XCS_CHECK_READ && mode != XCS_CHECK_WRITE && mode != XCS_CHECK_UPDATE)
    return kRefused;
  if (length == 0) return kUsable;
  uintptr_t start = (uintptr_t)address, end;
  if (__builtin_add_overflow(start, length, &end)) return kRefused;
  if (slabContains(start, end)) return kUsable;
  if (start < kStep) return kNotUsable;  // page zero is never mapped
#if UINTPTR_MAX > 0xFFFFFFFFu
  if (end > kUserLimit) return kRefused;
#endif
  if (!installFaultActions()) return kNotUsable;
  return probeRange(start, end, mode);
}

}  // extern "C"
