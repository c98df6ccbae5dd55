// Finds entities of the running agent by the names that an operator gives them.
//
//   flowtracking/hoStatus/sampled              a path of the state database, or of a shared table
//   SampledFlowTracker                         a plugin's root entity, a port, a counter collection
//   SampledFlowTracker.sftSamplerHelper        an attribute of it that is an entity, and so on
//
// Threading: the event thread.
#pragma once

#include <string_view>
#include <vector>

#include "KivSharedMem.h"
#include "PexaPlugin.h"
#include "mirro/StateDatabase.h"

namespace Pexa {

class EntityFinder {
 public:
  // Both must outlive the finder.
  EntityFinder(const Mirro::StateDatabase& state, const PluginManager& manager)
      : state_(state), manager_(manager) {}

  // Throws Kiv::TypeError when there is no such entity.
  Kiv::Ptr<Kiv::PtrInterface> find(std::string_view name) const;
  // By the two members under which JSON tells of an entity; empty when there is none.
  Kiv::Ptr<const Kiv::PtrInterface> find(std::string_view type, std::string_view name) const;

 private:
  Kiv::Ptr<Kiv::PtrInterface> root(std::string_view name) const;
  std::vector<Kiv::Ptr<Kiv::Entity>> roots() const;

  const Mirro::StateDatabase& state_;
  const PluginManager& manager_;
};

}  // namespace Pexa
