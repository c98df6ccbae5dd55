#include "RecordTypes.h"

#include <memory>
#include <vector>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HoStatus.h"
#include "HosStateCounter.h"

namespace FlowTracking {

void recordTypesRegister() {
  static const std::vector<std::unique_ptr<Kiv::Module>> modules = [] {
    std::vector<std::unique_ptr<Kiv::Module>> registered;
    for (const Kiv::Type* type :
         {&HoFlowConfig::kivType(), &HoFlowStatus::kivType(), &HoFlowCounter::kivType(),
          &HosStateCounter::kivType(), &HoStatus::kivType()}) {
      if (Kiv::typeByName(type->name()) != nullptr) continue;
      registered.push_back(std::make_unique<Kiv::Module>("flow_records:" + type->name(),
                                                         std::initializer_list<const Kiv::Type*>{type}));
    }
    return registered;
  }();
}

}  // namespace FlowTracking
