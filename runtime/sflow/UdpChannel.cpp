#include <netdb.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "KivValue.h"
#include "sflow/Collector.h"

namespace Sflow {

namespace {

[[noreturn]] void refuse(std::string_view collector, const std::string& why) {
  throw Kiv::ValueError("sFlow collector \"" + std::string(collector) + "\": " + why);
}

struct HostPort {
  std::string host;
  std::string port;
  bool bracketed = false;
};

bool isPort(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port != 0;
}

HostPort split(std::string_view collector) {
  const bool bracketed = collector.starts_with('[');
  const std::size_t colon = bracketed ? collector.find("]:") : collector.find(':');
  if (colon == std::string_view::npos) refuse(collector, "expected HOST:PORT");
  if (!bracketed && collector.find(':', colon + 1) != std::string_view::npos) {
    refuse(collector, "expected HOST:PORT, an IPv6 address in brackets: [ADDRESS]:PORT");
  }
  const std::string_view host = bracketed ? collector.substr(1, colon - 1) : collector.substr(0, colon);
  const std::string_view port = collector.substr(colon + (bracketed ? 2 : 1));
  if (host.empty()) refuse(collector, "expected HOST:PORT, got no host");
  if (!isPort(port)) refuse(collector, "expected a port from 1 to 65535, got \"" + std::string(port) + "\"");
  return {std::string(host), std::string(port), bracketed};
}

struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = 0;
};

SocketAddress resolve(std::string_view collector) {
  const HostPort parts = split(collector);
  addrinfo hints{};
  hints.ai_family = parts.bracketed ? AF_INET6 : AF_UNSPEC;
  hints.ai_socktype = SOCK_DGRAM;
  hints.ai_flags = AI_NUMERICSERV | (parts.bracketed ? AI_NUMERICHOST : 0);
  addrinfo* found = nullptr;
  const int error = ::getaddrinfo(parts.host.c_str(), parts.port.c_str(), &hints, &found);
  if (error != 0) {
    refuse(collector, parts.bracketed ? "expected an IPv6 address in the brackets, got \"" + parts.host + "\""
                                      : "expected an address or a known name, got \"" + parts.host +
                                            "\": " + ::gai_strerror(error));
  }
  SocketAddress address;
  address.length = found->ai_addrlen;
  std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
  ::freeaddrinfo(found);
  return address;
}

class UdpChannel : public DatagramChannel {
 public:
  UdpChannel(std::string_view collector, const SocketAddress& address)
      : name_(collector),
        address_(address),
        socket_(::socket(address.storage.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (socket_ < 0) refuse(collector, std::string("no socket: ") + std::strerror(errno));
  }
  ~UdpChannel() override { ::close(socket_); }
  UdpChannel(const UdpChannel&) = delete;
  UdpChannel& operator=(const UdpChannel&) = delete;

  const std::string& name() const override { return name_; }

  Sent send(std::span<const std::uint8_t> datagram) override {
    if (!connected()) return Sent::no;
    if (sendOnce(datagram)) return Sent::yes;
    if (errno != ECONNREFUSED) return Sent::no;
    // The answer to an earlier datagram: nobody listens there. Reporting it took the place of this sending.
    return sendOnce(datagram) ? Sent::yesNotFormer : Sent::neither;
  }

 private:
  // Connecting a UDP socket only fixes where it sends, and has refusals reported. It fails while there is no
  // route, which may come later.
  bool connected() {
    if (!connected_) {
      connected_ =
          ::connect(socket_, reinterpret_cast<const sockaddr*>(&address_.storage), address_.length) == 0;
    }
    return connected_;
  }
  bool sendOnce(std::span<const std::uint8_t> datagram) {
    return ::send(socket_, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(datagram.size());
  }

  std::string name_;
  SocketAddress address_;
  int socket_;
  bool connected_ = false;
};

}  // namespace

std::unique_ptr<DatagramChannel> udpChannel(std::string_view collector) {
  return std::make_unique<UdpChannel>(collector, resolve(collector));
}

}  // namespace Sflow
