// TLS on the queue manager's TCP connections (TLS 1.3 only): the context
// made from the certificate and key in its folder, and the transport that
// runs a connection's handshake and records inside the event loop. Nothing
// here blocks: a handshake goes as far as the bytes that have arrived, and
// a peer that stalls it never says hello, so the hello time limit ends it.
#pragma once

#include <memory>
#include <string>

#include "transport.hpp"

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace jxqm {

class TlsContext {
 public:
  // The server's context from PEM files; null with `err` set when they are
  // missing, unusable, do not match, or the key may be read by others.
  static std::unique_ptr<TlsContext> load(const std::string &certFile, const std::string &keyFile,
                                          std::string &err);
  ~TlsContext();
  TlsContext(const TlsContext &) = delete;
  TlsContext &operator=(const TlsContext &) = delete;
  // A server session on a connected non-blocking socket, which it then
  // owns; null (the socket closed) when no session can be made.
  std::unique_ptr<Transport> accept(int fd);

 private:
  explicit TlsContext(SSL_CTX *ctx) : ctx_(ctx) {}
  SSL_CTX *ctx_;
};

class TlsTransport final : public Transport {
 public:
  // Decrypted bytes are handed out in whole records, so none stay inside the
  // session where epoll cannot see them; receive() needs room for one.
  static constexpr size_t kMaxRecord = 16384;

  TlsTransport(SSL *ssl, int fd) : ssl_(ssl), fd_(fd) {}
  ~TlsTransport() override;
  TlsTransport(const TlsTransport &) = delete;
  TlsTransport &operator=(const TlsTransport &) = delete;
  int fd() const override { return fd_; }
  ssize_t receive(void *buffer, size_t length) override;
  ssize_t send(const void *data, size_t length) override;
  bool receiveWaitsForRoom() const override { return receiveWaitsForRoom_; }
  const std::string &failure() const override { return failure_; }

 private:
  // Maps a failed call's outcome; `waitsForRoom` is set when the session
  // must write before it can go on.
  ssize_t blocked(int ret, bool &waitsForRoom);

  SSL *ssl_;
  int fd_;
  bool receiveWaitsForRoom_ = false;
  std::string failure_;
};

}  // namespace jxqm
