#include <algorithm>

#include "PexaCounter.h"

namespace Pexa::Counter {

const Kiv::String& PktCounterCollectionBase::name() const {
  return Kiv::Entity::name();
}
Kiv::NotifieeList* PktCounterCollectionBase::notifieeList() const {
  return Kiv::Entity::notifieeList();
}

const Kiv::Type& PktCounterCollectionHolder::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<PktCounterCollectionHolder>("Pexa::Counter::PktCounterCollectionHolder")
          .attribute("collections",
                     [](const PktCounterCollectionHolder& holder) { return holder.collections().size(); })
          .build();
  return type;
}

void PktCounterCollectionHolder::collectionIs(const Kiv::Ptr<PktCounterCollectionBase>& collection) {
  const auto same = std::find_if(collections_.begin(), collections_.end(),
                                 [&](const auto& held) { return held->name() == collection->name(); });
  if (same != collections_.end()) {
    *same = collection;
  } else {
    collections_.push_back(collection);
  }
}

}  // namespace Pexa::Counter
