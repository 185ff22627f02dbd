// A queue manager's TLS identity: the self-signed certificate and key that
// jxqm makes in its folder, and the fingerprint an operator pins.
#pragma once

#include <string>

namespace jxqm {

// How long a made certificate is valid.
inline constexpr long kCertificateDays = 3650;

// Writes a new EC P-256 key (mode 0600) and a certificate for it, signed by
// itself and naming the queue manager, into `dir`, each replacing any file
// there (the key first, each file whole or not at all). False with `err`
// set when any step fails; a key left without its certificate is refused
// when the queue manager starts.
bool makeCertificate(const std::string &dir, const std::string &qmgrName, std::string &err);
// The SHA-256 fingerprint of the PEM certificate in `path`.
bool certificateFingerprint(const std::string &path, std::string &fingerprint, std::string &err);

}  // namespace jxqm
