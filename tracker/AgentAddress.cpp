#include "AgentAddress.h"

#include <arpa/inet.h>

namespace Tracker {

std::string AgentAddress::text() const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  return ::inet_ntop(ip6 ? AF_INET6 : AF_INET, bytes.data(), text.data(), text.size());
}

std::optional<AgentAddress> AgentAddress::fromText(std::string_view text) {
  const std::string ended(text);
  AgentAddress address;
  if (::inet_pton(AF_INET, ended.c_str(), address.bytes.data()) == 1) return address;
  address.ip6 = true;
  if (::inet_pton(AF_INET6, ended.c_str(), address.bytes.data()) == 1) return address;
  return std::nullopt;
}

}  // namespace Tracker
