// Asks the agent again and again without ever waiting for it: an agent that hangs, goes or comes back is told
// of, and the display goes on.
//
// Neighbours: runtime/agent/ControlSocket.h has the protocol; ControlClient is for commands that may wait.
// Threading: the io_context's thread.
#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include "top/Looks.h"

namespace Sft::Top {

class AgentLink {
 public:
  static constexpr std::chrono::seconds kPatience{3};        // with an agent that does not answer
  static constexpr std::size_t kMostLine = 4 * 1024 * 1024;  // bytes of one line of an answer

  struct Listener {
    std::function<void(const AgentLook&)> answered;
    std::function<void(const std::string& why)> away;
  };

  AgentLink(asio::io_context& io, const std::filesystem::path& runDir, Listener listener,
            std::chrono::seconds patience = kPatience);

  // Asks anew, unless an answer is still awaited; connects first when there is no connection. Tells the
  // listener, in its time, what came of it: each call that asked is answered or away once; so is, by away,
  // each call that finds the agent silent for so long.
  void ask();

 private:
  using Protocol = asio::local::stream_protocol;
  void connected(const std::error_code& error);
  void send();
  void receive();
  void lineCame(std::size_t bytes);
  void fail(const std::string& why);

  Listener listener_;
  const std::chrono::seconds patience_;
  std::string name_;  // of the socket
  Protocol::socket socket_;
  bool awaited_ = false;
  std::chrono::steady_clock::time_point asked_;
  std::string request_;
  std::string received_;
  std::size_t ended_ = 0;  // requests that are answered
  AgentLook look_;
  unsigned connection_ = 0;  // what belongs to a former one is passed over
};

}  // namespace Sft::Top
