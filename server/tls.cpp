#include "tls.hpp"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace jxqm {

namespace {

std::string opensslError(const std::string &what) {
  char buf[256] = "unknown error";
  if (unsigned long e = ERR_get_error()) ERR_error_string_n(e, buf, sizeof buf);
  ERR_clear_error();
  return what + ": " + buf;
}

}  // namespace

std::unique_ptr<TlsContext> TlsContext::load(const std::string &certFile,
                                             const std::string &keyFile, std::string &err) {
  struct stat st {};
  if (stat(keyFile.c_str(), &st) != 0) {
    err = "no key " + keyFile + " (" + std::strerror(errno) +
          "): jxqm certificate makes a new certificate and key";
    return nullptr;
  }
  if (st.st_mode & (S_IRWXG | S_IRWXO)) {
    err = "the key " + keyFile + " may be read by others: chmod 600 it";
    return nullptr;
  }
  SSL_CTX *ctx = SSL_CTX_new(TLS_server_method());
  std::unique_ptr<TlsContext> tls(ctx ? new TlsContext(ctx) : nullptr);
  if (!tls) {
    err = opensslError("cannot set up TLS");
    return nullptr;
  }
  // No session tickets: a client connects once and stays, and a ticket would
  // be a write the server makes after the handshake of its own accord.
  if (SSL_CTX_set_min_proto_version(ctx, TLS1_3_VERSION) != 1 ||
      SSL_CTX_set_num_tickets(ctx, 0) != 1) {
    err = opensslError("cannot set up TLS");
    return nullptr;
  }
  // A reply buffer grows and moves between two tries of one write.
  SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                            SSL_MODE_RELEASE_BUFFERS);
  if (SSL_CTX_use_certificate_chain_file(ctx, certFile.c_str()) != 1) {
    err = opensslError("cannot use the certificate " + certFile);
    return nullptr;
  }
  if (SSL_CTX_use_PrivateKey_file(ctx, keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(ctx) != 1) {
    err = opensslError("cannot use the key " + keyFile + " with " + certFile);
    return nullptr;
  }
  return tls;
}

TlsContext::~TlsContext() {
  SSL_CTX_free(ctx_);
}

std::unique_ptr<Transport> TlsContext::accept(int fd) {
  SSL *ssl = SSL_new(ctx_);
  if (!ssl || SSL_set_fd(ssl, fd) != 1) {
    SSL_free(ssl);
    ERR_clear_error();
    return nullptr;
  }
  SSL_set_accept_state(ssl);
  return std::make_unique<TlsTransport>(ssl, fd);
}

TlsTransport::~TlsTransport() {
  // No close_notify: the peer learns of the end from the socket, and a
  // shutdown could block on a peer that does not read.
  SSL_free(ssl_);
  close(fd_);
}

ssize_t TlsTransport::blocked(int ret, bool &waitsForRoom) {
  const int e = SSL_get_error(ssl_, ret);
  waitsForRoom = e == SSL_ERROR_WANT_WRITE;
  if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE || e == SSL_ERROR_ZERO_RETURN) {
    ERR_clear_error();
    return e == SSL_ERROR_ZERO_RETURN ? 0 : kWouldBlock;
  }
  // A peer that cannot or will not complete the handshake is worth a line
  // (the loop limits how many); a session's end after it is only its end.
  if (SSL_is_init_finished(ssl_))
    ERR_clear_error();
  else if (e == SSL_ERROR_SYSCALL && ERR_peek_error() == 0)
    failure_ = std::string("TLS handshake failed: ") +
               (errno ? std::strerror(errno) : "the peer closed the connection");
  else
    failure_ = opensslError("TLS handshake failed");
  return kFailed;
}

ssize_t TlsTransport::receive(void *buffer, size_t length) {
  receiveWaitsForRoom_ = false;
  auto *p = static_cast<unsigned char *>(buffer);
  size_t total = 0;
  do {
    size_t n = 0;
    const int ret = SSL_read_ex(ssl_, p + total, length - total, &n);
    if (ret != 1) {
      const ssize_t r = blocked(ret, receiveWaitsForRoom_);
      // Bytes already read are handed out; a failure or the end shows again
      // at the next call.
      return total > 0 ? static_cast<ssize_t>(total) : r;
    }
    total += n;
  } while (length - total >= kMaxRecord);
  return static_cast<ssize_t>(total);
}

ssize_t TlsTransport::send(const void *data, size_t length) {
  size_t n = 0;
  const int ret = SSL_write_ex(ssl_, data, length, &n);
  // A write that waits for room is watched as any pending output is.
  bool waitsForRoom = false;
  return ret == 1 ? static_cast<ssize_t>(n) : blocked(ret, waitsForRoom);
}

}  // namespace jxqm
