// Histories: what happens to a state machine and to its tables, one operation after another, as three bytes
// each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "NaiveWorld.h"

namespace Naive {

// Few flows, each in both directions and on two interfaces, so that they meet each other all the time.
inline constexpr unsigned kFlows = 4;
inline constexpr unsigned kKeys = kFlows * 4;

template <class Domain>
FlowTracking::FlowKey<Domain> flowOf(unsigned flow) {
  FlowTracking::FlowKey<Domain> key;
  key.vlan = 10;
  key.ipProto = 6;
  key.srcPort = static_cast<std::uint16_t>(1000 + flow % kFlows);
  key.dstPort = 80;
  return key;
}
inline Pavo::IntfId interfaceOf(unsigned number) {
  return Pavo::IntfId(number % 2 == 0 ? "Ethernet1" : "Ethernet2");
}
// Four keys in a row share a flow.
template <class Domain>
FlowTracking::HoFlowKey<Domain> keyOf(unsigned key) {
  using Direction = Bridging::AllowedTrafficDirection;
  return {flowOf<Domain>(key / 4), key % 2 == 0 ? Direction::ingress : Direction::egress,
          interfaceOf(key / 2)};
}

struct Operation {
  // `subject` names a family (its lowest bit: 0 IPv4, 1 IPv6) and a key (the bits above).
  enum class Kind : std::uint8_t {
    construct,         // a new state machine over the tables; value: see Start
    teardown,          // the state machine goes
    notificationsOff,  // it reacts to nothing any more
    configIs,          // a wanted offload appears or changes
    configDel,         // it goes
    budgetIs,          // value: flows of a family that may be in hardware
    countPacket,       // of the key's flow; value: its interface and size
    work,              // the first work of the list does some entries; value: how many
    settle,            // all work there is, until there is none
    advance,           // the clock; value: quarters of a second
    damage,            // of a record; value: of which table
    leftBehind,        // a record that a former process left; only without a state machine; value: see there
    configQuietly,     // a wanted offload appears, changes or goes, and nobody is told; value: its lowest bit
    lookAgain,         // the family's wanted offloads are to be looked at again; and all work, as by settle
  };
  static constexpr unsigned kKinds = 14;

  Kind kind{};
  std::uint8_t subject = 0;
  std::uint8_t value = 0;

  bool six() const { return (subject & 1U) != 0; }
  unsigned key() const { return (subject >> 1) % kKeys; }

  bool operator==(const Operation&) const = default;
};

// What an operation's value says.
struct Start {
  explicit Start(std::uint8_t value)
      : synchronous((value & 1U) != 0), sameHelper((value & 2U) != 0), sameCounters((value & 4U) != 0) {}
  bool synchronous;
  bool sameHelper;    // the waiting flows are still there
  bool sameCounters;  // the local counters are still there
};
inline bool appearsQuietly(std::uint8_t value) {
  return (value & 1U) != 0;
}
inline unsigned budgetOf(std::uint8_t value) {
  return value % 6;
}
inline unsigned entriesOf(std::uint8_t value) {
  return value % 4 + 1;
}
inline double secondsOf(std::uint8_t value) {
  return (value % 8 + 1) * 0.25;
}
enum class TableName { config, status, counter, states, overflow };
inline TableName damagedTable(std::uint8_t value) {
  return static_cast<TableName>(value % 4);
}
inline TableName tableLeft(std::uint8_t value) {
  return static_cast<TableName>(1 + value % 4);
}
// Of a damaged or left count, and of a left status.
inline HoFlowState stateOf(std::uint8_t value) {
  return static_cast<HoFlowState>(1 + value / 4 % 3);
}
// Of a left count, and of the references of a left counter.
inline unsigned countOf(std::uint8_t value) {
  return value / 12 % 4;
}

using History = std::vector<Operation>;

// Any bytes are a history; one or two at the end are left over. No more than kMostOperations are taken.
inline constexpr std::size_t kMostOperations = 300;
History decode(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> encode(const History& history);

// "work 3", "config IPv4 key 5".
std::string text(const Operation& operation);
std::ostream& operator<<(std::ostream& out, const Operation& operation);

}  // namespace Naive
