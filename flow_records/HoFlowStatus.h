// What became of each wanted offload; written by the state machine, read for every packet.
#pragma once

#include "FamilyContainer.h"

namespace FlowTracking {

class HoFlowStatus : public FamilyContainer<HoIpFlowStatus, HoIp6FlowStatus> {
 public:
  // A collection's changes are announced under these.
  enum Attr : Kiv::AttributeId { hoIpFlowStatusAttr = 1, hoIp6FlowStatusAttr };

  explicit HoFlowStatus(Kiv::String name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  // Where the table is mounted, for a kind of flow tracking ("sampled").
  static Kiv::String mountPath(std::string_view type);

  const Map4& hoIpFlowStatus() const { return map<Pavo::Traits::IPv4>(); }
  const Map6& hoIp6FlowStatus() const { return map<Pavo::Traits::IPv6>(); }

  // Is: inserts or overwrites the record under its own key. Del: takes the record out; nothing when absent.
  // Both throw Quell::TableError.
  void hoIpFlowStatusIs(const HoIpFlowStatus& value) { map<Pavo::Traits::IPv4>().insert(value); }
  void hoIpFlowStatusDel(const HoIpFlowKey& key) { map<Pavo::Traits::IPv4>().erase(key); }
  void hoIp6FlowStatusIs(const HoIp6FlowStatus& value) { map<Pavo::Traits::IPv6>().insert(value); }
  void hoIp6FlowStatusDel(const HoIp6FlowKey& key) { map<Pavo::Traits::IPv6>().erase(key); }
};

}  // namespace FlowTracking
