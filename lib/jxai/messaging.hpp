// Administration messaging: the workers of jxExecute, jxPutBag and jxGetBag,
// and the read-only record defaults they copy before use. Every queue-manager
// call goes through the library's own exports (JXOPEN, JXINQ, JXPUT, JXGET,
// JXCLOSE), so it is traced like a caller's.
#pragma once

#include <jx/jxai.h>
#include <jx/jxqm.h>

#include "bag.hpp"

namespace jxai::msg {

inline const JXMD kDefaultMd = JXMD_DEFAULT;
inline const JXPMO kDefaultPmo = JXPMO_DEFAULT;
inline const JXGMO kDefaultGmo = JXGMO_DEFAULT;

// Reply buffers start at this size and grow to a reply that did not fit.
inline constexpr int32_t kFirstReplyLength = 4096;

}  // namespace jxai::msg

extern "C" {

JXAI_EXPORT void zaiProcessExecuteOptionsBag(zaiBAG *options, PJXLONG waitInterval, PJXLONG cc,
                                             PJXLONG rc);
JXAI_EXPORT void zaiOpenSysAdminCmdQueue(JXHCONN hconn, PJXLONG hobj, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiOpenTempReplyQueue(JXHCONN hconn, PJXLONG hobj, char *replyToQ, PJXLONG cc,
                                       PJXLONG rc);
JXAI_EXPORT void zaiInquireReplyQueueName(JXHCONN hconn, JXHOBJ hobj, char *replyToQ, PJXLONG cc,
                                          PJXLONG rc);
JXAI_EXPORT void zaiSendPCFMsg(JXHCONN hconn, JXHOBJ hobj, void *md, void *pmo, JXLONG length,
                               void *buffer, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiReceivePCFMsg(JXHCONN hconn, JXHOBJ hobj, void *md, void *gmo,
                                  JXLONG bufferLength, void *buffer, PJXLONG dataLength, PJXLONG cc,
                                  PJXLONG rc);
JXAI_EXPORT void zaiSendReceivePCFMsg(JXHCONN hconn, JXHOBJ requestQ, JXMD *md, JXPMO *pmo,
                                      JXLONG length, void *buffer, JXHOBJ replyQ,
                                      JXLONG waitInterval, zaiBAG *response, PJXLONG cc,
                                      PJXLONG rc);
JXAI_EXPORT void zaiProcessPCFReplyMsg(JXLONG dataLength, const void *buffer, JXLONG ccsid,
                                       zaiBAG **nested, PJXLONG control, PJXLONG compCode,
                                       PJXLONG reason, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiCloseSysAdminCmdQueue(JXHCONN hconn, PJXLONG hobj, PJXLONG cc, PJXLONG rc);
JXAI_EXPORT void zaiCloseTempReplyQueue(JXHCONN hconn, PJXLONG hobj, PJXLONG cc, PJXLONG rc);
}
