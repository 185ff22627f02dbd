// jxqm: create, start, stop, inspect and delete queue managers, define,
// alter and delete their queues, and manage their users. Definitions go
// through the queue manager's administration calls: over a connection
// while it runs, in this process (holding its lock) while it is stopped.
#include <fcntl.h>
#include <jx/jxai.h>
#include <jx/jxqm.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "admin_call.hpp"
#include "administration.hpp"
#include "certificate.hpp"
#include "credentials.hpp"
#include "jxiz.h"
#include "qm_paths.hpp"
#include "qmgr_files.hpp"
#include "store.hpp"

namespace {

namespace fs = std::filesystem;

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNotRunning = 3;

const char *kUsage =
    "usage: jxqm COMMAND NAME [ARGS]\n"
    "  create NAME                       create a queue manager\n"
    "  start NAME [--listen HOST:PORT] [--hello-timeout SECONDS] [--poll-us MICROSECONDS]\n"
    "             [--no-command-server] [--frame-timeout-ms MS] [--buffer-budget-mb MB]\n"
    "             [--login-delay-ms MS] [--peer-log-lines N]\n"
    "                                    start it (TCP only with --listen)\n"
    "  stop NAME                         stop it cleanly\n"
    "  status NAME                       exit 0 running, 3 stopped\n"
    "  delete NAME                       delete a stopped queue manager\n"
    "  define NAME QUEUE [--ATTRIBUTE VALUE]... [--model | --permanent-dynamic]\n"
    "         [--persistent] [--replace]\n"
    "                                    define a local queue, or a model for temporary or\n"
    "                                    permanent dynamic queues\n"
    "  alter NAME QUEUE --ATTRIBUTE VALUE...\n"
    "                                    change a queue's attributes\n"
    "  undefine NAME QUEUE [--purge]     delete a queue (with its messages: --purge)\n"
    "    attributes: --max-depth, --max-message-length, --description, --inhibit-put ...\n"
    "    (every settable queue attribute, by its word)\n"
    "  adduser NAME USER [--admin]       add or update a user; password read from stdin\n"
    "  authorize NAME USER none|connect|admin\n"
    "                                    set what a user (local or TCP) may do\n"
    "  deluser NAME USER                 remove a user\n"
    "  users NAME                        list users and authorities\n"
    "  fingerprint NAME                  print the SHA-256 fingerprint of its TLS certificate\n"
    "  certificate NAME                  make a new self-signed TLS certificate and key\n"
    "                                    (used from the next start)\n";

int usage() {
  std::cerr << kUsage;
  return kExitUsage;
}

int fail(const std::string &msg, int code = kExitFailed) {
  std::cerr << "jxqm: " << msg << std::endl;
  return code;
}

// A queue manager's folder is its owner's alone: another user hears so in
// one line before anything tries to use it. 0, or the exit status.
int checkFolder(const std::string &name) {
  const std::string dir = jxqp::qmgrDir(name);
  struct stat st;
  const bool found = stat(dir.c_str(), &st) == 0;
  if (!found && errno == ENOENT)
    return fail("queue manager " + name + " does not exist", kExitUsage);
  if (!found || access(dir.c_str(), R_OK | W_OK | X_OK) != 0)
    return fail("no access to queue manager " + name + " (" + dir + "): " + std::strerror(errno),
                kExitUsage);
  std::error_code ec;
  if (!fs::exists(dir + "/" + jxqp::kDbFile, ec))
    return fail("queue manager " + name + " does not exist", kExitUsage);
  return kExitOk;
}

std::string serverProgram() {
  if (const char *env = std::getenv("JX_QMGR_PROGRAM")) return env;
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return "jxqmgr";
  self[n] = 0;
  return (fs::path(self).parent_path() / "jxqmgr").string();
}

bool parseInt(const char *s, int32_t lo, int32_t hi, int32_t &out) {
  char *end = nullptr;
  errno = 0;
  long v = std::strtol(s, &end, 10);
  if (errno || !end || *end || end == s || v < lo || v > hi) return false;
  out = static_cast<int32_t>(v);
  return true;
}

// Options of start that go to the server as they are; it checks their values.
const char *const kServerOptions[] = {
    "--listen",           "--hello-timeout",  "--poll-us",       "--frame-timeout-ms",
    "--buffer-budget-mb", "--login-delay-ms", "--peer-log-lines"};
// Switches of start that go to the server, without a value.
const char *const kServerSwitches[] = {"--no-command-server"};

int cmdStart(const std::string &name, const std::vector<std::string> &args) {
  std::vector<std::string> passOn;
  for (size_t i = 0; i < args.size(); ++i) {
    if (std::find(std::begin(kServerSwitches), std::end(kServerSwitches), args[i]) !=
        std::end(kServerSwitches)) {
      passOn.push_back(args[i]);
      continue;
    }
    const bool known = std::find(std::begin(kServerOptions), std::end(kServerOptions), args[i]) !=
                       std::end(kServerOptions);
    if (!known || i + 1 >= args.size()) return usage();
    passOn.push_back(args[i]);
    passOn.push_back(args[++i]);
  }
  std::string dir = jxqp::qmgrDir(name);
  long pid = 0;
  if (jxqm::queueManagerRunning(dir, pid))
    return fail("queue manager " + name + " is already running (pid " + std::to_string(pid) + ")");
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return fail(std::string("pipe: ") + std::strerror(errno));
  std::string prog = serverProgram();
  pid_t child = fork();
  if (child < 0) return fail(std::string("fork: ") + std::strerror(errno));
  if (child == 0) {
    setsid();
    // The server keeps nothing of ours open but the ready pipe, as fd 3.
    if (ready[1] != 3) {
      dup2(ready[1], 3);
      close(ready[1]);
    }
    ready[1] = 3;
    close_range(4, ~0U, 0);
    int devnull = open("/dev/null", O_RDWR);
    int logFd = open((dir + "/" + jxqp::kLogFile).c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(devnull, 0);
    dup2(logFd >= 0 ? logFd : devnull, 1);
    dup2(logFd >= 0 ? logFd : devnull, 2);
    if (devnull > 3) close(devnull);
    if (logFd > 3) close(logFd);
    std::string fd = std::to_string(ready[1]);
    std::vector<const char *> argv = {prog.c_str(), name.c_str(), "--ready-fd", fd.c_str()};
    for (const std::string &a : passOn) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    execv(prog.c_str(), const_cast<char *const *>(argv.data()));
    _exit(127);
  }
  close(ready[1]);
  char buf[16] = {};
  ssize_t n;
  do n = read(ready[0], buf, sizeof buf - 1);
  while (n < 0 && errno == EINTR);
  close(ready[0]);
  if (n > 0 && std::strncmp(buf, "ready", 5) == 0) {
    // The server runs on in its own session; it is reaped by init.
    std::cout << "queue manager " << name << " started (pid " << child << ")" << std::endl;
    return kExitOk;
  }
  int status = 0;
  waitpid(child, &status, 0);
  return fail("queue manager " + name + " did not start (exit status " +
              std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)) +
              "); see " + dir + "/" + jxqp::kLogFile);
}

