// Helpers shared by the common-services tests: files, child processes and
// trace lines.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <jx/jxcs.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace jxtest {

inline std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline std::vector<std::string> splitLines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

inline std::vector<std::string> listDir(const std::string &dir) {
  std::vector<std::string> names;
  if (DIR *d = opendir(dir.c_str())) {
    while (dirent *e = readdir(d))
      if (e->d_name[0] != '.') names.push_back(e->d_name);
    closedir(d);
  }
  return names;
}

inline size_t pageSize() {
  return (size_t)sysconf(_SC_PAGESIZE);
}

// The start of `pages` unmapped pages that stay unmapped while the test
// runs: a hole left by munmap may be filled by the next small mapping of any
// thread, but the kernel places mappings top-down and never reaches these
// low addresses.
inline char *unmappedPages(size_t pages) {
  const size_t page = pageSize();
  unsigned char vec;
  for (uintptr_t a = 0x100000; a < 0x10000000; a += page) {
    bool free = true;
    for (size_t i = 0; i < pages && free; i++)
      free = mincore(reinterpret_cast<void *>(a + i * page), page, &vec) != 0 && errno == ENOMEM;
    if (free) return reinterpret_cast<char *>(a);
  }
  return nullptr;
}

// A readable and writable page followed by an unmapped one.
struct EdgePage {
  char *page = nullptr;
  EdgePage() {
    char *at = unmappedPages(2);
    void *p = mmap(at, pageSize(), PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (p == at) page = at;
  }
  ~EdgePage() {
    if (page) munmap(page, pageSize());
  }
  char *gone() const { return page + pageSize(); }
};

inline std::string errorsDir() {
  return std::string(xcsDataRoot()) + "/errors";
}

struct ChildResult {
  int status = -1;
  pid_t pid = 0;
  std::string output;
  bool exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
  bool killedBy(int sig) const { return WIFSIGNALED(status) && WTERMSIG(status) == sig; }
};

// Runs the helper program with extra environment entries ("NAME=value";
// "NAME=" without a value removes NAME) and collects its standard output.
inline ChildResult runHelper(const std::vector<std::string> &args,
                             const std::vector<std::string> &env = {}) {
  std::vector<std::string> envStrings;
  for (char **e = environ; *e; e++) {
    std::string entry = *e;
    bool replaced = false;
    for (const auto &x : env)
      if (entry.compare(0, x.find('=') + 1, x, 0, x.find('=') + 1) == 0) replaced = true;
    if (!replaced) envStrings.push_back(entry);
  }
  for (const auto &x : env)
    if (x.back() != '=') envStrings.push_back(x);
  std::vector<char *> envp, argv;
  for (auto &s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::string program = JXMCS_HELPER_PATH;
  argv.push_back(program.data());
  std::vector<std::string> argCopy = args;
  for (auto &a : argCopy) argv.push_back(a.data());
  argv.push_back(nullptr);

  ChildResult r;
  int fds[2];
  if (pipe(fds) != 0) return r;
  r.pid = fork();
  if (r.pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    close(fds[1]);
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(fds[1]);
  char buf[512];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) r.output.append(buf, (size_t)n);
  close(fds[0]);
  waitpid(r.pid, &r.status, 0);
  return r;
}

// A trace line split into its function name and its text.
struct TraceLine {
  std::string function;
  std::string text;
  std::string tid;
  bool wellFormed = false;
};

inline TraceLine parseTraceLine(const std::string &line) {
  TraceLine t;
  size_t sep = line.find(XTR_TEXT_SEPARATOR);
  if (sep == std::string::npos) return t;
  t.text = line.substr(sep + 3);
  std::istringstream prefix(line.substr(0, sep));
  std::string clock;
  prefix >> clock >> t.tid >> t.function;
  std::string rest;
  prefix >> rest;
  t.wellFormed = clock.size() == 15 && clock[2] == ':' && clock[5] == ':' && clock[8] == '.' &&
                 !t.tid.empty() && !t.function.empty() && rest.empty();
  return t;
}

// The trace lines written after a mark (the file's size when taken).
class TraceWindow {
 public:
  TraceWindow() : start_(size()) {}
  std::vector<TraceLine> lines() const {
    std::string all = readFile(xtrTraceFile());
    std::vector<TraceLine> out;
    for (const auto &l : splitLines(all.size() > start_ ? all.substr(start_) : ""))
      out.push_back(parseTraceLine(l));
    return out;
  }
  std::vector<std::string> texts() const {
    std::vector<std::string> out;
    for (const auto &l : lines()) out.push_back(l.text);
    return out;
  }

 private:
  static size_t size() {
    const char *path = xtrTraceFile();
    return path[0] ? readFile(path).size() : 0;
  }
  size_t start_;
};

}  // namespace jxtest
