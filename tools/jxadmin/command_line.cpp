#include "command_line.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace jxadmin {

const char *const kUsage =
    "usage: jxadmin [-m QMGR[,QMGR...]] [--server HOST:PORT]... [--user NAME]\n"
    "               [--password-env VAR] [--trust FILE] [--fingerprint HEX] [--json]\n"
    "               [--wait MS] VERB ...\n"
    "  show qmgr | show queues [GENERIC] | show status [GENERIC] | show connections\n"
    "       [--attrs WORD,WORD... | --attrs all]\n"
    "  create queue NAME [--type local|model] [--replace] [--WORD VALUE]...\n"
    "  change queue NAME [--type local|model] --WORD VALUE...\n"
    "  change qmgr --WORD VALUE...\n"
    "  copy queue FROM TO [--type local|model] [--WORD VALUE]...\n"
    "  delete queue NAME [--purge] | clear queue NAME\n"
    "  reset stats GENERIC | stop connection ID | ping\n"
    "  events [--follow] | metrics [--listen HOST:PORT]\n"
    "  WORD: an attribute word, as the tables show it (--max-depth 5000)\n"
    "  exit status: 0 success, 1 partial, 2 failure\n";

namespace {

bool parseWait(const std::string &text, int32_t &ms) {
  char *end = nullptr;
  errno = 0;
  long v = std::strtol(text.c_str(), &end, 10);
  if (errno || end == text.c_str() || *end || v < JXWI_UNLIMITED || v > INT32_MAX) return false;
  ms = static_cast<int32_t>(v);
  return true;
}

std::vector<std::string> split(const std::string &text) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ',');)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

}  // namespace

bool parseCommandLine(int argc, char **argv, CommandLine &line, std::string &error) {
  std::vector<std::string> qmgrs, servers;
  std::string passwordEnv;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&](std::string &out) {
      if (i + 1 >= argc) {
        error = arg + " needs a value";
        return false;
      }
      out = argv[++i];
      return true;
    };
    std::string v;
    if (arg == "-m") {
      if (!value(v)) return false;
      for (auto &q : split(v)) qmgrs.push_back(q);
    } else if (arg == "--server") {
      if (!value(v)) return false;
      servers.push_back(v);
    } else if (arg == "--user") {
      if (!value(line.credentials.user)) return false;
    } else if (arg == "--password-env") {
      if (!value(passwordEnv)) return false;
    } else if (arg == "--trust") {
      if (!value(line.trustFile)) return false;
    } else if (arg == "--fingerprint") {
      if (!value(line.fingerprint)) return false;
    } else if (arg == "--wait") {
      if (!value(v)) return false;
      if (!parseWait(v, line.waitMs)) {
        error = "--wait takes milliseconds, or -1 for no limit";
        return false;
      }
    } else if (arg == "--listen") {
      if (!value(line.listen)) return false;
    } else if (arg == "--type") {
      if (!value(line.type)) return false;
    } else if (arg == "--attrs") {
      if (!value(v)) return false;
      line.columns = split(v);
    } else if (arg == "--json") {
      line.json = true;
    } else if (arg == "--follow") {
      line.follow = true;
    } else if (arg == "--purge") {
      line.purge = true;
    } else if (arg == "--replace") {
      line.replace = true;
    } else if (arg.rfind("--", 0) == 0 && arg.size() > 2) {
      if (!value(v)) return false;
      line.attributes.emplace_back(arg.substr(2), v);
    } else {
      line.words.push_back(arg);
    }
  }
  if (line.words.empty()) {
    error = "no verb";
    return false;
  }
  if (const char *env = std::getenv("JX_QMGR"); qmgrs.empty() && servers.empty() && env && *env)
    qmgrs.push_back(env);
  if (qmgrs.empty() && servers.empty()) {
    error = "no queue manager: give -m QMGR (or --server HOST:PORT, or set JX_QMGR)";
    return false;
  }
  // Servers pair with queue managers by position; one server serves them all.
  if (servers.size() > 1 && !qmgrs.empty() && servers.size() != qmgrs.size()) {
    error = "give one --server, or one for each queue manager of -m";
    return false;
  }
  const size_t n = std::max(qmgrs.size(), servers.size());
  for (size_t k = 0; k < n; ++k) {
    Target t;
    if (!qmgrs.empty()) t.qmgr = qmgrs[k];
    if (!servers.empty()) t.server = servers[servers.size() == 1 ? 0 : k];
    line.targets.push_back(t);
  }
  if (!line.credentials.user.empty() &&
      !readPassword(passwordEnv, line.credentials.password, error))
    return false;
  return true;
}

bool readPassword(const std::string &envName, std::string &password, std::string &error) {
  if (!envName.empty()) {
    const char *v = std::getenv(envName.c_str());
    if (!v) {
      error = "the variable " + envName + " is not set";
      return false;
    }
    password = v;
    return true;
  }
  if (const char *v = std::getenv("JX_PASSWORD")) {
    password = v;
    return true;
  }
  int tty = open("/dev/tty", O_RDWR | O_CLOEXEC);
  if (tty < 0) {
    error = "no password: set JX_PASSWORD or --password-env, or run on a terminal";
    return false;
  }
  termios saved{}, quiet{};
  const bool terminal = tcgetattr(tty, &saved) == 0;
  quiet = saved;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  if (terminal) tcsetattr(tty, TCSAFLUSH, &quiet);
  static const char kPrompt[] = "password: ";
  ssize_t ignored = write(tty, kPrompt, sizeof kPrompt - 1);
  char c;
  while (read(tty, &c, 1) == 1 && c != '\n' && password.size() < JX_PASSWORD_LENGTH) password += c;
  ignored = write(tty, "\n", 1);
  (void)ignored;
  if (terminal) tcsetattr(tty, TCSAFLUSH, &saved);
  close(tty);
  return true;
}

}  // namespace jxadmin
