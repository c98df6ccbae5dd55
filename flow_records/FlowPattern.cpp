#include "FlowPattern.h"

#include <charconv>

#include "KivQuoted.h"
#include "ObjectReader.h"

namespace FlowTracking {
namespace {

// An address of a family, and how many bits of it count.
template <class Address>
std::size_t take(std::string_view text, std::array<std::uint8_t, Pavo::Ip6Addr::kBytes>& first) {
  const auto address = Pavo::addressFromText<Address>(text);
  std::copy(address.bytes.begin(), address.bytes.end(), first.begin());
  return Address::kBytes;
}

template <class T>
bool isOpenOr(const std::optional<T>& part, const T& held) {
  return !part || *part == held;
}

template <class T>
void read(const Kiv::Value& value, ObjectReader& reader, std::string_view name, std::optional<T>& part) {
  T held{};
  reader.optional(name, held);
  if (value.member(name) != nullptr) part = held;
}

void read(const Kiv::Value& value, ObjectReader& reader, std::string_view name,
          std::optional<Network>& part) {
  std::optional<Kiv::String> text;
  read(value, reader, name, text);
  if (!text) return;
  try {
    part.emplace(*text);
  } catch (const Kiv::ValueError& error) {
    throw MemberError(std::string(name), error.what());
  }
}

template <class T>
void add(Kiv::Value::Object& members, const char* name, const std::optional<T>& part) {
  if (part) members.emplace_back(name, Kiv::ValueTraits<T>::toValue(*part));
}

}  // namespace

Network::Network(std::string_view text) {
  const auto slash = text.find('/');
  const std::string_view address = text.substr(0, slash);
  bytes_ = address.find(':') == std::string_view::npos ? take<Pavo::IpAddr>(address, first_)
                                                       : take<Pavo::Ip6Addr>(address, first_);
  prefix_ = 8 * bytes_;
  if (slash == std::string_view::npos) return;
  const std::string_view bits = text.substr(slash + 1);
  std::size_t prefix = 0;
  const auto [end, error] = std::from_chars(bits.data(), bits.data() + bits.size(), prefix);
  if (error != std::errc() || end != bits.data() + bits.size() || prefix > prefix_) {
    throw Kiv::ValueError("expected a prefix length up to " + std::to_string(prefix_) +
                          " behind the /, got " + Kiv::quoted(bits));
  }
  prefix_ = prefix;
}

bool Network::same(const std::uint8_t* address) const {
  const std::size_t whole = prefix_ / 8;
  if (!std::equal(first_.begin(), first_.begin() + whole, address)) return false;
  const std::size_t rest = prefix_ % 8;
  if (rest == 0) return true;
  return ((first_[whole] ^ address[whole]) >> (8 - rest)) == 0;
}

Kiv::String Network::text() const {
  const Kiv::String address = isOf<Pavo::Traits::IPv4>() ? Pavo::stringValue(this->address<Pavo::IpAddr>())
                                                         : Pavo::stringValue(this->address<Pavo::Ip6Addr>());
  return isHost() ? address : address + '/' + std::to_string(prefix_);
}

template <class Domain>
bool FlowPattern::holds(const HoFlowKey<Domain>& key) const {
  const FlowKey<Domain>& flow = key.ipFlowKey;
  return (!source || source->holds(flow.srcAddr)) && (!destination || destination->holds(flow.dstAddr)) &&
         isOpenOr(sourcePort, flow.srcPort) && isOpenOr(destinationPort, flow.dstPort) &&
         isOpenOr(protocol, flow.ipProto) && isOpenOr(vlan, flow.vlan) && isOpenOr(vrf, flow.vrfId) &&
         isOpenOr(direction, key.direction) && isOpenOr(interface, key.intfId);
}
template bool FlowPattern::holds(const HoIpFlowKey&) const;
template bool FlowPattern::holds(const HoIp6FlowKey&) const;

}  // namespace FlowTracking

namespace Kiv {

using FlowTracking::FlowPattern;

Value ValueTraits<FlowPattern>::toValue(const FlowPattern& pattern) {
  Value::Object members;
  if (pattern.source) members.emplace_back("source", pattern.source->text());
  FlowTracking::add(members, "sourcePort", pattern.sourcePort);
  if (pattern.destination) members.emplace_back("destination", pattern.destination->text());
  FlowTracking::add(members, "destinationPort", pattern.destinationPort);
  FlowTracking::add(members, "protocol", pattern.protocol);
  FlowTracking::add(members, "vlan", pattern.vlan);
  FlowTracking::add(members, "vrf", pattern.vrf);
  if (pattern.direction) members.emplace_back("direction", static_cast<unsigned>(*pattern.direction));
  FlowTracking::add(members, "interface", pattern.interface);
  return members;
}

FlowPattern ValueTraits<FlowPattern>::fromValue(const Value& value) {
  FlowPattern pattern;
  FlowTracking::ObjectReader reader(value);
  FlowTracking::read(value, reader, "source", pattern.source);
  FlowTracking::read(value, reader, "sourcePort", pattern.sourcePort);
  FlowTracking::read(value, reader, "destination", pattern.destination);
  FlowTracking::read(value, reader, "destinationPort", pattern.destinationPort);
  FlowTracking::read(value, reader, "protocol", pattern.protocol);
  FlowTracking::read(value, reader, "vlan", pattern.vlan);
  FlowTracking::read(value, reader, "vrf", pattern.vrf);
  if (value.member("direction") != nullptr) {
    Bridging::AllowedTrafficDirection direction{};
    reader.oneWay("direction", direction);
    pattern.direction = direction;
  } else {
    Kiv::String none;
    reader.optional("direction", none);
  }
  FlowTracking::read(value, reader, "interface", pattern.interface);
  reader.end();
  return pattern;
}

}  // namespace Kiv
