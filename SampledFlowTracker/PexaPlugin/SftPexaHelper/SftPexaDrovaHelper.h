// The overflow helper of the offload control state machine: the hardware flow budget, and the flows that wait
// for room.
//
// The budget counts flows of one family: each family has the whole of it. It is read from the environment
// when the helper is built, and can be changed at run time (`sft attr set SampledFlowTracker.drovaHelper
// maxInHardwareFlows 4096`); flows that are in hardware stay there when it shrinks.
//
// Neighbours: the state machine's admission asks for room and keeps the sets; its reconciliation walks them.
// Threading: the agent's event thread.
#pragma once

#include <cstdint>

#include "HosStateCounter.h"
#include "Kiv.h"
#include "PexaSftHoCounterCollection.h"

namespace SampledFlowTracker {

template <class Domain>
using OverflowSet = Kiv::Set<FlowTracking::HoFlowKey<Domain>, Pexa::Counter::FlowKeyHash>;

class SftPexaDrovaHelper : public Kiv::PtrInterface {
 public:
  static constexpr const char* kBudgetVariable = "MAX_HO_FLOW_ENTRIES";
  static constexpr std::uint32_t kDefaultBudget = 2048;

  // Reads the budget. The counters may be empty: they count no flow then.
  explicit SftPexaDrovaHelper(const Kiv::Ptr<const FlowTracking::HosStateCounter>& hosStateCounter);
  static Kiv::Ptr<SftPexaDrovaHelper> SftPexaDrovaHelperIs(
      const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter);
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Sets the budget from the environment: a decimal number as strtoul takes it, of which the low 32 bits
  // count. An empty value is 0; one with anything behind the number is the default, as is an absent one.
  void handleInitialized();

  const Kiv::Ptr<const FlowTracking::HosStateCounter>& hosStateCounter() const { return hosStateCounter_; }
  // Flows of one family that may be in hardware.
  std::uint32_t maxInHardwareFlows() const { return maxInHardwareFlows_; }
  // Takes effect with the next question.
  void maxInHardwareFlowsIs(std::uint32_t flows) { maxInHardwareFlows_ = flows; }

  // Whether there is no room for one more flow in hardware. A damaged count is reported and counts as 0.
  bool outOfResources() const { return outOf<Pavo::Traits::IPv4>(); }
  bool outOfIpv6Resources() const { return outOf<Pavo::Traits::IPv6>(); }

  // The waiting flows, walked in their own order (see Kiv::Set).
  const OverflowSet<Pavo::Traits::IPv4>& overflowEntries() const { return set4_; }
  const OverflowSet<Pavo::Traits::IPv6>& overflow6Entries() const { return set6_; }
  bool overflowEntriesHas(const FlowTracking::HoIpFlowKey& key) const { return set4_.has(key); }
  bool overflow6EntriesHas(const FlowTracking::HoIp6FlowKey& key) const { return set6_.has(key); }
  // Is: puts a key in. Del: takes it out; nothing when absent.
  void overflowEntriesIs(const FlowTracking::HoIpFlowKey& key) { set4_.insert(key); }
  void overflow6EntriesIs(const FlowTracking::HoIp6FlowKey& key) { set6_.insert(key); }
  void overflowEntriesDel(const FlowTracking::HoIpFlowKey& key) { set4_.erase(key); }
  void overflow6EntriesDel(const FlowTracking::HoIp6FlowKey& key) { set6_.erase(key); }
  void overflowEntriesDelAll() { set4_.clear(); }
  void overflow6EntriesDelAll() { set6_.clear(); }

  // The waiting flows by their keys' texts, for who knows this entity by its names only (overflowEntriesHas,
  // overflowEntriesAfter and their IPv6 twins). Has: whether a flow waits. After: the flow behind the key's
  // place, be the key in or not, or the first one after ""; "" at the end. Both throw Kiv::ValueError on what
  // is no key's text.
  template <class Domain>
  bool waits(const Kiv::String& key) const;
  template <class Domain>
  Kiv::String waitingAfter(const Kiv::String& key) const;

  // The same for code that is written once for both families.
  template <class Domain>
  bool outOf() const;
  template <class Domain>
  OverflowSet<Domain>& overflow() {
    if constexpr (FlowTracking::IpFamily<Domain>::kIndex == 0) {
      return set4_;
    } else {
      return set6_;
    }
  }
  template <class Domain>
  const OverflowSet<Domain>& overflow() const {
    return const_cast<SftPexaDrovaHelper*>(this)->overflow<Domain>();
  }

 private:
  Kiv::Ptr<const FlowTracking::HosStateCounter> hosStateCounter_;
  std::uint32_t maxInHardwareFlows_ = 0;
  OverflowSet<Pavo::Traits::IPv4> set4_;
  OverflowSet<Pavo::Traits::IPv6> set6_;
};

// The same as SftPexaDrovaHelper::SftPexaDrovaHelperIs.
Kiv::Ptr<SftPexaDrovaHelper> sftPexaDrovaHelperFactory(
    const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter);

}  // namespace SampledFlowTracker
