// Child program for the common-services tests: things that need a process of
// their own (environment at start, a real fault, a process that jxtrace
// changes while it runs).
//   words             print the trace words taken from JX_TRACE
//   wait              print "ready <pid>", wait up to 20 s for tracing to be
//                     switched on from outside, print the words, trace a line
//   fault-default     fault in a protected region under the default action
//   fault-own         the same with the program's own SIGSEGV handler
//   fault-outside     a fault outside any region, own handler
#include <jx/jxcs.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace {

char g_names[160][XCS_FUNC_NAME_LEN];

void printWords() {
  const xihPROCESSANCHOR *p = xihProcess();
  const xihTHREADANCHOR *t = xihThreadAddress();
  printf("enabled=%d level=%d options=0x%X override=%d shared=%d traceactive=%d\n",
         (int)p->Trace->Enabled, (int)p->Trace->Level, (unsigned)p->Trace->Options,
         (int)p->Trace->Override, p->Trace != &p->Private, t ? (int)t->TraceActive : -1);
  fflush(stdout);
}

void ownHandler(int sig, siginfo_t *info, void *) {
  char line[96];
  int n = snprintf(line, sizeof line, "own handler sig=%d addr=%p\n", sig, info->si_addr);
  ssize_t w = write(1, line, (size_t)n);
  (void)w;
  _exit(42);
}

[[noreturn]] void fault(bool ownAction, bool inRegion) {
  struct sigaction sa;
  memset(&sa, 0, sizeof sa);
  sigemptyset(&sa.sa_mask);
  if (ownAction) {
    sa.sa_sigaction = ownHandler;
    sa.sa_flags = SA_SIGINFO;
  } else {
    sa.sa_handler = SIG_DFL;  // also replaces a sanitizer's handler
  }
  sigaction(SIGSEGV, &sa, nullptr);
  strcpy(g_names[93], "zaiJXCreateBag");
  strcpy(g_names[152], "zaiCreateBag");
  xtrRegisterNames(XCS_COMP_ADMIN, g_names, 160);
  xcsInitialize(48, 1030, 0, 0, 0);
  xihTHREADANCHOR *t = xihThreadAddress();
  xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(XCS_COMP_ADMIN, 93));
  xihPushStack(t, XCS_ENTRY_MARK + XCS_FUNC_ID(XCS_COMP_ADMIN, 152));
  int32_t saved = 0;
  xehSaveSigActionsF(&saved);  // installs the library's actions either way
  if (!inRegion && saved) {
    xehRestoreSigActionsF();
    saved = 0;
  }
  printf("saved=%d\n", (int)saved);
  fflush(stdout);
  volatile int *volatile target = reinterpret_cast<volatile int *>(16);
  *target = 1;
  printf("survived\n");
  exit(3);
}

int waitForTrace() {
  xcsInitialize(48, 1030, 0, 0, 0);
  printf("ready %d\n", (int)getpid());
  fflush(stdout);
  for (int i = 0; i < 2000 && !xihProcess()->Trace->Enabled; i++) {
    struct timespec ts = {0, 10 * 1000 * 1000};
    nanosleep(&ts, nullptr);
  }
  int32_t saved = 0;
  xehSaveSigActionsF(&saved);  // refreshes the thread's TraceActive
  if (saved) xehRestoreSigActionsF();
  printWords();
  xtr_text("helper done");
  return xihProcess()->Trace->Enabled ? 0 : 3;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) return 2;
  const char *mode = argv[1];
  if (strcmp(mode, "words") == 0) {
    xcsInitialize(48, 1030, 0, 0, 0);
    printWords();
    return 0;
  }
  if (strcmp(mode, "wait") == 0) return waitForTrace();
  if (strcmp(mode, "fault-default") == 0) fault(false, true);
  if (strcmp(mode, "fault-own") == 0) fault(true, true);
  if (strcmp(mode, "fault-outside") == 0) fault(true, false);
  return 2;
}
