/*
 * Puts a bag of a few items on a queue as a PCF message with jxPutBag and
 * gets it back with jxGetBag into another bag.
 *   jxsample_put_get_bag QMGR QUEUE
 */
#include <jx/jxai.h>
#include <jx/jxqm.h>
#include <stdio.h>
#include <string.h>

#define ORDER_NUMBER 1   /* user selectors of this program: integers */
#define ORDER_QUANTITY 2 /* from JXSEL_INT_FIRST, */
#define ORDER_ITEM 2001  /* strings from JXSEL_STR_FIRST */
#define TEXT_LENGTH 64

/* Copies a name into a fixed field of zeros, cut at its width. */
static void setField(char *field, size_t width, const char *name) {
  size_t length = strlen(name);
  memcpy(field, name, length < width ? length : width);
}

int main(int argc, char **argv) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {0};
  char item[TEXT_LENGTH + 1] = {0};
  JXHCONN hconn;
  JXHOBJ hobj;
  JXOD od = JXOD_DEFAULT;
  JXMD md = JXMD_DEFAULT;
  JXPMO pmo = JXPMO_DEFAULT;
  JXGMO gmo = JXGMO_DEFAULT;
  JXHBAG sent = JXHB_NONE, received = JXHB_NONE;
  JXLONG compCode, reason, number = 0, quantity = 0, length = 0, ccsid = 0;
  int status = 1;

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
  setField(od.ObjectName, sizeof od.ObjectName, argv[2]);
  JXOPEN(hconn, &od, JXOO_OUTPUT | JXOO_INPUT_AS_Q_DEF, &hobj, &compCode, &reason);
  if (compCode == JXCC_FAILED) {
    fprintf(stderr, "JXOPEN: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    JXDISC(&hconn, &compCode, &reason);
    return 1;
  }

  jxCreateBag(0, &sent, &compCode, &reason);
  if (compCode == JXCC_OK) jxCreateBag(0, &received, &compCode, &reason);
  if (compCode == JXCC_OK) jxAddInteger(sent, ORDER_NUMBER, 4711, &compCode, &reason);
  if (compCode == JXCC_OK) jxAddInteger(sent, ORDER_QUANTITY, 12, &compCode, &reason);
  if (compCode == JXCC_OK) jxAddString(sent, ORDER_ITEM, 7, "widgets", &compCode, &reason);
  if (compCode == JXCC_OK) {
    /* The caller names the message format: a user bag goes as JXFMT_PCF. */
    memcpy(md.Format, JXFMT_PCF, JX_FORMAT_LENGTH);
    pmo.Options = JXPMO_NO_SYNCPOINT;
    jxPutBag(hconn, hobj, &md, &pmo, sent, &compCode, &reason);
  }
  if (compCode != JXCC_OK) {
    fprintf(stderr, "put: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    goto done;
  }
  printf("put a bag as message format %.8s\n", md.Format);

  /* Get exactly the message just put. */
  gmo.Options = JXGMO_NO_SYNCPOINT;
  gmo.MatchOptions = JXMO_MATCH_MSG_ID;
  jxGetBag(hconn, hobj, &md, &gmo, received, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxInquireInteger(received, ORDER_NUMBER, JXIDX_ONLY, &number, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxInquireInteger(received, ORDER_QUANTITY, JXIDX_ONLY, &quantity, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxInquireString(received, ORDER_ITEM, JXIDX_ONLY, TEXT_LENGTH, item, &length, &ccsid, &compCode,
                    &reason);
  if (compCode != JXCC_OK) {
    fprintf(stderr, "get: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    goto done;
  }
  printf("got order %d: %d %.*s\n", (int)number, (int)quantity, (int)length, item);
  status = 0;

done:
  if (sent != JXHB_NONE) jxDeleteBag(&sent, &compCode, &reason);
  if (received != JXHB_NONE) jxDeleteBag(&received, &compCode, &reason);
  JXCLOSE(hconn, &hobj, JXCO_NONE, &compCode, &reason);
  JXDISC(&hconn, &compCode, &reason);
  return status;
}
