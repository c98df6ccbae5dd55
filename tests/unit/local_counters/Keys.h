// Keys that a test tells apart by a number.
#pragma once

#include <gtest/gtest.h>

#include "FlowKey.h"
#include "PacketBuilder.h"

namespace LocalCountersTest {

inline void addressesIs(FlowTracking::IpFlowKey& key) {
  key.srcAddr = TestSupport::address4("10.0.0.1");
  key.dstAddr = TestSupport::address4("10.0.0.2");
}
inline void addressesIs(FlowTracking::Ip6FlowKey& key) {
  key.srcAddr = TestSupport::address6("2001:db8::1");
  key.dstAddr = TestSupport::address6("2001:db8::2");
}

// A TCP flow from port `port` to port 80 on VLAN 10.
template <class Domain>
FlowTracking::FlowKey<Domain> flow(std::uint16_t port) {
  FlowTracking::FlowKey<Domain> key;
  addressesIs(key);
  key.vlan = 10;
  key.ipProto = 6;
  key.srcPort = port;
  key.dstPort = 80;
  return key;
}

using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;

}  // namespace LocalCountersTest
