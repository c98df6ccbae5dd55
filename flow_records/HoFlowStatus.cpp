#include "HoFlowStatus.h"

namespace FlowTracking {

HoFlowStatus::HoFlowStatus(Kiv::String name)
    : FamilyContainer(std::move(name), IpFamily<Pavo::Traits::IPv4>::kStatusCollection,
                      IpFamily<Pavo::Traits::IPv6>::kStatusCollection) {}

const Kiv::Type& HoFlowStatus::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<HoFlowStatus>("FlowTracking::HoFlowStatus")
                                    .constructor(&Kiv::makePtr<HoFlowStatus, const Kiv::String&>, "name")
                                    .build();
  return type;
}

Kiv::String HoFlowStatus::mountPath(std::string_view type) {
  return Kiv::String("flowtracking/").append(type).append("/hwOffload/status");
}

}  // namespace FlowTracking
