// How many flows stand in each state; written by the state machine.
#pragma once

#include "FamilyContainer.h"

namespace FlowTracking {

class HosStateCounter : public FamilyContainer<HosStateCounterEntry, HosStateCounterEntry> {
 public:
  // A collection's changes are announced under these.
  enum Attr : Kiv::AttributeId { hosStateIpCounterAttr = 1, hosStateIp6CounterAttr };

  explicit HosStateCounter(Kiv::String name);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  // Where the table is mounted, for a kind of flow tracking ("sampled").
  static Kiv::String mountPath(std::string_view type);

  const Map4& hosStateIpCounter() const { return map<Pavo::Traits::IPv4>(); }
  const Map6& hosStateIp6Counter() const { return map<Pavo::Traits::IPv6>(); }

  // Is: inserts or overwrites the record under its own key. Del: takes the record out; nothing when absent.
  // Both throw Quell::TableError.
  void hosStateIpCounterIs(const HosStateCounterEntry& value) { map<Pavo::Traits::IPv4>().insert(value); }
  void hosStateIpCounterDel(const HosStateCounterKey& key) { map<Pavo::Traits::IPv4>().erase(key); }
  void hosStateIp6CounterIs(const HosStateCounterEntry& value) { map<Pavo::Traits::IPv6>().insert(value); }
  void hosStateIp6CounterDel(const HosStateCounterKey& key) { map<Pavo::Traits::IPv6>().erase(key); }
};

}  // namespace FlowTracking
