// A client of a control socket that says anything, and what it must hear.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzTarget.h"
#include "json/JsonText.h"

namespace FuzzSupport {

class ControlClient {
 public:
  explicit ControlClient(const std::filesystem::path& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    FUZZ_REQUIRE(path.native().size() < sizeof address.sun_path);
    std::strcpy(address.sun_path, path.c_str());
    FUZZ_REQUIRE(::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  }
  ~ControlClient() { ::close(socket_); }
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // REQUIRES: it fits into the socket. Nothing follows.
  void send(std::string_view text) const {
    FUZZ_REQUIRE(::send(socket_, text.data(), text.size(), MSG_NOSIGNAL) ==
                 static_cast<ssize_t>(text.size()));
    FUZZ_REQUIRE(::shutdown(socket_, SHUT_WR) == 0);
  }
  // All that comes until the other side leaves; `wait` is called while there is nothing.
  std::string answers(const std::function<void()>& wait) const {
    std::string all;
    char bytes[65536];
    for (;;) {
      const ssize_t got = ::recv(socket_, bytes, sizeof bytes, 0);
      if (got == 0) return all;
      if (got > 0) {
        all.append(bytes, static_cast<std::size_t>(got));
      } else {
        FUZZ_REQUIRE(errno == EAGAIN || errno == EINTR);
        wait();
      }
    }
  }

 private:
  int socket_;
};

// What came for one request.
struct ControlAnswer {
  Kiv::Value::List rows;
  bool refused = false;  // ended by an error
};

// Rows and an end, or an error, for each of so many requests.
inline std::vector<ControlAnswer> requireAnswers(std::string_view text, std::size_t requests) {
  std::vector<ControlAnswer> answers;
  bool ended = true;
  while (!text.empty()) {
    if (ended) answers.emplace_back();
    const std::size_t end = text.find('\n');
    FUZZ_REQUIRE(end != std::string_view::npos);
    const Kiv::Value line = Json::parse(text.substr(0, end));
    const auto* object = line.as<Kiv::Value::Object>();
    FUZZ_REQUIRE(object != nullptr && object->size() == 1);
    const auto& [name, value] = object->front();
    FUZZ_REQUIRE(name == "row" || name == "end" || name == "error");
    ended = name != "row";
    answers.back().refused = name == "error";
    if (!ended) answers.back().rows.push_back(value);
    text.remove_prefix(end + 1);
  }
  FUZZ_REQUIRE(ended && answers.size() == requests);
  return answers;
}

}  // namespace FuzzSupport
