/*
 * jxcs.h - common services shared by the JX libraries (libjxmcs).
 *
 * Process and thread anchors, storage, address checks, failure records,
 * trace, signal-action protection and fork detection. Every JX library goes
 * through these calls instead of calling the operating system itself.
 */
#ifndef JX_JXCS_H
#define JX_JXCS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define XCS_EXPORT __attribute__((visibility("default")))
#else
#define XCS_EXPORT
#endif

/* Component numbers used in function identifiers, trace and failure records. */
#define XCS_COMP_COMMON 1   /* common services themselves */
#define XCS_COMP_ADMIN 25   /* administration interface (libjxai) */
#define XCS_COMP_QMCALLS 32 /* queue-manager call re-exports */

/* Function identifier: component in bits 10-15, function number in bits 0-9. */
#define XCS_FUNC_ID(comp, func) ((uint32_t)(comp)*1024u + (uint32_t)(func))
#define XCS_ENTRY_MARK 0xF0000000u
#define XCS_FUNC_NAME_LEN 40

/* ------------------------------------------------------------------ */
/* Anchors                                                             */
/* ------------------------------------------------------------------ */

#define XIH_PROCESS_EYE "XIH "
#define XIH_THREAD_EYE "XIHT"
#define XIH_HISTORY_SIZE 1024 /* power of two: the history is a ring */
#define XIH_STACK_SIZE 256

/* Trace option bits of the process anchor's TraceOptions word. */
#define XTR_OPT_API 0x00000001u   /* API parameter trace */
#define XTR_OPT_BAG_A 0x00000020u /* bag contents trace needs 0x20|0x400|0x80000 */
#define XTR_OPT_BAG_B 0x00000400u
#define XTR_OPT_PARMS_A 0x00040000u /* internal parameter trace: bit 18 */
#define XTR_OPT_PARMS_B 0x00080000u /* internal parameter trace: bit 19 */
#define XTR_OPT_PARMS (XTR_OPT_PARMS_A | XTR_OPT_PARMS_B)
#define XTR_OPT_BAG (XTR_OPT_BAG_A | XTR_OPT_BAG_B | XTR_OPT_PARMS_B)
#define XTR_LEVEL_UNSET (-1)

/* The four trace words. They live in a slot of the shared trace control file
 * (so `jxtrace` can flip them in a running process), or in the process
 * anchor itself when that file cannot be mapped. */
typedef struct xihTRACEWORDS {
  volatile int32_t Enabled;  /* non-zero: tracing active for the process */
  volatile int32_t Level;    /* XTR_LEVEL_UNSET when unset */
  volatile uint32_t Options; /* XTR_OPT_* bits */
  volatile int32_t Override; /* non-zero: trace everything */
} xihTRACEWORDS;

typedef struct xihPROCESSANCHOR {
  char StrucId[4];       /* "XIH " */
  int32_t Pid;           /* process that set the anchor up; 0 before */
  xihTRACEWORDS *Trace;  /* never null once initialised */
  xihTRACEWORDS Private; /* fallback trace words */
} xihPROCESSANCHOR;

typedef struct xihTHREADANCHOR {
  char StrucId[4];         /* "XIHT" */
  int32_t CSReady;         /* zero: common services not set up on this thread */
  int32_t TraceActive;     /* non-zero: this thread is being traced */
  uint16_t TraceComponent; /* origin of the next xtr_parms line */
  uint16_t TraceFunction;
  int32_t TraceKind;
  /* Each counter sits with its own array: side by side, updates of both
   * would be merged into one wide load that stalls on the narrow stores of
   * the frame before. */
  uint32_t HistoryIndex; /* next free history slot (free-running, see below) */
  uint32_t History[XIH_HISTORY_SIZE];
  uint32_t StackDepth; /* current function-stack depth */
  uint32_t Stack[XIH_STACK_SIZE];
} xihTHREADANCHOR;

/* The history is a ring owned by common services: callers write at the
 * current index and advance it; the ring keeps it inside the array. The
 * "At" forms take the index (or depth) the caller already holds. */
