// The address by which an sFlow agent calls itself in its datagrams.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tracker {

struct AgentAddress {
  std::array<std::uint8_t, 16> bytes{};  // an IPv4 address in the first four, the others 0
  bool ip6 = false;

  auto operator<=>(const AgentAddress&) const = default;
  // Dotted quad, or RFC 5952.
  std::string text() const;
  // Nothing when the text is no address.
  static std::optional<AgentAddress> fromText(std::string_view text);
};

}  // namespace Tracker
