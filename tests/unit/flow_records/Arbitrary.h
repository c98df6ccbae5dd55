// Arbitrary keys and records for properties: every value that a member can have.
#pragma once

#include <rapidcheck.h>

#include "Records.h"

namespace FlowTrackingTest {

template <class Domain>
FlowTracking::FlowKey<Domain> anyFlowKey() {
  FlowTracking::FlowKey<Domain> key;
  key.vrfId = *rc::gen::arbitrary<std::uint32_t>();
  key.vlan = *rc::gen::inRange<std::uint16_t>(0, 4096);
  for (auto* address : {&key.srcAddr, &key.dstAddr}) {
    for (auto& byte : address->bytes) byte = *rc::gen::arbitrary<std::uint8_t>();
  }
  key.ipProto = *rc::gen::arbitrary<std::uint32_t>();
  key.srcPort = *rc::gen::arbitrary<std::uint16_t>();
  key.dstPort = *rc::gen::arbitrary<std::uint16_t>();
  return key;
}

inline Pavo::IntfId anyIntfId() {
  auto name = *rc::gen::container<std::string>(rc::gen::distinctFrom(rc::gen::arbitrary<char>(), '\0'));
  if (name.size() > Pavo::IntfId::kMost) name.resize(Pavo::IntfId::kMost);
  return Pavo::IntfId(name);
}

template <class Domain>
FlowTracking::HoFlowKey<Domain> anyHoFlowKey() {
  return {anyFlowKey<Domain>(), Bridging::AllowedTrafficDirection(*rc::gen::inRange<std::uint8_t>(1, 3)),
          anyIntfId()};
}

}  // namespace FlowTrackingTest
