// The client's end of TLS on TCP: the queue manager's certificate is checked
// against what the caller trusts (a PEM trust file, a pinned SHA-256
// fingerprint, or both) before a byte of the hello, and so the password,
// is sent.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace jxiz {

// What the caller trusts, as given: a file path and a fingerprint in any
// accepted spelling; blank fields are not used.
struct TlsTrust {
  std::string file, fingerprint;
};

class TlsChannel;

// A client context for one trust, made before the socket is connected.
class TlsClient {
 public:
  // Null with `reason` JXRC_TLS_TRUST_MISSING (nothing trusted) or
  // JXRC_TLS_TRUST_ERROR (an unreadable file, a malformed fingerprint).
  static std::unique_ptr<TlsClient> make(const TlsTrust &trust, int32_t &reason);
  ~TlsClient();
  TlsClient(const TlsClient &) = delete;
  TlsClient &operator=(const TlsClient &) = delete;
  // The handshake on a connected socket, which the channel then uses but does
  // not close. Null with `reason` JXRC_TLS_PEER_NOT_TRUSTED or
  // JXRC_TLS_HANDSHAKE_FAILED.
  std::unique_ptr<TlsChannel> handshake(int fd, int32_t &reason);

 private:
  TlsClient(SSL_CTX *ctx, std::string fingerprint, bool withFile)
      : ctx_(ctx), fingerprint_(std::move(fingerprint)), withFile_(withFile) {}
  SSL_CTX *ctx_;
  std::string fingerprint_;  // canonical, or empty
  bool withFile_;
};

// An established session. Waits in poll, as the plain socket does.
class TlsChannel {
 public:
  TlsChannel(SSL *ssl, int fd) : ssl_(ssl), fd_(fd) {}
  ~TlsChannel();
  TlsChannel(const TlsChannel &) = delete;
  TlsChannel &operator=(const TlsChannel &) = delete;
  bool sendAll(const uint8_t *p, size_t n);
  // Bytes read (at most n), 0 at the end, -1 on failure.
  ssize_t receive(uint8_t *p, size_t n);

 private:
  SSL *ssl_;
  int fd_;
};

}  // namespace jxiz
