// The call frame every function of the administration interface runs in.
//
// Internal functions use Frame: an entry mark on the thread's history and
// function stack, an optional parameter line, and an exit mark carrying the
// function's result. The checking layers zaiJX<Op> use ApiFrame, which also
// makes sure common services are up, protects signal actions, clears the
// caller's completion code and reason, and writes the API trace blocks.
#pragma once

#include <jx/jxai.h>
#include <jx/jxcs.h>
#include <stdio.h>
#include <stdlib.h>

#include "zuzt_funcs_ids.hpp"

namespace jxai {

inline constexpr uint16_t kComponent = XCS_COMP_ADMIN;
// Arguments common services expect from this component at initialisation.
inline constexpr int32_t kInitArg1 = 48;
inline constexpr int32_t kInitArg2 = 1030;
// Kind word of an internal parameter line.
inline constexpr int32_t kParmKindInternal = 2;
// The checking layer zaiJX<Op> sits this many rows after its export jx<Op>.
inline constexpr uint16_t kExportRowOffset = kFn_zaiJXCreateBag - kFn_jxCreateBag;

inline const xihTRACEWORDS *traceWords() {
  return xihProcessInline()->Trace;
}

// API parameter trace: a level is set and the API bit is on, or override.
inline bool apiTraceOn() {
  const xihTRACEWORDS *w = traceWords();
  return w && ((w->Level != XTR_LEVEL_UNSET && (w->Options & XTR_OPT_API)) || w->Override);
}

// Internal parameter trace: override, or enabled with a level and a parms bit.
inline bool parmTraceOn() {
  const xihTRACEWORDS *w = traceWords();
  return w && (w->Override ||
               (w->Enabled && w->Level != XTR_LEVEL_UNSET && (w->Options & XTR_OPT_PARMS)));
}

inline uint32_t entryMark(uint32_t id) {
  return XCS_ENTRY_MARK + id;
}
// Only the low 16 bits of the result survive the shift.
inline uint32_t exitMark(int32_t result, uint32_t id) {
  return (static_cast<uint32_t>(result) << 16) + id;
}

inline void recordEntry(xihTHREADANCHOR *t, uint32_t id) {
  const uint32_t mark = entryMark(id);
  xihRecordHistory(t, mark);
  xihPushStack(t, mark);
  if (t->TraceActive) xtr_FNC_entry(t);
}

inline void recordExit(xihTHREADANCHOR *t, uint32_t id, int32_t result) {
  xihPopStack(t);
  xihRecordHistory(t, exitMark(result, id));
  if (t->TraceActive) xtr_FNC_retcode(t, result);
}

// Frame of an internal function. `result` is read when the frame closes, so
// it names the reason (or result code) the function leaves behind.
//
// A leaf frame is for a function that calls no other framed function: its
// exit mark lands right after its entry mark, so the exit writes the
// history index and stack depth from what the entry read instead of
// reading them back, which would wait for the entry's own stores. Builds
// with JXAI_CHECK_LEAF_FRAMES stop on a leaf frame that met other marks.
template <bool Leaf>
class BasicFrame {
 public:
  BasicFrame(uint16_t function, const int32_t *result)
      : thread_(xihCurrentThread), function_(function), result_(result) {
    if (!thread_) return;
    const uint32_t mark = entryMark(XCS_FUNC_ID(kComponent, function_));
    if (Leaf) {
      index_ = thread_->HistoryIndex;
      depth_ = thread_->StackDepth;
      xihRecordHistoryAt(thread_, index_, mark);
      xihPushStackAt(thread_, depth_, mark);
      if (thread_->TraceActive) xtr_FNC_entry(thread_);
    } else {
      recordEntry(thread_, XCS_FUNC_ID(kComponent, function_));
    }
  }
  ~BasicFrame() {
    if (!thread_) return;
    if (Leaf) {
      checkLeaf();
      thread_->StackDepth = depth_;
      xihRecordHistoryAt(thread_, index_ + 1,
                         exitMark(*result_, XCS_FUNC_ID(kComponent, function_)));
      if (thread_->TraceActive) xtr_FNC_retcode(thread_, *result_);
    } else {
      recordExit(thread_, XCS_FUNC_ID(kComponent, function_), *result_);
    }
  }
  BasicFrame(const BasicFrame &) = delete;
  BasicFrame &operator=(const BasicFrame &) = delete;

