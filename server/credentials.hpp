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
// A hash of a random password, made as hashPassword makes them: a login
// for a user who does not exist is checked against it, so that it takes
// as long as one for a user who does.
const std::string &dummyPasswordHash();

}  // namespace jxqm
