// The flows that every contender is measured with, in the order in which they are visited.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "Records.h"

namespace SftBench {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

inline constexpr std::size_t kBurst = 32;
inline constexpr const char* kIntf = "Ethernet1";
inline const std::vector<std::int64_t> kSizes{2048, 65536, 1048576};

// Flow number i, one to one. `generation` makes flows that no other generation has.
template <class Domain>
FlowTracking::FlowKey<Domain> flow(std::uint32_t i, std::uint8_t generation = 0) {
  FlowTracking::FlowKey<Domain> key;
  key.vlan = 10;
  auto& source = key.srcAddr.bytes;
  source[0] = 10;
  source[source.size() - 3] = static_cast<std::uint8_t>(i >> 16);
  source[source.size() - 2] = static_cast<std::uint8_t>(i >> 8);
  source[source.size() - 1] = static_cast<std::uint8_t>(i);
  key.dstAddr.bytes[0] = 10;
  key.dstAddr.bytes.back() = generation;
  key.ipProto = 6;
  key.srcPort = static_cast<std::uint16_t>(1024 + i % 60000);
  key.dstPort = 443;
  return key;
}

template <class Domain>
FlowTracking::HoFlowKey<Domain> hoFlow(std::uint32_t i, std::uint8_t generation = 0) {
  return {flow<Domain>(i, generation), AllowedTrafficDirection::ingress, Pavo::IntfId(kIntf)};
}

template <class Domain>
FlowTracking::HoFlowStatusRecord<Domain> status(std::uint32_t i, HoFlowState state) {
  FlowTracking::HoFlowStatusRecord<Domain> record;
  record.key = hoFlow<Domain>(i);
  record.state = state;
  record.creationTime = record.lastUpdateTime = 1;
  return record;
}

// The numbers of so many flows, shuffled, the same in every run.
inline std::vector<std::uint32_t> visitOrder(std::size_t flows) {
  std::vector<std::uint32_t> order(flows);
  for (std::size_t i = 0; i < flows; ++i) order[i] = static_cast<std::uint32_t>(i);
  std::shuffle(order.begin(), order.end(), std::mt19937_64(20240229));
  return order;
}

// Keys in the order in which they are looked up.
template <class Domain>
std::vector<FlowTracking::HoFlowKey<Domain>> visitedKeys(std::size_t flows, std::uint8_t generation = 0) {
  std::vector<FlowTracking::HoFlowKey<Domain>> keys;
  keys.reserve(flows);
  for (const std::uint32_t i : visitOrder(flows)) keys.push_back(hoFlow<Domain>(i, generation));
  return keys;
}

}  // namespace SftBench
