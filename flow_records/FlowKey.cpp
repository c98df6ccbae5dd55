#include "FlowKey.h"

#include "KeyText.h"

namespace FlowTracking {

namespace {
constexpr std::size_t kFlowKeyParts = 7;

std::string_view view(Kiv::String::const_iterator begin, Kiv::String::const_iterator end) {
  return {begin, end};
}
}  // namespace

template <class Domain>
FlowKey<Domain>::FlowKey(Text begin, Text end) {
  KeyText text(view(begin, end));
  text.numberInto(vrfId, "vrfId");
  text.numberInto(vlan, "vlan", Bridging::VlanIdOrAnyOrNone::kMost);
  text.textInto(srcAddr, "srcAddr");
  text.textInto(dstAddr, "dstAddr");
  text.numberInto(ipProto, "ipProto");
  text.numberInto(srcPort, "srcPort");
  text.numberInto(dstPort, "dstPort");
  text.end();
}

template <class Domain>
Kiv::String FlowKey<Domain>::str() const {
  Kiv::String text;
  text.reserve(128);
  text.append(std::to_string(vrfId)).append("/").append(std::to_string(vlan));
  text.append("/").append(Pavo::stringValue(srcAddr)).append("/").append(Pavo::stringValue(dstAddr));
  text.append("/").append(std::to_string(ipProto));
  text.append("/").append(std::to_string(srcPort)).append("/").append(std::to_string(dstPort));
  return text;
}

template <class Domain>
HoFlowKey<Domain>::HoFlowKey(Text begin, Text end) {
  KeyText text(view(begin, end));
  const Kiv::String flow(text.parts(kFlowKeyParts));
  ipFlowKey = FlowKey<Domain>(flow.begin(), flow.end());
  text.numberInto(direction, "direction", 0xff);
  text.restInto(intfId, "intfId");
}

template <class Domain>
Kiv::String HoFlowKey<Domain>::str() const {
  Kiv::String text = ipFlowKey.str();
  text.append("/").append(std::to_string(static_cast<unsigned>(direction))).append("/").append(intfId.name());
  return text;
}

HosStateCounterKey::HosStateCounterKey(Text begin, Text end) {
  KeyText text(view(begin, end));
  text.numberInto(state, "state", 0xff);
  text.end();
}

Kiv::String HosStateCounterKey::str() const {
  return std::to_string(static_cast<unsigned>(state));
}

template struct FlowKey<Pavo::Traits::IPv4>;
template struct FlowKey<Pavo::Traits::IPv6>;
template struct HoFlowKey<Pavo::Traits::IPv4>;
template struct HoFlowKey<Pavo::Traits::IPv6>;

}  // namespace FlowTracking
