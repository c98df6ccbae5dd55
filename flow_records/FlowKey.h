// Keys: of a flow, of a flow that is wanted in hardware, and of a state.
//
// Keys stand in shared memory and are compared and hashed there as bytes. Invariant K1: every bit of a key
// takes part in its equality; there is no padding, and reserved members are 0.
//
// The text form (valueToStrep, operator<<, str) is the members in their order, joined by "/":
//   16777215/10/10.0.0.1/10.0.0.2/6/1234/80                  a flow
//   16777215/10/10.0.0.1/10.0.0.2/6/1234/80/1/Ethernet1      a wanted offload; the interface, which may hold
//                                                            any character, is the rest of the text
// Threading: plain values.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <type_traits>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "Bridging.h"
#include "HoFlowState.h"
#include "IpFamily.h"
#include "Kiv.h"
#include "Pavo.h"

namespace FlowTracking {

inline constexpr std::uint32_t kDefaultVrfId = 0xffffff;

namespace detail {
// The keys of packets are written, as they are read right after, in whole words: a word whose parts were
// stored one by one, or two words read at once, wait until the stores have left the processor's store buffer
// (a third of a decision). The compiler may not join the stores again. Gives the place behind the word.
inline void* storeWord(void* at, std::uint64_t word) {
  __asm__("" : "+r"(word));
  std::memcpy(at, &word, sizeof(word));
  return static_cast<std::byte*>(at) + sizeof(word);
}
}  // namespace detail

// The identity of a flow.
template <class Domain>
struct FlowKey {
  using Family = IpFamily<Domain>;
  using Address = typename Family::Address;
  using Text = Kiv::String::const_iterator;

  std::uint32_t vrfId = kDefaultVrfId;
  std::uint16_t vlan = 0;  // at most 4095
  std::uint16_t reserved = 0;
  Address srcAddr{};
  Address dstAddr{};
  std::uint32_t ipProto = 0;
  std::uint16_t srcPort = 0;  // host order
  std::uint16_t dstPort = 0;  // host order

  FlowKey() = default;
  // The key of a packet.
  FlowKey(std::uint16_t packetVlan, const typename Family::Header& ip, const Pavo::L4Ports& ports) {
    constexpr std::size_t kAddressWords = 2 * Address::kBytes / 8;
    void* at = detail::storeWord(this, std::uint64_t{kDefaultVrfId} | std::uint64_t{packetVlan} << 32);
    for (std::size_t i = 0; i < kAddressWords; ++i) {
      std::uint64_t word = 0;
      std::memcpy(&word, ip.addresses() + 8 * i, 8);
      at = detail::storeWord(at, word);
    }
    detail::storeWord(at, std::uint64_t{ip.protocolNum()} | std::uint64_t{ports.srcPort()} << 32 |
                              std::uint64_t{ports.dstPort()} << 48);
  }
  // Parses the text form. Throws Kiv::ValueError, which names the member that is wrong.
  FlowKey(Text begin, Text end);

  bool operator==(const FlowKey& other) const { return std::memcmp(this, &other, sizeof(*this)) == 0; }
  std::strong_ordering operator<=>(const FlowKey&) const = default;
  std::uint32_t hash(unsigned seed) const { return static_cast<std::uint32_t>(hash64(seed)); }
  std::uint64_t hash64(std::uint64_t seed) const { return XXH3_64bits_withSeed(this, sizeof(*this), seed); }
  Kiv::String str() const;
};

// Where a flow is seen, in the bytes in which a key ends: the direction, and the interface right behind it.
// Packets come in bursts of one interface; this is made once for them.
class HoFlowPlace {
 public:
  HoFlowPlace(Bridging::AllowedTrafficDirection direction, const Pavo::IntfId& intfId) {
    auto carried = static_cast<std::uint64_t>(direction);
    const std::array<std::uint64_t, 3> words = intfId.words();
    for (std::size_t i = 0; i < words.size(); ++i) {
      words_[i] = carried | words[i] << 8;
      carried = words[i] >> 56;
    }
  }
  const std::array<std::uint64_t, 3>& words() const { return words_; }

 private:
  std::array<std::uint64_t, 3> words_;
};

// A flow that is wanted in hardware, in one direction and on one interface.
template <class Domain>
struct HoFlowKey {
  using Family = IpFamily<Domain>;
  using Direction = Bridging::AllowedTrafficDirection;
  using Text = Kiv::String::const_iterator;

