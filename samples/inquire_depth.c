/*
 * Inquires the current depth of a queue through the command server: an
 * administration bag names the queue and the one attribute wanted, jxExecute
 * sends it and gathers the reply, and the reply's nested bag holds the depth.
 *   jxsample_inquire_depth QMGR QUEUE
 */
#include <jx/jxai.h>
#include <jx/jxqm.h>
#include <stdio.h>
#include <string.h>

/* Copies a name into a fixed field of zeros, cut at its width. */
static void setField(char *field, size_t width, const char *name) {
  size_t length = strlen(name);
  memcpy(field, name, length < width ? length : width);
}

static int failed(const char *call, JXLONG reason) {
  fprintf(stderr, "%s failed: reason %d (%s)\n", call, (int)reason, jxReasonWords(reason));
  return 1;
}

int main(int argc, char **argv) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {0};
  JXHCONN hconn;
  JXHBAG adminBag = JXHB_NONE, responseBag = JXHB_NONE, replyBag;
  JXLONG compCode, reason, depth = 0, replyReason = 0;
  int status = 1;

  if (argc != 3) {
    fprintf(stderr, "usage: %s QMGR QUEUE\n", argv[0]);
    return 2;
  }
  setField(qmgr, sizeof qmgr, argv[1]);
  JXCONN(qmgr, &hconn, &compCode, &reason);
  if (compCode == JXCC_FAILED) return failed("JXCONN", reason);

  jxCreateBag(JXBAG_ADMIN, &adminBag, &compCode, &reason);
  if (compCode == JXCC_OK) jxCreateBag(JXBAG_ADMIN, &responseBag, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxAddString(adminBag, JXCA_Q_NAME, (JXLONG)strlen(argv[2]), argv[2], &compCode, &reason);
  if (compCode == JXCC_OK) jxAddInquiry(adminBag, JXIA_CURRENT_Q_DEPTH, &compCode, &reason);
  if (compCode != JXCC_OK) {
    failed("building the request", reason);
    goto done;
  }

  jxExecute(hconn, JXCMD_INQUIRE_QUEUE, JXHB_NONE, adminBag, responseBag, 0, 0, &compCode, &reason);
  if (reason == JXRC_COMMAND_FAILED) {
    /* The command server refused: its reason is in the reply's own bag. */
    jxInquireBag(responseBag, JXSEL_REPLY_BAG, 0, &replyBag, &compCode, &reason);
    if (compCode == JXCC_OK)
      jxInquireInteger(replyBag, JXSYS_REASON, JXIDX_ONLY, &replyReason, &compCode, &reason);
    failed("INQUIRE_QUEUE", compCode == JXCC_OK ? replyReason : reason);
    goto done;
  }
  if (compCode != JXCC_OK) {
    failed("jxExecute", reason);
    goto done;
  }

  /* One nested bag a queue; the name was not generic, so one bag. */
  jxInquireBag(responseBag, JXSEL_REPLY_BAG, 0, &replyBag, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxInquireInteger(replyBag, JXIA_CURRENT_Q_DEPTH, JXIDX_ONLY, &depth, &compCode, &reason);
  if (compCode != JXCC_OK) {
    failed("reading the reply", reason);
    goto done;
  }
  printf("%s depth %d\n", argv[2], (int)depth);
  status = 0;

done:
  if (adminBag != JXHB_NONE) jxDeleteBag(&adminBag, &compCode, &reason);
  if (responseBag != JXHB_NONE) jxDeleteBag(&responseBag, &compCode, &reason);
  JXDISC(&hconn, &compCode, &reason);
  return status;
}