  // One parameter line, when internal parameter tracing is on for this thread.
  template <typename... Args>
  void parms(const char *format, Args... args) const {
    if (thread_ && thread_->TraceActive && parmTraceOn()) {
      thread_->TraceComponent = kComponent;
      thread_->TraceFunction = function_;
      thread_->TraceKind = kParmKindInternal;
      xtr_parms(format, args...);
    }
  }

 private:
  void checkLeaf() const {
#if defined(JXAI_CHECK_LEAF_FRAMES)
    if (thread_->HistoryIndex != index_ + 1 || thread_->StackDepth != depth_ + 1) {
      fprintf(stderr, "leaf frame of function %u met other marks\n", function_);
      abort();
    }
#endif
  }

  xihTHREADANCHOR *thread_;
  uint16_t function_;
  const int32_t *result_;
  uint32_t index_ = 0;
  uint32_t depth_ = 0;
};

using Frame = BasicFrame<false>;
using LeafFrame = BasicFrame<true>;

// Leaf frames of one function run back to back, with no other marks in
// between (a writer's loop over list values): the history index and stack
// depth stay in registers from one frame to the next, so no frame waits for
// the stores of the one before.
class LeafFrameRun {
 public:
  explicit LeafFrameRun(uint16_t function)
      : thread_(xihCurrentThread), id_(XCS_FUNC_ID(kComponent, function)) {
    if (thread_) {
      index_ = thread_->HistoryIndex;
      depth_ = thread_->StackDepth;
      traceActive_ = thread_->TraceActive;
    }
  }
  LeafFrameRun(const LeafFrameRun &) = delete;
  LeafFrameRun &operator=(const LeafFrameRun &) = delete;

  // Runs `body` inside one frame whose result is `result`.
  template <typename Body>
  void frame(int32_t result, Body body) {
    if (!thread_) return body();
    checkRun();
    const uint32_t mark = entryMark(id_);
    xihRecordHistoryAt(thread_, index_, mark);
    xihPushStackAt(thread_, depth_, mark);
    if (traceActive_) xtr_FNC_entry(thread_);
    body();
    thread_->StackDepth = depth_;
    xihRecordHistoryAt(thread_, index_ + 1, exitMark(result, id_));
    if (traceActive_) xtr_FNC_retcode(thread_, result);
    index_ += 2;
  }

  // Runs `loop`, which hands the work of each frame of the run, in turn, to
  // the callable it is given. Traced, each frame is recorded as it runs, its
  // trace lines between its marks. Untraced, nothing can come between the
  // marks, so the function stays on the stack while the loop runs (a fault
  // inside shows it) and the marks of all its frames, in order, are recorded
  // when it ends.
  template <typename Loop>
  void run(int32_t result, Loop loop) {
    if (!thread_ || traceActive_) {
      loop([&](auto body) { frame(result, body); });
      return;
    }
    checkRun();
    const uint32_t entry = entryMark(id_);
    const bool kept = depth_ < XIH_STACK_SIZE;
    const uint32_t below = kept ? thread_->Stack[depth_] : 0;
    xihPushStackAt(thread_, depth_, entry);
    uint32_t frames = 0;
    loop([&](auto body) {
      body();
      ++frames;
    });
    thread_->StackDepth = depth_;
    if (frames == 0) {
      if (kept) thread_->Stack[depth_] = below;
      return;
    }
    xihRecordHistoryPairsAt(thread_, index_, frames, entry, exitMark(result, id_));
    index_ += 2 * frames;
  }

 private:
  void checkRun() const {
#if defined(JXAI_CHECK_LEAF_FRAMES)
    if (thread_->HistoryIndex != index_ || thread_->StackDepth != depth_ ||
        (thread_->TraceActive != 0) != traceActive_) {
      fprintf(stderr, "leaf frame run of function %u met other marks\n", id_ & 0x3FFu);
      abort();
    }
#endif
  }

