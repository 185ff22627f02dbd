// Persistent messages survive a kill -9 of the queue manager under load,
// each exactly once; non-persistent ones do not.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

constexpr int kClients = 4;

// Puts persistent messages "P <client> <n>" (and every fourth time a
// non-persistent one) until the queue manager goes away; writes the text of
// each message whose put returned success to `fd`.
[[noreturn]] void producer(const std::string &qmgr, int client, int fd) {
  int32_t h = 0;
  if (tryConnect(qmgr, h) != JXRC_NONE) _exit(1);
  int32_t pq = openQueue(h, "PQ", JXOO_OUTPUT);
  int32_t nq = openQueue(h, "NQ", JXOO_OUTPUT);
  for (int n = 0;; ++n) {
    bool persistent = n % 4 != 3;
    std::string text =
        (persistent ? "P " : "N ") + std::to_string(client) + " " + std::to_string(n);
    if (put(h, persistent ? pq : nq, text, nullptr, JXPMO_NO_SYNCPOINT,
            persistent ? JXPER_PERSISTENT : JXPER_NOT_PERSISTENT) != JXRC_NONE)
      _exit(0);
    text += "\n";
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) _exit(2);
  }
}

using Persistence = ServerTest;

TEST_F(Persistence, AcknowledgedPersistentMessagesSurviveKillNine) {
  QueueManagerProcess qm({"PQ --max-depth 1000000", "NQ --max-depth 1000000"});
  Reporters clients(kClients, [&](int c, int fd) { producer(qm.name(), c, fd); });
  // Let the load build up, then crash the queue manager in the middle of it.
  clients.collect(1000);
  qm.kill9();
  clients.drain();
  for (int c = 0; c < kClients; ++c) EXPECT_TRUE(clients.endedCleanly(c)) << "client " << c;

  std::set<std::string> ackedPersistent;
  size_t ackedOther = 0;
  std::istringstream lines(clients.lines());
  for (std::string line; std::getline(lines, line);) {
    if (line[0] == 'P')
      ackedPersistent.insert(line);
    else
      ++ackedOther;
  }
  ASSERT_GT(ackedPersistent.size(), 20u) << "too little load to mean anything";
  EXPECT_GT(ackedOther, 0u);

  ASSERT_TRUE(qm.start());
  int32_t h = connect(qm.name());
  expectAcknowledgedOnce(ackedPersistent, drainQueue(h, "PQ"), kClients);
  int32_t nq = openQueue(h, "NQ", JXOO_INPUT_SHARED);
  EXPECT_EQ(get(h, nq).rc, JXRC_NO_MSG_AVAILABLE) << "non-persistent messages end with the process";
  disconnect(h);
}

}  // namespace
