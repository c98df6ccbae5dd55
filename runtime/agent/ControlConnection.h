// One client of a control socket: reads a line, writes its answer slice by slice, reads the next line.
// Internal to ControlSocket.
#pragma once

#include <asio.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "ControlSocket.h"
#include "guard/Peer.h"

namespace Pexa {

class ControlConnection : public std::enable_shared_from_this<ControlConnection> {
 public:
  using Clock = std::chrono::steady_clock;
  using Socket = asio::local::stream_protocol::socket;
  using Shared = std::shared_ptr<ControlConnection>;
  // Whom the connection belongs to; members that are absent are not called.
  struct Owner {
    // Throws std::runtime_error.
    std::function<ControlSocket::Rows(const Kiv::Value& request, const Guard::Peer& peer)> answer;
    std::function<void(const Shared& left)> leaves;
  };

  ControlConnection(Socket socket, Guard::Peer peer);

  void read();
  // One error, and the end.
  void refuse(std::string_view why);
  void close();
  void ownerIs(Owner owner) { owner_ = std::move(owner); }

  // When it was last heard, or took something of its answer.
  Clock::time_point lastActive() const { return lastActive_; }

 private:
  void handleRead(const asio::error_code& error, std::size_t bytes);
  void answerTo(std::string_view text);
  void formSlice();
  void write();
  void handleWritten(const asio::error_code& error);
  void leave();

  Socket socket_;
  const Guard::Peer peer_;
  Owner owner_;
  asio::streambuf received_;
  ControlSocket::Rows rows_;  // the rest of the answer; empty between requests
  std::string answer_;        // being written
  bool last_ = false;         // nothing is read behind this answer
  Clock::time_point lastActive_ = Clock::now();
};

// {"error":...} or another answer of one member, as a line.
std::string controlLine(std::string_view member, Kiv::Value value);

}  // namespace Pexa
