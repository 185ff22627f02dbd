// Persistent puts of concurrent clients share commits: a put still returns
// only once its message is committed (clients dying in a group:
// persistence_test). Also: a client waiting for a reply is not disturbed by
// signals.
#include <signal.h>
#include <sqlite3.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

using GroupCommit = ServerTest;

// Each client checks, as soon as its put returns, that another reader of
// the database already sees the message: a reply sent before its group's
// commit would be seen returning while the row is not yet there.
TEST_F(GroupCommit, APutReturnsOnlyOnceItsMessageIsCommitted) {
  QueueManagerProcess qm({"PQ --max-depth 100000"});
  constexpr int kClients = 8, kPuts = 150;
  std::atomic<int> unseen{0}, failed{0};
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c)
    clients.emplace_back([&, c] {
      sqlite3 *db = nullptr;
      sqlite3_stmt *s = nullptr;
      if (sqlite3_open_v2((qmgrDir(qm.name()) + "/qm.db").c_str(), &db, SQLITE_OPEN_READONLY,
                          nullptr) != SQLITE_OK ||
          sqlite3_prepare_v2(db, "SELECT count(*) FROM messages WHERE data = ?1", -1, &s,
                             nullptr) != SQLITE_OK) {
        ++failed;
        sqlite3_close(db);
        return;
      }
      int32_t h = connect(qm.name());
      int32_t q = openQueue(h, "PQ", JXOO_OUTPUT);
      for (int n = 0; n < kPuts; ++n) {
        std::string text = "client " + std::to_string(c) + " put " + std::to_string(n);
        if (put(h, q, text, nullptr, JXPMO_NO_SYNCPOINT, JXPER_PERSISTENT) != JXRC_NONE) {
          ++failed;
          break;
        }
        sqlite3_reset(s);
        sqlite3_bind_blob(s, 1, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        if (sqlite3_step(s) != SQLITE_ROW || sqlite3_column_int(s, 0) != 1) ++unseen;
      }
      disconnect(h);
      sqlite3_finalize(s);
      sqlite3_close(db);
    });
  for (auto &t : clients) t.join();
  EXPECT_EQ(failed.load(), 0);
  EXPECT_EQ(unseen.load(), 0) << "puts returned before their commit";
}

void onAlarm(int) {}

// A client sleeps until its reply arrives; a signal that interrupts that
// sleep must not be taken for a broken connection, in a long get-wait or
// in a reply larger than one receive.
TEST_F(GroupCommit, SignalsDoNotBreakAWaitingCall) {
  QueueManagerProcess qm({"Q1"});
  int32_t h = connect(qm.name());
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  struct sigaction sa {
  }, old{};
  sa.sa_handler = onAlarm;  // no SA_RESTART: every interrupted call sees EINTR
  sigaction(SIGALRM, &sa, &old);
  itimerval every{{0, 500}, {0, 500}}, off{};
  setitimer(ITIMER_REAL, &every, nullptr);
  Got waited = get(h, q, JXGMO_WAIT | JXGMO_NO_SYNCPOINT, 200);
  std::string big(300000, 'b');
  for (size_t i = 0; i < big.size(); i += 7) big[i] = static_cast<char>('a' + i % 26);
  int32_t putRc = put(h, q, big, nullptr, JXPMO_NO_SYNCPOINT, JXPER_PERSISTENT);
  Got got = get(h, q, JXGMO_NO_SYNCPOINT, 0, static_cast<int32_t>(big.size()));
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &old, nullptr);
  EXPECT_EQ(waited.rc, JXRC_NO_MSG_AVAILABLE);
  EXPECT_EQ(putRc, JXRC_NONE);
  EXPECT_EQ(got.rc, JXRC_NONE);
  EXPECT_TRUE(got.data == big) << "the large reply came back altered";
  disconnect(h);
}

}  // namespace
