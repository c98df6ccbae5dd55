// One address family's learned flows: wanted offloads that this tracker answers for.
//
//   sample -> candidate -> (often enough) -> wanted offload -> (in hardware) -> counted -> (idle) -> gone
//
// A flow's packets are counted in one of two ways. Until it is in hardware each sample stands for as many
// packets as the sampling rate says, and records tell so; in hardware it is not sampled any more, and what is
// published of it is exact. Samples that were on their way when it got there are added to the former. So the
// sum of both is what passed.
//
// The published counter belongs to the flow's addresses, VLAN and ports; wanted offloads that differ in
// direction or interface only share it. What it moved by is parted evenly among those of them that are in
// hardware, the rest of the division going to the first: the sum over them is exact, and so is each share
// when each of them sees every packet (in on one interface, out on another).
//
// Bounds: at most maxFlows flows and maxCandidates candidates. A learned flow is never pushed out by a new
// one: a candidate that finds no room stays one, is counted as refused, and asks again with its next sample.
//
// Ageing: a flow is active when it is sampled, and, in hardware, when its counter moves. One that was not
// active for idleTimeout is wanted no more, whether it ever got into hardware or not.
//
// Threading: one thread. Times are UTC seconds; a clock that is set back makes nothing idle.
#pragma once

#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

#include "Candidates.h"
#include "FlowRecord.h"
#include "OffloadTables.h"

namespace Tracker {

struct FlowLimits {
  std::uint64_t samplesToLearn = 2;  // at least 1
  std::size_t maxFlows = 8192;       // at least 1; of each family, as the next
  std::size_t maxCandidates = 65536;
  double idleTimeout = 30;  // seconds
  double activeTimeout = 60;
};

// A wanted offload.
struct Flow {
  Bridging::AllowedTrafficDirection direction{};
  Pavo::IntfId intfId;
  FlowCounts sampled;  // since the last record, scaled
  FlowCounts exact;    // since the last record
  double since = 0;    // when it was learned or adopted
  double lastActive = 0;
  std::uint32_t input = 0;  // interface indexes; 0 unknown
  std::uint32_t output = 0;
  bool inHardware = false;  // at the last tick
};

template <class Domain>
class FlowTable {
 public:
  // Seconds between two ticks, of which there is one a second, after which silence proves nothing.
  static constexpr double kLongestPause = 120;

  using FlowKey = FlowTracking::FlowKey<Domain>;
  using Key = FlowTracking::HoFlowKey<Domain>;
  // What happened so far.
  struct Events {
    std::uint64_t learned = 0;
    std::uint64_t adopted = 0;    // found wanted at the start
    std::uint64_t withdrawn = 0;  // found wanted at the start, without room for them here
    std::uint64_t refused = 0;    // samples of candidates that found no room
    std::uint64_t idle = 0;       // aged out
    std::uint64_t samples = 0;    // of learned flows
    std::uint64_t candidateSamples = 0;
    std::uint64_t records = 0;
    std::uint64_t recordPackets = 0;  // that they told of
    std::uint64_t recordOctets = 0;
  };

  // What is referred to must outlive this.
  FlowTable(const FlowLimits& limits, OffloadTables& tables, const Interfaces& interfaces, RecordSink& sink)
      : limits_(limits),
        tables_(tables),
        interfaces_(interfaces),
        sink_(sink),
        candidates_(limits.maxCandidates) {}

  // To be called once, first. Takes over what a tracker before this one left wanted: it stays while its
  // counters move. What was counted before is not told again.
  void adopt(double now);
  void sampled(const SampledFlow<Domain>& sample, double now);
  // Looks at what became of the flows, tells records that are due, and ages out. Once a second at least, and
  // soon after the agent published something: what it counted last is known then before another agent, or the
  // same one started again, counts from 0.
  void tick(double now);
  // Tells what was counted since the last records. What is wanted stays wanted.
  void finish(double now);

  std::size_t size() const { return size_; }
  std::size_t inHardware() const { return inHardware_; }
  const Candidates<Domain>& candidates() const { return candidates_; }
  const Events& events() const { return events_; }
  // Calls with (Key, Flow) for each.
  template <class Each>
  void flows(const Each& each) const {
    for (const auto& [flowKey, shared] : flows_) {
      for (const Flow& flow : shared.flows) each(Key(flowKey, flow.direction, flow.intfId), flow);
    }
  }

 private:
  // The flows that share one published counter.
  struct Shared {
    std::vector<Flow> flows;
    // The counter at the last look; `known` tells whether there was one.
    bool known = false;
    std::uint64_t packets = 0;
    std::uint64_t octets = 0;
    double creationTime = 0;
    double lastUpdateTime = 0;
    std::uint64_t session = 0;  // in which it was counted
  };
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;

  Flow* find(const Key& key);
  Flow& add(const Key& key, double now);
  void learn(const Candidate<Domain>& candidate, double now);
  void look(const FlowKey& key, Shared& shared, double now);
  static bool isSame(const Shared& shared, const Counter& counter);
  static void remember(Shared& shared, const Counter& counter, std::uint64_t session);
  void share(Shared& shared, const Counter& counter, std::uint64_t packets, std::uint64_t octets, double now);
  void close(const Key& key, Flow& flow, EndReason reason);
  void tell(const Key& key, const Flow& flow, FlowCounts& counts, EndReason reason);
  bool isIdle(Flow& flow, double now) const;
  bool isRecordDue(const Flow& flow, double now) const;
  bool age(const Key& key, Flow& flow, double now);

  const FlowLimits limits_;
  OffloadTables& tables_;
  const Interfaces& interfaces_;
  RecordSink& sink_;
  Candidates<Domain> candidates_;
  std::unordered_map<FlowKey, Shared, SeededHash<FlowKey>> flows_;
  std::size_t size_ = 0;
  std::size_t inHardware_ = 0;
  double lastLook_ = 0;
  Events events_;
};

extern template class FlowTable<Pavo::Traits::IPv4>;
extern template class FlowTable<Pavo::Traits::IPv6>;

}  // namespace Tracker
