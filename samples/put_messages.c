/*
 * Puts COUNT small text messages on a queue, one JXPUT1 each.
 *   jxsample_put_messages QMGR QUEUE COUNT
 */
#include <jx/jxqm.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Copies a name into a fixed field of zeros, cut at its width. */
static void setField(char *field, size_t width, const char *name) {
  size_t length = strlen(name);
  memcpy(field, name, length < width ? length : width);
}

int main(int argc, char **argv) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {0};
  char text[64];
  int32_t hconn, compCode, reason;
  long count, i;

  if (argc != 4 || (count = atol(argv[3])) < 0) {
    fprintf(stderr, "usage: %s QMGR QUEUE COUNT\n", argv[0]);
    return 2;
  }
  setField(qmgr, sizeof qmgr, argv[1]);
  JXCONN(qmgr, &hconn, &compCode, &reason);
  if (compCode == JXCC_FAILED) {
    fprintf(stderr, "JXCONN: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    return 1;
  }
  for (i = 0; i < count; ++i) {
    JXOD od = JXOD_DEFAULT;
    JXMD md = JXMD_DEFAULT;
    JXPMO pmo = JXPMO_DEFAULT;
    int length = snprintf(text, sizeof text, "message %ld", i + 1);
    setField(od.ObjectName, sizeof od.ObjectName, argv[2]);
    memcpy(md.Format, JXFMT_STRING, JX_FORMAT_LENGTH);
    pmo.Options = JXPMO_NO_SYNCPOINT;
    JXPUT1(hconn, &od, &md, &pmo, length, text, &compCode, &reason);
    if (compCode == JXCC_FAILED) {
      fprintf(stderr, "JXPUT1 %ld: reason %d (%s)\n", i + 1, (int)reason, jxReasonWords(reason));
      break;
    }
  }
  printf("%ld messages put\n", i);
  JXDISC(&hconn, &compCode, &reason);
  return i == count ? 0 : 1;
}
