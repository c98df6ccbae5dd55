#include <arpa/inet.h>

#include "Pavo.h"

namespace Pavo {
namespace {

template <int Family, std::size_t N>
std::string textOf(const Address<N>& address) {
  char text[INET6_ADDRSTRLEN];
  return ::inet_ntop(Family, address.bytes.data(), text, sizeof text);
}

template <int Family, class A>
A addressOf(std::string_view text) {
  A address;
  const bool hasNul = text.find('\0') != std::string_view::npos;
  if (hasNul || ::inet_pton(Family, std::string(text).c_str(), address.bytes.data()) != 1) {
    Kiv::throwValueError(Family == AF_INET ? "an IPv4 address" : "an IPv6 address", Kiv::Value(text));
  }
  return address;
}

}  // namespace

std::string stringValue(const IpAddr& address) {
  return textOf<AF_INET>(address);
}
std::string stringValue(const Ip6Addr& address) {
  return textOf<AF_INET6>(address);
}

template <>
IpAddr addressFromText<IpAddr>(std::string_view text) {
  return addressOf<AF_INET, IpAddr>(text);
}
template <>
Ip6Addr addressFromText<Ip6Addr>(std::string_view text) {
  return addressOf<AF_INET6, Ip6Addr>(text);
}

}  // namespace Pavo
