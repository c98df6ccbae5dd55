// The wanted offloads; a flow tracker publishes them, the plugin only reads.
#pragma once

#include "FamilyContainer.h"

namespace FlowTracking {

class HoFlowConfig : public FamilyContainer<HoIpFlowConfig, HoIp6FlowConfig> {
 public:
  // A collection's changes are announced under these.
  enum Attr : Kiv::AttributeId { hoIpFlowConfigAttr = 1, hoIp6FlowConfigAttr };

  explicit HoFlowConfig(Kiv::String name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  // Where the table is mounted, for a kind of flow tracking ("sampled").
  static Kiv::String mountPath(std::string_view type);

  const Map4& hoIpFlowConfig() const { return map<Pavo::Traits::IPv4>(); }
  const Map6& hoIp6FlowConfig() const { return map<Pavo::Traits::IPv6>(); }

  // Is: inserts or overwrites the record under its own key. Del: takes the record out; nothing when absent.
  // Both throw Quell::TableError.
  void hoIpFlowConfigIs(const HoIpFlowConfig& value) { map<Pavo::Traits::IPv4>().insert(value); }
  void hoIpFlowConfigDel(const HoIpFlowKey& key) { map<Pavo::Traits::IPv4>().erase(key); }
  void hoIp6FlowConfigIs(const HoIp6FlowConfig& value) { map<Pavo::Traits::IPv6>().insert(value); }
  void hoIp6FlowConfigDel(const HoIp6FlowKey& key) { map<Pavo::Traits::IPv6>().erase(key); }
};

}  // namespace FlowTracking