static inline void xihRecordHistoryAt(xihTHREADANCHOR *t, uint32_t index, uint32_t mark) {
  t->History[index % XIH_HISTORY_SIZE] = mark;
  t->HistoryIndex = index + 1;
}
static inline void xihRecordHistory(xihTHREADANCHOR *t, uint32_t mark) {
  xihRecordHistoryAt(t, t->HistoryIndex, mark);
}
/* Records `pairs` times the two marks `first`, `second` from `index` on, as
 * that many xihRecordHistoryAt calls would leave the ring: marks that later
 * ones of the same call would overwrite are not written at all. */
static inline void xihRecordHistoryPairsAt(xihTHREADANCHOR *t, uint32_t index, uint32_t pairs,
                                           uint32_t first, uint32_t second) {
  const uint32_t total = 2 * pairs;
  uint32_t k = total > XIH_HISTORY_SIZE ? total - XIH_HISTORY_SIZE : 0; /* even */
  uint32_t at = (index + k) % XIH_HISTORY_SIZE;
  while (k < total) {
    uint32_t *h = t->History + at;
    uint32_t stretch = XIH_HISTORY_SIZE - at;
    uint32_t i = 0;
    if (stretch > total - k) stretch = total - k;
    for (; i + 1 < stretch; i += 2) {
      h[i] = first;
      h[i + 1] = second;
    }
    if (i < stretch) { /* the ring's end splits a pair */
      const uint32_t next = second;
      h[i] = first;
      second = first;
      first = next;
    }
    k += stretch;
    at = 0;
  }
  t->HistoryIndex = index + total;
}
/* Mark i steps back from the newest (0 = newest). */
static inline uint32_t xihHistoryAt(const xihTHREADANCHOR *t, uint32_t back) {
  return t->History[(t->HistoryIndex - 1u - back) % XIH_HISTORY_SIZE];
}
/* Frames deeper than the stack array still count depth, only the mark is
 * not kept, so depth always returns to its value on entry. */
static inline void xihPushStackAt(xihTHREADANCHOR *t, uint32_t depth, uint32_t mark) {
  if (depth < XIH_STACK_SIZE) t->Stack[depth] = mark;
  t->StackDepth = depth + 1;
}
static inline void xihPushStack(xihTHREADANCHOR *t, uint32_t mark) {
  xihPushStackAt(t, t->StackDepth, mark);
}
static inline void xihPopStack(xihTHREADANCHOR *t) {
  t->StackDepth--;
}

/* The process anchor. */
XCS_EXPORT xihPROCESSANCHOR *xihProcess(void);
/* The same anchor, read without a call: the call frame tests its trace
 * words on every API entry and exit. */
XCS_EXPORT extern xihPROCESSANCHOR xihProcessAnchor;
static inline xihPROCESSANCHOR *xihProcessInline(void) {
  return &xihProcessAnchor;
}
/* The calling thread's anchor, or null before xcsInitialize on this thread. */
XCS_EXPORT xihTHREADANCHOR *xihThreadAddress(void);
/* The same anchor, read without a call: the call frame reads it on every
 * function entry. Null before xcsInitialize and after the thread's end. */
XCS_EXPORT extern __thread xihTHREADANCHOR *xihCurrentThread
    __attribute__((tls_model("initial-exec")));

/* Points at the process anchor once common services are up in a process
 * (null before); a forked child still sees its parent's recorded Pid. */
XCS_EXPORT extern void *CSCtrl;

/* Sets up common services for the calling thread (and the process on first
 * use): process anchor, trace words from JX_TRACE, thread anchor. Returns 0
 * (XCS_E_NO_STORAGE when the thread anchor cannot be allocated).
 * JX_TRACE is a comma-separated list of api, parms, bag and all (all also
 * sets the override word), or a number for the options word; it switches
 * tracing on with level JX_TRACE_LEVEL (0 when unset). */
XCS_EXPORT int32_t xcsInitialize(int32_t a, int32_t b, int32_t c, int32_t d, int32_t e);
XCS_EXPORT int32_t xcsGetPid(void);
/* Forgets state inherited from a parent process: new anchor Pid, new trace
 * slot and file, thread anchors of the calling thread reset. */
