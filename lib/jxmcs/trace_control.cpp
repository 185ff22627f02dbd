// The shared trace control file: a process claims a slot at set-up (reusing
// free slots and those of processes that no longer exist) and keeps its
// trace words there, where jxtrace can change them while it runs.
#include "trace_control.hpp"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cs_internal.hpp"

namespace jxcs {
namespace {

xtrCONTROLFILE *g_control = nullptr;
int g_controlFd = -1;
pid_t g_controlFdOwner = 0;
xtrCONTROLSLOT *g_mine = nullptr;

bool controlPath(const char *root, char *out, size_t outLen) {
  int n = snprintf(out, outLen, "%s/trace/control", root);
  return n > 0 && (size_t)n < outLen;
}

bool headerValid(const xtrCONTROLFILE *c) {
  return memcmp(c->Eye, XTR_CONTROL_EYE, 8) == 0 && c->Version == XTR_CONTROL_VERSION &&
         c->SlotCount == XTR_CONTROL_SLOTS && c->SlotSize == sizeof(xtrCONTROLSLOT);
}

// Maps the file; on success *fdOut keeps it open (for flock) when fdOut is
// given, otherwise it is closed.
xtrCONTROLFILE *mapControl(const char *root, bool create, int *fdOut, const char **why) {
  char path[PATH_MAX];
  *why = "path too long";
  if (!controlPath(root, path, sizeof path)) return nullptr;
  if (create) {
    char dir[PATH_MAX];
    snprintf(dir, sizeof dir, "%s/trace", root);
    *why = "cannot create the trace folder";
    if (!makeDirs(dir)) return nullptr;
  }
  *why = "cannot open";
  int fd = open(path, O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0600);
  if (fd < 0) return nullptr;
  flock(fd, LOCK_EX);
  xtrCONTROLFILE *c = nullptr;
  struct stat st;
  *why = "cannot read its size";
  if (fstat(fd, &st) == 0) {
    bool fresh = st.st_size == 0 && create;
    *why = "cannot size it";
    if (!fresh || ftruncate(fd, sizeof(xtrCONTROLFILE)) == 0) {
      *why = "not a trace control file";
      if (fresh || st.st_size == (off_t)sizeof(xtrCONTROLFILE)) {
        void *m = mmap(nullptr, sizeof(xtrCONTROLFILE), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        *why = "cannot map";
        if (m != MAP_FAILED) {
          c = static_cast<xtrCONTROLFILE *>(m);
          if (fresh) {
            c->Version = XTR_CONTROL_VERSION;
            c->SlotCount = XTR_CONTROL_SLOTS;
            c->SlotSize = sizeof(xtrCONTROLSLOT);
            memcpy(c->Eye, XTR_CONTROL_EYE, 8);
          }
          if (!headerValid(c)) {
            *why = "not a trace control file";
            munmap(m, sizeof(xtrCONTROLFILE));
            c = nullptr;
          }
        }
      }
    }
  }
  int saved = errno;
  flock(fd, LOCK_UN);
  if (c && fdOut)
    *fdOut = fd;
  else
    close(fd);
  errno = saved;
  return c;
}

// The lock descriptor must be this process's own: a descriptor inherited
// over fork shares its flock with the parent.
bool lockControl() {
  pid_t me = getpid();
  if (g_controlFdOwner != me) {
    char path[PATH_MAX];
    if (!controlPath(xcsDataRoot(), path, sizeof path)) return false;
    int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    if (g_controlFd >= 0) close(g_controlFd);
    g_controlFd = fd;
    g_controlFdOwner = me;
  }
  return flock(g_controlFd, LOCK_EX) == 0;
}

}  // namespace

xihTRACEWORDS *claimTraceSlot(const xihTRACEWORDS &initial) {
  pid_t me = getpid();
  if (!g_control) {
    const char *why;
    int fd = -1;
    g_control = mapControl(xcsDataRoot(), true, &fd, &why);
    if (!g_control) return nullptr;
    g_controlFd = fd;
    g_controlFdOwner = me;
  }
  if (g_mine && g_mine->Pid == me) return &g_mine->Words;
  if (!lockControl()) return nullptr;
  xtrCONTROLSLOT *slot = nullptr;
  for (auto &s : g_control->Slot) {
    if (s.Pid == me) {
      slot = &s;
      break;
    }
    if (!slot && (s.Pid == 0 || !xtrSlotAlive(&s))) slot = &s;
  }
  if (slot) {
    slot->Words.Enabled = initial.Enabled;
    slot->Words.Level = initial.Level;
    slot->Words.Options = initial.Options;
    slot->Words.Override = initial.Override;
    snprintf(slot->Program, sizeof slot->Program, "%s", programName());
    __atomic_store_n(&slot->Pid, (int32_t)me, __ATOMIC_RELEASE);
    g_mine = slot;
  }
  flock(g_controlFd, LOCK_UN);
  return slot ? &slot->Words : nullptr;
}

void releaseTraceSlot() {
  if (g_mine && g_mine->Pid == getpid()) __atomic_store_n(&g_mine->Pid, 0, __ATOMIC_RELEASE);
}

}  // namespace jxcs

using namespace jxcs;

extern "C" {

XCS_EXPORT xtrCONTROLFILE *xtrMapControl(const char *dataRoot, int create, const char **why) {
  const char *dummy;
  if (!why) why = &dummy;
  if (!dataRoot) {
    *why = "no data root";
    return nullptr;
  }
  return mapControl(dataRoot, create != 0, nullptr, why);
}

XCS_EXPORT void xtrUnmapControl(xtrCONTROLFILE *control) {
  if (control) munmap(control, sizeof *control);
}

XCS_EXPORT int xtrSlotAlive(const xtrCONTROLSLOT *slot) {
  pid_t pid = slot->Pid;
  if (pid <= 0) return 0;
  return kill(pid, 0) == 0 || errno == EPERM;
}

}  // extern "C"
