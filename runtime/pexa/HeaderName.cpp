#include <array>

#include "PexaPacket.h"

namespace Pexa {

std::string_view stringValue(HeaderName name) {
  static constexpr std::array<std::string_view, static_cast<std::size_t>(HeaderName::Payload) + 1> kTexts = {
      "Ethernet",
      "Vlan",
      "Ipv4",
      "Ipv6",
      "Tcp",
      "Udp",
      "Icmp",
      "Igmp",
      "Icmpv6",
      "Ipv6HopByHop",
      "Ipv6Routing",
      "Ipv6Fragment",
      "Ipv6DestinationOptions",
      "Ipv6Mobility",
      "Gre",
      "Esp",
      "Ah",
      "Sctp",
      "Arp",
      "Payload"};
  return kTexts[static_cast<std::size_t>(name)];
}

}  // namespace Pexa
