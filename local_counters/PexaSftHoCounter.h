// What the agent counted of one flow in hardware: its packets and bytes, where it was seen last, and when.
//
// Neighbours: PexaSftHoCounterCollection.h owns the records; the offload decision counts into them; the state
// machine copies them into the published counters once a second.
// Threading: the agent's event thread. Counting neither allocates nor locks.
#pragma once

#include "FlowKey.h"
#include "Kiv.h"
#include "Pavo.h"
#include "PexaCounter.h"

namespace Pexa::Counter {

template <class Domain>
class SftHoCounter final : public PktCounter {
 public:
  using Key = FlowTracking::FlowKey<Domain>;

  explicit SftHoCounter(const Key& flowKey) : flowKey_(flowKey) {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // The name in the counter display. IPv4: "vrf:1/vlan:10/10.0.0.1:1234->10.0.0.2:80/tcp". IPv6: the key's
  // own text.
  Kiv::String name() const override;

  // One packet of this many bytes, seen on an interface now.
  void hoCount(const Pavo::IntfId& intfId, std::uint32_t bytes) {
    countBytes(bytes);
    intfId_ = intfId;
    updateTime_ = Kiv::System::currentTimeUtc();
  }

  // The identity of the record, never changed.
  const Key& flowKey() const { return flowKey_; }
  // Interface of the latest counted packet; empty before the first.
  const Pavo::IntfId& intfId() const { return intfId_; }
  // UTC seconds of the latest counted packet; 0 before the first.
  double updateTime() const { return updateTime_; }

 private:
  Key flowKey_;
  Pavo::IntfId intfId_;
  double updateTime_ = 0;
};

using PexaSftHoCounter = SftHoCounter<Pavo::Traits::IPv4>;
using PexaSftHoIp6Counter = SftHoCounter<Pavo::Traits::IPv6>;
extern template class SftHoCounter<Pavo::Traits::IPv4>;
extern template class SftHoCounter<Pavo::Traits::IPv6>;

// "PexaSftHoCounter( name, intfId, packets, bytes, updateTime )", for traces.
template <class Domain>
std::ostream& operator<<(std::ostream& out, const SftHoCounter<Domain>& counter);

}  // namespace Pexa::Counter
