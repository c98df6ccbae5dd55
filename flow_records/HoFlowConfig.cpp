#include "HoFlowConfig.h"

namespace FlowTracking {

HoFlowConfig::HoFlowConfig(Kiv::String name)
    : FamilyContainer(std::move(name), IpFamily<Pavo::Traits::IPv4>::kConfigCollection,
                      IpFamily<Pavo::Traits::IPv6>::kConfigCollection) {}

const Kiv::Type& HoFlowConfig::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<HoFlowConfig>("FlowTracking::HoFlowConfig")
                                    .constructor(&Kiv::makePtr<HoFlowConfig, const Kiv::String&>, "name")
                                    .build();
  return type;
}

Kiv::String HoFlowConfig::mountPath(std::string_view type) {
  return Kiv::String("flowtracking/").append(type).append("/hwOffload/config");
}

}  // namespace FlowTracking
