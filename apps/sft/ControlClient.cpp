#include "ControlClient.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "json/JsonText.h"

namespace Sft {

ControlClient::ControlClient(const std::filesystem::path& socket, std::string who, std::string_view expected)
    : name_(socket), who_(std::move(who)) {
  const auto fail = [&](std::string_view why, bool absent) {
    if (socket_ >= 0) ::close(socket_);
    const std::string text = fmt::format("no {} answers at {}: {}, expected {}", who_, name_, why, expected);
    if (absent) throw NobodyAnswers(text);
    throw CommandError(text);
  };
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (name_.size() >= sizeof(address.sun_path)) fail("the path is too long for a socket", false);
  std::memcpy(address.sun_path, name_.data(), name_.size());
  socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket_ < 0) fail(std::strerror(errno), false);
  const timeval patience{kMostSeconds, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int reason = errno;
    fail(std::strerror(reason), reason == ENOENT || reason == ECONNREFUSED);
  }
}

ControlClient::~ControlClient() {
  ::close(socket_);
}

void ControlClient::ask(const Kiv::Value& request, const std::function<void(const Kiv::Value&)>& row) {
  send(Json::text(request) + '\n');
  for (;;) {
    const Kiv::Value answer = Json::parse(receiveLine());
    if (const auto* error = answer.member("error")) throw CommandError(error->text());
    if (answer.member("end") != nullptr) return;
    if (const auto* found = answer.member("row")) row(*found);
  }
}

void ControlClient::send(std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0)
      throw CommandError(fmt::format("the {} at {} takes no request: {}", who_, name_, std::strerror(errno)));
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string ControlClient::receiveLine() {
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
      throw CommandError(fmt::format("the {} at {} left before its answer was complete", who_, name_));
    if (got < 0) {
      throw CommandError(fmt::format("the {} at {} does not answer: {}", who_, name_,
                                     errno == EAGAIN ? "nothing came for 10 seconds" : std::strerror(errno)));
    }
    received_.append(bytes.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace Sft
