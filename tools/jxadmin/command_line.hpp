// jxadmin's command line: the queue managers to reach, how to sign on, how
// to show the results, the verb and its words and attribute options.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "admin_session.hpp"

namespace jxadmin {

constexpr int kExitOk = 0;
constexpr int kExitPartial = 1;
constexpr int kExitFailed = 2;
constexpr int32_t kWaitDefault = -2;  // --wait not given: the library's own default

struct CommandLine {
  std::vector<Target> targets;
  Credentials credentials;
  std::string trustFile;    // passed to the client library as JX_TLS_TRUST
  std::string fingerprint;  // and JX_TLS_FINGERPRINT
  bool json = false;
  int32_t waitMs = kWaitDefault;
  bool follow = false, purge = false, replace = false;
  std::string listen;                // metrics: HOST:PORT to serve /metrics on
  std::string type;                  // local or model
  std::vector<std::string> columns;  // --attrs word,word or "all"
  std::vector<std::string> words;    // verb, object, names
  std::vector<std::pair<std::string, std::string>> attributes;  // --WORD VALUE
};

// Reads argv into `line`; on a mistake returns false with the message.
bool parseCommandLine(int argc, char **argv, CommandLine &line, std::string &error);
// The password: --password-env's variable, JX_PASSWORD, else asked on the
// terminal without echo. False with a message when none can be had.
bool readPassword(const std::string &envName, std::string &password, std::string &error);

extern const char *const kUsage;

}  // namespace jxadmin
