// The flows that every contender is measured with, in the order in which they are visited.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <random>
#include <sstream>
#include <vector>

#include "Records.h"

namespace SftBench {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

inline constexpr std::size_t kBurst = 32;
inline constexpr const char* kIntf = "Ethernet1";
inline constexpr std::int64_t kSmallSize = 2048;

// Flows in a table. SFT_BENCH_SIZES stands for these, with blanks between them, where more are to be drawn.
inline std::vector<std::int64_t> sizes() {
  const char* wanted = std::getenv("SFT_BENCH_SIZES");
  std::istringstream text(wanted != nullptr ? wanted : "2048 65536 1048576");
  return {std::istream_iterator<std::int64_t>(text), {}};
}

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

// How often each flow is visited: once each, or the flow of rank r in proportion to 1/r, as traffic has it.
enum class Visits { uniform, zipf };

// So many visits as there are flows, by the numbers of the flows, shuffled; the same in every run.
inline std::vector<std::uint32_t> visitOrder(std::size_t flows, Visits visits = Visits::uniform) {
  std::mt19937_64 random(20240229);
  std::vector<std::uint32_t> byRank(flows);
  for (std::size_t i = 0; i < flows; ++i) byRank[i] = static_cast<std::uint32_t>(i);
  std::shuffle(byRank.begin(), byRank.end(), random);
  if (visits == Visits::uniform) return byRank;
  std::vector<double> weights(flows);
  for (std::size_t rank = 0; rank < flows; ++rank) weights[rank] = 1.0 / static_cast<double>(rank + 1);
  std::discrete_distribution<std::size_t> ranks(weights.begin(), weights.end());
  std::vector<std::uint32_t> order(flows);
  for (std::uint32_t& visit : order) visit = byRank[ranks(random)];
  return order;
}

// Keys in the order in which they are looked up.
template <class Domain>
std::vector<FlowTracking::HoFlowKey<Domain>> visitedKeys(std::size_t flows, Visits visits = Visits::uniform,
                                                         std::uint8_t generation = 0) {
  std::vector<FlowTracking::HoFlowKey<Domain>> keys;
  keys.reserve(flows);
  for (const std::uint32_t i : visitOrder(flows, visits)) keys.push_back(hoFlow<Domain>(i, generation));
  return keys;
}

// What is looked up: flows that are there, each once or some more often, or flows that are not.
enum class Lookup { hit, zipf, miss };

template <class Domain, Lookup Which>
std::vector<FlowTracking::HoFlowKey<Domain>> lookedUp(std::size_t flows) {
  return visitedKeys<Domain>(flows, Which == Lookup::zipf ? Visits::zipf : Visits::uniform,
                             Which == Lookup::miss ? 1 : 0);
}

}  // namespace SftBench
