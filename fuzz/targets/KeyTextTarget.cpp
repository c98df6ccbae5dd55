// Key texts, both ways. Any text is refused with a line or is a key whose canonical text gives the same key
// again; and any key that a record can hold has a text that gives it back.
#include <cstring>

#include "FlowKey.h"
#include "FuzzInput.h"

namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

template <class Key>
void printAndParse(const Key& key) {
  const Kiv::String text = key.str();
  const Key again(text.begin(), text.end());
  FUZZ_REQUIRE(again == key);
  FUZZ_REQUIRE(again.str() == text);
}

template <class Key>
void parse(const Kiv::String& text) {
  try {
    printAndParse(Key(text.begin(), text.end()));
  } catch (const Kiv::ValueError& refused) {
    FUZZ_REQUIRE(*refused.what() != '\0');
    FUZZ_REQUIRE(std::strchr(refused.what(), '\n') == nullptr);
  }
}

template <class Domain>
void print(FuzzInput& input) {
  FlowTracking::HoFlowKey<Domain> key;
  auto& flow = key.ipFlowKey;
  flow.vrfId = input.take<std::uint32_t>();
  flow.vlan = static_cast<std::uint16_t>(input.below(4096));
  flow.srcAddr = input.take<decltype(flow.srcAddr)>();
  flow.dstAddr = input.take<decltype(flow.dstAddr)>();
  flow.ipProto = input.take<std::uint32_t>();
  flow.srcPort = input.take<std::uint16_t>();
  flow.dstPort = input.take<std::uint16_t>();
  printAndParse(flow);
  key.direction =
      input.flag() ? Bridging::AllowedTrafficDirection::ingress : Bridging::AllowedTrafficDirection::egress;
  try {
    key.intfId = Kiv::ValueTraits<Pavo::IntfId>::fromValue(Kiv::Value(input.rest()));
  } catch (const Kiv::ValueError&) {
    return;
  }
  if (!key.intfId.empty()) printAndParse(key);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Kiv::String text(reinterpret_cast<const char*>(data), size);
  parse<FlowTracking::IpFlowKey>(text);
  parse<FlowTracking::Ip6FlowKey>(text);
  parse<FlowTracking::HoIpFlowKey>(text);
  parse<FlowTracking::HoIp6FlowKey>(text);
  parse<FlowTracking::HosStateCounterKey>(text);
  FuzzInput four(data, size);
  print<IPv4>(four);
  FuzzInput six(data, size);
  print<IPv6>(six);
  return 0;
}
