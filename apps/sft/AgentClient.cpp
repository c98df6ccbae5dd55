#include "AgentClient.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "Command.h"
#include "json/JsonText.h"

namespace Sft {

AgentClient::AgentClient(const std::filesystem::path& runDir) : name_(runDir / "control.sock") {
  const auto fail = [&](std::string_view why) {
    if (socket_ >= 0) ::close(socket_);
    throw CommandError(
        fmt::format("no agent answers at {}: {}, expected a running pexa-agent (--run-dir?)", name_, why));
  };
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (name_.size() >= sizeof(address.sun_path)) fail("the path is too long for a socket");
  std::memcpy(address.sun_path, name_.data(), name_.size());
  socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket_ < 0) fail(std::strerror(errno));
  const timeval patience{kMostSeconds, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    fail(std::strerror(errno));
}

AgentClient::~AgentClient() {
  ::close(socket_);
}

void AgentClient::ask(const Kiv::Value& request, const std::function<void(const Kiv::Value&)>& row) {
  send(Json::text(request) + '\n');
  for (;;) {
    const Kiv::Value answer = Json::parse(receiveLine());
    if (const auto* error = answer.member("error")) throw CommandError(error->text());
    if (answer.member("end") != nullptr) return;
    if (const auto* found = answer.member("row")) row(*found);
  }
}

void AgentClient::send(std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0)
      throw CommandError(fmt::format("the agent at {} takes no request: {}", name_, std::strerror(errno)));
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string AgentClient::receiveLine() {
  for (std::size_t searched = read_;;) {
    const auto end = received_.find('\n', searched);
    if (end != std::string::npos) {
      std::string line = received_.substr(read_, end - read_);
      read_ = end + 1;
      return line;
    }
    received_.erase(0, read_);
    read_ = 0;
    searched = received_.size();
    std::array<char, 64 * 1024> bytes;
    const ssize_t got = ::recv(socket_, bytes.data(), bytes.size(), 0);
    if (got == 0)
      throw CommandError(fmt::format("the agent at {} left before its answer was complete", name_));
    if (got < 0) {
      throw CommandError(fmt::format("the agent at {} does not answer: {}", name_,
                                     errno == EAGAIN ? "nothing came for 10 seconds" : std::strerror(errno)));
    }
    received_.append(bytes.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace Sft
