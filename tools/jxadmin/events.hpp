// jxadmin events: the event messages of every queue manager named, read off
// the three event queues with jxGetBag.
#pragma once

#include "command_line.hpp"

namespace jxadmin {

// Without --follow, takes every event waiting and shows them; with it,
// shows each as it arrives until SIGINT or SIGTERM.
int runEvents(const CommandLine &line);

}  // namespace jxadmin
