#include "Collector.h"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/io_context.hpp>

namespace Tracker {

Collector::Collector(asio::io_context& io, std::string name, const asio::ip::udp::endpoint& endpoint)
    : name_(std::move(name)), endpoint_(endpoint), socket_(io, endpoint.protocol()) {
  socket_.non_blocking(true);
  asio::error_code ignored;  // what the kernel does not grant is not needed
  socket_.set_option(asio::socket_base::send_buffer_size(kSendBuffer), ignored);
}

// Connecting a UDP socket only fixes where it sends, and has refusals reported. It fails while there is no
// route, which may come later.
bool Collector::connected() {
  if (!connected_) {
    asio::error_code error;
    socket_.connect(endpoint_, error);
    connected_ = !error;
  }
  return connected_;
}

void Collector::send(std::span<const std::uint8_t> message) {
  asio::error_code error = asio::error::not_connected;
  if (connected()) {
    socket_.send(asio::buffer(message.data(), message.size()), 0, error);
    if (error == asio::error::connection_refused) {
      // The answer to an earlier message; reporting it took the place of this sending.
      ++refused_;
      socket_.send(asio::buffer(message.data(), message.size()), 0, error);
    }
  }
  ++(error ? lost_ : sent_);
}

}  // namespace Tracker
