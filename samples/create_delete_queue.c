/*
 * Creates a local queue with a maximum depth and a description, then deletes
 * it again, each through the command server.
 *   jxsample_create_delete_queue QMGR QUEUE
 */
#include <jx/jxai.h>
#include <jx/jxqm.h>
#include <stdio.h>
#include <string.h>

#define MAX_DEPTH 100

/* Runs one command; prints and returns the command server's reason. */
/* Copies a name into a fixed field of zeros, cut at its width. */
static void setField(char *field, size_t width, const char *name) {
  size_t length = strlen(name);
  memcpy(field, name, length < width ? length : width);
}

static JXLONG run(JXHCONN hconn, JXLONG command, JXHBAG adminBag, const char *what) {
  JXHBAG responseBag = JXHB_NONE, replyBag;
  JXLONG compCode, reason, replyReason = 0;

  jxCreateBag(JXBAG_ADMIN, &responseBag, &compCode, &reason);
  if (compCode != JXCC_OK) return reason;
  jxExecute(hconn, command, JXHB_NONE, adminBag, responseBag, 0, 0, &compCode, &reason);
  if (reason == JXRC_COMMAND_FAILED) {
    jxInquireBag(responseBag, JXSEL_REPLY_BAG, 0, &replyBag, &compCode, &reason);
    if (compCode == JXCC_OK)
      jxInquireInteger(replyBag, JXSYS_REASON, JXIDX_ONLY, &replyReason, &compCode, &reason);
    if (compCode == JXCC_OK) reason = replyReason;
  }
  printf("%s: reason %d (%s)\n", what, (int)reason, jxReasonWords(reason));
  jxDeleteBag(&responseBag, &compCode, &replyReason);
  return reason;
}

int main(int argc, char **argv) {
  static const char description[] = "made by a sample";
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {0};
  JXHCONN hconn;
  JXHBAG adminBag = JXHB_NONE;
  JXLONG compCode, reason, created = 1, deleted = 1;

  if (argc != 3) {
    fprintf(stderr, "usage: %s QMGR QUEUE\n", argv[0]);
    return 2;
  }
  setField(qmgr, sizeof qmgr, argv[1]);
  JXCONN(qmgr, &hconn, &compCode, &reason);
  if (compCode == JXCC_FAILED) {
    fprintf(stderr, "JXCONN: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    return 1;
  }
  jxCreateBag(JXBAG_ADMIN, &adminBag, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxAddString(adminBag, JXCA_Q_NAME, (JXLONG)strlen(argv[2]), argv[2], &compCode, &reason);
  if (compCode == JXCC_OK) jxAddInteger(adminBag, JXIA_Q_TYPE, JXQT_LOCAL, &compCode, &reason);
  if (compCode == JXCC_OK) jxAddInteger(adminBag, JXIA_MAX_Q_DEPTH, MAX_DEPTH, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxAddString(adminBag, JXCA_Q_DESC, (JXLONG)strlen(description), description, &compCode,
                &reason);
  if (compCode == JXCC_OK) created = run(hconn, JXCMD_CREATE_QUEUE, adminBag, "create");

  /* The same bag, emptied, names the queue to delete. */
  if (created == JXRC_NONE) jxClearBag(adminBag, &compCode, &reason);
  if (created == JXRC_NONE && compCode == JXCC_OK)
    jxAddString(adminBag, JXCA_Q_NAME, (JXLONG)strlen(argv[2]), argv[2], &compCode, &reason);
  if (created == JXRC_NONE && compCode == JXCC_OK)
    deleted = run(hconn, JXCMD_DELETE_QUEUE, adminBag, "delete");

  if (adminBag != JXHB_NONE) jxDeleteBag(&adminBag, &compCode, &reason);
  JXDISC(&hconn, &compCode, &reason);
  return created == JXRC_NONE && deleted == JXRC_NONE ? 0 : 1;
}
