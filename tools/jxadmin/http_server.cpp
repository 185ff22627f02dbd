#include "http_server.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <thread>

#include "command_line.hpp"

namespace jxadmin {
namespace {

constexpr size_t kMaxRequest = 8192;  // request line and headers
constexpr int kPeerTimeoutSeconds = 5;
constexpr int kBacklog = 16;
constexpr const char *kPath = "/metrics";
constexpr const char *kContentType = "text/plain; version=0.0.4; charset=utf-8";

void sendAll(int fd, const std::string &data) {
  size_t sent = 0;
  while (sent < data.size()) {
    ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return;  // the peer went away or stalled past its timeout
    sent += static_cast<size_t>(n);
  }
}

void respond(int fd, int status, const char *phrase, const char *type, const std::string &body) {
  std::string head =
      "HTTP/1.1 " + std::to_string(status) + ' ' + phrase + "\r\nContent-Type: " + type +
      "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n";
  sendAll(fd, head + body);
}

void serveOne(int fd, const std::function<std::string()> &render) {
  timeval limit{kPeerTimeoutSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  std::string request;
  char buffer[1024];
  while (request.find("\r\n\r\n") == std::string::npos) {
    if (request.size() >= kMaxRequest)
      return respond(fd, 431, "Request Header Fields Too Large", "text/plain", "too large\n");
    ssize_t n = recv(fd, buffer, std::min(sizeof buffer, kMaxRequest - request.size()), 0);
    if (n <= 0) return;
    request.append(buffer, static_cast<size_t>(n));
  }
  const std::string first = request.substr(0, request.find("\r\n"));
  const size_t sp1 = first.find(' ');
  const size_t sp2 = first.find(' ', sp1 == std::string::npos ? sp1 : sp1 + 1);
  if (sp1 == std::string::npos || sp2 == std::string::npos)
    return respond(fd, 400, "Bad Request", "text/plain", "bad request\n");
  const std::string method = first.substr(0, sp1);
  std::string path = first.substr(sp1 + 1, sp2 - sp1 - 1);
  path = path.substr(0, path.find('?'));
  if (path != kPath) return respond(fd, 404, "Not Found", "text/plain", "not found\n");
  if (method != "GET" && method != "HEAD")
    return respond(fd, 405, "Method Not Allowed", "text/plain", "GET only\n");
  const std::string body = render();
  respond(fd, 200, "OK", kContentType, method == "HEAD" ? std::string() : body);
}

int bindListener(const std::string &address, std::string &bound) {
  const size_t colon = address.rfind(':');
  if (colon == std::string::npos) return -1;
  std::string host = address.substr(0, colon);
  const std::string port = address.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  addrinfo hints{}, *res = nullptr;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  if (getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &res) != 0)
    return -1;
  int fd = -1;
  for (addrinfo *ai = res; ai && fd < 0; ai = ai->ai_next) {
    fd = socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, 0);
    int one = 1;
    if (fd >= 0) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (fd >= 0 && (bind(fd, ai->ai_addr, ai->ai_addrlen) != 0 || listen(fd, kBacklog) != 0)) {
      close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(res);
  if (fd < 0) return -1;
  sockaddr_storage addr{};
  socklen_t len = sizeof addr;
  char name[NI_MAXHOST], service[NI_MAXSERV];
  if (getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len) == 0 &&
      getnameinfo(reinterpret_cast<sockaddr *>(&addr), len, name, sizeof name, service,
                  sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) == 0)
    bound = std::string(name) + ':' + service;
  return fd;
}

}  // namespace

int serveMetrics(const std::string &address, const std::function<std::string()> &render) {
  // The signals that end the server are taken by this thread alone.
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  std::string bound;
  const int listener = bindListener(address, bound);
  if (listener < 0) {
    std::cerr << "jxadmin: cannot listen on " << address << ": " << std::strerror(errno) << '\n';
    return kExitFailed;
  }
  std::cerr << "jxadmin: serving http://" << bound << kPath << std::endl;
  std::thread server([&] {
    for (;;) {
      int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) {
        if (errno == EINTR || errno == ECONNABORTED) continue;
        return;  // the listener was shut down
      }
      serveOne(fd, render);
      close(fd);
    }
  });
  int signal = 0;
  sigwait(&stop, &signal);
  shutdown(listener, SHUT_RDWR);
  server.join();
  close(listener);
  return kExitOk;
}

}  // namespace jxadmin
