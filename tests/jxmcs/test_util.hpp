// Helpers shared by the common-services tests: files, child processes and
// trace lines.
#pragma once

#include <errno.h>
#include <jx/jxcs.h>
#include <regex.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "child_program.hpp"

namespace jxtest {

inline std::string readFile(const std::string &path) {
  std::stringstream ss;
  ss << std::ifstream(path, std::ios::binary).rdbuf();
  return ss.str();
}

inline std::vector<std::string> splitLines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

inline const size_t kPage = (size_t)sysconf(_SC_PAGESIZE);

// The start of `pages` unmapped pages that stay unmapped while the test
// runs: a hole left by munmap may be filled by the next small mapping of any
// thread, but the kernel places mappings top-down and never reaches these
// low addresses.
inline char *unmappedPages(size_t pages) {
  unsigned char vec;
  for (uintptr_t a = 0x100000; a < 0x10000000; a += kPage) {
    bool free = true;
    for (size_t i = 0; i < pages && free; i++)
      free = mincore(reinterpret_cast<void *>(a + i * kPage), kPage, &vec) != 0 && errno == ENOMEM;
    if (free) return reinterpret_cast<char *>(a);
  }
  return nullptr;
}

// A readable and writable page followed by an unmapped one.
struct EdgePage {
  char *page = nullptr;
  EdgePage() {
    char *at = unmappedPages(2);
    if (mmap(at, kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE,
             -1, 0) == at)
      page = at;
  }
  ~EdgePage() {
    if (page) munmap(page, kPage);
  }
  char *gone() const { return page + kPage; }
};

inline std::string errorsDir() {
  return std::string(xcsDataRoot()) + "/errors";
}

inline size_t recordCount() {
  std::error_code ec;
  return (size_t)std::distance(std::filesystem::directory_iterator(errorsDir(), ec), {});
}

struct ChildResult {
  int status = -1;
  pid_t pid = 0;
  std::string output;
  bool exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
  bool killedBy(int sig) const { return WIFSIGNALED(status) && WTERMSIG(status) == sig; }
};

// Runs the helper program with changed environment entries ("NAME=value";
// "NAME=" removes NAME) and collects its standard output.
inline ChildResult runHelper(const std::string &mode, const std::vector<std::string> &env = {}) {
  ChildResult r;
  std::vector<std::string> argv = programArgv(JXMCS_HELPER_PATH, {mode});
  std::vector<char *> args = execArgs(argv);
  int fds[2];
  if (pipe(fds) != 0) return r;
  r.pid = fork();
  if (r.pid == 0) {
    for (const auto &x : env) {
      const std::string name = x.substr(0, x.find('='));
      if (x.back() == '=') {
        unsetenv(name.c_str());
      } else {
        setenv(name.c_str(), x.c_str() + name.size() + 1, 1);
      }
    }
    dup2(fds[1], 1);
    close(fds[0]);
    close(fds[1]);
    execvp(args[0], args.data());
    _exit(127);
  }
  close(fds[1]);
  char buf[512];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) r.output.append(buf, (size_t)n);
  close(fds[0]);
  waitpid(r.pid, &r.status, 0);
  return r;
}

// A trace line split into its prefix fields and its text; well formed when
// the prefix is a clock, a thread id and a function name.
struct TraceLine {
  std::string tid, function, text;
  bool wellFormed = false;
};

// Whether all of `text` matches the POSIX extended expression `ere`; its
// groups go to `groups` when given.
inline bool matchesWhole(const std::string &text, const std::string &ere,
                         std::vector<std::string> *groups = nullptr) {
  regex_t re;
  if (regcomp(&re, ("^(" + ere + ")$").c_str(), REG_EXTENDED) != 0) return false;
  regmatch_t m[8];
  const bool matched = regexec(&re, text.c_str(), 8, m, 0) == 0;
  regfree(&re);
  if (matched && groups)
    for (size_t i = 2; i < 8 && m[i].rm_so >= 0; ++i)
      groups->push_back(text.substr(static_cast<size_t>(m[i].rm_so),
                                    static_cast<size_t>(m[i].rm_eo - m[i].rm_so)));
  return matched;
}

inline TraceLine parseTraceLine(const std::string &line) {
  std::vector<std::string> g;
  if (!matchesWhole(line, "[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} +([^ ]+) +([^ ]+) \\| (.*)", &g))
    return {};
  return {g[0], g[1], g[2], true};
}

// The trace lines written after a mark (the file's size when taken).
class TraceWindow {
 public:
  TraceWindow() : start_(xtrTraceFile()[0] ? readFile(xtrTraceFile()).size() : 0) {}
  std::vector<TraceLine> lines() const {
    std::string all = readFile(xtrTraceFile());
    std::vector<TraceLine> out;
    for (const auto &l : splitLines(all.size() > start_ ? all.substr(start_) : ""))
      out.push_back(parseTraceLine(l));
    return out;
  }

 private:
  size_t start_;
};

}  // namespace jxtest
