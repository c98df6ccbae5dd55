#include "top/AgentLink.h"

#include <fmt/format.h>

#include <asio/buffer.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <string_view>
#include <utility>

#include "json/JsonText.h"

namespace Sft::Top {
namespace {

using Kiv::Value;
using Clock = std::chrono::steady_clock;

constexpr std::array<std::string_view, 4> kRequests{"samples", "reasons", "ports", "attr get"};

// All requests at once: they are answered one behind the other. An agent without the plugin answers the last
// one with an error, and has no budget.
std::string requests() {
  std::string text;
  for (const std::string_view name : kRequests) {
    Value::Object request{{"request", name}};
    if (name == kRequests.back()) {
      request.emplace_back("entity", "SampledFlowTracker.drovaHelper");
      request.emplace_back("name", "maxInHardwareFlows");
    }
    text += Json::text(request) + '\n';
  }
  return text;
}

}  // namespace

AgentLink::AgentLink(asio::io_context& io, const std::filesystem::path& runDir, Listener listener,
                     std::chrono::seconds patience)
    : listener_(std::move(listener)),
      patience_(patience),
      name_(runDir / "control.sock"),
      socket_(io),
      request_(requests()) {}

void AgentLink::ask() {
  if (awaited_) {
    const auto silent = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - asked_);
    if (silent >= patience_) {
      listener_.away(fmt::format("the agent has not answered for {} s", silent.count()));
    }
    return;
  }
  awaited_ = true;
  asked_ = Clock::now();
  look_ = {};
  ended_ = 0;
  if (socket_.is_open()) return send();
  received_.clear();
  try {
    socket_.async_connect(Protocol::endpoint(name_), [this, connection = ++connection_](const auto& error) {
      if (connection == connection_) connected(error);
    });
  } catch (const std::system_error& error) {  // the path is too long for a socket
    fail(error.code().message());
  }
}

void AgentLink::connected(const std::error_code& error) {
  if (error) return fail(error.message());
  send();
}

void AgentLink::send() {
  asio::async_write(socket_, asio::buffer(request_),
                    [this, connection = connection_](const auto& error, std::size_t) {
                      if (connection == connection_ && error) fail(error.message());
                    });
  receive();
}

void AgentLink::receive() {
  asio::async_read_until(socket_, asio::dynamic_buffer(received_, kMostLine), '\n',
                         [this, connection = connection_](const auto& error, std::size_t bytes) {
                           if (connection != connection_) return;
                           if (error) return fail(error.message());
                           lineCame(bytes);
                         });
}

void AgentLink::lineCame(std::size_t bytes) {
  try {
    const Value line = Json::parse(received_.substr(0, bytes - 1));
    received_.erase(0, bytes);
    if (const Value* row = line.member("row")) {
      look_.take(std::string(kRequests[ended_]), *row);
    } else if (line.member("end") != nullptr || line.member("error") != nullptr) {
      ++ended_;
    } else {
      throw Kiv::ValueError("neither row, end nor error");
    }
  } catch (const Kiv::ValueError& error) {
    return fail(fmt::format("its answer is none: {}", error.what()));
  }
  if (ended_ < kRequests.size()) return receive();
  awaited_ = false;
  listener_.answered(look_);
}

void AgentLink::fail(const std::string& why) {
  std::error_code ignored;
  socket_.close(ignored);
  ++connection_;
  awaited_ = false;
  listener_.away(fmt::format("no agent answers: {}", why));
}

}  // namespace Sft::Top
