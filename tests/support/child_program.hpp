// Starting this build's own programs (helpers, tools, samples) from a test.
// Where the kernel cannot run them (the i386 build on a kernel without
// 32-bit support) they run under the emulator the build was configured with;
// programs of the native build (servers) are started directly.
#pragma once

#include <string>
#include <vector>

namespace jxtest {

// The argument vector that runs `program` with `args`: the emulator first
// when there is one. Build it before fork; execvp(argv[0], ...) in the child.
std::vector<std::string> programArgv(const std::string &program,
                                     const std::vector<std::string> &args = {});

// The same as the start of a shell command line, each word quoted.
std::string programCommand(const std::string &program);

// A null-terminated pointer array over `argv`, for execv.
std::vector<char *> execArgs(std::vector<std::string> &argv);

}  // namespace jxtest
