/*
 * Walks a response bag of any command and prints every item of every reply,
 * nested bags indented: here the status of the queues a generic name
 * matches (all of them by default).
 *   jxsample_print_response QMGR [GENERIC]
 */
#include <jx/jxai.h>
#include <jx/jxqm.h>
#include <stdio.h>
#include <string.h>

#define TEXT_LENGTH 256

/* Copies a name into a fixed field of zeros, cut at its width. */
static void setField(char *field, size_t width, const char *name) {
  size_t length = strlen(name);
  memcpy(field, name, length < width ? length : width);
}

static const char *typeWord(JXLONG type) {
  return type == JXITEM_INTEGER ? "integer" : type == JXITEM_STRING ? "string" : "bag";
}

/* Prints the system items and then the user items of a bag, each with its
 * selector; a nested bag is printed the same way, one level deeper. */
static int printBag(JXHBAG bag, int depth) {
  JXLONG compCode, reason, count = 0, i;
  jxCountItems(bag, JXSEL_ANY, &count, &compCode, &reason);
  if (compCode != JXCC_OK) return (int)reason;
  for (i = 0; i < count; ++i) {
    JXLONG selector, type, value, length, ccsid;
    JXHBAG nested;
    char text[TEXT_LENGTH + 1];
    jxInquireItemInfo(bag, JXSEL_ANY, i, &selector, &type, &compCode, &reason);
    if (compCode != JXCC_OK) return (int)reason;
    printf("%*s%6d %-7s ", depth * 4, "", (int)selector, typeWord(type));
    if (type == JXITEM_INTEGER) {
      jxInquireInteger(bag, JXSEL_ANY, i, &value, &compCode, &reason);
      if (compCode == JXCC_OK) printf("%d\n", (int)value);
    } else if (type == JXITEM_STRING) {
      /* A string longer than the buffer arrives cut, with a warning. */
      jxInquireString(bag, JXSEL_ANY, i, TEXT_LENGTH, text, &length, &ccsid, &compCode, &reason);
      if (compCode != JXCC_FAILED) {
        compCode = JXCC_OK;
        if (length > TEXT_LENGTH) length = TEXT_LENGTH;
        while (length > 0 && text[length - 1] == ' ') --length; /* names come blank padded */
        printf("'%.*s'\n", (int)length, text);
      }
    } else {
      jxInquireBag(bag, JXSEL_ANY, i, &nested, &compCode, &reason);
      if (compCode == JXCC_OK) {
        printf("\n");
        reason = printBag(nested, depth + 1);
        if (reason) return (int)reason;
      }
    }
    if (compCode != JXCC_OK) return (int)reason;
  }
  return 0;
}

int main(int argc, char **argv) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {0};
  const char *generic = argc > 2 ? argv[2] : "*";
  JXHCONN hconn;
  JXHBAG adminBag = JXHB_NONE, responseBag = JXHB_NONE;
  JXLONG compCode, reason;
  int failure;

  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: %s QMGR [GENERIC]\n", argv[0]);
    return 2;
  }
  setField(qmgr, sizeof qmgr, argv[1]);
  JXCONN(qmgr, &hconn, &compCode, &reason);
  if (compCode == JXCC_FAILED) {
    fprintf(stderr, "JXCONN: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    return 1;
  }
  jxCreateBag(JXBAG_ADMIN, &adminBag, &compCode, &reason);
  if (compCode == JXCC_OK) jxCreateBag(JXBAG_ADMIN, &responseBag, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxAddString(adminBag, JXCA_Q_NAME, (JXLONG)strlen(generic), generic, &compCode, &reason);
  if (compCode == JXCC_OK)
    jxExecute(hconn, JXCMD_INQUIRE_QUEUE_STATUS, JXHB_NONE, adminBag, responseBag, 0, 0, &compCode,
              &reason);
  /* A failed command still leaves its replies, with their reasons, to walk. */
  printf("completion code %d, reason %d (%s)\n", (int)compCode, (int)reason, jxReasonWords(reason));
  failure = compCode == JXCC_FAILED && reason != JXRC_COMMAND_FAILED;
  if (!failure) failure = printBag(responseBag, 0);
  if (adminBag != JXHB_NONE) jxDeleteBag(&adminBag, &compCode, &reason);
  if (responseBag != JXHB_NONE) jxDeleteBag(&responseBag, &compCode, &reason);
  JXDISC(&hconn, &compCode, &reason);
  return failure ? 1 : 0;
}
