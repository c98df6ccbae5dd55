#include "Interface.h"

#include <algorithm>

namespace {

using Interfaces = Kiv::Map<Pavo::IntfId, Interface::EthIntfStatus>;

}  // namespace

// The interfaces for a display: a list of objects, by name. They are read only, so there is no way back.
template <>
struct Kiv::ValueTraits<Interfaces> {
  static constexpr std::string_view kTypeName = "list of interfaces";
  static Value toValue(const Interfaces& interfaces) {
    std::vector<Pavo::IntfId> names;
    for (auto* entry = interfaces.first(); entry != nullptr; entry = interfaces.after(names.back())) {
      names.push_back(entry->key);
    }
    std::sort(names.begin(), names.end());
    Value::List list;
    for (const Pavo::IntfId& name : names) {
      const Interface::EthIntfStatus& status = interfaces.find(name)->value;
      list.emplace_back(Value::Object{{"name", name.name()},
                                      {"ifIndex", status.ifIndex},
                                      {"up", status.up},
                                      {"speedBitsPerSecond", status.speedBitsPerSecond}});
    }
    return list;
  }
};

namespace Interface {

namespace {

Kiv::Ptr<EthIntfStatusDir> ethIntfStatusDirFactory(const Kiv::String& name) {
  auto dir = Kiv::makePtr<EthIntfStatusDir>(name);
  dir->hasNotificationActiveIs(true);
  return dir;
}

}  // namespace

const Kiv::Type& EthIntfStatusDir::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<EthIntfStatusDir>("Interface::EthIntfStatusDir")
                                    .attribute("interfaces", &EthIntfStatusDir::interfaces)
                                    .constructor(&ethIntfStatusDirFactory, "name")
                                    .build();
  return type;
}

const EthIntfStatus* EthIntfStatusDir::interfaceStatus(const Pavo::IntfId& intfId) const {
  const auto* entry = interfaces_.find(intfId);
  return entry != nullptr ? &entry->value : nullptr;
}

void EthIntfStatusDir::interfaceStatusIs(const Pavo::IntfId& intfId, const EthIntfStatus& status) {
  const auto [held, inserted] = interfaces_.findOrInsert(intfId);
  if (!inserted && *held == status) return;
  *held = status;
  announceKey(interfacesAttr, Kiv::KeyRef(intfId));
}

namespace {
const Kiv::Module kModule("Interface", {&EthIntfStatusDir::kivType()});
}

}  // namespace Interface
