#include "FlowTable.h"

#include <algorithm>

namespace Tracker {

using Bridging::AllowedTrafficDirection;

template <class Domain>
void FlowTable<Domain>::adopt(double now) {
  lastLook_ = now;
  std::vector<Key> tooMany;
  tables_.template wanted<Domain>([&](const auto& record) {
    if (size_ == limits_.maxFlows) {
      tooMany.push_back(record.key);
      return;
    }
    Flow& flow = add(record.key, now);
    const std::uint32_t index = interfaces_.indexOf(flow.intfId);
    (flow.direction == AllowedTrafficDirection::egress ? flow.output : flow.input) = index;
    ++events_.adopted;
  });
  for (const Key& key : tooMany) events_.withdrawn += tables_.unwant(key) ? 1 : 0;
}

template <class Domain>
void FlowTable<Domain>::sampled(const SampledFlow<Domain>& sample, double now) {
  if (Flow* flow = find(sample.key)) {
    ++events_.samples;
    flow->sampled.addSample(sample.octets, sample.rate, now);
    flow->lastActive = now;
    flow->input = sample.input;
    flow->output = sample.output;
    return;
  }
  ++events_.candidateSamples;
  const Candidate<Domain>& candidate = candidates_.sampled(sample, now);
  if (candidate.counts.samples < limits_.samplesToLearn) return;
  if (size_ == limits_.maxFlows) {
    ++events_.refused;
    return;
  }
  learn(candidate, now);
}

template <class Domain>
void FlowTable<Domain>::learn(const Candidate<Domain>& candidate, double now) {
  const Key key = candidate.key;
  if (!tables_.want(key, now)) return;  // asks again with its next sample
  Flow& flow = add(key, now);
  flow.sampled = candidate.counts;
  flow.input = candidate.input;
  flow.output = candidate.output;
  candidates_.erase(key);
  ++events_.learned;
}

template <class Domain>
Flow* FlowTable<Domain>::find(const Key& key) {
  const auto found = flows_.find(key.ipFlowKey);
  if (found == flows_.end()) return nullptr;
  auto& flows = found->second.flows;
  const auto flow = std::find_if(flows.begin(), flows.end(), [&](const Flow& each) {
    return each.direction == key.direction && each.intfId == key.intfId;
  });
  return flow == flows.end() ? nullptr : &*flow;
}

// A counter that is there already when the first flow comes to it has counted for somebody before.
template <class Domain>
Flow& FlowTable<Domain>::add(const Key& key, double now) {
  const auto [found, isNew] = flows_.try_emplace(key.ipFlowKey);
  Shared& shared = found->second;
  if (isNew) {
    const std::uint64_t session = tables_.template counterSession<Domain>();
    if (const auto counter = tables_.counter(key.ipFlowKey)) remember(shared, *counter, session);
  }
  Flow flow;
  flow.direction = key.direction;
  flow.intfId = key.intfId;
  flow.since = flow.lastActive = now;
  ++size_;
  return shared.flows.emplace_back(flow);
}

template <class Domain>
void FlowTable<Domain>::tick(double now) {
  // Nobody looked for so long, or the clock was set forward: no flow was silent meanwhile.
  const double missed = now - lastLook_ > kLongestPause ? now - lastLook_ : 0;
  inHardware_ = 0;
  for (auto entry = flows_.begin(); entry != flows_.end();) {
    const FlowKey& flowKey = entry->first;
    Shared& shared = entry->second;
    for (Flow& flow : shared.flows) flow.lastActive += missed;
    look(flowKey, shared, now);
    const std::size_t before = shared.flows.size();
    std::erase_if(shared.flows,
                  [&](Flow& flow) { return age(Key(flowKey, flow.direction, flow.intfId), flow, now); });
    size_ -= before - shared.flows.size();
    for (const Flow& flow : shared.flows) inHardware_ += flow.inHardware ? 1 : 0;
    entry = shared.flows.empty() ? flows_.erase(entry) : std::next(entry);
  }
  candidates_.forgetBefore(now - limits_.idleTimeout);
  lastLook_ = now;
}

template <class Domain>
void FlowTable<Domain>::finish(double now) {
  for (auto& [flowKey, shared] : flows_) {
    look(flowKey, shared, now);
    for (Flow& flow : shared.flows) {
      close(Key(flowKey, flow.direction, flow.intfId), flow, EndReason::forcedEnd);
    }
  }
  lastLook_ = now;
}

// What became of the flows of one counter since the last look. A counter that was made anew, that went back,
// or that another agent writes (or the same one, started again), counts from 0. After a start the counter of
// before stands in the table until the flow's first packet.
template <class Domain>
void FlowTable<Domain>::look(const FlowKey& flowKey, Shared& shared, double now) {
  for (Flow& flow : shared.flows) {
    flow.inHardware = tables_.inHardware(Key(flowKey, flow.direction, flow.intfId));
  }
  // Asked for before the counter: who begins to write has not written then.
  const std::uint64_t session = tables_.template counterSession<Domain>();
  const auto counter = tables_.counter(flowKey);
  if (!counter) {
    shared.known = false;
    return;
  }
  if (shared.known && isSame(shared, *counter)) return;
  const bool goesOn = shared.known && session == shared.session &&
                      counter->creationTime == shared.creationTime && counter->packets >= shared.packets &&
                      counter->bytes >= shared.octets;
  const std::uint64_t packets = counter->packets - (goesOn ? shared.packets : 0);
  const std::uint64_t octets = counter->bytes - (goesOn ? shared.octets : 0);
  remember(shared, *counter, session);
  if (packets != 0) share(shared, *counter, packets, octets, now);
}

template <class Domain>
bool FlowTable<Domain>::isSame(const Shared& shared, const Counter& counter) {
  return counter.packets == shared.packets && counter.bytes == shared.octets &&
         counter.creationTime == shared.creationTime && counter.lastUpdateTime == shared.lastUpdateTime;
}

template <class Domain>
void FlowTable<Domain>::remember(Shared& shared, const Counter& counter, std::uint64_t session) {
  shared.known = true;
  shared.packets = counter.packets;
  shared.octets = counter.bytes;
  shared.creationTime = counter.creationTime;
  shared.lastUpdateTime = counter.lastUpdateTime;
  shared.session = session;
}

template <class Domain>
void FlowTable<Domain>::share(Shared& shared, const Counter& counter, std::uint64_t packets,
                              std::uint64_t octets, double now) {
  std::vector<Flow*> counted;
  for (Flow& flow : shared.flows) {
    if (flow.inHardware) counted.push_back(&flow);
  }
  // All of them have left hardware since they were counted.
  if (counted.empty()) {
    for (Flow& flow : shared.flows) counted.push_back(&flow);
  }
  const std::uint64_t parts = counted.size();
  bool first = true;
  for (Flow* flow : counted) {
    const double from = std::min(std::max(lastLook_, flow->since), now);
    const double to = std::clamp(counter.lastUpdateTime, from, now);
    flow->exact.add(packets / parts + (first ? packets % parts : 0),
                    octets / parts + (first ? octets % parts : 0), from, to);
    flow->lastActive = std::max(flow->lastActive, to);
    first = false;
  }
}

// Tells what is due of a flow. True when it is gone.
template <class Domain>
bool FlowTable<Domain>::age(const Key& key, Flow& flow, double now) {
  if (isIdle(flow, now)) {
    close(key, flow, EndReason::idleTimeout);
    if (!tables_.unwant(key)) return false;  // tried again at the next tick
    ++events_.idle;
    return true;
  }
  if (isRecordDue(flow, now)) close(key, flow, EndReason::activeTimeout);
  return false;
}

template <class Domain>
bool FlowTable<Domain>::isIdle(Flow& flow, double now) const {
  flow.lastActive = std::min(flow.lastActive, now);  // the clock was set back
  return now - flow.lastActive >= limits_.idleTimeout;
}

template <class Domain>
bool FlowTable<Domain>::isRecordDue(const Flow& flow, double now) const {
  const auto due = [&](const FlowCounts& counts) {
    const bool setBack = counts.start > now;  // the clock
    return !counts.empty() && (setBack || now - counts.start >= limits_.activeTimeout);
  };
  return due(flow.sampled) || due(flow.exact);
}

template <class Domain>
void FlowTable<Domain>::close(const Key& key, Flow& flow, EndReason reason) {
  tell(key, flow, flow.sampled, reason);
  tell(key, flow, flow.exact, reason);
}

template <class Domain>
void FlowTable<Domain>::tell(const Key& key, const Flow& flow, FlowCounts& counts, EndReason reason) {
  if (counts.empty()) return;
  sink_.record(FlowRecord<Domain>{key, flow.input, flow.output, counts, reason});
  ++events_.records;
  events_.recordPackets += counts.packets;
  events_.recordOctets += counts.octets;
  counts = {};
}

template class FlowTable<Pavo::Traits::IPv4>;
template class FlowTable<Pavo::Traits::IPv6>;

}  // namespace Tracker
