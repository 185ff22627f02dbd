// jxtrace: switches the trace of running JX programs on and off through the
// shared trace control file of the data root (JX_DATA_PATH), and lists
// trace files.
#include <dirent.h>
#include <errno.h>
#include <jx/jxcs.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "trace_control.hpp"

namespace {

const char kUsage[] =
    "usage: jxtrace status\n"
    "       jxtrace on [-p PID] [api|parms|bag|all ...] [--level N]\n"
    "       jxtrace off [-p PID]\n"
    "       jxtrace show [-p PID]\n"
    "Without -p, on and off act on every running process. 'on' sets exactly the\n"
    "kinds given (api when none); 'all' traces everything. The level defaults to 0.\n";

int usage(const char *problem) {
  if (problem) fprintf(stderr, "jxtrace: %s\n", problem);
  fputs(kUsage, stderr);
  return 2;
}

bool parseInt(const char *s, long lo, long hi, long &out) {
  char *end = nullptr;
  errno = 0;
  long v = strtol(s, &end, 10);
  if (errno || end == s || *end || v < lo || v > hi) return false;
  out = v;
  return true;
}

struct Args {
  std::string command;
  long pid = 0;
  uint32_t options = 0;
  bool override = false;
  long level = 0;
};

// Returns 0 when the arguments are good, else the exit status of usage().
int parse(int argc, char **argv, Args &a) {
  if (argc < 2) return usage(nullptr);
  a.command = argv[1];
  if (a.command == "-h" || a.command == "--help") {
    fputs(kUsage, stdout);
    exit(0);
  }
  if (a.command != "status" && a.command != "on" && a.command != "off" && a.command != "show")
    return usage(("unknown command '" + a.command + "'").c_str());
  for (int i = 2; i < argc; i++) {
    std::string arg = argv[i];
    if (arg == "-p" && a.command != "status") {
      if (++i >= argc || !parseInt(argv[i], 1, 0x7FFFFFFF, a.pid))
        return usage("-p needs a process id");
    } else if (arg == "--level" && a.command == "on") {
      if (++i >= argc || !parseInt(argv[i], 0, 0x7FFFFFFF, a.level))
        return usage("--level needs a number from 0");
    } else if (a.command == "on" && arg == "api") {
      a.options |= XTR_OPT_API;
    } else if (a.command == "on" && arg == "parms") {
      a.options |= XTR_OPT_PARMS;
    } else if (a.command == "on" && arg == "bag") {
      a.options |= XTR_OPT_BAG;
    } else if (a.command == "on" && arg == "all") {
      a.options |= XTR_OPT_API | XTR_OPT_PARMS | XTR_OPT_BAG;
      a.override = true;
    } else {
      return usage(("unexpected argument '" + arg + "' for " + a.command).c_str());
    }
  }
  if (a.command == "on" && a.options == 0) a.options = XTR_OPT_API;
  return 0;
}

int status(xtrCONTROLFILE *c) {
  int shown = 0;
  for (uint32_t i = 0; i < c->SlotCount; i++) {
    const xtrCONTROLSLOT &s = c->Slot[i];
    if (!xtrSlotAlive(&s)) continue;
    if (shown++ == 0)
      printf("%-8s %-4s %-7s %-5s %-10s %-8s %s\n", "PID", "SLOT", "ENABLED", "LEVEL", "OPTIONS",
             "OVERRIDE", "PROGRAM");
    printf("%-8d %-4u %-7d %-5d 0x%08X %-8d %.*s\n", (int)s.Pid, i, (int)s.Words.Enabled,
           (int)s.Words.Level, (unsigned)s.Words.Options, (int)s.Words.Override, XTR_PROGRAM_LEN,
           s.Program);
  }
  if (shown == 0) printf("no running processes\n");
  return 0;
}

int change(xtrCONTROLFILE *c, const Args &a) {
  int changed = 0;
  for (uint32_t i = 0; i < c->SlotCount; i++) {
    xtrCONTROLSLOT &s = c->Slot[i];
    if (!xtrSlotAlive(&s) || (a.pid && s.Pid != a.pid)) continue;
    if (a.command == "on") {
      s.Words.Options = a.options;
      s.Words.Level = (int32_t)a.level;
      s.Words.Override = a.override ? 1 : 0;
      s.Words.Enabled = 1;
    } else {
      s.Words.Enabled = 0;
      s.Words.Override = 0;
      s.Words.Options = 0;
      s.Words.Level = XTR_LEVEL_UNSET;
    }
    printf("trace %s for process %d (%.*s)\n", a.command.c_str(), (int)s.Pid, XTR_PROGRAM_LEN,
           s.Program);
    changed++;
  }
  if (changed) return 0;
  if (a.pid)
    fprintf(stderr, "jxtrace: process %ld has no trace slot (not running, or not a JX program)\n",
            a.pid);
  else
    fprintf(stderr, "jxtrace: no running processes\n");
  return 1;
}

int show(const char *root, long pid) {
  std::string dir = std::string(root) + "/trace";
  DIR *d = opendir(dir.c_str());
  if (!d) {
    fprintf(stderr, "jxtrace: cannot read %s: %s\n", dir.c_str(), strerror(errno));
    return 1;
  }
  std::vector<std::string> files;
  std::string suffix = pid ? "." + std::to_string(pid) + ".trc" : ".trc";
  int readError = 0;
  for (;;) {
    errno = 0;
    const dirent *e = readdir(d);
    if (!e) {
      readError = errno;
      break;
    }
    std::string name = e->d_name;
    if (name.size() > suffix.size() &&
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
      files.push_back(dir + "/" + name);
  }
  closedir(d);
  if (readError) {
    fprintf(stderr, "jxtrace: cannot read %s: %s\n", dir.c_str(), strerror(readError));
    return 1;
  }
  if (files.empty()) {
    if (pid)
      fprintf(stderr, "jxtrace: no trace file for process %ld in %s\n", pid, dir.c_str());
    else
      fprintf(stderr, "jxtrace: no trace files in %s\n", dir.c_str());
    return 1;
  }
  std::sort(files.begin(), files.end());
  for (const auto &f : files) printf("%s\n", f.c_str());
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  Args a;
  if (int rc = parse(argc, argv, a)) return rc;
  const char *root = xcsDataRoot();
  if (a.command == "show") return show(root, a.pid);
  const char *why = "";
  xtrCONTROLFILE *c = xtrMapControl(root, 0, &why);
  if (!c) {
    if (errno == ENOENT && a.command == "status") {
      printf("no running processes\n");
      return 0;
    }
    fprintf(stderr, "jxtrace: trace control file %s/trace/control: %s (%s)\n", root, why,
            strerror(errno));
    return 1;
  }
  int rc = a.command == "status" ? status(c) : change(c, a);
  xtrUnmapControl(c);
  return rc;
}
