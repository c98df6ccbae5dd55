// Asks a running program through its control socket (runtime/agent/ControlSocket.h has the protocol).
//
// Neighbours: AgentClient.h and TrackerClient.h say whose socket.
#pragma once

#include <chrono>
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

// The other side has heard the request and does not take it; the text is its own.
class Refused : public CommandError {
 public:
  using CommandError::CommandError;
};

class ControlClient {
 public:
  static constexpr std::chrono::seconds kPatience{10};  // with a silent other side

  // `who` as messages name the other side, `expected` as they say what to look for. Throws NobodyAnswers when
  // it does not run, CommandError when the socket cannot be used for another reason.
  ControlClient(const std::filesystem::path& socket, std::string who, std::string_view expected,
                std::chrono::milliseconds patience = kPatience);
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // Calls `row` for each row of the answer. Throws Refused, or CommandError when the other side goes, falls
  // silent or answers something else: also when `row` throws Kiv::ValueError, as RowMembers.h does for a row
  // that is not what was asked for. Behind an answer that was not taken to its end, by an exception of `row`
  // too, each further request throws CommandError: what is left of it would be read as the next one's.
  void ask(const Kiv::Value& request, const std::function<void(const Kiv::Value&)>& row);

 private:
  void send(std::string_view text);
  std::string receiveLine();
  // Takes a line of an answer; whether there are more.
  bool isRow(const std::string& line, const std::function<void(const Kiv::Value&)>& row);

  std::string name_;  // of the socket
  std::string who_;
  std::chrono::milliseconds patience_;
  int socket_ = -1;
  std::string received_;
  std::size_t read_ = 0;  // bytes of it that were taken
  bool amidst_ = false;   // an answer was begun and not ended
};

}  // namespace Sft
