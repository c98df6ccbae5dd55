#include "HoStatus.h"

namespace FlowTracking {

const Kiv::Type& HoStatus::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<HoStatus>("FlowTracking::HoStatus")
          .attribute("v4enabled", &HoStatus::v4enabled, &HoStatus::v4enabledIs)
          .attribute("v6enabled", &HoStatus::v6enabled, &HoStatus::v6enabledIs)
          .attribute("egressV4Enabled", &HoStatus::egressV4Enabled, &HoStatus::egressV4EnabledIs)
          .attribute("egressV6Enabled", &HoStatus::egressV6Enabled, &HoStatus::egressV6EnabledIs)
          .constructor(&Kiv::makePtr<HoStatus, const Kiv::String&>, "name")
          .build();
  return type;
}

}  // namespace FlowTracking
