// One collector of IPFIX messages, and the UDP socket to it.
#pragma once

#include <asio/ip/udp.hpp>
#include <cstdint>
#include <span>
#include <string>

namespace asio {
class io_context;
}

namespace Tracker {

// Takes whole messages and never waits.
class Collector {
 public:
  static constexpr int kSendBuffer = 4 << 20;  // bytes: a tick's records; the kernel may give less

  // `name` as it was configured. Throws std::system_error when there is no socket.
  Collector(asio::io_context& io, std::string name, const asio::ip::udp::endpoint& endpoint);

  void send(std::span<const std::uint8_t> message);

  const std::string& name() const { return name_; }
  // Handed to the network.
  std::uint64_t sent() const { return sent_; }
  // That did not get out: no room, no way there.
  std::uint64_t lost() const { return lost_; }
  // How often the collector's host said that nobody listens.
  std::uint64_t refused() const { return refused_; }

 private:
  bool connected();

  std::string name_;
  asio::ip::udp::endpoint endpoint_;
  asio::ip::udp::socket socket_;
  bool connected_ = false;
  std::uint64_t sent_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t refused_ = 0;
};

}  // namespace Tracker
