// "HOST:PORT" as configurations say it.
#pragma once

#include <asio/ip/udp.hpp>
#include <string>
#include <string_view>

namespace Tracker {

// An IPv4 address, an IPv6 address in brackets or a name, and a port from `leastPort` on. Names are looked up
// once, now. Throws Kiv::ValueError with the text and what was expected.
asio::ip::udp::endpoint endpointOf(std::string_view text, unsigned leastPort = 1);

// The same form again; numeric.
std::string textOf(const asio::ip::udp::endpoint& endpoint);

}  // namespace Tracker
