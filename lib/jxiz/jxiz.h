/*
 * jxiz.h - the call stubs of the queue-manager interface library (libjxiz).
 *
 * The public calls JXCONN..JXBEGIN forward to these. Compared with the
 * public calls, zstJXCONN and zstJXCONNX take a trailing entry flag (0 from
 * the plain entry, 1 from the zrt entry; both behave alike), zstJXDISC takes
 * a 0 as second argument, and zstJXGET and zstJXPUT take a 0 before the
 * completion code. Every stub writes CompCode and Reason on every path
 * (nothing at all when either pointer is null).
 */
#ifndef JX_JXIZ_H
#define JX_JXIZ_H

#include <jx/jxqm.h>

#ifdef __cplusplus
extern "C" {
#endif

JXQM_EXPORT void zstJXCONN(char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason,
                           int32_t Entry);
JXQM_EXPORT void zstJXCONNX(char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn, int32_t *CompCode,
                            int32_t *Reason, int32_t Entry);
JXQM_EXPORT void zstJXDISC(int32_t *Hconn, int32_t Reserved, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXOPEN(int32_t Hconn, JXOD *ObjDesc, int32_t Options, int32_t *Hobj,
                           int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXCLOSE(int32_t Hconn, int32_t *Hobj, int32_t Options, int32_t *CompCode,
                            int32_t *Reason);
JXQM_EXPORT void zstJXGET(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXGMO *GetMsgOpts,
                          int32_t BufferLength, void *Buffer, int32_t *DataLength, int32_t Reserved,
                          int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXPUT(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXPMO *PutMsgOpts,
                          int32_t BufferLength, void *Buffer, int32_t Reserved, int32_t *CompCode,
                          int32_t *Reason);
JXQM_EXPORT void zstJXPUT1(int32_t Hconn, JXOD *ObjDesc, void *MsgDesc, JXPMO *PutMsgOpts,
                           int32_t BufferLength, void *Buffer, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXINQ(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
                          int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength,
                          char *CharAttrs, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXSET(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
                          int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength,
                          char *CharAttrs, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXCMIT(int32_t Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXBACK(int32_t Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zstJXBEGIN(int32_t Hconn, void *BeginOpts, int32_t *CompCode, int32_t *Reason);

#ifdef __cplusplus
}
#endif

#endif /* JX_JXIZ_H */
