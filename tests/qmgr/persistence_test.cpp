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
  QueueManagerProcess qm({"PQ --maxdepth 1000000", "NQ --maxdepth 1000000"});
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::vector<pid_t> children;
  for (int c = 0; c < kClients; ++c) {
    pid_t p = fork();
    if (p == 0) {
      close(fds[0]);
      producer(qm.name(), c, fds[1]);
    }
    children.push_back(p);
  }
  close(fds[1]);
  // Let the load build up, then crash the queue manager in the middle of it.
  std::string acked;
  char buf[4096];
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  fcntl(fds[0], F_SETFL, O_NONBLOCK);
  while (std::chrono::steady_clock::now() < until) {
    ssize_t n = read(fds[0], buf, sizeof buf);
    if (n > 0)
      acked.append(buf, static_cast<size_t>(n));
    else
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  qm.kill9();
  fcntl(fds[0], F_SETFL, 0);
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;)
    acked.append(buf, static_cast<size_t>(n));
  close(fds[0]);
  for (pid_t p : children) {
    int status = 0;
    waitpid(p, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }

  std::set<std::string> ackedPersistent;
  size_t ackedOther = 0;
  std::istringstream lines(acked);
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
  int32_t pq = openQueue(h, "PQ", JXOO_INPUT_SHARED);
  std::map<std::string, int> seen;
  for (;;) {
    Got g = get(h, pq);
    if (g.rc == JXRC_NO_MSG_AVAILABLE) break;
    ASSERT_EQ(g.rc, JXRC_NONE);
    ++seen[g.data];
  }
  for (const auto &m : ackedPersistent) EXPECT_EQ(seen.count(m), 1u) << "lost: " << m;
  size_t unacknowledged = 0;
  for (const auto &[m, count] : seen) {
    EXPECT_EQ(count, 1) << "duplicated: " << m;
    if (!ackedPersistent.count(m)) ++unacknowledged;
  }
  // Only a put in flight at the crash may be there without its reply.
  EXPECT_LE(unacknowledged, static_cast<size_t>(kClients));
  int32_t nq = openQueue(h, "NQ", JXOO_INPUT_SHARED);
  EXPECT_EQ(get(h, nq).rc, JXRC_NO_MSG_AVAILABLE) << "non-persistent messages end with the process";
  disconnect(h);
}

}  // namespace
