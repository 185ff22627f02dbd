// Helpers for tests that run real queue managers: the control tool, unique
// queue-manager names, connections and small message helpers.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxqm.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "jxiz.h"

namespace qmtest {

// Folder holding jxqm and jxqmgr (native even in the i386 build); empty when unknown.
std::string binDir();
bool serverAvailable();
// The folder of a queue manager under this run's data root.
std::string qmgrDir(const std::string &qmgr);
// Its TLS certificate, which TCP clients trust.
std::string certificateFile(const std::string &qmgr);
// "127.0.0.1:PORT" with a port that nothing listens on just now.
std::string freeTcpAddress();

struct ToolResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;  // stdout and stderr together
};
// Runs jxqm with the arguments; `input` goes to its standard input and
// `setup` runs in the new process before the program starts.
ToolResult jxqm(const std::vector<std::string> &args, const std::string &input = "",
                const std::function<void()> &setup = {});

std::string uniqueName(const char *prefix);

// A created and started queue manager, stopped and deleted at the end. Each
// start makes its certificate the one TCP connections trust (JX_TLS_TRUST)
// until another queue manager starts or this one goes.
class QueueManagerProcess {
 public:
  // Queues: each "NAME[ options...]" is passed to `jxqm define` before the start.
  explicit QueueManagerProcess(const std::vector<std::string> &queues = {"Q1"},
                               const std::vector<std::string> &startArgs = {},
                               bool startNow = true);
  ~QueueManagerProcess();
  const std::string &name() const { return name_; }
  pid_t pid() const;
  bool start(const std::vector<std::string> &args = {});
  bool stop();
  void kill9();

 private:
  std::string name_;
};

// Connects to the named queue manager and returns the reason; the handle is
// left alone when the connect fails.
int32_t tryConnect(const std::string &qmgr, int32_t &hconn);
// Connects over TCP (TLS) to `where` ("HOST:PORT") as `user`; returns the
// reason and leaves the handle alone when the connect fails.
int32_t tcpConnect(const std::string &where, const std::string &user, const std::string &password,
                   int32_t &hconn);
// The reason of a TCP connect; a connection made is ended again.
int32_t tcpLogin(const std::string &where, const std::string &user, const std::string &password);
// What the queue manager has logged (qm.log) from byte `from` on.
std::string qmLog(const std::string &qmgr, size_t from = 0);
// Connects to the named queue manager; fails the test on error.
int32_t connect(const std::string &qmgr);
void disconnect(int32_t &hconn);
int32_t openQueue(int32_t hconn, const std::string &queue, int32_t options);
// Puts `data` with the given persistence and options; returns the reason.
int32_t put(int32_t hconn, int32_t hobj, const std::string &data, JXMD *mdOut = nullptr,
            int32_t options = JXPMO_NO_SYNCPOINT, int32_t persistence = JXPER_NOT_PERSISTENT);
struct Got {
  int32_t cc = -1, rc = -1, dataLength = -1;
  std::string data;
  JXMD md = JXMD_DEFAULT;
};
Got get(int32_t hconn, int32_t hobj, int32_t options = JXGMO_NO_SYNCPOINT, int32_t wait = 0,
        int32_t bufferLength = 4096, const JXMD *selector = nullptr,
        int32_t match = JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID);
void setName(char *field, const std::string &s);
// The reason of opening the queue; a queue that opens is closed again.
int32_t openReason(int32_t hconn, const std::string &queue, int32_t options = JXOO_OUTPUT);
// A plain stream socket connected to the queue manager's own socket. Its
// receive timeout ends a wait before the server's default hello timeout
// would close the connection, so only a deliberate close counts.
int rawSocket(const std::string &qmgr);
// Whether the server closes the connection: reads until its end, a reset
// or the receive timeout.
bool closedByServer(int fd);
// A plain TCP socket connected to a loopback "HOST:PORT", with a receive
// timeout of `seconds`; -1 when it cannot connect.
int rawTcpSocket(const std::string &where, int seconds);

// Runs `body` in a forked child and returns its exit status (128 + signal
// when it was killed).
int inChild(const std::function<int()> &body);
// A child that ran `body`, reported its result and now waits to be killed.
struct HeldChild {
  pid_t pid = -1;
  std::string said;
  void kill();
};
HeldChild holdInChild(const std::function<std::string()> &body);

// Child processes that put messages and report each acknowledged one as a
// line on a shared pipe, for crash tests.
class Reporters {
 public:
  // Forks `count` children running `body(client, fd)`, which never returns.
  Reporters(int count, const std::function<void(int client, int fd)> &body);
  ~Reporters();
  Reporters(const Reporters &) = delete;
  Reporters &operator=(const Reporters &) = delete;
  // Adds what arrives in about `ms` milliseconds.
  void collect(int ms);
  // Adds everything still to come, until every child has closed the pipe.
  void drain();
  // Kills one child and waits for it.
  void kill(int client);
  // Waits for one child: whether it ended by itself with status 0.
  bool endedCleanly(int client);
  const std::string &lines() const { return lines_; }

 private:
  int fd_ = -1;
  std::vector<pid_t> pids_;
  std::string lines_;
};

// The messages a queue holds, each with how often it is there.
std::map<std::string, int> drainQueue(int32_t h, const char *queue);
// Every acknowledged message is there exactly once; only puts in flight when
// their client or the queue manager died (at most `inFlight`) may be there
// without an acknowledgement.
void expectAcknowledgedOnce(const std::set<std::string> &acked,
                            const std::map<std::string, int> &seen, size_t inFlight);

// Skips tests when no native server programs are known.
class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!serverAvailable()) GTEST_SKIP() << "no native jxqmgr (set JX_NATIVE_BIN_DIR)";
  }
};

// One running queue manager with the given queues and a connection to it.
class ConnectedTest : public ServerTest {
 protected:
  explicit ConnectedTest(std::vector<std::string> queues = {"Q1"}) : queues_(std::move(queues)) {}
  void SetUp() override {
    ServerTest::SetUp();
    if (IsSkipped()) return;
    qm_ = std::make_unique<QueueManagerProcess>(queues_);
    hconn_ = connect(qm_->name());
  }
  void TearDown() override {
    if (hconn_ > 0) disconnect(hconn_);
    qm_.reset();
  }
  // Stops the queue manager (kill -9 when `crash`), starts it again and
  // connects anew.
  void restart(bool crash = false) {
    if (crash) {
      qm_->kill9();
    } else {
      disconnect(hconn_);
      ASSERT_TRUE(qm_->stop());
    }
    ASSERT_TRUE(qm_->start());
    hconn_ = connect(qm_->name());
  }
  std::vector<std::string> queues_;
  std::unique_ptr<QueueManagerProcess> qm_;
  int32_t hconn_ = 0;
};

// One queue manager for a whole suite, which the suite's SetUpTestSuite
// makes into qm(), and a connection for each test.
class SuiteQueueManagerTest : public ServerTest {
 protected:
  static void TearDownTestSuite() { qm().reset(); }
  static std::unique_ptr<QueueManagerProcess> &qm() {
    static std::unique_ptr<QueueManagerProcess> p;
    return p;
  }
  void SetUp() override {
    ServerTest::SetUp();
    if (!IsSkipped()) hconn_ = connect(qm()->name());
  }
  void TearDown() override {
    if (hconn_ > 0) disconnect(hconn_);
  }
  int32_t hconn_ = 0;
};

}  // namespace qmtest
