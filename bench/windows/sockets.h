// The bare side's sockets, on loopback.
#pragma once

#include <windows.h>
#include <winsock2.h>

#include <cstdint>

#include "pairs.h"

namespace TAVU::bench {

inline sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return address;
}

// A socket on a port that the system chose.
class BoundSocket {
 public:
  explicit BoundSocket(int type) : socket_(::socket(AF_INET, type, 0)) {
    sockaddr_in address = Loopback(0);
    int size = sizeof address;
    const bool bound = ::bind(socket_, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                       ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    Require(bound, "binding a socket");
    port_ = ::ntohs(address.sin_port);
    if (type == SOCK_STREAM) Require(::listen(socket_, SOMAXCONN) == 0, "listen");
  }
  BoundSocket(const BoundSocket&) = delete;
  BoundSocket& operator=(const BoundSocket&) = delete;
  ~BoundSocket() { ::closesocket(socket_); }

  [[nodiscard]] SOCKET get() const { return socket_; }
  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  SOCKET socket_;
  std::uint16_t port_ = 0;
};

}  // namespace TAVU::bench
