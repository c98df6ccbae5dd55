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
namespace {

constexpr std::size_t kShownBytes = 200;  // of a line that was not expected

}  // namespace

ControlClient::ControlClient(const std::filesystem::path& socket, std::string who, std::string_view expected,
                             std::chrono::milliseconds patience)
    : name_(socket), who_(std::move(who)), patience_(patience) {
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
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience_);
  const timeval most{seconds.count(), std::chrono::microseconds(patience_ - seconds).count()};
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof most);
  ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &most, sizeof most);
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int reason = errno;
    fail(std::strerror(reason), reason == ENOENT || reason == ECONNREFUSED);
  }
}

ControlClient::~ControlClient() {
  ::close(socket_);
}

void ControlClient::ask(const Kiv::Value& request, const std::function<void(const Kiv::Value&)>& row) {
  if (amidst_) {
    throw CommandError(
        fmt::format("the {} at {} has not ended its answer to an earlier request, expected an answer to each",
                    who_, name_));
  }
  amidst_ = true;
  send(Json::text(request) + '\n');
  while (isRow(receiveLine(), row)) continue;
  amidst_ = false;
}

bool ControlClient::isRow(const std::string& line, const std::function<void(const Kiv::Value&)>& row) {
  try {
    const Kiv::Value answer = Json::parse(line);
    if (const auto* found = answer.member("row")) {
      row(*found);
      return true;
    }
    if (const auto* error = answer.member("error")) {
      amidst_ = false;
      throw Refused(error->text());
    }
    if (answer.member("end") != nullptr) return false;
    throw Kiv::ValueError("expected a row, an end or an error");
  } catch (const Kiv::ValueError& error) {
    throw CommandError(fmt::format("the {} at {} answers something else than was asked for: {}, in {}", who_,
                                   name_, error.what(), line.substr(0, kShownBytes)));
  }
}

void ControlClient::send(std::string_view text) {
  while (!text.empty()) {
    // cppcheck-suppress danglingTemporaryLifetime; what a caller puts together lives until the call is over
    const ssize_t sent = ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EPIPE) return;  // who lets nobody in says why, and leaves
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
      std::string why = std::strerror(errno);
      if (errno == EAGAIN)
        why = fmt::format("nothing came for {:g} seconds", std::chrono::duration<double>(patience_).count());
      throw CommandError(fmt::format("the {} at {} does not answer: {}", who_, name_, why));
    }
    received_.append(bytes.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace Sft