  FlowKey<Domain> ipFlowKey;
  Direction direction = Direction::none;
  Pavo::IntfId intfId;  // of an egress flow the egress interface, else the input interface

  HoFlowKey() = default;
  HoFlowKey(const FlowKey<Domain>& flow, Direction flowDirection, const Pavo::IntfId& flowIntfId)
      : ipFlowKey(flow), direction(flowDirection), intfId(flowIntfId) {}
  // The key of a packet.
  HoFlowKey(std::uint16_t packetVlan, const typename Family::Header& ip, const Pavo::L4Ports& ports,
            const HoFlowPlace& place)
      : ipFlowKey(packetVlan, ip, ports) {
    void* at = &direction;  // the interface begins one byte behind it
    for (const std::uint64_t word : place.words()) at = detail::storeWord(at, word);
  }
  // Parses the text form. Throws Kiv::ValueError, which names the member that is wrong.
  HoFlowKey(Text begin, Text end);

  bool operator==(const HoFlowKey& other) const { return std::memcmp(this, &other, sizeof(*this)) == 0; }
  std::strong_ordering operator<=>(const HoFlowKey&) const = default;
  std::uint32_t hash(unsigned seed) const { return static_cast<std::uint32_t>(hash64(seed)); }
  std::uint64_t hash64(std::uint64_t seed) const { return XXH3_64bits_withSeed(this, sizeof(*this), seed); }
  Kiv::String str() const;
};

// The state alone; its text form is the number.
struct HosStateCounterKey {
  using Text = Kiv::String::const_iterator;

  HoFlowState state = HoFlowState::none;

  HosStateCounterKey() = default;
  HosStateCounterKey(HoFlowState keyState)
      : state(keyState) {}  // NOLINT(google-explicit-constructor): the state alone
  // Parses the text form. Throws Kiv::ValueError.
  HosStateCounterKey(Text begin, Text end);

  bool operator==(const HosStateCounterKey&) const = default;
  std::strong_ordering operator<=>(const HosStateCounterKey&) const = default;
  std::uint32_t hash(unsigned seed) const { return static_cast<std::uint32_t>(hash64(seed)); }
  std::uint64_t hash64(std::uint64_t seed) const { return XXH3_64bits_withSeed(this, sizeof(*this), seed); }
  Kiv::String str() const;
};

using IpFlowKey = FlowKey<Pavo::Traits::IPv4>;
using Ip6FlowKey = FlowKey<Pavo::Traits::IPv6>;
using HoIpFlowKey = HoFlowKey<Pavo::Traits::IPv4>;
using HoIp6FlowKey = HoFlowKey<Pavo::Traits::IPv6>;

extern template struct FlowKey<Pavo::Traits::IPv4>;
extern template struct FlowKey<Pavo::Traits::IPv6>;
extern template struct HoFlowKey<Pavo::Traits::IPv4>;
extern template struct HoFlowKey<Pavo::Traits::IPv6>;

// The canonical text form of a key; parsing it gives back an equal key.
template <class Domain>
Kiv::String valueToStrep(const FlowKey<Domain>& key) {
  return key.str();
}
template <class Domain>
Kiv::String valueToStrep(const HoFlowKey<Domain>& key) {
  return key.str();
}
inline Kiv::String valueToStrep(const HosStateCounterKey& key) {
  return key.str();
}

template <class Domain>
std::ostream& operator<<(std::ostream& out, const FlowKey<Domain>& key) {
  return out << key.str();
}
template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowKey<Domain>& key) {
  return out << key.str();
}
inline std::ostream& operator<<(std::ostream& out, const HosStateCounterKey& key) {
  return out << key.str();
}

// The layout is that of the files: other processes read these bytes.
static_assert(sizeof(IpFlowKey) == 24 && sizeof(Ip6FlowKey) == 48);
static_assert(sizeof(HoIpFlowKey) == 48 && sizeof(HoIp6FlowKey) == 72);
static_assert(sizeof(HosStateCounterKey) == 1);
static_assert(offsetof(HoIpFlowKey, direction) == 24 && offsetof(HoIpFlowKey, intfId) == 25);
static_assert(offsetof(HoIp6FlowKey, direction) == 48 && offsetof(HoIp6FlowKey, intfId) == 49);
static_assert(std::has_unique_object_representations_v<HoIpFlowKey> &&
              std::has_unique_object_representations_v<HoIp6FlowKey>);

}  // namespace FlowTracking
