#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "host/UniqueFd.h"

namespace velqor::testing {

// Plain sockets to a loopback server, for requests no well-behaved client
// library would send. `from` picks the source address (127.0.0.X), so tests
// can stand for several clients.
class RawHttpClient {
 public:
  static UniqueFd connectTo(int port, const std::string& from = "127.0.0.1") {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in local{};
    local.sin_family = AF_INET;
    ::inet_pton(AF_INET, from.c_str(), &local.sin_addr);
    ::bind(fd.get(), reinterpret_cast<sockaddr*>(&local), sizeof local);
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, "127.0.0.1", &server.sin_addr);
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&server), sizeof server) != 0) return UniqueFd();
    return fd;
  }

  // Sends all of `bytes`; false when the peer closed or refused more.
  static bool sendAll(int fd, const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return false;
      sent += static_cast<size_t>(n);
    }
    return true;
  }

  // Reads until the peer closes, a whole answer with Content-Length arrived,
  // or `limit` passes; returns what arrived.
  static std::string readAnswer(int fd, std::chrono::milliseconds limit) {
    std::string in;
    const auto end = std::chrono::steady_clock::now() + limit;
    while (true) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
      char buffer[16384];
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) break;
      in.append(buffer, static_cast<size_t>(n));
      if (complete(in)) break;
    }
    return in;
  }

  // The status code of an answer, 0 when there is none.
  static int status(const std::string& answer) {
    if (answer.rfind("HTTP/1.", 0) != 0 || answer.size() < 12) return 0;
    return std::atoi(answer.c_str() + 9);
  }

  // True when the peer has closed the connection (within `limit`).
  static bool closedBy(int fd, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    char buffer[4096];
    while (std::chrono::steady_clock::now() < end) {
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, 50) > 0) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) return true;
      }
    }
    return false;
  }

 private:
  static bool complete(const std::string& in) {
    const auto headEnd = in.find("\r\n\r\n");
    if (headEnd == std::string::npos) return false;
    const auto at = in.find("Content-Length: ");
    if (at == std::string::npos || at > headEnd) return false;
    return in.size() >= headEnd + 4 + std::stoul(in.substr(at + 16));
  }
};

}  // namespace velqor::testing
