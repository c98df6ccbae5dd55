// The published counters of flows in hardware; written by the state machine.
#pragma once

#include "FamilyContainer.h"

namespace FlowTracking {

class HoFlowCounter : public FamilyContainer<HoIpFlowCounter, HoIp6FlowCounter> {
 public:
  // A collection's changes are announced under these.
  enum Attr : Kiv::AttributeId { hoIpFlowCounterAttr = 1, hoIp6FlowCounterAttr };

  explicit HoFlowCounter(Kiv::String name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  // Where the table is mounted, for a kind of flow tracking ("sampled").
  static Kiv::String mountPath(std::string_view type, std::string_view counterName);

  const Map4& hoIpFlowCounter() const { return map<Pavo::Traits::IPv4>(); }
  const Map6& hoIp6FlowCounter() const { return map<Pavo::Traits::IPv6>(); }

  // Is: inserts or overwrites the record under its own key. Del: takes the record out; nothing when absent.
  // Both throw Quell::TableError.
  void hoIpFlowCounterIs(const HoIpFlowCounter& value) { map<Pavo::Traits::IPv4>().insert(value); }
  void hoIpFlowCounterDel(const IpFlowKey& key) { map<Pavo::Traits::IPv4>().erase(key); }
  void hoIp6FlowCounterIs(const HoIp6FlowCounter& value) { map<Pavo::Traits::IPv6>().insert(value); }
  void hoIp6FlowCounterDel(const Ip6FlowKey& key) { map<Pavo::Traits::IPv6>().erase(key); }
};

}  // namespace FlowTracking
