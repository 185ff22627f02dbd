// Putting a command and gathering its replies: each reply becomes a nested
// system bag of the response bag, and the last one sets its summary.
#include <jx/jxcs.h>
#include <string.h>

#include "call_frame.hpp"
#include "messaging.hpp"
#include "pcf_format.hpp"

using jxai::Frame;
using jxai::kComponent;
using jxai::setFailure;

namespace {

constexpr int32_t kReplyGetOptions = JXGMO_WAIT | JXGMO_NO_SYNCPOINT | JXGMO_CONVERT;
constexpr int32_t kReplyBagOptions = JXBAG_SYSTEM | JXBAG_CHECK_SELECTORS;

// A reply buffer of the given length, or 2071.
void *replyBuffer(int32_t length, PJXLONG cc, PJXLONG rc) {
  void *block = nullptr;
  if (xcsGetMem(kComponent, kFn_zaiSendReceivePCFMsg, static_cast<size_t>(length), &block) !=
      XCS_OK) {
    setFailure(cc, rc, JXRC_STORAGE_NOT_AVAILABLE);
    return nullptr;
  }
  return block;
}

// What the replies so far add up to.
struct Replies {
  int32_t received = 0;
  int32_t failed = 0;
  bool last = false;
  JXLONG compCode = JXCC_OK;
  JXLONG reason = JXRC_NONE;
};

// Reads one reply into a nested bag of the response bag.
void takeReply(JXLONG dataLength, const void *buffer, JXLONG ccsid, zaiBAG *response,
               Replies &replies, PJXLONG cc, PJXLONG rc) {
  ++replies.received;
  zaiBAG *nested = nullptr;
  JXLONG control = 0;
  zaiProcessPCFReplyMsg(dataLength, buffer, ccsid, &nested, &control, &replies.compCode,
                        &replies.reason, cc, rc);
  if (*cc != JXCC_OK) return;
  if (replies.compCode != JXCC_OK) ++replies.failed;
  if (control == JXPCF_CONTROL_LAST) replies.last = true;
  zaiAddBag(response, JXSEL_REPLY_BAG, jxai::handleOf(nested), cc, rc);
  if (*cc == JXCC_OK) return;
  // Not in the response bag, so nothing else would ever delete it.
  JXLONG deleteCc, deleteRc;
  zaiDeleteBag(&nested, &deleteCc, &deleteRc);
}

}  // namespace

extern "C" {

void zaiSendReceivePCFMsg(JXHCONN hconn, JXHOBJ requestQ, JXMD *md, JXPMO *pmo, JXLONG length,
                          void *buffer, JXHOBJ replyQ, JXLONG waitInterval, zaiBAG *response,
                          PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiSendReceivePCFMsg, rc);
  JXGMO gmo = jxai::msg::kDefaultGmo;
  JXMD replyMd = jxai::msg::kDefaultMd;
  JXLONG replyLength = jxai::msg::kFirstReplyLength;
  void *reply = replyBuffer(replyLength, cc, rc);
  if (!reply) return;
  [&] {
    JXLONG ccsid = JXCCSID_DEFAULT;
    zaiInquireInteger(response, JXSYS_CCSID, JXIDX_ONLY, &ccsid, cc, rc);
    if (*cc != JXCC_OK) return;
    zaiClearBag(response, cc, rc);
    if (*cc != JXCC_OK) return;
    zaiSendPCFMsg(hconn, requestQ, md, pmo, length, buffer, cc, rc);
    if (*cc != JXCC_OK) return;
    gmo.Options = kReplyGetOptions;
    gmo.WaitInterval = waitInterval;
    Replies replies;
    while (!replies.last) {
      replyMd.Encoding = JXENC_NATIVE;
      replyMd.CodedCharSetId = ccsid;
      memset(replyMd.MsgId, 0, sizeof replyMd.MsgId);
      memcpy(replyMd.CorrelId, md->MsgId, sizeof replyMd.CorrelId);
      JXLONG dataLength = 0;
      zaiReceivePCFMsg(hconn, replyQ, &replyMd, &gmo, replyLength, reply, &dataLength, cc, rc);
      if (*rc == JXRC_TRUNCATED_MSG_FAILED) {
        // The reply stays on the queue: get it again into a buffer that fits.
        *cc = JXCC_OK;
        *rc = JXRC_NONE;
        zaiFreeJXAIBuffer(&reply);
        replyLength = dataLength;
        reply = replyBuffer(replyLength, cc, rc);
        if (!reply) return;
        continue;
      }
      if (*rc == JXRC_NO_MSG_AVAILABLE && replies.received > 0) {
        *cc = JXCC_WARNING;
        return;
      }
      if (*cc != JXCC_OK) return;
      takeReply(dataLength, reply, replyMd.CodedCharSetId, response, replies, cc, rc);
      if (*cc != JXCC_OK) return;
    }
    zaiSetInteger(response, JXSYS_CCSID, JXIDX_ONLY, replyMd.CodedCharSetId, cc, rc);
    if (*cc == JXCC_OK)
      zaiSetInteger(response, JXSYS_COMP_CODE, JXIDX_ONLY, replies.compCode, cc, rc);
    if (*cc == JXCC_OK) zaiSetInteger(response, JXSYS_REASON, JXIDX_ONLY, replies.reason, cc, rc);
    if (*cc != JXCC_OK) return;
    zaiTraceBagContents(kComponent, kFn_zaiSendReceivePCFMsg, response);
    if (replies.failed > 0) {
      setFailure(cc, rc, JXRC_COMMAND_FAILED);
      if (replies.failed < replies.received) *cc = JXCC_WARNING;
    }
  }();
  zaiFreeJXAIBuffer(&reply);
}

void zaiProcessPCFReplyMsg(JXLONG dataLength, const void *buffer, JXLONG ccsid, zaiBAG **nested,
                           PJXLONG control, PJXLONG compCode, PJXLONG reason, PJXLONG cc,
                           PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiProcessPCFReplyMsg, rc);
  // A bag that fails to fill is returned but neither added nor deleted.
  zaiCreateBag(kReplyBagOptions, nested, cc, rc);
  if (*cc != JXCC_OK) return;
  zaiSetInteger(*nested, JXSYS_CCSID, JXIDX_ONLY, ccsid, cc, rc);
  if (*cc != JXCC_OK) return;
  zaiPCFMsgToBag(dataLength, buffer, *nested, cc, rc);
  if (*cc != JXCC_OK) return;
  zaiInquireInteger(*nested, JXSYS_CONTROL, JXIDX_ONLY, control, cc, rc);
  if (*cc == JXCC_OK) zaiInquireInteger(*nested, JXSYS_COMP_CODE, JXIDX_ONLY, compCode, cc, rc);
  if (*cc == JXCC_OK) zaiInquireInteger(*nested, JXSYS_REASON, JXIDX_ONLY, reason, cc, rc);
  if (*cc != JXCC_OK) return;
  frame.parms("pBag:%.8lX, BagControl:%d  BagCompCode:%d, BagReason: %d",
              static_cast<unsigned long>(reinterpret_cast<uintptr_t>(*nested)), *control, *compCode,
              *reason);
}

}  // extern "C"
