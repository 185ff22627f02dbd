// A small blocking HTTP/1.1 server for one resource, /metrics: one
// connection at a time on its own thread, each request bounded in size and
// time, every other path answered 404.
#pragma once

#include <functional>
#include <string>

namespace jxadmin {

// Serves until SIGINT or SIGTERM; returns the exit status. The address is
// HOST:PORT (port 0 picks a free one); the one bound is printed on stderr.
int serveMetrics(const std::string &address, const std::function<std::string()> &render);

}  // namespace jxadmin
