/*
 * Pads a queue name into a fixed 48-byte field, trims it back, and shows
 * what a failing call reports. Run it with JX_TRACE=api to see the API trace.
 */
#include <jx/jxai.h>
#include <stdio.h>

#define NAME_FIELD 48

int main(void) {
  JXCHAR field[NAME_FIELD];
  JXCHAR name[NAME_FIELD + 1];
  JXLONG compCode, reason;

  jxPad("SYSTEM.ADMIN.COMMAND.QUEUE", NAME_FIELD, field, &compCode, &reason);
  printf("jxPad:  completion code %d, reason %d\n", (int)compCode, (int)reason);
  printf("padded: [%.*s]\n", NAME_FIELD, field);

  jxTrim(NAME_FIELD, field, name, &compCode, &reason);
  printf("jxTrim: completion code %d, reason %d\n", (int)compCode, (int)reason);
  printf("trimmed: [%s]\n", name);

  jxPad("TOO.LONG.FOR.THE.FIELD", 8, field, &compCode, &reason);
  printf("jxPad into 8 bytes: completion code %d, reason %d (string cut), field [%.8s]\n",
         (int)compCode, (int)reason, field);

  jxTrim(-1, field, name, &compCode, &reason);
  printf("jxTrim with length -1: completion code %d, reason %d\n", (int)compCode, (int)reason);
  return 0;
}
