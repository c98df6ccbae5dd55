#include "HosStateCounter.h"

namespace FlowTracking {

HosStateCounter::HosStateCounter(Kiv::String name)
    : FamilyContainer(std::move(name), IpFamily<Pavo::Traits::IPv4>::kStateCollection,
                      IpFamily<Pavo::Traits::IPv6>::kStateCollection) {}

const Kiv::Type& HosStateCounter::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<HosStateCounter>("FlowTracking::HosStateCounter")
                                    .constructor(&Kiv::makePtr<HosStateCounter, const Kiv::String&>, "name")
                                    .build();
  return type;
}

Kiv::String HosStateCounter::mountPath(std::string_view type) {
  return Kiv::String("flowtracking/").append(type).append("/hwOffload/counter/status");
}

}  // namespace FlowTracking
