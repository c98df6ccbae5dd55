#include <algorithm>

#include "Sflow.h"

namespace Sflow {

namespace {

IntfSet setOf(const std::vector<Pavo::IntfId>& interfaces) {
  IntfSet set;
  for (const Pavo::IntfId& each : interfaces) set.insert(each);
  return set;
}

bool sameInterfaces(const IntfSet& one, const IntfSet& other) {
  if (one.size() != other.size()) return false;
  for (auto* entry = one.first(); entry != nullptr; entry = one.after(entry->key)) {
    if (!other.has(entry->key)) return false;
  }
  return true;
}

std::vector<Pavo::IntfId> listOf(const IntfSet& set) {
  std::vector<Pavo::IntfId> list;
  list.reserve(set.size());
  for (auto* entry = set.first(); entry != nullptr; entry = set.after(entry->key)) list.push_back(entry->key);
  std::sort(list.begin(), list.end());
  return list;
}

template <class T>
Kiv::Ptr<T> factory(const Kiv::String& name) {
  auto entity = Kiv::makePtr<T>(name);
  entity->hasNotificationActiveIs(true);
  return entity;
}

}  // namespace

const Kiv::Type& HwConfig::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<HwConfig>("Sflow::HwConfig")
          .attribute("enabled", &HwConfig::enabled, &HwConfig::enabledIs)
          .attribute("ingressInterfaces", &HwConfig::ingressInterfaceList, &HwConfig::ingressInterfacesIs)
          .attribute("egressInterfaces", &HwConfig::egressInterfaceList, &HwConfig::egressInterfacesIs)
          .constructor(&factory<HwConfig>, "name")
          .build();
  return type;
}

void HwConfig::ingressInterfacesIs(const std::vector<Pavo::IntfId>& interfaces) {
  IntfSet set = setOf(interfaces);
  if (sameInterfaces(set, ingressInterfaces_)) return;
  ingressInterfaces_ = std::move(set);
  ++generation_;
  announce(ingressInterfacesAttr);
}

void HwConfig::egressInterfacesIs(const std::vector<Pavo::IntfId>& interfaces) {
  IntfSet set = setOf(interfaces);
  if (sameInterfaces(set, egressInterfaces_)) return;
  egressInterfaces_ = std::move(set);
  ++generation_;
  announce(egressInterfacesAttr);
}

std::vector<Pavo::IntfId> HwConfig::ingressInterfaceList() const {
  return listOf(ingressInterfaces_);
}
std::vector<Pavo::IntfId> HwConfig::egressInterfaceList() const {
  return listOf(egressInterfaces_);
}

const Kiv::Type& HwStatus::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<HwStatus>("Sflow::HwStatus")
          .attribute("sflowEthProtocol", &HwStatus::sflowEthProtocol, &HwStatus::sflowEthProtocolIs)
          .constructor(&factory<HwStatus>, "name")
          .build();
  return type;
}

namespace {
const Kiv::Module kModule("Sflow", {&HwConfig::kivType(), &HwStatus::kivType()});
}

}  // namespace Sflow
