// Creating a queue manager's folder and database with its system objects,
// and offline definitions, shared by jxqm and jxqmgr.
#pragma once

#include <string>

#include "store.hpp"

namespace jxqm {

inline constexpr const char *kCommandQueue = "SYSTEM.ADMIN.COMMAND.QUEUE";
inline constexpr const char *kDefaultModelQueue = "SYSTEM.DEFAULT.MODEL.QUEUE";

// Creates <data root>/qmgrs/<name>/ (mode 0700) with its database and a
// self-signed certificate and key for TLS. Fails when the folder exists.
bool createQueueManager(const std::string &name, std::string &err);
// 1 to 48 characters from A-Z a-z 0-9 . _ / %
bool validQueueName(const std::string &name);
// True when another process holds the queue manager's lock (it is running);
// pid is read from the pid file then.
bool queueManagerRunning(const std::string &dir, long &pid);

}  // namespace jxqm