XCS_EXPORT void xcsClearCS(void);
/* The data root every JX library and tool keeps its files under:
 * JX_DATA_PATH as it is at the call, else /var/jxm (made when missing) when
 * it can be written, else ~/.jxm. A returned root stays valid for the life
 * of the process. */
XCS_EXPORT const char *xcsDataRoot(void);

/* ------------------------------------------------------------------ */
/* Storage                                                             */
/* ------------------------------------------------------------------ */

#define XCS_OK 0
#define XCS_E_NO_STORAGE 0x20806001
/* Error words of the failure records the services write about themselves. */
#define XCS_E_FAULT 0x20806002     /* a fault signal inside a protected region */
#define XCS_E_BAD_BLOCK 0x20806003 /* xcsFreeMem of a block it never handed out */

/* Blocks of up to XCS_SLAB_MAX bytes come from a slab below 2 GiB, so their
 * addresses fit a signed 32-bit handle; freed slab blocks are reused oldest
 * first. Larger blocks come from the C heap, and from 128 KiB on from
 * mappings of their own; freed ones of 64 KiB and more are kept (up to
 * 64 MiB in all) for later requests of nearly their size, so that structures
 * that grow and go away repeatedly do not fault in fresh pages each time. */
#define XCS_SLAB_MAX 256

XCS_EXPORT int32_t xcsGetMem(uint16_t component, uint16_t function, size_t length, void **ppBlock);
/* The same, cleared to zero bytes. */
XCS_EXPORT int32_t xcsGetZeroedMem(uint16_t component, uint16_t function, size_t length,
                                   void **ppBlock);
XCS_EXPORT void xcsFreeMem(uint16_t component, void *block);
/* Grows the block at *ppBlock (null: a new block, as xcsGetMem) to hold
 * length bytes, keeping its contents; the bytes after them are undefined and
 * the block may move. A large block keeps its pages, so growth copies and
 * faults in only what it adds. On failure the block and *ppBlock are as they
 * were; the failure switch counts the call as an allocation. */
XCS_EXPORT int32_t xcsGrowMem(uint16_t component, uint16_t function, size_t length, void **ppBlock);
/* The same, keeping the first `kept` bytes and clearing the rest up to
 * length: pages the growth adds read as zero without being touched. */
XCS_EXPORT int32_t xcsGrowZeroedMem(uint16_t component, uint16_t function, size_t kept,
                                    size_t length, void **ppBlock);
/* Commits the pages of [start, start + length), which the caller is about to
 * write, in one call instead of a fault each. A hint: where the system cannot,
 * nothing happens. */
XCS_EXPORT void xcsCommitMem(void *start, size_t length);
/* Hands the freed blocks kept for reuse back to the heap. */
XCS_EXPORT void xcsTrimMem(void);

/* Test switch: fail the nth allocation from now (1 = the next one), or, with
 * nth 0 and function >= 0, every allocation tagged with that function
 * number. xcsSetAllocFailure(0, -1) switches it off. */
XCS_EXPORT void xcsSetAllocFailure(int32_t nth, int32_t function);
/* Blocks handed out and not yet freed, process-wide (for leak checks). */
XCS_EXPORT int64_t xcsBlocksInUse(void);

/* ------------------------------------------------------------------ */
/* Address checks                                                      */
/* ------------------------------------------------------------------ */

#define XCS_CHECK_READ 1
#define XCS_CHECK_WRITE 2
#define XCS_CHECK_UPDATE 4

/* 0 when the area can be used in the given mode; non-zero when it cannot
 * (null, unmapped, or read-only for write and update). Never faults. */
XCS_EXPORT int32_t xcsCheckPointer(const void *address, size_t length, int32_t mode);

/* ------------------------------------------------------------------ */
/* Failure records                                                     */
/* ------------------------------------------------------------------ */

#define XCS_MAX_DUMPS 8
#define XCS_INSERTS_EYE "XMSA"

typedef struct xcsINSERTS {
  char StrucId[4]; /* "XMSA" */
  uint32_t Num1;
  uint32_t Num2;
  uint32_t Word1;
  uint32_t Word2;
  uint32_t Word3;
} xcsINSERTS;

