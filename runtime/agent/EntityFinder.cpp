#include "EntityFinder.h"

#include <fmt/format.h>

namespace Pexa {
namespace {

// The entity that an attribute refers to; empty when the attribute is empty or no entity.
Kiv::Ptr<Kiv::PtrInterface> entityOf(const Kiv::Value& value) {
  const auto* held = value.as<Kiv::Ptr<const Kiv::PtrInterface>>();
  return held == nullptr ? nullptr : Kiv::Ptr<Kiv::PtrInterface>(const_cast<Kiv::PtrInterface*>(held->get()));
}

}  // namespace

Kiv::Ptr<Kiv::PtrInterface> EntityFinder::find(std::string_view name) const {
  if (auto entity = root(name)) return entity;
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos) {
    throw Kiv::TypeError(
        fmt::format("no entity \"{}\", expected a path of the state database or of a shared table, or "
                    "the name of a plugin, a port or a counter collection",
                    name));
  }
  const auto owner = find(name.substr(0, dot));
  const std::string_view attribute = name.substr(dot + 1);
  auto entity = entityOf(owner->fwkType().get(*owner, attribute));
  if (!entity)
    throw Kiv::TypeError(
        fmt::format("attribute \"{}\" of \"{}\" holds no entity", attribute, name.substr(0, dot)));
  return entity;
}

Kiv::Ptr<const Kiv::PtrInterface> EntityFinder::find(std::string_view type, std::string_view name) const {
  const auto fits = [&](const Kiv::PtrInterface* object) {
    const auto* entity = dynamic_cast<const Kiv::Entity*>(object);
    return entity != nullptr && entity->name() == name && entity->fwkType().name() == type;
  };
  const auto all = roots();
  for (const auto& each : all) {
    if (fits(each.get())) return each;
  }
  for (const auto& each : all) {
    for (const auto* attribute : each->fwkType().attributes()) {
      const auto held = entityOf(attribute->get(*each));
      if (fits(held.get())) return held;
    }
  }
  return {};
}

Kiv::Ptr<Kiv::PtrInterface> EntityFinder::root(std::string_view name) const {
  if (auto entity = state_.getEntity(name)) return entity;
  if (manager_.agent && manager_.agent->sharedMemEntityManager()) {
    if (auto table = manager_.agent->sharedMemEntityManager()->getEntity(name)) return table;
  }
  for (const auto& each : roots()) {
    if (each->name() == name) return each;
  }
  return {};
}

std::vector<Kiv::Ptr<Kiv::Entity>> EntityFinder::roots() const {
  std::vector<Kiv::Ptr<Kiv::Entity>> all;
  for (const auto& path : state_.paths()) all.push_back(state_.getEntity(path));
  for (const auto& each : manager_.plugins()) all.emplace_back(each);
  if (manager_.ports) {
    for (const auto& each : manager_.ports->all()) all.emplace_back(each);
  }
  if (manager_.counterHolder) {
    for (const auto& each : manager_.counterHolder->collections()) all.emplace_back(each);
  }
  return all;
}

}  // namespace Pexa
