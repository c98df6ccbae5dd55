// The one place where IPv4 and IPv6 differ. Everything that exists for both is a template over the family's
// name (Pavo::Traits::IPv4, Pavo::Traits::IPv6) and asks IpFamily for what is particular to it.
//
// What is particular to a container (an accessor's name) is reached through map<Domain>() of that container.
#pragma once

#include <cstdint>
#include <string_view>

#include "Pavo.h"
#include "PexaPacket.h"

namespace FlowTracking {

template <class Domain>
struct IpFamily;

template <>
struct IpFamily<Pavo::Traits::IPv4> {
  using Address = Pavo::IpAddr;
  using Header = Pavo::IpHdr;
  static constexpr Pexa::HeaderName kHeaderName = Pexa::HeaderName::Ipv4;
  static constexpr std::size_t kIndex = 0;  // the first of each pair of collections

  static constexpr std::string_view kName = "IPv4";
  // The blank at the front belongs to the reason.
  static constexpr std::string_view kOffloadingReason = " Offloading IPv4";

  static constexpr std::string_view kFlowKeyType = "FlowTracking::IpFlowKey";
  static constexpr std::string_view kHoFlowKeyType = "FlowTracking::HoIpFlowKey";
  static constexpr std::string_view kConfigType = "FlowTracking::HoIpFlowConfig";
  static constexpr std::string_view kStatusType = "FlowTracking::HoIpFlowStatus";
  static constexpr std::string_view kCounterType = "FlowTracking::HoIpFlowCounter";
  static constexpr std::string_view kLocalCounterType = "Pexa::Counter::PexaSftHoCounter";

  // Collections, by the names under which they are mounted.
  static constexpr std::string_view kConfigCollection = "hoIpFlowConfig";
  static constexpr std::string_view kStatusCollection = "hoIpFlowStatus";
  static constexpr std::string_view kCounterCollection = "hoIpFlowCounter";
  static constexpr std::string_view kStateCollection = "hosStateIpCounter";
};

template <>
struct IpFamily<Pavo::Traits::IPv6> {
  using Address = Pavo::Ip6Addr;
  using Header = Pavo::Ip6Hdr;
  static constexpr Pexa::HeaderName kHeaderName = Pexa::HeaderName::Ipv6;
  static constexpr std::size_t kIndex = 1;

  static constexpr std::string_view kName = "IPv6";
  static constexpr std::string_view kOffloadingReason = " Offloading IPv6";

  static constexpr std::string_view kFlowKeyType = "FlowTracking::Ip6FlowKey";
  static constexpr std::string_view kHoFlowKeyType = "FlowTracking::HoIp6FlowKey";
  static constexpr std::string_view kConfigType = "FlowTracking::HoIp6FlowConfig";
  static constexpr std::string_view kStatusType = "FlowTracking::HoIp6FlowStatus";
  static constexpr std::string_view kCounterType = "FlowTracking::HoIp6FlowCounter";
  static constexpr std::string_view kLocalCounterType = "Pexa::Counter::PexaSftHoIp6Counter";

  static constexpr std::string_view kConfigCollection = "hoIp6FlowConfig";
  static constexpr std::string_view kStatusCollection = "hoIp6FlowStatus";
  static constexpr std::string_view kCounterCollection = "hoIp6FlowCounter";
  static constexpr std::string_view kStateCollection = "hosStateIp6Counter";
};

}  // namespace FlowTracking
