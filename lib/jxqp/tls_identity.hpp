// How a queue manager's certificate is pinned: the SHA-256 digest of its DER
// encoding in hexadecimal, as `jxqm fingerprint` prints it and clients take
// it (JX_TLS_FINGERPRINT, the connect options).
#pragma once

#include <openssl/x509.h>

#include <string>
#include <string_view>

namespace jxqp {

inline constexpr size_t kFingerprintBytes = 32;

// 64 lowercase hexadecimal digits; empty when the digest fails.
std::string certificateFingerprint(X509 *cert);
// A fingerprint as a person writes it: upper or lower case, bytes optionally
// separated by colons. The canonical form, or empty when it is not one.
std::string canonicalFingerprint(std::string_view text);

}  // namespace jxqp
