#include "SftPexaDrovaHelper.h"

#include <cstdlib>

#include "TableLookup.h"

namespace SampledFlowTracker {

namespace {

// The keys that wait, by their text.
template <class Domain>
std::vector<Kiv::String> texts(const OverflowSet<Domain>& set) {
  std::vector<Kiv::String> result;
  result.reserve(set.size());
  for (const auto* entry = set.first(); entry != nullptr; entry = set.after(entry->key)) {
    result.push_back(entry->key.str());
  }
  return result;
}

}  // namespace

SftPexaDrovaHelper::SftPexaDrovaHelper(const Kiv::Ptr<const FlowTracking::HosStateCounter>& hosStateCounter)
    : hosStateCounter_(hosStateCounter) {
  handleInitialized();
}

Kiv::Ptr<SftPexaDrovaHelper> SftPexaDrovaHelper::SftPexaDrovaHelperIs(
    const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter) {
  auto helper = Kiv::makePtr<SftPexaDrovaHelper>(hosStateCounter);
  helper->hasNotificationActiveIs(true);
  return helper;
}

Kiv::Ptr<SftPexaDrovaHelper> sftPexaDrovaHelperFactory(
    const Kiv::Ptr<FlowTracking::HosStateCounter>& hosStateCounter) {
  return SftPexaDrovaHelper::SftPexaDrovaHelperIs(hosStateCounter);
}

const Kiv::Type& SftPexaDrovaHelper::kivType() {
  using Self = SftPexaDrovaHelper;
  static const Kiv::Type type =
      Kiv::TypeBuilder<Self>("SampledFlowTracker::SftPexaDrovaHelper")
          .attribute("hosStateCounter", &Self::hosStateCounter)
          .attribute("maxInHardwareFlows", &Self::maxInHardwareFlows, &Self::maxInHardwareFlowsIs)
          .attribute("overflowEntries", [](const Self& self) { return texts(self.overflowEntries()); })
          .attribute("overflow6Entries", [](const Self& self) { return texts(self.overflow6Entries()); })
          .handler("outOfResources", &Self::outOfResources)
          .handler("outOfIpv6Resources", &Self::outOfIpv6Resources)
          .handler("handleInitialized", &Self::handleInitialized)
          .handler("overflowEntriesHas", &Self::waits<Pavo::Traits::IPv4>, "key")
          .handler("overflowEntriesAfter", &Self::waitingAfter<Pavo::Traits::IPv4>, "key")
          .handler("overflow6EntriesHas", &Self::waits<Pavo::Traits::IPv6>, "key")
          .handler("overflow6EntriesAfter", &Self::waitingAfter<Pavo::Traits::IPv6>, "key")
          .constructor(&Self::SftPexaDrovaHelperIs, "hosStateCounter")
          .build();
  return type;
}

void SftPexaDrovaHelper::handleInitialized() {
  maxInHardwareFlows_ = kDefaultBudget;
  const char* text = std::getenv(kBudgetVariable);
  if (text == nullptr) return;
  char* end = nullptr;
  const unsigned long flows = std::strtoul(text, &end, 10);
  if (*end == '\0') maxInHardwareFlows_ = static_cast<std::uint32_t>(flows);
}

template <class Domain>
bool SftPexaDrovaHelper::outOf() const {
  const auto counters = hosStateCounter_;  // may be let go of while its damage is reported
  std::uint32_t inHardware = 0;
  if (counters) {
    const FlowTracking::HosStateCounterKey key(FlowTracking::HoFlowState::inHardware);
    if (const auto entry = FlowTracking::lookUp(counters->map<Domain>(), key)) inHardware = entry->count;
  }
  return inHardware >= maxInHardwareFlows_;
}

template <class Domain>
bool SftPexaDrovaHelper::waits(const Kiv::String& key) const {
  return overflow<Domain>().has(FlowTracking::HoFlowKey<Domain>(key.begin(), key.end()));
}

template <class Domain>
Kiv::String SftPexaDrovaHelper::waitingAfter(const Kiv::String& key) const {
  const OverflowSet<Domain>& set = overflow<Domain>();
  const auto* next =
      key.empty() ? set.first() : set.after(FlowTracking::HoFlowKey<Domain>(key.begin(), key.end()));
  return next == nullptr ? Kiv::String() : next->key.str();
}

template bool SftPexaDrovaHelper::outOf<Pavo::Traits::IPv4>() const;
template bool SftPexaDrovaHelper::outOf<Pavo::Traits::IPv6>() const;

}  // namespace SampledFlowTracker
