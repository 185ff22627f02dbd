// How a connection's bytes move: a plain socket (the local one) or TLS
// (tls.hpp, TCP) behind the same calls, so that nothing above them changes.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace jxqm {

class Transport {
 public:
  static constexpr ssize_t kWouldBlock = -1;  // nothing to read or no room to write now
  static constexpr ssize_t kFailed = -2;      // the connection is unusable

  virtual ~Transport() = default;
  // The descriptor the event loop waits on.
  virtual int fd() const = 0;
  // Bytes read (0: the peer has gone), or kWouldBlock / kFailed.
  virtual ssize_t receive(void *buffer, size_t length) = 0;
  // Bytes written, or kWouldBlock / kFailed.
  virtual ssize_t send(const void *data, size_t length) = 0;
  // True when the last receive could not go on until the socket takes
  // bytes of the transport's own (a handshake's): the loop then watches for
  // room and receives again when there is some.
  virtual bool receiveWaitsForRoom() const { return false; }
  // Why the last kFailed came, when it is worth a line in the log (a TLS
  // handshake's failure); empty otherwise.
  virtual const std::string &failure() const;
};

// A connected, non-blocking stream socket; closed with the transport.
class SocketTransport final : public Transport {
 public:
  explicit SocketTransport(int fd) : fd_(fd) {}
  ~SocketTransport() override;
  SocketTransport(const SocketTransport &) = delete;
  SocketTransport &operator=(const SocketTransport &) = delete;
  int fd() const override { return fd_; }
  ssize_t receive(void *buffer, size_t length) override;
  ssize_t send(const void *data, size_t length) override;

 private:
  int fd_;
};

}  // namespace jxqm
