// A table with one collection for each address family, first the one of IPv4.
//
// The concrete tables (HoFlowConfig.h, HoFlowStatus.h, HoFlowCounter.h, HosStateCounter.h) name the
// collections and their operations; code that is written once for both families reaches them by the family.
// Threading: as Quell::Map.
#pragma once

#include <type_traits>
#include <utility>

#include "Quell.h"
#include "QuellMap.h"
#include "RecordValues.h"

namespace FlowTracking {

// REQUIRES of Record4 and Record6: records of Records.h.
template <class Record4, class Record6>
class FamilyContainer : public Quell::Container {
 public:
  using Map4 = Quell::Map<typename Record4::Key, Record4>;
  using Map6 = Quell::Map<typename Record6::Key, Record6>;
  template <class Domain>
  using MapOf = std::conditional_t<IpFamily<Domain>::kIndex == 0, Map4, Map6>;
  template <class Domain>
  static constexpr Kiv::AttributeId attributeOf = IpFamily<Domain>::kIndex + 1;

  template <class Domain>
  const MapOf<Domain>& map() const {
    return const_cast<FamilyContainer*>(this)->map<Domain>();
  }
  template <class Domain>
  MapOf<Domain>& map() {
    if constexpr (IpFamily<Domain>::kIndex == 0) {
      return map4_;
    } else {
      return map6_;
    }
  }
  std::vector<Quell::MapBase*> collections() override { return {&map4_, &map6_}; }

 protected:
  FamilyContainer(Kiv::String name, std::string_view name4, std::string_view name6)
      : Quell::Container(std::move(name)),
        map4_(*this, std::string(name4), recordType<Record4>()),
        map6_(*this, std::string(name6), recordType<Record6>()) {}
  Kiv::AttributeId collectionAttribute(const Quell::MapBase& map) const override {
    return &map == &map4_ ? 1 : 2;
  }

 private:
  Map4 map4_;
  Map6 map6_;
};

}  // namespace FlowTracking
