// The queue-manager calls, exported by the administration interface so that
// one library is enough to connect and move messages. Each export records its
// entry and exit on the thread (component 32) around the interface library's
// stub and adds nothing else but three trace lines; arguments reach the stub
// as given.
#include <jx/jxcs.h>
#include <jx/jxqm.h>
#include <stdio.h>
#include <string.h>

#include "call_frame.hpp"
#include "jxiz.h"
#include "zsia_funcs_ids.hpp"

namespace {

constexpr uint16_t kQmComponent = XCS_COMP_QMCALLS;
// Bytes of a put message shown in the trace.
constexpr int32_t kPutTraceBytes = 32;
constexpr uint32_t kPutTraceLengthMask = 0xFFFF;
constexpr size_t kLineMax = 160;

// The trace shows only what the caller's memory lets it read: a call given
// an unusable handle or descriptor has failed, and its trace line must not
// fault where the call did not.
bool readable(const void *p, size_t length) {
  return xcsCheckPointer(p, length, XCS_CHECK_READ) == 0;
}
// An integer the caller passed (a handle, a reason), 0 when unreadable.
int32_t intOrZero(const int32_t *p) {
  return readable(p, sizeof *p) ? *p : 0;
}

// Entry and exit marks of one export; the exit mark takes the reason the
// stub left behind.
class QmFrame {
 public:
  QmFrame(uint16_t function, const int32_t *reason)
      : thread_(xihCurrentThread), id_(XCS_FUNC_ID(kQmComponent, function)), reason_(reason) {
    if (thread_) jxai::recordEntry(thread_, id_);
  }
  ~QmFrame() {
    if (thread_) jxai::recordExit(thread_, id_, intOrZero(reason_));
  }
  QmFrame(const QmFrame &) = delete;
  QmFrame &operator=(const QmFrame &) = delete;

 private:
  xihTHREADANCHOR *thread_;
  uint32_t id_;
  const int32_t *reason_;
};

bool qmTraceOn() {
  const xihTRACEWORDS *w = jxai::traceWords();
  return w && w->Enabled && (w->Level != XTR_LEVEL_UNSET || w->Override);
}

// A child that inherited common services from its parent starts afresh.
void clearInheritedState() {
  const auto *anchor = static_cast<const xihPROCESSANCHOR *>(CSCtrl);
  if (anchor && memcmp(anchor->StrucId, XIH_PROCESS_EYE, sizeof anchor->StrucId) == 0 &&
      anchor->Pid != 0 && anchor->Pid != xcsGetPid()) {
    xcsClearCS();
  }
}

void connect(uint16_t function, char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason,
             int32_t entry) {
  QmFrame f(function, Reason);
  zstJXCONN(QMgrName, Hconn, CompCode, Reason, entry);
}

void connectX(uint16_t function, char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn,
              int32_t *CompCode, int32_t *Reason, int32_t entry) {
  QmFrame f(function, Reason);
  zstJXCONNX(QMgrName, ConnectOpts, Hconn, CompCode, Reason, entry);
}

}  // namespace

extern "C" {

void JXCONN(char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason) {
  clearInheritedState();
  connect(kQm_JXCONN, QMgrName, Hconn, CompCode, Reason, 0);
}

void zrtJXCONN(char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason) {
  connect(kQm_zrtJXCONN, QMgrName, Hconn, CompCode, Reason, 1);
}

void JXCONNX(char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn, int32_t *CompCode,
             int32_t *Reason) {
  connectX(kQm_JXCONNX, QMgrName, ConnectOpts, Hconn, CompCode, Reason, 0);
}

void zrtJXCONNX(char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn, int32_t *CompCode,
                int32_t *Reason) {
  connectX(kQm_zrtJXCONNX, QMgrName, ConnectOpts, Hconn, CompCode, Reason, 1);
}

void JXDISC(int32_t *Hconn, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXDISC, Reason);
  zstJXDISC(Hconn, 0, CompCode, Reason);
}

void JXOPEN(int32_t Hconn, JXOD *ObjDesc, int32_t Options, int32_t *Hobj, int32_t *CompCode,
            int32_t *Reason) {
  QmFrame f(kQm_JXOPEN, Reason);
  zstJXOPEN(Hconn, ObjDesc, Options, Hobj, CompCode, Reason);
  if (qmTraceOn()) {
    char line[kLineMax];
    const bool od = readable(ObjDesc, sizeof *ObjDesc);
    snprintf(line, sizeof line, "ObjHandle=%d ObjType=%d ObjName=%.48s", intOrZero(Hobj),
             od ? ObjDesc->ObjectType : 0, od ? ObjDesc->ObjectName : "");
    xtr_text(line);
  }
}

void JXCLOSE(int32_t Hconn, int32_t *Hobj, int32_t Options, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXCLOSE, Reason);
  // Traced before the stub, which resets the handle.
  if (qmTraceOn()) {
    char line[kLineMax];
    snprintf(line, sizeof line, "ObjHandle=%d", intOrZero(Hobj));
    xtr_text(line);
  }
  zstJXCLOSE(Hconn, Hobj, Options, CompCode, Reason);
}

void JXGET(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXGMO *GetMsgOpts, int32_t BufferLength,
           void *Buffer, int32_t *DataLength, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXGET, Reason);
  zstJXGET(Hconn, Hobj, MsgDesc, GetMsgOpts, BufferLength, Buffer, DataLength, 0, CompCode, Reason);
}

void JXPUT(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXPMO *PutMsgOpts, int32_t BufferLength,
           void *Buffer, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXPUT, Reason);
  zstJXPUT(Hconn, Hobj, MsgDesc, PutMsgOpts, BufferLength, Buffer, 0, CompCode, Reason);
  if (qmTraceOn()) {
    char line[kLineMax];
    snprintf(line, sizeof line, "ObjHandle=%d BufferLen=%d", Hobj, BufferLength);
    xtr_text(line);
    const int32_t shown = BufferLength > kPutTraceBytes ? kPutTraceBytes : BufferLength;
    xtr_data(kQmComponent, kQm_JXPUT, Buffer, static_cast<uint32_t>(shown) & kPutTraceLengthMask);
  }
}

void JXPUT1(int32_t Hconn, JXOD *ObjDesc, void *MsgDesc, JXPMO *PutMsgOpts, int32_t BufferLength,
            void *Buffer, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXPUT1, Reason);
  zstJXPUT1(Hconn, ObjDesc, MsgDesc, PutMsgOpts, BufferLength, Buffer, CompCode, Reason);
}

void JXINQ(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
           int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength, char *CharAttrs,
           int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXINQ, Reason);
  zstJXINQ(Hconn, Hobj, SelectorCount, Selectors, IntAttrCount, IntAttrs, CharAttrLength, CharAttrs,
           CompCode, Reason);
}

void JXSET(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
           int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength, char *CharAttrs,
           int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXSET, Reason);
  zstJXSET(Hconn, Hobj, SelectorCount, Selectors, IntAttrCount, IntAttrs, CharAttrLength, CharAttrs,
           CompCode, Reason);
}

void JXCMIT(int32_t Hconn, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXCMIT, Reason);
  zstJXCMIT(Hconn, CompCode, Reason);
}

void JXBACK(int32_t Hconn, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXBACK, Reason);
  zstJXBACK(Hconn, CompCode, Reason);
}

void JXBEGIN(int32_t Hconn, void *BeginOpts, int32_t *CompCode, int32_t *Reason) {
  QmFrame f(kQm_JXBEGIN, Reason);
  zstJXBEGIN(Hconn, BeginOpts, CompCode, Reason);
}

}  // extern "C"
