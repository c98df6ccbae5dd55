#include "HoFlowCounter.h"

namespace FlowTracking {

HoFlowCounter::HoFlowCounter(Kiv::String name)
    : FamilyContainer(std::move(name), IpFamily<Pavo::Traits::IPv4>::kCounterCollection,
                      IpFamily<Pavo::Traits::IPv6>::kCounterCollection) {}

const Kiv::Type& HoFlowCounter::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<HoFlowCounter>("FlowTracking::HoFlowCounter")
                                    .constructor(&Kiv::makePtr<HoFlowCounter, const Kiv::String&>, "name")
                                    .build();
  return type;
}

Kiv::String HoFlowCounter::mountPath(std::string_view type, std::string_view counterName) {
  return Kiv::String("flowtracking/").append(type).append("/hwOffload/counter/").append(counterName);
}

}  // namespace FlowTracking
