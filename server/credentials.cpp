#include "credentials.hpp"

#include <crypt.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace jxqm {

std::string hashPassword(std::string_view password) {
  std::string pw(password);
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  if (!crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting) &&
      !crypt_gensalt_rn("$6$", 0, nullptr, 0, setting, sizeof setting))
    return {};
  auto data = std::make_unique<crypt_data>();
  const char *h = crypt_r(pw.c_str(), setting, data.get());
  if (!h || h[0] == '*') return {};
  return h;
}

bool verifyPassword(std::string_view password, const std::string &hash) {
  if (hash.empty() || hash[0] != '$') return false;
  std::string pw(password);
  auto data = std::make_unique<crypt_data>();
  const char *h = crypt_r(pw.c_str(), hash.c_str(), data.get());
  if (!h || std::strlen(h) != hash.size()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < hash.size(); ++i) diff |= static_cast<unsigned char>(h[i] ^ hash[i]);
  return diff == 0;
}

const std::string &dummyPasswordHash() {
  static const std::string hash = [] {
    unsigned char random[16];
    std::string password;
    if (getentropy(random, sizeof random) == 0) password.assign(random, random + sizeof random);
    // Without entropy a fixed password is no weaker: the hash is never
    // stored, and no check against it counts as a match.
    if (password.empty()) password = "no such user";
    return hashPassword(password);
  }();
  return hash;
}

}  // namespace jxqm
