// Runs the same work against every queue manager at once and returns the
// results in the order the queue managers were named.
#pragma once

#include <functional>
#include <vector>

#include "admin_session.hpp"

namespace jxadmin {

// task(k) for every k < count, several at a time (fan_out.cpp says how
// many); returns once every task has.
void runConcurrently(size_t count, const std::function<void(size_t)> &task);

// work(k) for every k < count, concurrently; the results in order.
template <class Result, class Work>
std::vector<Result> forEach(size_t count, const Work &work) {
  std::vector<Result> results(count);
  if (count == 1)
    results[0] = work(0);
  else
    runConcurrently(count, [&](size_t k) { results[k] = work(k); });
  return results;
}

using SessionWork = std::function<Outcome(Session &)>;

// Connects to each target and runs the work there; a failed connect is the
// target's outcome.
std::vector<Outcome> runEverywhere(const std::vector<Target> &targets,
                                   const Credentials &credentials, const SessionWork &work);

}  // namespace jxadmin
