// Signal actions. The library's fault handler is installed once per process
// (keeping the actions found), so entering and leaving a protected region
// are two thread-local stores. The handler resumes pointer-check probes
// first; a real fault inside a region writes a failure record with the
// thread's function stack; then every fault goes on to the caller's action.
//
// An application that replaces these actions after the first install takes
// the faults itself: records and checks of foreign memory need the library's
// handler to be in place.
#include <errno.h>
#include <string.h>
#include <ucontext.h>

#include <atomic>

#include "cs_internal.hpp"

namespace jxcs {
namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};
constexpr int kSignalCount = sizeof kSignals / sizeof kSignals[0];

struct sigaction g_previous[kSignalCount];
std::atomic<int> g_state{0};  // 0 not yet, 1 installed, -1 impossible
pthread_mutex_t g_installLock = PTHREAD_MUTEX_INITIALIZER;
__thread int32_t t_region JXCS_TLS = 0;
__thread int32_t t_recording JXCS_TLS = 0;

int slotOf(int sig) {
  for (int i = 0; i < kSignalCount; i++)
    if (kSignals[i] == sig) return i;
  return -1;
}

uintptr_t faultingInstruction(const void *uc) {
  if (!uc) return 0;
  const ucontext_t *ctx = static_cast<const ucontext_t *>(uc);
#if defined(__x86_64__)
  return (uintptr_t)ctx->uc_mcontext.gregs[REG_RIP];
#elif defined(__i386__)
  return (uintptr_t)ctx->uc_mcontext.gregs[REG_EIP];
#else
  return 0;
#endif
}

void recordFault(int sig, const siginfo_t *info, const void *uc) {
  uint16_t component = XCS_COMP_COMMON;
  uint16_t probe = kFnFaultHandler;
  if (const xihTHREADANCHOR *t = xihCurrentThread) {
    uint32_t depth = t->StackDepth;
    if (depth > 0) {
      uint32_t id = t->Stack[(depth < XIH_STACK_SIZE ? depth : XIH_STACK_SIZE) - 1] & 0xFFFFu;
      component = (uint16_t)(id >> 10);
      probe = (uint16_t)(id & 1023u);
    }
  }
  uint64_t addr = (uintptr_t)info->si_addr;
  xcsINSERTS ins = {{'X', 'M', 'S', 'A'},    (uint32_t)sig,
                    (uint32_t)info->si_code, (uint32_t)addr,
                    (uint32_t)(addr >> 32),  (uint32_t)faultingInstruction(uc)};
  writeFailureRecord(component, probe, 0, XCS_E_FAULT, &ins, nullptr);
}

// The caller's action, as the kernel would have run it.
void passOn(int sig, siginfo_t *info, void *uc) {
  int slot = slotOf(sig);
  const struct sigaction &prev = g_previous[slot];
  bool fromKernel = info && info->si_code > 0;
  bool custom = (prev.sa_flags & SA_SIGINFO)
                    ? prev.sa_sigaction != nullptr
                    : prev.sa_handler != SIG_DFL && prev.sa_handler != SIG_IGN;
  if (custom) {
    sigset_t mask = prev.sa_mask, old;
    if (!(prev.sa_flags & SA_NODEFER)) sigaddset(&mask, sig);
    pthread_sigmask(SIG_BLOCK, &mask, &old);
    if (prev.sa_flags & SA_SIGINFO)
      prev.sa_sigaction(sig, info, uc);
    else
      prev.sa_handler(sig);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return;
  }
  // An ignored fault raised by the kernel is not ignorable: it kills.
  if (prev.sa_handler == SIG_IGN && !fromKernel) return;
  struct sigaction dfl;
  memset(&dfl, 0, sizeof dfl);
  dfl.sa_handler = SIG_DFL;
  sigemptyset(&dfl.sa_mask);
  sigaction(sig, &dfl, nullptr);
  // A kernel fault re-runs its instruction on return, now under the default
  // action, so the core shows the real place; a sent signal is sent again.
  if (fromKernel) return;
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, sig);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  raise(sig);
}

void onFault(int sig, siginfo_t *info, void *uc) {
  int savedErrno = errno;
  resumeProbe(sig, info);
  if (t_region && info && info->si_code > 0 && !t_recording) {
    t_recording = 1;
    recordFault(sig, info, uc);
    t_recording = 0;
    // Whatever the caller's action does, this region is over: a handler
    // that jumps out never reaches the matching restore.
    t_region = 0;
  }
  errno = savedErrno;
  passOn(sig, info, uc);
}

}  // namespace

bool installFaultActions() {
  int state = g_state.load(std::memory_order_acquire);
  if (state != 0) return state > 0;
  pthread_mutex_lock(&g_installLock);
  if (g_state.load(std::memory_order_relaxed) == 0) {
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_sigaction = onFault;
    sa.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
    sigemptyset(&sa.sa_mask);
    bool ok = true;
    int done = 0;
    for (; done < kSignalCount && ok; done++)
      ok = sigaction(kSignals[done], &sa, &g_previous[done]) == 0;
    if (!ok)
      for (int i = 0; i < done - 1; i++) sigaction(kSignals[i], &g_previous[i], nullptr);
    g_state.store(ok ? 1 : -1, std::memory_order_release);
  }
  pthread_mutex_unlock(&g_installLock);
  return g_state.load(std::memory_order_relaxed) > 0;
}

void signalsLockAll() {
  pthread_mutex_lock(&g_installLock);
}
void signalsUnlockAll() {
  pthread_mutex_unlock(&g_installLock);
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {

XCS_EXPORT void xehSaveSigActionsF(int32_t *saved) {
  bool up = installFaultActions();
  if (xihTHREADANCHOR *t = xihCurrentThread) t->TraceActive = xihProcessAnchor.Trace->Enabled;
  if (!saved) return;
  if (!up || t_region) {
    *saved = 0;
    return;
  }
  t_region = 1;
  *saved = 1;
}

XCS_EXPORT void xehRestoreSigActionsF(void) {
  t_region = 0;
}

}  // extern "C"
