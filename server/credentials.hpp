// Password hashing for the TCP credential store: crypt(3) with a random
// salt ("$y$" yescrypt, falling back to "$6$" SHA-512 where unavailable).
#pragma once

#include <string>
#include <string_view>

namespace jxqm {

// Empty on failure.
std::string hashPassword(std::string_view password);
// Constant-time comparison of the recomputed hash.
bool verifyPassword(std::string_view password, const std::string &hash);

}  // namespace jxqm
