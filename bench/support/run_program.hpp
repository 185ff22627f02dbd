// Runs a program of the build with its output on stderr, so that a
// benchmark's stdout carries its results alone.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

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
