// jxExecute: one administration command sent to the command server, every
// reply gathered into the response bag. Queues this call opens live only for
// the call; queues the caller supplies are used as they are, never closed.
#include <string.h>

#include "call_frame.hpp"
#include "messaging.hpp"
#include "pcf_format.hpp"

using jxai::ApiFrame;
using jxai::ApiTrace;
using jxai::Frame;
using jxai::setFailure;

namespace {

// Tenths of a second a request may wait for the command server: as long as
// the caller waits for a reply, and never nothing.
JXLONG expiryFor(JXLONG waitInterval) {
  if (waitInterval == JXWI_UNLIMITED) return JXEI_UNLIMITED;
  const JXLONG tenths = waitInterval / 100;
  return tenths < 1 ? 1 : tenths;
}

// What one call holds and releases on every path.
struct Exchange {
  JXHCONN hconn;
  JXHOBJ suppliedRequestQ, suppliedReplyQ;
  JXHOBJ requestQ = JXHO_UNUSABLE_HOBJ;
  JXHOBJ replyQ = JXHO_UNUSABLE_HOBJ;
  void *request = nullptr;

  // Closes only what this call opened; the caller hears nothing of it.
  ~Exchange() {
    if (request) zaiFreeJXAIBuffer(&request);
    JXLONG cc, rc;
    if (suppliedReplyQ == 0 && replyQ != JXHO_UNUSABLE_HOBJ) {
      zaiCloseTempReplyQueue(hconn, &replyQ, &cc, &rc);
    }
    if (suppliedRequestQ == 0 && requestQ != JXHO_UNUSABLE_HOBJ) {
      zaiCloseSysAdminCmdQueue(hconn, &requestQ, &cc, &rc);
    }
  }
};

}  // namespace

extern "C" {

void zaiProcessExecuteOptionsBag(zaiBAG *options, PJXLONG waitInterval, PJXLONG cc, PJXLONG rc) {
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  Frame frame(kFn_zaiProcessExecuteOptionsBag, rc);
  *waitInterval = JXEXEC_WAIT_DEFAULT;
  if (!options) return;
  const JXLONG userItems = zaiCountItems(options, 0, JXSEL_USER);
  JXLONG recognised = 0;
  zaiInquireInteger(options, JXSEL_WAIT_INTERVAL, JXIDX_ONLY, waitInterval, cc, rc);
  if (*cc == JXCC_OK) {
    ++recognised;
  } else if (*rc == JXRC_SELECTOR_NOT_PRESENT) {
    *cc = JXCC_OK;
    *rc = JXRC_NONE;
  } else {
    return setFailure(cc, rc, JXRC_WAIT_INTERVAL_ERROR);
  }
  if (recognised != userItems) setFailure(cc, rc, JXRC_OPTIONS_ERROR);
}

void zaiJXExecute(JXHCONN Hconn, JXLONG Command, JXHBAG OptionsBag, JXHBAG RequestBag,
                  JXHBAG ReplyBag, JXHOBJ Requestq, JXHOBJ Replyq, PJXLONG CompCode,
                  PJXLONG Reason) {
  ApiFrame f(kFn_zaiJXExecute, CompCode, Reason);
  f.traceEntry([&](const ApiTrace &t) {
    t.value("Hconn", &Hconn);
    t.value("Command", &Command);
    t.value("OptionsBag", &OptionsBag);
    t.value("RequestBag", &RequestBag);
    t.value("ReplyBag", &ReplyBag);
    t.value("Requestq", &Requestq);
    t.value("Replyq", &Replyq);
  });
  [&] {
    Exchange x{Hconn, Requestq, Replyq};
    zaiBAG *options = nullptr;
    if (OptionsBag != JXHB_NONE && !(options = jxai::resolveBag(OptionsBag))) {
      return f.fail(JXRC_BAD_HANDLE);
    }
    zaiBAG *request = jxai::resolveBag(RequestBag);
    if (!request) return f.fail(JXRC_BAD_HANDLE);
    zaiBAG *response = jxai::resolveBag(ReplyBag);
    if (!response) return f.fail(JXRC_BAD_HANDLE);
    JXLONG waitInterval = 0;
    zaiProcessExecuteOptionsBag(options, &waitInterval, CompCode, Reason);
    if (f.failed()) return;
    JXMD md = jxai::msg::kDefaultMd;
    JXPMO pmo = jxai::msg::kDefaultPmo;
    md.Expiry = expiryFor(waitInterval);
    JXLONG msgType = 0;
    zaiInquireInteger(request, JXSYS_MSG_TYPE, JXIDX_ONLY, &msgType, CompCode, Reason);
    if (f.failed()) return;
    if (msgType != JXPCF_TYPE_COMMAND) return f.fail(JXRC_NOT_COMMAND_MSG);
    if (Requestq == 0) {
      zaiOpenSysAdminCmdQueue(Hconn, &x.requestQ, CompCode, Reason);
      if (f.failed()) return;
    } else {
      x.requestQ = Requestq;
    }
    JXLONG length = 0;
    zaiBagToPCFMsgInJXAIBuffer(request, Command, &x.request, &length, &md.MsgType, md.Format,
                               CompCode, Reason);
    if (f.failed()) return;
    zaiInquireInteger(request, JXSYS_CCSID, JXIDX_ONLY, &md.CodedCharSetId, CompCode, Reason);
    if (f.failed()) return;
    pmo.Options += JXPMO_NO_SYNCPOINT;
    if (md.MsgType != JXMT_REQUEST) {
      return zaiSendPCFMsg(Hconn, x.requestQ, &md, &pmo, length, x.request, CompCode, Reason);
    }
    if (Replyq != 0) {
      x.replyQ = Replyq;
      zaiInquireReplyQueueName(Hconn, x.replyQ, md.ReplyToQ, CompCode, Reason);
    } else {
      zaiOpenTempReplyQueue(Hconn, &x.replyQ, md.ReplyToQ, CompCode, Reason);
    }
    if (f.failed()) return;
    zaiSendReceivePCFMsg(Hconn, x.requestQ, &md, &pmo, length, x.request, x.replyQ, waitInterval,
                         response, CompCode, Reason);
  }();
  f.traceExit([&](const ApiTrace &t) {
    t.input("Hconn");
    t.input("Command");
    t.input("OptionsBag");
    t.input("RequestBag");
    t.input("ReplyBag");
    t.input("Requestq");
    t.input("Replyq");
  });
}

}  // extern "C"
