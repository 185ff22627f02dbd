// Where a queue manager keeps its files, shared by the client, the server
// and the control tool.
#pragma once

#include <string>
#include <string_view>

namespace jxqp {

// <data root>/qmgrs/<name>: the data root is common services' xcsDataRoot.
std::string qmgrDir(std::string_view name);
// 1 to 48 characters from A-Z a-z 0-9 . _ %
bool validQMgrName(std::string_view name);
// A 48-byte blank or zero padded field as a string without the padding.
std::string fieldString(const char *field, size_t width);
// Copies `s` into a fixed field, zero filled.
void setField(char *field, size_t width, std::string_view s);

inline constexpr const char *kQMgrsFolder = "qmgrs";
inline constexpr const char *kSocketFile = "qm.sock";
inline constexpr const char *kPidFile = "qm.pid";
inline constexpr const char *kLockFile = "qm.lock";
inline constexpr const char *kDbFile = "qm.db";
inline constexpr const char *kLogFile = "qm.log";
// The certificate (PEM) TCP clients are shown and its private key (PEM,
// mode 0600); jxqm create makes a self-signed pair, an operator may put
// others in their place.
inline constexpr const char *kCertFile = "qm.crt";
inline constexpr const char *kKeyFile = "qm.key";

}  // namespace jxqp
