#include "fan_out.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace jxadmin {
namespace {

using Clock = std::chrono::steady_clock;

// A session mostly waits for replies, so two per CPU keep the CPUs busy
// while the queue managers answer; more only add threads and switches
// between them (on 2 CPUs against 50 queue managers, 4 a CPU took 5-10%
// longer and 8 a CPU 20%), and starting one costs a few hundred
// microseconds of CPU on a virtual machine, as much as a session's own work.
constexpr unsigned kWorkersPerCpu = 2;
// A worker this long on one target (a host that does not answer, a command
// server that takes its time) no longer counts: another starts beside it,
// so that slow targets never hold up the others.
constexpr auto kStall = std::chrono::milliseconds(100);

}  // namespace

void runConcurrently(size_t count, const std::function<void(size_t)> &task) {
  std::mutex m;
  std::condition_variable allDone;
  size_t next = 0, done = 0;
  // When each worker took the task it is on; none between tasks.
  std::vector<std::optional<Clock::time_point>> since;
  since.reserve(count);
  std::vector<std::thread> workers;
  auto work = [&](size_t w) {
    std::unique_lock lock(m);
    while (next < count) {
      const size_t k = next++;
      since[w] = Clock::now();
      lock.unlock();
      task(k);
      lock.lock();
      since[w].reset();
      if (++done == count) allDone.notify_one();
    }
  };
  const size_t pool =
      std::min<size_t>(count, std::max(1u, std::thread::hardware_concurrency()) * kWorkersPerCpu);
  std::unique_lock lock(m);
  auto start = [&](size_t n) {
    for (; n > 0; --n) {
      since.emplace_back();
      workers.emplace_back(work, workers.size());
    }
  };
  start(pool);
  while (!allDone.wait_for(lock, kStall, [&] { return done == count; })) {
    const auto now = Clock::now();
    const size_t stalled = static_cast<size_t>(std::count_if(
        since.begin(), since.end(), [&](const auto &s) { return s && now - *s >= kStall; }));
    const size_t gettingOn = workers.size() - stalled;
    if (gettingOn < pool) start(std::min(pool - gettingOn, count - next));
  }
  lock.unlock();
  for (std::thread &t : workers) t.join();
}

std::vector<Outcome> runEverywhere(const std::vector<Target> &targets,
                                   const Credentials &credentials, const SessionWork &work) {
  return forEach<Outcome>(targets.size(), [&](size_t k) {
    Session session;
    if (int32_t reason = session.connect(targets[k], credentials)) {
      Outcome failed;
      failed.qmgr = targets[k].label();
      failed.failures.push_back({reason, 0});
      return failed;
    }
    return work(session);
  });
}

}  // namespace jxadmin
