#include "PexaSftHoCounter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace Pexa::Counter {

namespace {

// "tcp" for "ipProtoTcp"; a name without the prefix as it is.
Kiv::String protocolName(std::uint32_t ipProto) {
  constexpr std::string_view kPrefix = "ipProto";
  Kiv::String name = Pavo::stringValue(Pavo::IpProto{ipProto});
  if (!name.starts_with(kPrefix)) return name;
  name.erase(0, kPrefix.size());
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return name;
}

// The two displays differ on purpose: operators' scripts know the IPv4 one.
Kiv::String displayName(const FlowTracking::IpFlowKey& key) {
  return fmt::format("vrf:{}/vlan:{}/{}:{}->{}:{}/{}", key.vrfId, key.vlan, Pavo::stringValue(key.srcAddr),
                     key.srcPort, Pavo::stringValue(key.dstAddr), key.dstPort, protocolName(key.ipProto));
}
Kiv::String displayName(const FlowTracking::Ip6FlowKey& key) {
  return key.str();
}

}  // namespace

template <class Domain>
const Kiv::Type& SftHoCounter<Domain>::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<SftHoCounter>(Kiv::String(Key::Family::kLocalCounterType)).build();
  return type;
}

template <class Domain>
Kiv::String SftHoCounter<Domain>::name() const {
  return displayName(flowKey_);
}

template <class Domain>
std::ostream& operator<<(std::ostream& out, const SftHoCounter<Domain>& counter) {
  const std::string_view type = FlowTracking::IpFamily<Domain>::kLocalCounterType;
  return out << fmt::format("{}( {}, {}, {}, {}, {:.6f} )", type.substr(type.rfind(':') + 1), counter.name(),
                            counter.intfId().name(), counter.packets(), counter.bytes(),
                            counter.updateTime());
}

template class SftHoCounter<Pavo::Traits::IPv4>;
template class SftHoCounter<Pavo::Traits::IPv6>;
template std::ostream& operator<<(std::ostream&, const PexaSftHoCounter&);
template std::ostream& operator<<(std::ostream&, const PexaSftHoIp6Counter&);

}  // namespace Pexa::Counter
