#include "child_program.hpp"

#include <algorithm>

namespace jxtest {

std::vector<std::string> programArgv(const std::string &program,
                                     const std::vector<std::string> &args) {
  // The emulator command: a program and its own options, separated by spaces.
  std::vector<std::string> argv;
  const std::string emulator = JX_TEST_EMULATOR;
  for (size_t at = 0; at < emulator.size();) {
    const size_t end = std::min(emulator.find(' ', at), emulator.size());
    if (end > at) argv.push_back(emulator.substr(at, end - at));
    at = end + 1;
  }
  argv.push_back(program);
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

std::string programCommand(const std::string &program) {
  std::string command;
  for (const auto &word : programArgv(program)) {
    command += command.empty() ? "'" : " '";
    for (char c : word) command += c == '\'' ? std::string("'\\''") : std::string(1, c);
    command += '\'';
  }
  return command;
}

std::vector<char *> execArgs(std::vector<std::string> &argv) {
  std::vector<char *> out;
  for (auto &a : argv) out.push_back(a.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace jxtest
