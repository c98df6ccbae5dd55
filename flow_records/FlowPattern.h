// Which flows are meant: a wanted offload's key of which any part may be left open.
//
// As a value an object of the parts that are not open:
//   {"source":"10.0.0.0/8","sourcePort":53,"destination":"10.0.0.2","destinationPort":80,"protocol":6,
//    "vlan":10,"vrf":16777215,"direction":1,"interface":"Ethernet1"}
//
// Threading: plain values.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "FlowKey.h"

namespace FlowTracking {

// Addresses of one family that share their first bits.
class Network {
 public:
  // "10.0.0.1", "10.0.0.0/8", "2001:db8::/32". Bits behind the prefix do not matter. Throws Kiv::ValueError.
  explicit Network(std::string_view text);

  // Whether the addresses are of a family's kind.
  template <class Domain>
  bool isOf() const {
    return bytes_ == IpFamily<Domain>::Address::kBytes;
  }
  template <std::size_t N>
  bool holds(const Pavo::Address<N>& address) const {
    return bytes_ == N && same(address.bytes.data());
  }
  // One address alone.
  bool isHost() const { return prefix_ == 8 * bytes_; }
  // REQUIRES: isOf the address's family.
  template <class Address>
  Address address() const {
    Address address;
    std::copy_n(first_.begin(), Address::kBytes, address.bytes.begin());
    return address;
  }
  Kiv::String text() const;

 private:
  bool same(const std::uint8_t* address) const;

  std::array<std::uint8_t, Pavo::Ip6Addr::kBytes> first_{};
  std::size_t bytes_ = 0;
  std::size_t prefix_ = 0;  // bits
};

struct FlowPattern {
  std::optional<Network> source;
  std::optional<Network> destination;
  std::optional<std::uint16_t> sourcePort;
  std::optional<std::uint16_t> destinationPort;
  std::optional<std::uint32_t> protocol;
  std::optional<std::uint16_t> vlan;
  std::optional<std::uint32_t> vrf;
  std::optional<Bridging::AllowedTrafficDirection> direction;
  std::optional<Pavo::IntfId> interface;

  // Whether flows of a family can be meant.
  template <class Domain>
  bool mayHold() const {
    return (!source || source->isOf<Domain>()) && (!destination || destination->isOf<Domain>());
  }
  template <class Domain>
  bool holds(const HoFlowKey<Domain>& key) const;
  // The one key that is meant; nothing when more than the VRF, which is then the default one, is open, or it
  // is of another family.
  template <class Domain>
  std::optional<HoFlowKey<Domain>> key() const;
};

extern template bool FlowPattern::holds(const HoIpFlowKey&) const;
extern template bool FlowPattern::holds(const HoIp6FlowKey&) const;

template <class Domain>
std::optional<HoFlowKey<Domain>> FlowPattern::key() const {
  if (!source || !destination || !source->isOf<Domain>() || !destination->isOf<Domain>() ||
      !source->isHost() || !destination->isHost())
    return std::nullopt;
  if (!sourcePort || !destinationPort || !protocol || !vlan || !direction || !interface) return std::nullopt;
  using Address = typename IpFamily<Domain>::Address;
  FlowKey<Domain> flow;
  flow.vrfId = vrf.value_or(kDefaultVrfId);
  flow.vlan = *vlan;
  flow.srcAddr = source->address<Address>();
  flow.dstAddr = destination->address<Address>();
  flow.ipProto = *protocol;
  flow.srcPort = *sourcePort;
  flow.dstPort = *destinationPort;
  return HoFlowKey<Domain>(flow, *direction, *interface);
}

}  // namespace FlowTracking

namespace Kiv {
template <>
struct ValueTraits<FlowTracking::FlowPattern> {
  static constexpr std::string_view kTypeName = "flow pattern";
  static Value toValue(const FlowTracking::FlowPattern& pattern);
  // Throws ValueError, which names the member that is wrong.
  static FlowTracking::FlowPattern fromValue(const Value& value);
};
}  // namespace Kiv
