#include "transport.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace jxqm {

const std::string &Transport::failure() const {
  static const std::string none;
  return none;
}

SocketTransport::~SocketTransport() {
  close(fd_);
}

ssize_t SocketTransport::receive(void *buffer, size_t length) {
  for (;;) {
    ssize_t n = recv(fd_, buffer, length, 0);
    if (n >= 0) return n;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK ? kWouldBlock : kFailed;
  }
}

ssize_t SocketTransport::send(const void *data, size_t length) {
  for (;;) {
    ssize_t n = ::send(fd_, data, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) return n;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK ? kWouldBlock : kFailed;
  }
}

}  // namespace jxqm
