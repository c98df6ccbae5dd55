// The UDP socket on which sFlow datagrams arrive.
//
// Datagrams are taken in bursts, so that other work has its turn under load. What the kernel had to drop
// because nobody fetched it in time is counted.
// Threading: the event thread, from within the io_context.
#pragma once

#include <asio/ip/udp.hpp>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace Tracker {

class DatagramSocket {
 public:
  static constexpr unsigned kBurst = 64;
  static constexpr int kReceiveBuffer = 8 << 20;  // bytes; the kernel may give less

  using Receiver = std::function<void(std::span<const std::uint8_t>)>;
  using AfterBurst = std::function<void()>;

  // Throws std::system_error when the endpoint cannot be bound.
  DatagramSocket(asio::io_context& io, const asio::ip::udp::endpoint& endpoint);

  // From now on calls `receiver` with each datagram, and `afterBurst` behind a burst of them.
  void start(Receiver receiver, AfterBurst afterBurst);
  // Hands over what has arrived already, and receives no more.
  void finish();

  asio::ip::udp::endpoint endpoint() const { return socket_.local_endpoint(); }
  std::uint64_t dropped() const { return dropped_; }

 private:
  void wait();
  unsigned takeBurst();
  bool takeOne();

  asio::ip::udp::socket socket_;
  Receiver receiver_;
  AfterBurst afterBurst_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t dropped_ = 0;
  std::uint32_t kernelDropped_ = 0;  // as the kernel counts: it wraps
};

}  // namespace Tracker
