#include "HostPort.h"

#include <fmt/format.h>

#include <asio/io_context.hpp>
#include <charconv>
#include <optional>

#include "KivQuoted.h"
#include "KivValue.h"

namespace Tracker {
namespace {

[[noreturn]] void refuse(std::string_view text, std::string_view expected) {
  throw Kiv::ValueError(fmt::format("{}: expected {}", Kiv::quoted(text), expected));
}

std::optional<unsigned> number(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

asio::ip::udp::endpoint endpointOf(std::string_view text, unsigned leastPort) {
  const bool bracketed = text.starts_with('[');
  const std::size_t colon = bracketed ? text.find("]:") : text.find(':');
  if (colon == std::string_view::npos) refuse(text, "HOST:PORT");
  const std::string host(bracketed ? text.substr(1, colon - 1) : text.substr(0, colon));
  const std::string_view port = text.substr(colon + (bracketed ? 2 : 1));
  if (host.empty()) refuse(text, "HOST:PORT, and there is no host");
  if (!bracketed && port.find(':') != std::string_view::npos) {
    refuse(text, "an IPv6 address in brackets: [ADDRESS]:PORT");
  }
  const auto portNumber = number(port);
  if (!portNumber || *portNumber < leastPort || *portNumber > 0xffff) {
    refuse(text, fmt::format("a port from {} to 65535 behind the colon", leastPort));
  }
  asio::error_code error;
  const asio::ip::address address = asio::ip::make_address(host, error);
  if (!error && address.is_v6() == bracketed) return {address, static_cast<std::uint16_t>(*portNumber)};
  if (bracketed) refuse(text, "an IPv6 address in the brackets");

  asio::io_context io;
  asio::ip::udp::resolver resolver(io);
  const auto found = resolver.resolve(host, "", error);
  if (error || found.empty())
    refuse(text, fmt::format("an address or a known name, and \"{}\" is none ({})", host, error.message()));
  return {found.begin()->endpoint().address(), static_cast<std::uint16_t>(*portNumber)};
}

std::string textOf(const asio::ip::udp::endpoint& endpoint) {
  const std::string address = endpoint.address().to_string();
  return fmt::format(fmt::runtime(endpoint.address().is_v6() ? "[{}]:{}" : "{}:{}"), address,
                     endpoint.port());
}

}  // namespace Tracker
