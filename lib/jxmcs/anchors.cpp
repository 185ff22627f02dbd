// Process and thread anchors, process set-up, fork handling and data root.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "cs_internal.hpp"

extern "C" {
XCS_EXPORT void *CSCtrl = nullptr;
// Trace points at the fallback words from the start, so callers that read
// the trace words before any set-up (the queue-manager re-exports) see
// tracing off rather than a null pointer.
XCS_EXPORT xihPROCESSANCHOR xihProcessAnchor = {
    {0, 0, 0, 0}, 0, &xihProcessAnchor.Private, {0, XTR_LEVEL_UNSET, 0, 0}};
}

namespace jxcs {

namespace {

pthread_mutex_t g_initLock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<bool> g_ready{false};
pthread_key_t g_anchorKey;
__thread int32_t t_tid JXCS_TLS = 0;

// The data root of each JX_DATA_PATH setting the process has asked with,
// worked out once and kept for good: a returned root stays valid, and a
// program (or test) that changes the variable gets the root it names.
struct RootEntry {
  char *setting;
  char root[PATH_MAX];
  RootEntry *next;
};
pthread_mutex_t g_rootLock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<RootEntry *> g_roots{nullptr};

void copyWords(xihTRACEWORDS &to, const xihTRACEWORDS &from) {
  to.Enabled = from.Enabled;
  to.Level = from.Level;
  to.Options = from.Options;
  to.Override = from.Override;
}

bool isDir(const char *path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

bool makeDirs(const char *path) {
  char work[PATH_MAX];
  size_t n = strlen(path);
  if (n == 0 || n >= sizeof work) return false;
  memcpy(work, path, n + 1);
  for (size_t i = 1; i <= n; i++) {
    if (work[i] != '/' && work[i] != 0) continue;
    char c = work[i];
    work[i] = 0;
    if (mkdir(work, 0700) != 0 && errno != EEXIST) return false;
    work[i] = c;
  }
  return isDir(path);
}

namespace {

void computeRoot(const char *env, char (&root)[PATH_MAX]) {
  if (env[0] && strlen(env) < sizeof root - 64) {
    strcpy(root, env);
  } else if (makeDirs("/var/jxm") && access("/var/jxm", W_OK | X_OK) == 0) {
    strcpy(root, "/var/jxm");
  } else {
    const char *home = getenv("HOME");
    if (!home || !home[0] || strlen(home) >= sizeof root - 64) home = "/tmp";
    snprintf(root, sizeof root, "%s/.jxm", home);
  }
  size_t n = strlen(root);
  while (n > 1 && root[n - 1] == '/') root[--n] = 0;
}

const char *findRoot(const char *setting) {
  for (RootEntry *e = g_roots.load(std::memory_order_acquire); e; e = e->next)
    if (strcmp(e->setting, setting) == 0) return e->root;
  return nullptr;
}

// JX_TRACE: a comma-separated list of api, parms, bag, all (all also sets
// the override word), or a number (decimal or 0x hex) for the options word.
// JX_TRACE_LEVEL: the trace level once JX_TRACE switched tracing on (0 when
// not given). Unknown words are skipped.
xihTRACEWORDS wordsFromEnvironment() {
  xihTRACEWORDS w = {0, XTR_LEVEL_UNSET, 0, 0};
  const char *setting = getenv("JX_TRACE");
  if (!setting || !setting[0]) return w;
  char copy[256];
  snprintf(copy, sizeof copy, "%s", setting);
  uint32_t options = 0;
  int32_t override = 0;
  bool any = false;
  char *save = nullptr;
  for (char *tok = strtok_r(copy, ", +", &save); tok; tok = strtok_r(nullptr, ", +", &save)) {
    char *end = nullptr;
    unsigned long num = strtoul(tok, &end, 0);
    if (end != tok && *end == 0) {
      options |= (uint32_t)num;
      any = any || num != 0;
    } else if (strcmp(tok, "api") == 0) {
      options |= XTR_OPT_API;
      any = true;
    } else if (strcmp(tok, "parms") == 0) {
      options |= XTR_OPT_PARMS;
      any = true;
    } else if (strcmp(tok, "bag") == 0) {
      options |= XTR_OPT_BAG;
      any = true;
    } else if (strcmp(tok, "all") == 0) {
      options |= XTR_OPT_API | XTR_OPT_PARMS | XTR_OPT_BAG;
      override = 1;
      any = true;
    }
  }
  if (!any) return w;
  int32_t level = 0;
  const char *lv = getenv("JX_TRACE_LEVEL");
  if (lv && lv[0]) level = (int32_t)strtol(lv, nullptr, 0);
  w.Enabled = 1;
  w.Level = level;
  w.Options = options;
  w.Override = override;
  return w;
}

void freeAnchor(void *p) {
  if (xihCurrentThread == p) xihCurrentThread = nullptr;
  free(p);
}

void forkPrepare() {
  pthread_mutex_lock(&g_initLock);
  memoryLockAll();
  traceLockAll();
  signalsLockAll();
}

void forkParent() {
  signalsUnlockAll();
  traceUnlockAll();
  memoryUnlockAll();
  pthread_mutex_unlock(&g_initLock);
}

void forkChild() {
  forkParent();
  t_tid = 0;
}

__attribute__((constructor)) void registerForkHandlers() {
  pthread_atfork(forkPrepare, forkParent, forkChild);
}

__attribute__((destructor)) void leaveProcess() {
  releaseTraceSlot();
}

}  // namespace

void ensureProcess() {
  if (g_ready.load(std::memory_order_acquire)) return;
  pthread_mutex_lock(&g_initLock);
  if (!g_ready.load(std::memory_order_relaxed)) {
    xcsDataRoot();
    pthread_key_create(&g_anchorKey, freeAnchor);
    xihTRACEWORDS w = wordsFromEnvironment();
    copyWords(xihProcessAnchor.Private, w);
    memcpy(xihProcessAnchor.StrucId, XIH_PROCESS_EYE, 4);
    xihProcessAnchor.Pid = (int32_t)getpid();
    xihTRACEWORDS *slot = claimTraceSlot(w);
    xihProcessAnchor.Trace = slot ? slot : &xihProcessAnchor.Private;
    CSCtrl = &xihProcessAnchor;
    g_ready.store(true, std::memory_order_release);
  }
  pthread_mutex_unlock(&g_initLock);
}

const char *programName() {
  const char *name = program_invocation_short_name;
  return name && name[0] ? name : "jx";
}

int32_t threadId() {
  if (t_tid == 0) t_tid = (int32_t)syscall(SYS_gettid);
  return t_tid;
}

bool dataSubdir(const char *leaf, char *out, size_t outLen) {
  int n = snprintf(out, outLen, "%s/%s", xcsDataRoot(), leaf);
  if (n < 0 || (size_t)n >= outLen) return false;
  return isDir(out) || makeDirs(out);
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {
XCS_EXPORT __thread xihTHREADANCHOR *xihCurrentThread JXCS_TLS = nullptr;
}

extern "C" {

XCS_EXPORT xihPROCESSANCHOR *xihProcess(void) {
  return &xihProcessAnchor;
}

XCS_EXPORT xihTHREADANCHOR *xihThreadAddress(void) {
  return xihCurrentThread;
}

XCS_EXPORT int32_t xcsInitialize(int32_t, int32_t, int32_t, int32_t, int32_t) {
  ensureProcess();
  xihTHREADANCHOR *t = xihCurrentThread;
  if (!t) {
    t = static_cast<xihTHREADANCHOR *>(calloc(1, sizeof(xihTHREADANCHOR)));
    if (!t) return XCS_E_NO_STORAGE;
    memcpy(t->StrucId, XIH_THREAD_EYE, 4);
    xihCurrentThread = t;
    pthread_setspecific(g_anchorKey, t);
  }
  t->CSReady = 1;
  t->TraceActive = xihProcessAnchor.Trace->Enabled;
  return XCS_OK;
}

XCS_EXPORT int32_t xcsGetPid(void) {
  return (int32_t)getpid();
}

XCS_EXPORT void xcsClearCS(void) {
  ensureProcess();
  pthread_mutex_lock(&g_initLock);
  xihProcessAnchor.Pid = (int32_t)getpid();
  t_tid = 0;
  xihTRACEWORDS now;
  copyWords(now, *xihProcessAnchor.Trace);
  copyWords(xihProcessAnchor.Private, now);
  xihTRACEWORDS *slot = claimTraceSlot(now);
  xihProcessAnchor.Trace = slot ? slot : &xihProcessAnchor.Private;
  traceForget();
  pthread_mutex_unlock(&g_initLock);
  if (xihTHREADANCHOR *t = xihCurrentThread) {
    t->HistoryIndex = 0;
    t->StackDepth = 0;
    memset(t->History, 0, sizeof t->History);
    memset(t->Stack, 0, sizeof t->Stack);
    t->TraceActive = xihProcessAnchor.Trace->Enabled;
  }
}

XCS_EXPORT const char *xcsDataRoot(void) {
  const char *env = getenv("JX_DATA_PATH");
  if (!env) env = "";
  if (const char *root = findRoot(env)) return root;
  pthread_mutex_lock(&g_rootLock);
  const char *root = findRoot(env);
  if (!root) {
    RootEntry *e = static_cast<RootEntry *>(calloc(1, sizeof(RootEntry)));
    char *setting = strdup(env);
    if (!e || !setting) {  // the same last resort as a home folder out of reach
      free(e);
      free(setting);
      pthread_mutex_unlock(&g_rootLock);
      return "/tmp";
    }
    e->setting = setting;
    computeRoot(env, e->root);
    e->next = g_roots.load(std::memory_order_relaxed);
    g_roots.store(e, std::memory_order_release);
    root = e->root;
  }
  pthread_mutex_unlock(&g_rootLock);
  return root;
}

}  // extern "C"
