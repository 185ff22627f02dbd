// Layout of the shared trace control file <data root>/trace/control, shared
// by libjxmcs (each process claims a slot) and the jxtrace tool (which flips
// the words of running processes). The file is mapped MAP_SHARED; slot
// claims are serialised with flock on the file.
#pragma once

#include <jx/jxcs.h>
#include <stdint.h>

#define XTR_CONTROL_EYE "JXTRCTL1"
#define XTR_CONTROL_VERSION 1u
#define XTR_CONTROL_SLOTS 256u
#define XTR_PROGRAM_LEN 40

extern "C" {

typedef struct xtrCONTROLSLOT {
  volatile int32_t Pid; /* 0: free */
  int32_t Reserved;
  xihTRACEWORDS Words;
  char Program[XTR_PROGRAM_LEN]; /* NUL-terminated */
} xtrCONTROLSLOT;

typedef struct xtrCONTROLFILE {
  char Eye[8]; /* XTR_CONTROL_EYE, no NUL */
  uint32_t Version;
  uint32_t SlotCount;
  uint32_t SlotSize;
  char Reserved[44];
  xtrCONTROLSLOT Slot[XTR_CONTROL_SLOTS];
} xtrCONTROLFILE;

/* Maps the control file under dataRoot (creating it when create is
 * non-zero). Returns null with errno set when it cannot be used; *why then
 * names the failing step. */
XCS_EXPORT xtrCONTROLFILE *xtrMapControl(const char *dataRoot, int create, const char **why);
XCS_EXPORT void xtrUnmapControl(xtrCONTROLFILE *control);
/* Non-zero when the slot is claimed by a process that still exists. */
XCS_EXPORT int xtrSlotAlive(const xtrCONTROLSLOT *slot);
}

static_assert(sizeof(xtrCONTROLSLOT) == 64, "control slots are 64 bytes");