int cmdStop(const std::string &name) {
  std::string dir = jxqp::qmgrDir(name);
  long pid = 0;
  if (!jxqm::queueManagerRunning(dir, pid))
    return fail("queue manager " + name + " is not running", kExitNotRunning);
  if (pid <= 0 || kill(static_cast<pid_t>(pid), SIGTERM) != 0)
    return fail("cannot signal queue manager " + name);
  for (int i = 0; i < 600; ++i) {
    long p;
    if (!jxqm::queueManagerRunning(dir, p)) {
      std::cout << "queue manager " << name << " stopped" << std::endl;
      return kExitOk;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return fail("queue manager " + name + " did not stop within 30 seconds");
}

// ---- definitions ----

const char *kVerbs[] = {"define", "alter", "undefine"};

// A definition command as the administration calls take it.
struct Definition {
  int32_t command = 0;
  std::string queue;
  int32_t type = 0;  // define: JXQT_LOCAL unless --model; alter: 0, whatever it is
  bool replace = false, purge = false;
  jxqm::AttrList attributes;
};

// Parses --WORD VALUE (any settable queue attribute, and definition-type
// when defining) and the verbs' flags. 0, or the exit status of a refusal.
int parseDefinition(const std::string &verb, const std::vector<std::string> &args, Definition &d) {
  if (args.empty()) return usage();
  d.queue = args[0];
  if (!jxqm::validQueueName(d.queue))
    return fail("invalid queue name '" + d.queue + "'", kExitUsage);
  const bool defining = verb == "define";
  d.command = defining          ? JXCMD_CREATE_QUEUE
              : verb == "alter" ? JXCMD_CHANGE_QUEUE
                                : JXCMD_DELETE_QUEUE;
  if (defining) d.type = JXQT_LOCAL;
  auto set = [&](int32_t selector, int32_t value) {
    d.attributes.push_back({selector, value, {}});
  };
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string &a = args[i];
    if (d.command == JXCMD_DELETE_QUEUE) {
      if (a != "--purge") return usage();
      d.purge = true;
    } else if (defining && a == "--replace") {
      d.replace = true;
    } else if (defining && (a == "--model" || a == "--permanent-dynamic")) {
      d.type = JXQT_MODEL;
      set(JXIA_DEFINITION_TYPE, a == "--model" ? JXQDT_TEMPORARY_DYNAMIC : JXQDT_PERMANENT_DYNAMIC);
    } else if (a == "--persistent") {
      set(JXIA_DEF_PERSISTENCE, JXPER_PERSISTENT);
    } else {
      const jxqm::Attribute *row =
          a.starts_with("--") ? jxqm::findAttribute(jxqm::Object::Queue, a.substr(2)) : nullptr;
      const bool allowed = row && (row->access == jxqm::Access::Settable ||
                                   (defining && row->selector == JXIA_DEFINITION_TYPE));
      if (!allowed || i + 1 >= args.size()) return usage();
      const std::string &value = args[++i];
      jxqm::AttrValue v{row->selector, 0, {}};
      if (row->integer()) {
        if (!parseInt(value.c_str(), row->min, row->max, v.number))
          return fail(
              a + " must be " + std::to_string(row->min) + " to " + std::to_string(row->max),
              kExitUsage);
      } else {
        if (value.size() > static_cast<size_t>(row->length))
          return fail(a + " is at most " + std::to_string(row->length) + " characters", kExitUsage);
        v.text = value;
      }
      d.attributes.push_back(std::move(v));
    }
  }
  if (d.command == JXCMD_CHANGE_QUEUE && d.attributes.empty()) return usage();
  return kExitOk;
}

jxqm::AdminResult runDefinition(jxqm::Administration &admin, const Definition &d) {
  switch (d.command) {
    case JXCMD_CREATE_QUEUE:
      return admin.createQueue(d.queue, d.type, d.attributes, d.replace);
    case JXCMD_CHANGE_QUEUE:
      return admin.changeQueue(d.queue, d.type, d.attributes);
    default:
      return admin.deleteQueue(d.queue, d.purge);
  }
}

// The queue manager is stopped: its own administration calls, in this
// process, with its lock held so that it cannot start meanwhile.
// Returns false when it is running after all.
bool defineOffline(const std::string &name, const Definition &d, jxqm::AdminResult &result,
                   std::string &err) {
  const std::string dir = jxqp::qmgrDir(name);
  int lock = open((dir + "/" + jxqp::kLockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock < 0) {
    err = std::string("cannot open the lock file: ") + std::strerror(errno);
    result = {JXCC_FAILED, JXRC_RESOURCE_PROBLEM, 0};
    return true;
  }
  if (flock(lock, LOCK_EX | LOCK_NB) != 0) {
    close(lock);
    return false;
  }
  jxqm::Store store;
  if (!store.open(dir + "/" + jxqp::kDbFile, false, err)) {
    result = {JXCC_FAILED, JXRC_RESOURCE_PROBLEM, 0};
  } else {
    jxqm::QueueManager qm(name, store);
    if (!qm.load()) {
      err = "cannot load the queue manager: " + store.lastError();
      result = {JXCC_FAILED, JXRC_RESOURCE_PROBLEM, 0};
    } else {
      jxqm::Administration admin(qm);
      result = runDefinition(admin, d);
      if (!qm.endTurn()) result = {JXCC_FAILED, JXRC_RESOURCE_PROBLEM, 0};
    }
  }
  close(lock);
  return true;
}

// The queue manager runs: the same calls over a connection, which it
// answers for administrators only.
jxqm::AdminResult defineOnline(const std::string &name, const Definition &d) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {};
  std::memcpy(qmgr, name.data(), name.size());
  int32_t hconn = 0, cc = 0, rc = 0;
  zstJXCONN(qmgr, &hconn, &cc, &rc, 0);
  if (cc != JXCC_OK) return {cc, rc, 0};
  jxqp::AdminRequest request;
  request.command = d.command;
  request.name = d.queue;
  request.queueType = d.type;
  request.flags = (d.replace ? jxqp::kAdminReplace : 0) | (d.purge ? jxqp::kAdminPurge : 0);
  for (const jxqm::AttrValue &v : d.attributes)
    request.attributes.push_back({v.selector, v.number, v.text});
  jxqp::AdminReply reply;
  zstAdminCommand(hconn, request, reply);
  zstJXDISC(&hconn, 0, &cc, &rc);
  return {reply.cc, reply.rc, reply.parameter};
}

int cmdDefinition(const std::string &verb, const std::string &name,
                  const std::vector<std::string> &args) {
  Definition d;
  if (int rc = parseDefinition(verb, args, d)) return rc;
  jxqm::AdminResult result;
  std::string err;
  long pid;
  if (jxqm::queueManagerRunning(jxqp::qmgrDir(name), pid) || !defineOffline(name, d, result, err))
    result = defineOnline(name, d);
  const char *done = d.command == JXCMD_CREATE_QUEUE   ? "defined"
                     : d.command == JXCMD_CHANGE_QUEUE ? "altered"
                                                       : "deleted";
  if (result.ok()) {
    std::cout << "queue " << d.queue << " " << done << std::endl;
    return kExitOk;
  }
  std::string why = "reason " + std::to_string(result.rc) + " (" +
                    (jxReasonWords(result.rc) ? jxReasonWords(result.rc) : "unknown reason") + ")";
  if (const jxqm::Attribute *a = jxqm::findAttribute(jxqm::Object::Queue, result.parameter))
    why += std::string(", --") + a->word;
  if (!err.empty()) why += ": " + err;
  return fail("queue " + d.queue + " not " + done + ": " + why);
}

int openStore(const std::string &name, jxqm::Store &st) {
  std::string err;
  jxqm::StoreFault fault;
  if (!jxqm::StoreFault::fromEnvironment(fault, err)) return fail(err, kExitUsage);
  st.inject(fault);
  if (!st.open(jxqp::qmgrDir(name) + "/" + jxqp::kDbFile, false, err))
    return fail("cannot open database: " + err);
  return kExitOk;
}

int parseAuthority(const std::string &s, int32_t &out) {
  if (s == "none")
    out = jxqm::kAuthNone;
  else if (s == "connect")
    out = jxqm::kAuthConnect;
  else if (s == "admin")
    out = jxqm::kAuthAdmin;
  else
    return fail("authority must be none, connect or admin", kExitUsage);
  return kExitOk;
}

bool validUser(const std::string &u) {
  if (u.empty() || u.size() > 64) return false;
  for (char c : u)
    if (c <= ' ' || c == 127) return false;
  return true;
}

int cmdAddUser(const std::string &name, const std::vector<std::string> &args) {
  if (args.empty() || args.size() > 2 || (args.size() == 2 && args[1] != "--admin")) return usage();
  if (!validUser(args[0])) return fail("user names are 1 to 64 printable characters", kExitUsage);
  std::string password;
  if (!std::getline(std::cin, password) || password.empty())
    return fail("no password on standard input", kExitUsage);
  if (password.size() > 64) return fail("passwords are at most 64 characters", kExitUsage);
  std::string hash = jxqm::hashPassword(password);
  if (hash.empty()) return fail("cannot hash the password");
  jxqm::Store st;
  if (int rc = openStore(name, st)) return rc;
  int32_t authority = args.size() == 2 ? jxqm::kAuthAdmin : jxqm::kAuthConnect;
  if (!st.setUser(args[0], &hash, authority)) return fail("cannot store user: " + st.lastError());
  std::cout << "user " << args[0] << " set" << std::endl;
  return kExitOk;
}

int cmdAuthorize(const std::string &name, const std::vector<std::string> &args) {
  if (args.size() != 2) return usage();
  if (!validUser(args[0])) return fail("user names are 1 to 64 printable characters", kExitUsage);
  int32_t authority = jxqm::kAuthNone;
  if (int rc = parseAuthority(args[1], authority)) return rc;
  jxqm::Store st;
  if (int rc = openStore(name, st)) return rc;
  if (!st.setUser(args[0], nullptr, authority)) return fail("cannot store user: " + st.lastError());
  std::cout << "user " << args[0] << " authority " << args[1] << std::endl;
  return kExitOk;
}

// Prints the certificate's fingerprint, after making a new one for
// "certificate". A running queue manager keeps the pair it started with.
int cmdCertificate(const std::string &cmd, const std::string &name) {
  const std::string dir = jxqp::qmgrDir(name);
  std::string err, fingerprint;
  if (cmd == "certificate" && !jxqm::makeCertificate(dir, name, err)) return fail(err);
  if (!jxqm::certificateFingerprint(dir + "/" + jxqp::kCertFile, fingerprint, err))
    return fail(err);
  std::cout << fingerprint << std::endl;
  return kExitOk;
}

int run(int argc, char **argv) {
  if (argc < 3) return usage();
  std::string cmd = argv[1], name = argv[2];
  std::vector<std::string> args(argv + 3, argv + argc);
  if (!jxqp::validQMgrName(name))
    return fail("invalid queue manager name '" + name + "' (1 to 48 of A-Z a-z 0-9 . _ %)",
                kExitUsage);
  umask(077);
  if (cmd == "create") {
    if (!args.empty()) return usage();
    std::string err;
    if (!jxqm::createQueueManager(name, err)) return fail(err);
    std::cout << "queue manager " << name << " created" << std::endl;
    return kExitOk;
  }
  if (int rc = checkFolder(name)) return rc;
  if (cmd == "start") return cmdStart(name, args);
  const char *const bare[] = {"stop", "status", "delete", "users", "fingerprint", "certificate"};
  if (!args.empty() && std::find(std::begin(bare), std::end(bare), cmd) != std::end(bare))
    return usage();
  if (cmd == "fingerprint" || cmd == "certificate") return cmdCertificate(cmd, name);
  if (cmd == "stop") return cmdStop(name);
  if (cmd == "status") {
    long pid;
    if (jxqm::queueManagerRunning(jxqp::qmgrDir(name), pid)) {
      std::cout << "queue manager " << name << " running (pid " << pid << ")" << std::endl;
      return kExitOk;
    }
    std::cout << "queue manager " << name << " stopped" << std::endl;
    return kExitNotRunning;
  }
  if (cmd == "delete") {
    long pid;
    if (jxqm::queueManagerRunning(jxqp::qmgrDir(name), pid))
      return fail("queue manager " + name + " is running: stop it first");
    std::error_code ec;
    fs::remove_all(jxqp::qmgrDir(name), ec);
    if (ec) return fail("cannot delete: " + ec.message());
    std::cout << "queue manager " << name << " deleted" << std::endl;
    return kExitOk;
  }
  if (std::find(std::begin(kVerbs), std::end(kVerbs), cmd) != std::end(kVerbs))
    return cmdDefinition(cmd, name, args);
  if (cmd == "adduser") return cmdAddUser(name, args);
  if (cmd == "authorize") return cmdAuthorize(name, args);
  if (cmd == "deluser") {
    if (args.size() != 1) return usage();
    jxqm::Store st;
    if (int rc = openStore(name, st)) return rc;
    const jxqm::Lookup removed = st.deleteUser(args[0]);
    if (removed == jxqm::Lookup::Missing) return fail("no user " + args[0]);
    if (removed == jxqm::Lookup::Failed)
      return fail("cannot remove user " + args[0] + ": " + st.lastError());
    std::cout << "user " << args[0] << " removed" << std::endl;
    return kExitOk;
  }
  if (cmd == "users") {
    jxqm::Store st;
    if (int rc = openStore(name, st)) return rc;
    std::vector<std::pair<std::string, int32_t>> users;
    if (!st.listUsers(users)) return fail("cannot list users: " + st.lastError());
    const char *names[] = {"none", "connect", "admin"};
    for (auto &[u, a] : users) std::cout << u << ' ' << names[a >= 0 && a <= 2 ? a : 0] << '\n';
    return kExitOk;
  }
  return usage();
}

}  // namespace

int main(int argc, char **argv) {
  // Whatever the library below throws (a file system error, memory) ends
  // the command with its words, never with an abort.
  try {
    return run(argc, argv);
  } catch (const std::exception &e) {
    return fail(e.what());
  } catch (...) {
    return fail("unexpected failure");
  }
}
