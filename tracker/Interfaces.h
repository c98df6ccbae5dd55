// Which interface an agent's interface index names.
//
// sFlow numbers interfaces, wanted offloads name them; only the configuration knows both. An index may be
// configured for one agent or for all; what is configured for the agent comes first. An index without a name
// is counted, and told once in the log.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "AgentAddress.h"
#include "Kiv.h"
#include "Pavo.h"

namespace Tracker {

struct Interface {
  std::optional<AgentAddress> agent;  // none: any agent's
  std::uint32_t index = 0;
  Pavo::IntfId intfId;
  std::uint16_t vlan = 1;  // of untagged packets of which the agent does not tell it
};

class Interfaces {
 public:
  static constexpr std::size_t kMostUnmapped = 256;  // indexes that are counted one by one

  // False when the agent's index is there already.
  bool add(const Interface& interface);

  // Null when the index has no name.
  const Interface* find(const AgentAddress& agent, std::uint32_t index) const;
  // The index of a name, for the records of flows that were learned before this process; 0 when it has none.
  std::uint32_t indexOf(const Pavo::IntfId& intfId) const;

  // [{"index","name","agent"}]; the agent is null when it is any.
  Kiv::Value value() const;

  // One sample more whose index has no name.
  void unmapped(const AgentAddress& agent, std::uint32_t index);
  // [{"agent","index","samples"}]
  Kiv::Value unmappedValue() const;

 private:
  using Place = std::pair<std::optional<AgentAddress>, std::uint32_t>;
  std::map<Place, Interface> byIndex_;
  std::map<Pavo::IntfId, std::uint32_t> byName_;
  std::map<std::pair<AgentAddress, std::uint32_t>, std::uint64_t> unmapped_;
};

}  // namespace Tracker
