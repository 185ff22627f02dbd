// What the benchmarks that start a queue manager of their own share: a
// temporary data root, the build's jxqm, and a main that sets up, runs the
// benchmarks and always tears down. JX_QM_BIN_DIR names the build's programs.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

// Runs a program of the build with its output on stderr, so that a
// benchmark's stdout carries its results alone.
inline int runProgram(const std::vector<std::string> &args) {
  pid_t p = fork();
  if (p == 0) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(p, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

inline std::string jxqmProgram() {
  return std::string(JX_QM_BIN_DIR) + "/jxqm";
}

// A new data root under /tmp, made the queue managers' one; empty on failure.
inline std::string makeDataRoot() {
  char root[] = "/tmp/jxbench.XXXXXX";
  if (!mkdtemp(root)) return {};
  setenv("JX_DATA_PATH", root, 1);
  return root;
}

// Stops the queue manager and removes the data root.
inline void dropQueueManager(const std::string &qmgr, const std::string &root) {
  runProgram({jxqmProgram(), "stop", qmgr});
  if (!root.empty()) std::filesystem::remove_all(root);
}

inline int benchmarkMain(int argc, char **argv, const char *name, bool (*setUp)(),
                         void (*tearDown)()) {
  benchmark::Initialize(&argc, argv);
  if (!setUp()) {
    std::fprintf(stderr, "%s: cannot set up the queue manager\n", name);
    tearDown();
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  tearDown();
  return 0;
}