  xihTHREADANCHOR *thread_;
  uint32_t id_;
  uint32_t index_ = 0;
  uint32_t depth_ = 0;
  // Only the thread's own API entry switches its tracing, never a frame of
  // the run: read once.
  bool traceActive_ = false;
};

// Lines of an API trace block, all attributed to one zaiJX<Op>.
class ApiTrace {
 public:
  explicit ApiTrace(uint16_t function) : function_(function) {}
  // Input on entry: "Label:" and a dump of the value.
  void value(const char *label, const void *address, uint32_t length = sizeof(int32_t)) const;
  // Output on entry: "Label         : Output Parm".
  void output(const char *label) const;
  // Input on exit: "Label         : Input  Parm".
  void input(const char *label) const;
  // Output on exit that may be a null address: the value, or "Label: NULL".
  void valueOrNull(const char *label, const void *address, uint32_t length = sizeof(int32_t)) const;
  // A caller's buffer: "Label:" then "NULL" for a null address or length 0,
  // the first and last 64 bytes around ".............." above 127 bytes, else
  // all of it. An area the caller cannot read is shown as "NULL" too.
  void buffer(const char *label, const void *address, int32_t length) const;
  // A free text line ("Msgdesc       : Refer to JXPUT" and the like).
  void text(const char *line) const;

  void openEntry() const;
  void closeEntry() const;
  void openExit() const;
  void closeExit(const int32_t *compCode, const int32_t *reason) const;

 private:
  void heading(const char *arrows) const;
  uint16_t function_;
};

// Frame of a checking layer zaiJX<Op>: steps run in a fixed order on entry
// (initialise, protect signals, entry mark, clear outputs) and on exit
// (restore signals, exit mark with the reason).
class ApiFrame {
 public:
  ApiFrame(uint16_t function, int32_t *compCode, int32_t *reason)
      : function_(function), compCode_(compCode), reason_(reason) {
    thread_ = xihCurrentThread;
    if (!thread_ || !thread_->CSReady) {
      xcsInitialize(kInitArg1, kInitArg2, 0, 0, 0);
      thread_ = xihCurrentThread;
    }
    saved_ = 0;
    xehSaveSigActionsF(&saved_);
    if (thread_) recordEntry(thread_, XCS_FUNC_ID(kComponent, function_));
    *compCode_ = JXCC_OK;
    *reason_ = JXRC_NONE;
  }
  ~ApiFrame() {
    if (saved_) xehRestoreSigActionsF();
    if (thread_) recordExit(thread_, XCS_FUNC_ID(kComponent, function_), *reason_);
  }
  ApiFrame(const ApiFrame &) = delete;
  ApiFrame &operator=(const ApiFrame &) = delete;

  // Entry block: heading, the call's own lines, then CompCode and Reason.
  template <typename Lines>
  void traceEntry(Lines lines) const {
    if (!apiTraceOn()) return;
    ApiTrace t(function_);
    t.openEntry();
    lines(t);
    t.closeEntry();
  }
  // Exit block, with the switch tested afresh.
  template <typename Lines>
  void traceExit(Lines lines) const {
    if (!apiTraceOn()) return;
    ApiTrace t(function_);
    t.openExit();
    lines(t);
    t.closeExit(compCode_, reason_);
  }

  bool failed() const { return *compCode_ != JXCC_OK; }
  void fail(int32_t reason) const {
    *compCode_ = JXCC_FAILED;
    *reason_ = reason;
  }

 private:
  xihTHREADANCHOR *thread_;
  uint16_t function_;
  int32_t saved_;
  int32_t *compCode_;
  int32_t *reason_;
};

// Sets a failure, for workers that receive the caller's outputs.
inline void setFailure(int32_t *compCode, int32_t *reason, int32_t value) {
  *compCode = JXCC_FAILED;
  *reason = value;
}

}  // namespace jxai
