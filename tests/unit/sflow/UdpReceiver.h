// A UDP socket on the loopback interface that a test receives from.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace TestSupport {

class UdpReceiver {
 public:
  explicit UdpReceiver(int family = AF_INET)
      : family_(family), socket_(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_storage address{};
    address.ss_family = static_cast<sa_family_t>(family);
    if (family == AF_INET) {
      reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
      reinterpret_cast<sockaddr_in6&>(address).sin6_addr = in6addr_loopback;
    }
    socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    bound_ = ::bind(socket_, reinterpret_cast<sockaddr*>(&address), length) == 0;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(family == AF_INET ? reinterpret_cast<sockaddr_in&>(address).sin_port
                                    : reinterpret_cast<sockaddr_in6&>(address).sin6_port);
  }
  ~UdpReceiver() { ::close(socket_); }
  UdpReceiver(const UdpReceiver&) = delete;
  UdpReceiver& operator=(const UdpReceiver&) = delete;

  bool bound() const { return bound_; }  // false where the machine lacks the family
  std::string name() const { return (family_ == AF_INET ? "127.0.0.1:" : "[::1]:") + std::to_string(port_); }
  // What arrived and was not yet taken; loopback delivers before the sending call returns.
  std::vector<std::vector<std::uint8_t>> take() {
    std::vector<std::vector<std::uint8_t>> result;
    std::vector<std::uint8_t> buffer(65536);
    for (;;) {
      const ssize_t got = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (got < 0) return result;
      result.emplace_back(buffer.begin(), buffer.begin() + got);
    }
  }

 private:
  int family_;
  int socket_;
  bool bound_ = false;
  std::uint16_t port_ = 0;
};

}  // namespace TestSupport