typedef struct xcsDUMPENTRY {
  const char *Label;
  const void *Address;
  uint32_t Length;
} xcsDUMPENTRY;

typedef struct xcsDUMPLIST {
  int32_t Count;
  xcsDUMPENTRY Entry[XCS_MAX_DUMPS];
} xcsDUMPLIST;

/* Fills entry number `entry` (1-based) of the list and raises its count. */
XCS_EXPORT void xcsBuildDumpPtr(xcsDUMPLIST *list, int32_t entry, const char *label,
                                const void *address, uint32_t length);
/* Writes one failure-record file, <data root>/errors/<program>.<pid>.<n>.rec
 * (a readable text, one "Field: value" a line). The dumps are
 * read safely: an unreadable area is reported, not touched. Returns 0 when
 * the record was written. */
XCS_EXPORT int32_t xcsRecordFailure(uint16_t component, uint16_t probe, int32_t flags,
                                    uint32_t error, const xcsINSERTS *inserts,
                                    const xcsDUMPLIST *dumps, int32_t reserved1, int32_t reserved2);
/* Path of the last record this process wrote ("" before any). */
XCS_EXPORT const char *xcsLastFailureRecord(void);

/* ------------------------------------------------------------------ */
/* Trace                                                               */
/* ------------------------------------------------------------------ */

/* Trace files: <data root>/trace/<program>.<pid>.trc, one per process. Each
 * line reads "HH:MM:SS.uuuuuu <thread id> <function name> | <text>" (UTC);
 * the prefix never contains the separator, so the text of a line is what
 * follows its first XTR_TEXT_SEPARATOR, exactly as the caller passed it. */
#define XTR_TEXT_SEPARATOR " | "

/* Libraries register their function-name tables (rows of 40 bytes) so trace
 * lines and failure records can name functions. Called while a library
 * loads, so it touches nothing else of common services (no signal actions,
 * no data root); the table is copied. */
XCS_EXPORT void xtrRegisterNames(uint16_t component, const char (*names)[XCS_FUNC_NAME_LEN],
                                 int32_t count);
XCS_EXPORT const char *xtrFunctionName(uint32_t functionId);

XCS_EXPORT void xtr_FNC_entry(xihTHREADANCHOR *thread);
XCS_EXPORT void xtr_FNC_retcode(xihTHREADANCHOR *thread, int32_t reason);
/* One formatted parameter line attributed to the thread's trace origin. */
XCS_EXPORT void xtr_parms(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
XCS_EXPORT void xtr_text(const char *text);
XCS_EXPORT void xtr_text_api(const char *text);
XCS_EXPORT void xtr_data(uint16_t component, uint16_t function, const void *address,
                         uint32_t length);
XCS_EXPORT void xtr_data_api(uint16_t component, uint16_t function, const void *address,
                             uint32_t length);
XCS_EXPORT void xtr_data_detail(uint16_t component, uint16_t function, const void *address,
                                uint32_t length);
/* Path of this process's trace file ("" when none is open yet). */
XCS_EXPORT const char *xtrTraceFile(void);
/* Lines are in the file as soon as they are traced (readable at once); this
 * also starts writing them to the disk, without waiting. */
XCS_EXPORT void xtrFlush(void);

/* ------------------------------------------------------------------ */
/* Signal actions                                                      */
/* ------------------------------------------------------------------ */

/* Enters a protected region on the calling thread: the library's fault
 * actions (installed once per process, the caller's actions kept) write a
 * failure record with the thread's function stack for a fault inside the
 * region, then pass the signal on to the caller's own action; faults outside
 * any region go straight to the caller's action. *saved is set non-zero when
 * this call entered the region (zero when already inside one, or when the
 * actions could not be installed); only then must xehRestoreSigActionsF be
 * called. Also refreshes the thread's TraceActive word from the process. */
XCS_EXPORT void xehSaveSigActionsF(int32_t *saved);
/* Leaves the region entered by the matching save. */
XCS_EXPORT void xehRestoreSigActionsF(void);

#ifdef __cplusplus
}
#endif

#endif /* JX_JXCS_H */
