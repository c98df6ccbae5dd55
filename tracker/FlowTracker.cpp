#include "FlowTracker.h"

#include "RecordValues.h"

namespace Tracker {
namespace {

using Kiv::Value;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

// Counters by the names of their kinds.
template <class Kind, std::size_t N>
Value byKind(const std::array<std::uint64_t, N>& counters) {
  Value::Object members;
  for (std::size_t i = 0; i < N; ++i)
    members.emplace_back(Kiv::String(nameOf(static_cast<Kind>(i))), counters[i]);
  return members;
}

template <class Domain>
Value tableValue(const FlowTable<Domain>& table) {
  const auto& events = table.events();
  const auto& candidates = table.candidates();
  return Value::Object{{"flows", table.size()},
                       {"inHardware", table.inHardware()},
                       {"candidates", candidates.size()},
                       {"samplesOfFlows", events.samples},
                       {"samplesOfCandidates", events.candidateSamples},
                       {"learned", events.learned},
                       {"adopted", events.adopted},
                       {"withdrawn", events.withdrawn},
                       {"refused", events.refused},
                       {"idle", events.idle},
                       {"records", events.records},
                       {"recordPackets", events.recordPackets},
                       {"recordOctets", events.recordOctets},
                       {"candidatesEvicted", candidates.evicted()},
                       {"candidatesExpired", candidates.expired()}};
}

template <class Domain>
Value::Object flowValue(const FlowTracking::HoFlowKey<Domain>& key, const Flow& flow) {
  return {{"key", Kiv::ValueTraits<FlowTracking::HoFlowKey<Domain>>::toValue(key)},
          {"inHardware", flow.inHardware},
          {"since", flow.since},
          {"lastActive", flow.lastActive},
          {"packets", flow.exact.packets},
          {"octets", flow.exact.octets},
          {"sampledPackets", flow.sampled.packets},
          {"sampledOctets", flow.sampled.octets},
          {"samples", flow.sampled.samples}};
}

template <class Domain>
Value::Object candidateValue(const Candidate<Domain>& candidate) {
  return {{"key", Kiv::ValueTraits<FlowTracking::HoFlowKey<Domain>>::toValue(candidate.key)},
          {"samples", candidate.counts.samples},
          {"lastSampled", candidate.counts.end}};
}

template <class Domain>
std::size_t candidatesOf(const FlowTable<Domain>& table, const FlowTracking::FlowPattern& pattern,
                         std::size_t most, const std::function<void(Value::Object)>& each) {
  std::size_t met = 0;
  if (!pattern.mayHold<Domain>()) return met;
  table.candidates().forEach([&](const Candidate<Domain>& candidate) {
    if (pattern.holds(candidate.key) && ++met <= most) each(candidateValue(candidate));
  });
  return met;
}

Value limitsValue(const FlowLimits& limits) {
  return Value::Object{{"samplesToLearn", limits.samplesToLearn},
                       {"maxFlows", limits.maxFlows},
                       {"maxCandidates", limits.maxCandidates},
                       {"idleTimeout", limits.idleTimeout}};
}

}  // namespace

FlowTracker::FlowTracker(const FlowLimits& limits, const Interfaces& interfaces, OffloadTables& tables,
                         RecordSink& sink)
    : limits_(limits),
      interfaces_(interfaces),
      tables_(tables),
      flows4_(limits, tables, interfaces_, sink),
      flows6_(limits, tables, interfaces_, sink) {
  const double now = Kiv::System::currentTimeUtc();
  flows4_.adopt(now);
  flows6_.adopt(now);
  flush();
}

void FlowTracker::datagram(std::span<const std::uint8_t> bytes) {
  ++datagrams_;
  if (const auto wrong = decoder_.decode(bytes)) {
    ++malformed_[static_cast<std::size_t>(*wrong)];
    return;
  }
  const Datagram& datagram = decoder_.datagram();
  const double now = Kiv::System::currentTimeUtc();
  agents_.heard(datagram, now);
  counterSamples_ += datagram.counterSamples;
  unknownSamples_ += datagram.unknownSamples;
  trailing_ += datagram.trailingBytes != 0 ? 1 : 0;
  for (const FlowSample& each : datagram.samples) sample(each, datagram.agent, now);
}

void FlowTracker::sample(const FlowSample& sample, const AgentAddress& agent, double now) {
  ++flowSamples_;
  const FlowOrReason flow = flowOf(sample, agent, interfaces_);
  if (const auto* reason = std::get_if<NoFlow>(&flow)) {
    ++noFlow_[static_cast<std::size_t>(*reason)];
  } else if (const auto* flow4 = std::get_if<SampledFlow<IPv4>>(&flow)) {
    flows4_.sampled(*flow4, now);
  } else {
    flows6_.sampled(std::get<SampledFlow<IPv6>>(flow), now);
  }
}

void FlowTracker::tick() {
  const double now = Kiv::System::currentTimeUtc();
  flows4_.tick(now);
  flows6_.tick(now);
  flush();
}

void FlowTracker::finish() {
  const double now = Kiv::System::currentTimeUtc();
  flows4_.finish(now);
  flows6_.finish(now);
}

Value::Object FlowTracker::statistics() const {
  return {{"datagrams", datagrams_},
          {"malformed", byKind<Malformation>(malformed_)},
          {"datagramsWithTrailingBytes", trailing_},
          {"datagramsMissed", agents_.missed()},
          {"flowSamples", flowSamples_},
          {"counterSamples", counterSamples_},
          {"unknownSamples", unknownSamples_},
          {"samplesWithoutFlow", byKind<NoFlow>(noFlow_)},
          {"ipv4", tableValue(flows4_)},
          {"ipv6", tableValue(flows6_)},
          {"tableRefusals", tables_.refusals()},
          {"tableDamages", tables_.damages()},
          {"limits", limitsValue(limits_)},
          {"interfaces", interfaces_.value()},
          {"agents", agents_.value()},
          {"unmappedInterfaces", interfaces_.unmappedValue()}};
}

void FlowTracker::flows(const std::function<void(Value::Object)>& each) const {
  const auto of = [&](const auto& key, const Flow& flow) { each(flowValue(key, flow)); };
  flows4_.flows(of);
  flows6_.flows(of);
}

std::size_t FlowTracker::candidates(const FlowTracking::FlowPattern& pattern, std::size_t most,
                                    const std::function<void(Value::Object)>& each) const {
  return candidatesOf(flows4_, pattern, most, each) + candidatesOf(flows6_, pattern, most, each);
}

}  // namespace Tracker
