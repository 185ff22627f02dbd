#include "certificate.hpp"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "qm_paths.hpp"
#include "tls_identity.hpp"

namespace jxqm {

namespace {

constexpr int kSerialBits = 127;  // positive and 16 bytes at most
constexpr long kSecondsPerDay = 86400;
constexpr int kCertMode = 0644, kKeyMode = 0600;

template <class T, void (*F)(T *)>
struct Free {
  void operator()(T *p) const { F(p); }
};
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY, EVP_PKEY_free>>;
using Cert = std::unique_ptr<X509, Free<X509, X509_free>>;
using Bio = std::unique_ptr<BIO, Free<BIO, BIO_free_all>>;
using Serial = std::unique_ptr<BIGNUM, Free<BIGNUM, BN_free>>;

std::string opensslError(const char *what) {
  char buf[256] = "unknown error";
  if (unsigned long e = ERR_get_error()) ERR_error_string_n(e, buf, sizeof buf);
  ERR_clear_error();
  return std::string(what) + ": " + buf;
}

bool addExtension(X509 *cert, int nid, const char *value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
  X509_EXTENSION *ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
  bool ok = ext && X509_add_ext(cert, ext, -1) == 1;
  X509_EXTENSION_free(ext);
  return ok;
}

Cert selfSigned(EVP_PKEY *key, const std::string &qmgrName) {
  Cert cert(X509_new());
  Serial serial(BN_new());
  X509_NAME *name = cert ? X509_get_subject_name(cert.get()) : nullptr;
  const auto *cn = reinterpret_cast<const unsigned char *>(qmgrName.c_str());
  bool ok = cert && serial && name && X509_set_version(cert.get(), X509_VERSION_3) == 1 &&
            BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
            BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())) &&
            X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) &&
            X509_gmtime_adj(X509_getm_notAfter(cert.get()), kCertificateDays * kSecondsPerDay) &&
            X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, cn, -1, -1, 0) == 1 &&
            X509_set_issuer_name(cert.get(), name) == 1 && X509_set_pubkey(cert.get(), key) == 1 &&
            addExtension(cert.get(), NID_basic_constraints, "critical,CA:FALSE") &&
            addExtension(cert.get(), NID_key_usage, "critical,digitalSignature") &&
            addExtension(cert.get(), NID_ext_key_usage, "serverAuth") &&
            addExtension(cert.get(), NID_subject_key_identifier, "hash") &&
            X509_sign(cert.get(), key, EVP_sha256()) > 0;
  if (!ok) cert.reset();
  return cert;
}

// Writes `data` to a new file beside `path` with `mode`, then renames it
// over `path`: a reader sees the old file or the whole new one.
bool replaceFile(const std::string &path, const std::string &data, int mode, std::string &err) {
  const std::string tmp = path + ".new";
  unlink(tmp.c_str());
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  bool ok = fd >= 0 && fchmod(fd, static_cast<mode_t>(mode)) == 0;
  for (size_t done = 0; ok && done < data.size();) {
    ssize_t n = write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) done += static_cast<size_t>(n);
  }
  ok = ok && fsync(fd) == 0;
  if (fd >= 0 && close(fd) != 0) ok = false;
  ok = ok && rename(tmp.c_str(), path.c_str()) == 0;
  if (!ok) {
    err = "cannot write " + path + ": " + std::strerror(errno);
    unlink(tmp.c_str());
  }
  return ok;
}

template <class Write>
std::string pem(Write write) {
  Bio bio(BIO_new(BIO_s_mem()));
  if (!bio || !write(bio.get())) return {};
  char *p = nullptr;
  long n = BIO_get_mem_data(bio.get(), &p);
  return n > 0 ? std::string(p, static_cast<size_t>(n)) : std::string();
}

}  // namespace

bool makeCertificate(const std::string &dir, const std::string &qmgrName, std::string &err) {
  Key key(EVP_EC_gen("P-256"));
  if (!key) {
    err = opensslError("cannot make a key");
    return false;
  }
  Cert cert = selfSigned(key.get(), qmgrName);
  if (!cert) {
    err = opensslError("cannot make a certificate");
    return false;
  }
  const std::string keyPem = pem([&](BIO *b) {
    return PEM_write_bio_PrivateKey(b, key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1;
  });
  const std::string certPem = pem([&](BIO *b) { return PEM_write_bio_X509(b, cert.get()) == 1; });
  if (keyPem.empty() || certPem.empty()) {
    err = opensslError("cannot encode the certificate");
    return false;
  }
  return replaceFile(dir + "/" + jxqp::kKeyFile, keyPem, kKeyMode, err) &&
         replaceFile(dir + "/" + jxqp::kCertFile, certPem, kCertMode, err);
}

bool certificateFingerprint(const std::string &path, std::string &fingerprint, std::string &err) {
  FILE *f = std::fopen(path.c_str(), "re");
  if (!f) {
    err = "cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  Cert cert(PEM_read_X509(f, nullptr, nullptr, nullptr));
  std::fclose(f);
  fingerprint = jxqp::certificateFingerprint(cert.get());
  if (fingerprint.empty()) err = opensslError((path + " holds no certificate").c_str());
  return !fingerprint.empty();
}

}  // namespace jxqm
