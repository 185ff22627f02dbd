#include "tls_identity.hpp"

#include <openssl/evp.h>

#include <cctype>

namespace jxqp {

namespace {

constexpr char kHex[] = "0123456789abcdef";

}  // namespace

std::string certificateFingerprint(X509 *cert) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (!cert || X509_digest(cert, EVP_sha256(), md, &n) != 1 || n != kFingerprintBytes) return {};
  std::string out;
  for (unsigned int i = 0; i < n; ++i) {
    out += kHex[md[i] >> 4];
    out += kHex[md[i] & 0xf];
  }
  return out;
}

std::string canonicalFingerprint(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    // A colon only between two whole bytes.
    if (c == ':' && out.size() % 2 == 0 && !out.empty() && i + 1 < text.size()) continue;
    if (!std::isxdigit(c)) return {};
    out += static_cast<char>(std::tolower(c));
  }
  return out.size() == 2 * kFingerprintBytes ? out : std::string();
}

}  // namespace jxqp
