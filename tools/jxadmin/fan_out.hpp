// Runs the same work against every queue manager at once, one thread each,
// and returns the results in the order the queue managers were named.
#pragma once

#include <functional>
#include <thread>
#include <vector>

#include "admin_session.hpp"

namespace jxadmin {

// work(k) for every k < count, concurrently; the results in order.
template <class Result, class Work>
std::vector<Result> forEach(size_t count, const Work &work) {
  std::vector<Result> results(count);
  if (count == 1) {
    results[0] = work(0);
    return results;
  }
  std::vector<std::thread> threads;
  threads.reserve(count);
  for (size_t k = 0; k < count; ++k) threads.emplace_back([&, k] { results[k] = work(k); });
  for (auto &t : threads) t.join();
  return results;
}

using SessionWork = std::function<Outcome(Session &)>;

// Connects to each target and runs the work there; a failed connect is the
// target's outcome.
std::vector<Outcome> runEverywhere(const std::vector<Target> &targets,
                                   const Credentials &credentials, const SessionWork &work);

}  // namespace jxadmin
