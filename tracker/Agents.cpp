#include "Agents.h"

namespace Tracker {

void Agents::heard(const Datagram& datagram, double now) {
  const auto place = std::pair(datagram.agent, datagram.subAgent);
  auto found = heard_.find(place);
  if (found == heard_.end()) {
    if (heard_.size() == kMost) return;
    found = heard_.emplace(place, Heard{}).first;
    found->second.sequence = datagram.sequence - 1;
  }
  Heard& agent = found->second;
  ++agent.datagrams;
  agent.last = now;
  const std::uint32_t ahead = datagram.sequence - agent.sequence;  // wraps as the number does
  const std::uint32_t behind = agent.sequence - datagram.sequence;
  if (behind <= kLargestGap) {  // it was overtaken, or came twice
    if (behind != 0 && agent.missed != 0) {
      --agent.missed;
      --missed_;
    }
    return;
  }
  if (ahead <= kLargestGap) {
    agent.missed += ahead - 1;
    missed_ += ahead - 1;
  }
  agent.sequence = datagram.sequence;
}

Kiv::Value Agents::value() const {
  Kiv::Value::List rows;
  for (const auto& [place, agent] : heard_) {
    rows.emplace_back(Kiv::Value::Object{{"agent", place.first.text()},
                                         {"subAgent", place.second},
                                         {"datagrams", agent.datagrams},
                                         {"missed", agent.missed},
                                         {"lastHeard", agent.last}});
  }
  return rows;
}

}  // namespace Tracker
