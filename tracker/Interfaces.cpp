#include "Interfaces.h"

#include <spdlog/spdlog.h>

namespace Tracker {

bool Interfaces::add(const Interface& interface) {
  if (!byIndex_.emplace(Place(interface.agent, interface.index), interface).second) return false;
  byName_.emplace(interface.intfId, interface.index);
  return true;
}

const Interface* Interfaces::find(const AgentAddress& agent, std::uint32_t index) const {
  auto found = byIndex_.find(Place(agent, index));
  if (found == byIndex_.end()) found = byIndex_.find(Place(std::nullopt, index));
  return found == byIndex_.end() ? nullptr : &found->second;
}

std::uint32_t Interfaces::indexOf(const Pavo::IntfId& intfId) const {
  const auto found = byName_.find(intfId);
  return found == byName_.end() ? 0 : found->second;
}

Kiv::Value Interfaces::value() const {
  Kiv::Value::List rows;
  for (const auto& [place, interface] : byIndex_) {
    rows.emplace_back(
        Kiv::Value::Object{{"index", interface.index},
                           {"name", interface.intfId.name()},
                           {"agent", interface.agent ? Kiv::Value(interface.agent->text()) : Kiv::Value()}});
  }
  return rows;
}

void Interfaces::unmapped(const AgentAddress& agent, std::uint32_t index) {
  const auto place = std::pair(agent, index);
  auto found = unmapped_.find(place);
  if (found == unmapped_.end()) {
    if (unmapped_.size() == kMostUnmapped) return;
    spdlog::warn("agent {}: interface index {} has no [[interface]]; its samples are counted and left out",
                 agent.text(), index);
    found = unmapped_.emplace(place, 0).first;
  }
  ++found->second;
}

Kiv::Value Interfaces::unmappedValue() const {
  Kiv::Value::List rows;
  for (const auto& [place, samples] : unmapped_) {
    rows.emplace_back(
        Kiv::Value::Object{{"agent", place.first.text()}, {"index", place.second}, {"samples", samples}});
  }
  return rows;
}

}  // namespace Tracker
