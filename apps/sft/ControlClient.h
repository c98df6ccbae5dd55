// Asks a running program through its control socket (runtime/agent/ControlSocket.h has the protocol).
//
// Neighbours: AgentClient.h and TrackerClient.h say whose socket.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "Command.h"
#include "Kiv.h"

namespace Sft {

// Nobody serves the socket: the program does not run.
class NobodyAnswers : public CommandError {
 public:
  using CommandError::CommandError;
};

class ControlClient {
 public:
  static constexpr int kMostSeconds = 10;  // that the other side may be silent

  // `who` as messages name the other side, `expected` as they say what to look for. Throws NobodyAnswers when
  // it does not run, CommandError when the socket cannot be used for another reason.
  ControlClient(const std::filesystem::path& socket, std::string who, std::string_view expected);
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // Calls `row` for each row of the answer. Throws CommandError with the other side's own words when it
  // refuses, or when it goes or falls silent.
  void ask(const Kiv::Value& request, const std::function<void(const Kiv::Value&)>& row);

 private:
  void send(std::string_view text);
  std::string receiveLine();

  std::string name_;  // of the socket
  std::string who_;
  int socket_ = -1;
  std::string received_;
  std::size_t read_ = 0;  // bytes of it that were taken
};

}  // namespace Sft
