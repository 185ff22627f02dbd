// Persistent messages survive clients killed in the middle of shared commits
// and a kill -9 of the queue manager under load, each exactly once;
// non-persistent ones do not.
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <set>
#include <sstream>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

constexpr int kClients = 6, kKilled = 3;

// Puts messages "P <client> <n>" (every fourth one "N ...", non-persistent,
// to NQ) until the queue manager goes away; writes each acknowledged one to `fd`.
[[noreturn]] void producer(const std::string &qmgr, int client, int fd) {
  int32_t h = 0;
  if (tryConnect(qmgr, h) != JXRC_NONE) _exit(1);
  const int32_t pq = openQueue(h, "PQ", JXOO_OUTPUT), nq = openQueue(h, "NQ", JXOO_OUTPUT);
  for (int n = 0;; ++n) {
    const bool persistent = n % 4 != 3;
    std::string text =
        (persistent ? "P " : "N ") + std::to_string(client) + " " + std::to_string(n);
    if (put(h, persistent ? pq : nq, text, nullptr, JXPMO_NO_SYNCPOINT,
            persistent ? JXPER_PERSISTENT : JXPER_NOT_PERSISTENT) != JXRC_NONE)
      _exit(0);
    text += "\n";
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) _exit(2);
  }
}

struct Acked {
  std::set<std::string> persistent;
  size_t other = 0;
  std::map<int, int> byClient;
};
Acked acked(const std::string &lines) {
  Acked a;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    ++a.byClient[std::atoi(line.c_str() + 2)];
    if (line[0] == 'P')
      a.persistent.insert(line);
    else
      ++a.other;
  }
  return a;
}

using Persistence = ServerTest;

TEST_F(Persistence, AcknowledgedMessagesSurviveDyingClientsAndKillNine) {
  QueueManagerProcess qm({"PQ --max-depth 1000000", "NQ --max-depth 1000000"});
  Reporters clients(kClients, [&](int c, int fd) { producer(qm.name(), c, fd); });
  clients.collect(300);
  for (int c = 0; c < kKilled; ++c) clients.kill(c);
  clients.collect(20);
  const std::map<int, int> atKill = acked(clients.lines()).byClient;
  clients.collect(700);
  qm.kill9();
  clients.drain();
  const Acked atEnd = acked(clients.lines());
  for (int c = kKilled; c < kClients; ++c) {
    EXPECT_TRUE(clients.endedCleanly(c)) << "client " << c;
    EXPECT_GT(atEnd.byClient.at(c), atKill.count(c) ? atKill.at(c) : 0)
        << "client " << c << " was not served after the others died";
  }
  ASSERT_GT(atEnd.persistent.size(), 20u) << "too little load to mean anything";
  EXPECT_GT(atEnd.other, 0u);

  ASSERT_TRUE(qm.start());
  int32_t h = connect(qm.name());
  // Only a put in flight when its client or the queue manager died may be
  // there without its acknowledgement.
  expectAcknowledgedOnce(atEnd.persistent, drainQueue(h, "PQ"), kClients);
  EXPECT_EQ(drainQueue(h, "NQ").size(), 0u) << "non-persistent messages end with the process";
  disconnect(h);
}

}  // namespace
