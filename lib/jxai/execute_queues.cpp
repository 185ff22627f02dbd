// The queues of command execution: the command server's input queue, the
// temporary reply queue, and one put or get on either.
#include <string.h>

#include "call_frame.hpp"
#include "messaging.hpp"

using jxai::Frame;
using jxai::setFailure;

namespace {

// One default object descriptor for each queue that command execution opens.
const JXOD kCommandQueueOd = JXOD_DEFAULT;
const JXOD kReplyQueueOd = JXOD_DEFAULT;

constexpr int32_t kCommandQueueOpen = JXOO_OUTPUT | JXOO_INQUIRE;
constexpr int32_t kReplyQueueOpen = JXOO_INPUT_EXCLUSIVE;

// Names go over the zero bytes of the default, null-terminated.
void setName(char *field, const char *name) {
  memcpy(field, name, strlen(name) + 1);
}

}  // namespace

extern "C" {

void zaiOpenSysAdminCmdQueue(JXHCONN hconn, PJXLONG hobj, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiOpenSysAdminCmdQueue, rc);
  JXOD od = kCommandQueueOd;
  setName(od.ObjectName, JXQ_ADMIN_COMMAND);
  JXOPEN(hconn, &od, kCommandQueueOpen, hobj, cc, rc);
  if (*cc != JXCC_OK) return;
  JXLONG selector = JXIA_OPEN_INPUT_COUNT;
  JXLONG readers = 0;
  JXINQ(hconn, *hobj, 1, &selector, 1, &readers, 0, nullptr, cc, rc);
  if (*cc == JXCC_OK && readers < 1) setFailure(cc, rc, JXRC_NO_COMMAND_SERVER);
  if (*cc == JXCC_OK) return;
  JXLONG closeCc, closeRc;
  zaiCloseSysAdminCmdQueue(hconn, hobj, &closeCc, &closeRc);
}

void zaiOpenTempReplyQueue(JXHCONN hconn, PJXLONG hobj, char *replyToQ, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiOpenTempReplyQueue, rc);
  JXOD od = kReplyQueueOd;
  setName(od.ObjectName, JXQ_DEFAULT_MODEL);
  setName(od.DynamicQName, JXQ_REPLY_TEMPLATE);
  JXOPEN(hconn, &od, kReplyQueueOpen, hobj, cc, rc);
  // The object name now holds the name the queue manager gave the queue.
  if (*cc == JXCC_OK) memcpy(replyToQ, od.ObjectName, JX_Q_NAME_LENGTH);
}

void zaiInquireReplyQueueName(JXHCONN hconn, JXHOBJ hobj, char *replyToQ, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiInquireReplyQueueName, rc);
  JXLONG selector = JXCA_Q_NAME;
  JXINQ(hconn, hobj, 1, &selector, 0, nullptr, JX_Q_NAME_LENGTH, replyToQ, cc, rc);
}

void zaiSendPCFMsg(JXHCONN hconn, JXHOBJ hobj, void *md, void *pmo, JXLONG length, void *buffer,
                   PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiSendPCFMsg, rc);
  JXPUT(hconn, hobj, md, static_cast<JXPMO *>(pmo), length, buffer, cc, rc);
}

void zaiReceivePCFMsg(JXHCONN hconn, JXHOBJ hobj, void *md, void *gmo, JXLONG bufferLength,
                      void *buffer, PJXLONG dataLength, PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiReceivePCFMsg, rc);
  JXGET(hconn, hobj, md, static_cast<JXGMO *>(gmo), bufferLength, buffer, dataLength, cc, rc);
}

void zaiCloseSysAdminCmdQueue(JXHCONN hconn, PJXLONG hobj, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiCloseSysAdminCmdQueue, rc);
  JXCLOSE(hconn, hobj, JXCO_NONE, cc, rc);
}

void zaiCloseTempReplyQueue(JXHCONN hconn, PJXLONG hobj, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiCloseTempReplyQueue, rc);
  // Deleting the dynamic queue purges the replies nobody read.
  JXCLOSE(hconn, hobj, JXCO_DELETE_PURGE, cc, rc);
}

}  // extern "C"
