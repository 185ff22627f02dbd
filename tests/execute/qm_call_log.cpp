#include "qm_call_log.hpp"

#include <dlfcn.h>
#include <string.h>

#include "jxiz.h"

namespace {

thread_local QmCallLog *t_log = nullptr;

// The interface library's stub of the same name.
template <typename F>
F library(F, const char *name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

// A caller's descriptor, no further than its version says it reaches.
JXMD copyMd(const void *md) {
  JXMD out = JXMD_DEFAULT;
  memcpy(&out, md, static_cast<const JXMD *>(md)->Version > 1 ? JXMD_LENGTH_2 : JXMD_LENGTH_1);
  return out;
}

void note(QmCall &c, int32_t hobj, const int32_t *rc) {
  c.hobj = hobj;
  c.rc = *rc;
  if (t_log) t_log->calls.push_back(c);
}

}  // namespace

QmCallLog::QmCallLog() {
  t_log = this;
}
QmCallLog::~QmCallLog() {
  t_log = nullptr;
}
QmCallLog::Pause::Pause() : paused(t_log) {
  t_log = nullptr;
}
QmCallLog::Pause::~Pause() {
  t_log = paused;
}

std::vector<QmCall> QmCallLog::of(QmCall::Kind kind) const {
  std::vector<QmCall> out;
  for (const auto &c : calls)
    if (c.kind == kind) out.push_back(c);
  return out;
}

std::vector<int> QmCallLog::kinds() const {
  std::vector<int> out;
  for (const auto &c : calls) out.push_back(c.kind);
  return out;
}

extern "C" {

void zstJXOPEN(int32_t Hconn, JXOD *ObjDesc, int32_t Options, int32_t *Hobj, int32_t *CompCode,
               int32_t *Reason) {
  static const auto real = library(&zstJXOPEN, "zstJXOPEN");
  real(Hconn, ObjDesc, Options, Hobj, CompCode, Reason);
  QmCall c(QmCall::Open);
  c.od = *ObjDesc;
  c.options = Options;
  note(c, Hobj ? *Hobj : 0, Reason);
}

void zstJXINQ(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
              int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength, char *CharAttrs,
              int32_t *CompCode, int32_t *Reason) {
  static const auto real = library(&zstJXINQ, "zstJXINQ");
  real(Hconn, Hobj, SelectorCount, Selectors, IntAttrCount, IntAttrs, CharAttrLength, CharAttrs,
       CompCode, Reason);
  QmCall c(QmCall::Inq);
  c.options = SelectorCount == 1 ? Selectors[0] : -1;
  c.length = CharAttrLength;
  note(c, Hobj, Reason);
}

void zstJXPUT(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXPMO *PutMsgOpts, int32_t BufferLength,
              void *Buffer, int32_t Reserved, int32_t *CompCode, int32_t *Reason) {
  static const auto real = library(&zstJXPUT, "zstJXPUT");
  QmCall c(QmCall::Put);
  c.md = copyMd(MsgDesc);
  c.pmo = *PutMsgOpts;
  c.data.assign(static_cast<const char *>(Buffer), static_cast<size_t>(BufferLength));
  c.length = BufferLength;
  real(Hconn, Hobj, MsgDesc, PutMsgOpts, BufferLength, Buffer, Reserved, CompCode, Reason);
  note(c, Hobj, Reason);
}

void zstJXGET(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXGMO *GetMsgOpts, int32_t BufferLength,
              void *Buffer, int32_t *DataLength, int32_t Reserved, int32_t *CompCode,
              int32_t *Reason) {
  static const auto real = library(&zstJXGET, "zstJXGET");
  QmCall c(QmCall::Get);
  c.md = copyMd(MsgDesc);
  c.gmo = *GetMsgOpts;
  c.length = BufferLength;
  real(Hconn, Hobj, MsgDesc, GetMsgOpts, BufferLength, Buffer, DataLength, Reserved, CompCode,
       Reason);
  if (DataLength) c.dataLength = *DataLength;
  note(c, Hobj, Reason);
}

void zstJXCLOSE(int32_t Hconn, int32_t *Hobj, int32_t Options, int32_t *CompCode, int32_t *Reason) {
  static const auto real = library(&zstJXCLOSE, "zstJXCLOSE");
  QmCall c(QmCall::Close);
  c.options = Options;
  const int32_t hobj = Hobj ? *Hobj : 0;
  real(Hconn, Hobj, Options, CompCode, Reason);
  note(c, hobj, Reason);
}

}  // extern "C"
