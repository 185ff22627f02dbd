// Password checks away from the event loop. A check costs tens of
// milliseconds of CPU by design; run on the loop it would stall every
// connection. One worker thread takes the checks in the order they are due
// (a check may be held back after failed logins from its address), and the
// loop hears of verdicts through an eventfd it waits on with its sockets.
// One worker: logins queue behind each other, but never take more than
// one CPU from the queue manager's clients.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace jxqm {

class PasswordChecker {
 public:
  struct Verdict {
    uint32_t link = 0;
    bool matched = false;
  };
  PasswordChecker();
  ~PasswordChecker();
  PasswordChecker(const PasswordChecker &) = delete;
  PasswordChecker &operator=(const PasswordChecker &) = delete;

  // False (with why()) when the eventfd or the thread could not be made.
  bool ready() const { return fd_ >= 0 && worker_.joinable(); }
  const std::string &why() const { return why_; }
  // Readable when verdicts wait.
  int fd() const { return fd_; }

  // Checks `password` against `hash` once `notBeforeMs` has come.
  void submit(uint32_t link, std::string password, std::string hash, int64_t notBeforeMs);
  // Forgets a check not yet begun (the connection has gone).
  void cancel(uint32_t link);
  // The verdicts so far.
  std::vector<Verdict> take();
  // Checks submitted and not yet taken.
  size_t outstanding() const;
  // A failure the worker met since the last call ("" when none).
  std::string takeError();

 private:
  struct Job {
    uint32_t link;
    std::string password, hash;
  };
  void work();

  int fd_ = -1;
  std::string why_;
  mutable std::mutex mu_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::multimap<int64_t, Job> due_;  // by the time they may run
  std::vector<Verdict> verdicts_;
  size_t running_ = 0;
  std::string error_;
  std::thread worker_;
};

}  // namespace jxqm
