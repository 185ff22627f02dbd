/*
 * Watches a queue manager's configuration and performance events: each
 * event message is got with jxGetBag and printed with its category, its
 * reason, the queue it is about and when it happened.
 *   jxsample_watch_events QMGR [SECONDS]   (waits 10 seconds by default)
 */
#include <jx/jxai.h>
#include <jx/jxqm.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MS_PER_SECOND 1000
#define DEFAULT_SECONDS 10
#define POLL_MS 200

/* Copies a name into a fixed field of zeros, cut at its width. */
static void setField(char *field, size_t width, const char *name) {
  size_t length = strlen(name);
  memcpy(field, name, length < width ? length : width);
}

static const char *const eventQueues[] = {JXQ_CONFIG_EVENT, JXQ_PERFM_EVENT};
#define EVENT_QUEUES (sizeof eventQueues / sizeof eventQueues[0])

/* One string item of an event, or an empty string when it has none. */
static void text(JXHBAG bag, JXLONG selector, char *out, JXLONG size) {
  JXLONG length = 0, ccsid, compCode, reason;
  jxInquireString(bag, selector, JXIDX_ONLY, size - 1, out, &length, &ccsid, &compCode, &reason);
  if (compCode == JXCC_FAILED) length = 0;
  while (length > 0 && out[length - 1] == ' ') --length;
  out[length] = '\0';
}

int main(int argc, char **argv) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {0};
  JXHCONN hconn;
  JXHOBJ hobj[EVENT_QUEUES];
  JXHBAG bag = JXHB_NONE;
  JXLONG compCode, reason;
  long waitedMs = 0, limitMs;
  int events = 0;
  size_t q;

  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: %s QMGR [SECONDS]\n", argv[0]);
    return 2;
  }
  limitMs = (argc > 2 ? atol(argv[2]) : DEFAULT_SECONDS) * MS_PER_SECOND;
  setField(qmgr, sizeof qmgr, argv[1]);
  JXCONN(qmgr, &hconn, &compCode, &reason);
  if (compCode == JXCC_FAILED) {
    fprintf(stderr, "JXCONN: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
    return 1;
  }
  for (q = 0; q < EVENT_QUEUES; ++q) {
    JXOD od = JXOD_DEFAULT;
    setField(od.ObjectName, sizeof od.ObjectName, eventQueues[q]);
    JXOPEN(hconn, &od, JXOO_INPUT_SHARED, &hobj[q], &compCode, &reason);
    if (compCode == JXCC_FAILED) {
      fprintf(stderr, "JXOPEN %s: reason %d (%s)\n", eventQueues[q], (int)reason,
              jxReasonWords(reason));
      return 1;
    }
  }
  jxCreateBag(0, &bag, &compCode, &reason);
  /* Each queue in turn, waiting a little on each, until the time is up. */
  while (compCode == JXCC_OK && waitedMs < limitMs) {
    for (q = 0; q < EVENT_QUEUES; ++q) {
      JXMD md = JXMD_DEFAULT;
      JXGMO gmo = JXGMO_DEFAULT;
      JXLONG category = 0, eventReason = 0;
      char name[JX_Q_NAME_LENGTH + 1], date[JX_DATE_LENGTH + 1], time[JX_TIME_LENGTH + 1];
      gmo.Options = JXGMO_WAIT | JXGMO_NO_SYNCPOINT;
      gmo.WaitInterval = POLL_MS;
      jxGetBag(hconn, hobj[q], &md, &gmo, bag, &compCode, &reason);
      if (reason == JXRC_NO_MSG_AVAILABLE) {
        compCode = JXCC_OK;
        waitedMs += POLL_MS;
        continue;
      }
      if (compCode != JXCC_OK) break;
      jxInquireInteger(bag, JXSYS_COMMAND, JXIDX_ONLY, &category, &compCode, &reason);
      jxInquireInteger(bag, JXSYS_REASON, JXIDX_ONLY, &eventReason, &compCode, &reason);
      text(bag, JXCA_Q_NAME, name, sizeof name);
      text(bag, JXCA_EVENT_DATE, date, sizeof date);
      text(bag, JXCA_EVENT_TIME, time, sizeof time);
      printf("%s %s category %d: %s (%d) queue %s\n", date, time, (int)category,
             jxReasonWords(eventReason), (int)eventReason, name);
      fflush(stdout);
      ++events;
    }
  }
  if (compCode != JXCC_OK)
    fprintf(stderr, "jxGetBag: reason %d (%s)\n", (int)reason, jxReasonWords(reason));
  printf("%d events\n", events);
  if (bag != JXHB_NONE) jxDeleteBag(&bag, &compCode, &reason);
  for (q = 0; q < EVENT_QUEUES; ++q) JXCLOSE(hconn, &hobj[q], JXCO_NONE, &compCode, &reason);
  JXDISC(&hconn, &compCode, &reason);
  return 0;
}
