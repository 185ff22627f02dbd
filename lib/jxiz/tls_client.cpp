#include "tls_client.hpp"

#include <jx/jxqm.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdint>

#include "tls_identity.hpp"

namespace jxiz {

namespace {

// A queue manager that accepts the connection but never finishes the
// handshake does not hold the connecting program forever.
constexpr auto kHandshakeLimit = std::chrono::seconds(30);

// The session's socket calls: send with MSG_NOSIGNAL, so that a queue manager
// gone away fails a call instead of raising SIGPIPE in the program, and
// neither call blocks, so that every wait is a poll.
int socketOf(BIO *b) {
  return static_cast<int>(reinterpret_cast<intptr_t>(BIO_get_data(b)));
}

int bioWrite(BIO *b, const char *data, int length) {
  BIO_clear_retry_flags(b);
  ssize_t n;
  do n = send(socketOf(b), data, static_cast<size_t>(length), MSG_NOSIGNAL | MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) BIO_set_retry_write(b);
  return static_cast<int>(n);
}

int bioRead(BIO *b, char *data, int length) {
  BIO_clear_retry_flags(b);
  ssize_t n;
  do n = recv(socketOf(b), data, static_cast<size_t>(length), MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) BIO_set_retry_read(b);
  return static_cast<int>(n);
}

long bioCtrl(BIO *, int cmd, long, void *) {
  return cmd == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO_METHOD *socketMethod() {
  static BIO_METHOD *method = [] {
    BIO_METHOD *m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "jx socket");
    if (m && (BIO_meth_set_write(m, bioWrite) != 1 || BIO_meth_set_read(m, bioRead) != 1 ||
              BIO_meth_set_ctrl(m, bioCtrl) != 1)) {
      BIO_meth_free(m);
      m = nullptr;
    }
    return m;
  }();
  return method;
}

// Waits until the session can go on after `ret`; false when it cannot (a
// failure, the end, or the deadline passed).
bool await(SSL *ssl, int fd, int ret, int timeoutMs) {
  const int e = SSL_get_error(ssl, ret);
  ERR_clear_error();
  if (e != SSL_ERROR_WANT_READ && e != SSL_ERROR_WANT_WRITE) return false;
  pollfd pfd{fd, static_cast<short>(e == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT), 0};
  int n;
  do n = poll(&pfd, 1, timeoutMs);
  while (n < 0 && errno == EINTR);
  return n > 0;
}

// Fingerprint pinning alone decides after the handshake: the chain is not
// judged then.
int acceptChain(int, X509_STORE_CTX *) {
  return 1;
}

}  // namespace

std::unique_ptr<TlsClient> TlsClient::make(const TlsTrust &trust, int32_t &reason) {
  if (trust.file.empty() && trust.fingerprint.empty()) {
    reason = JXRC_TLS_TRUST_MISSING;
    return nullptr;
  }
  reason = JXRC_TLS_TRUST_ERROR;
  std::string fingerprint;
  if (!trust.fingerprint.empty()) {
    fingerprint = jxqp::canonicalFingerprint(trust.fingerprint);
    if (fingerprint.empty()) return nullptr;
  }
  SSL_CTX *ctx = SSL_CTX_new(TLS_client_method());
  if (!ctx) {
    ERR_clear_error();
    return nullptr;
  }
  std::unique_ptr<TlsClient> client(new TlsClient(ctx, fingerprint, !trust.file.empty()));
  if (SSL_CTX_set_min_proto_version(ctx, TLS1_3_VERSION) != 1) return nullptr;
  if (trust.file.empty()) {
    SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, acceptChain);
  } else {
    // Every certificate in the file is an anchor: the queue manager's own
    // self-signed one as well as a CA's.
    if (SSL_CTX_load_verify_locations(ctx, trust.file.c_str(), nullptr) != 1 ||
        X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(ctx), X509_V_FLAG_PARTIAL_CHAIN) != 1) {
      ERR_clear_error();
      return nullptr;
    }
    SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
  }
  reason = JXRC_NONE;
  return client;
}

TlsClient::~TlsClient() {
  SSL_CTX_free(ctx_);
}

std::unique_ptr<TlsChannel> TlsClient::handshake(int fd, int32_t &reason) {
  reason = JXRC_TLS_HANDSHAKE_FAILED;
  BIO_METHOD *method = socketMethod();
  SSL *ssl = method ? SSL_new(ctx_) : nullptr;
  BIO *bio = ssl ? BIO_new(method) : nullptr;
  if (!bio) {
    SSL_free(ssl);
    ERR_clear_error();
    return nullptr;
  }
  BIO_set_data(bio, reinterpret_cast<void *>(static_cast<intptr_t>(fd)));
  BIO_set_init(bio, 1);
  SSL_set_bio(ssl, bio, bio);
  auto channel = std::make_unique<TlsChannel>(ssl, fd);
  const auto deadline = std::chrono::steady_clock::now() + kHandshakeLimit;
  for (;;) {
    const int ret = SSL_connect(ssl);
    if (ret == 1) break;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !await(ssl, fd, ret, static_cast<int>(left.count()))) {
      if (withFile_ && SSL_get_verify_result(ssl) != X509_V_OK) reason = JXRC_TLS_PEER_NOT_TRUSTED;
      return nullptr;
    }
  }
  if (!fingerprint_.empty()) {
    X509 *peer = SSL_get1_peer_certificate(ssl);
    const bool same = jxqp::certificateFingerprint(peer) == fingerprint_;
    X509_free(peer);
    if (!same) {
      reason = JXRC_TLS_PEER_NOT_TRUSTED;
      return nullptr;
    }
  }
  reason = JXRC_NONE;
  return channel;
}

TlsChannel::~TlsChannel() {
  SSL_free(ssl_);
}

bool TlsChannel::sendAll(const uint8_t *p, size_t n) {
  while (n) {
    size_t done = 0;
    const int ret = SSL_write_ex(ssl_, p, n, &done);
    if (ret == 1) {
      p += done;
      n -= done;
    } else if (!await(ssl_, fd_, ret, -1)) {
      return false;
    }
  }
  return true;
}

ssize_t TlsChannel::receive(uint8_t *p, size_t n) {
  for (;;) {
    size_t done = 0;
    const int ret = SSL_read_ex(ssl_, p, n, &done);
    if (ret == 1) return static_cast<ssize_t>(done);
    if (SSL_get_error(ssl_, ret) == SSL_ERROR_ZERO_RETURN) {
      ERR_clear_error();
      return 0;
    }
    if (!await(ssl_, fd_, ret, -1)) return -1;
  }
}

}  // namespace jxiz
