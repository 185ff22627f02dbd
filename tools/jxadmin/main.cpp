// jxadmin: administration of queue managers from the shell, written only
// against the public interface: every command through jxExecute, every
// event through jxGetBag.
#include <cstdlib>
#include <iostream>

#include "command_line.hpp"
#include "verbs.hpp"

int main(int argc, char **argv) {
  using namespace jxadmin;
  CommandLine line;
  std::string error;
  if (argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
    std::cout << kUsage;
    return kExitOk;
  }
  if (!parseCommandLine(argc, argv, line, error)) {
    std::cerr << "jxadmin: " << error << '\n' << kUsage;
    return kExitFailed;
  }
  // The client library reads what it trusts over TCP from the environment.
  if (!line.trustFile.empty()) setenv("JX_TLS_TRUST", line.trustFile.c_str(), 1);
  if (!line.fingerprint.empty()) setenv("JX_TLS_FINGERPRINT", line.fingerprint.c_str(), 1);
  return runVerb(line);
}
