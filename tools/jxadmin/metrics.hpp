// jxadmin metrics: queue and queue-manager figures in the Prometheus text
// format, once on standard output or served at /metrics.
#pragma once

#include <string>
#include <vector>

#include "command_line.hpp"

namespace jxadmin {

int runMetrics(const CommandLine &line);

// The exposition of every target's figures; `outcomes` gets what each
// queue manager's commands did.
std::string collectMetrics(const CommandLine &line, std::vector<Outcome> &outcomes);

}  // namespace jxadmin
