// Asks a running agent through its control socket (runtime/agent/ControlSocket.h has the protocol).
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "Kiv.h"

namespace Sft {

class AgentClient {
 public:
  static constexpr int kMostSeconds = 10;  // that the agent may be silent

  // Throws CommandError when no agent serves the run directory.
  explicit AgentClient(const std::filesystem::path& runDir);
  ~AgentClient();
  AgentClient(const AgentClient&) = delete;
  AgentClient& operator=(const AgentClient&) = delete;

  // Calls `row` for each row of the answer. Throws CommandError with the agent's own words when it refuses,
  // or when it goes or falls silent.
  void ask(const Kiv::Value& request, const std::function<void(const Kiv::Value&)>& row);

 private:
  void send(std::string_view text);
  std::string receiveLine();

  std::string name_;  // of the socket
  int socket_ = -1;
  std::string received_;
  std::size_t read_ = 0;  // bytes of it that were taken
};

}  // namespace Sft
