// Whatever happens to flows, in whatever order: records tell of every packet once, what is wanted is what the
// tracker answers for, and the bounds hold.
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <map>

#include "FlowTableThings.h"

namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;

// A tracker, and the agent's side of the tables: a wanted flow has a status, and a counter that it shares
// with the other direction; an unwanted one has neither.
template <class Domain>
class World {
 public:
  using Key = FlowTracking::HoFlowKey<Domain>;
  using FlowKey = FlowTracking::FlowKey<Domain>;
  static constexpr unsigned kFlows = 3;

  explicit World(const Tracker::FlowLimits& limits)
      : limits_(limits), table_(limits, memory_.tables, interfaces_, sink_) {
    table_.adopt(now_);
  }

  void sample() {
    const auto rate = *rc::gen::inRange<std::uint32_t>(1, 1000);
    table_.sampled({anyKey(), *rc::gen::inRange<std::uint64_t>(20, 1500), rate, 1, 2}, now_);
    sampled_ += rate;
    agentFollows();
  }
  // Packets of a flow that has a place in hardware.
  void count() {
    const FlowKey flow = anyKey().ipFlowKey;
    auto counter = memory_.tables.template counter<Domain>(flow);
    if (!counter || !anyInHardware(flow)) return;
    const auto packets = *rc::gen::inRange<std::uint64_t>(1, 100);
    // After a restart the agent counts from 0.
    if (counter->packets > packets && *rc::gen::arbitrary<bool>()) counter->packets = counter->bytes = 0;
    counter->packets += packets;
    counter->bytes += packets * 40;
    counter->lastUpdateTime = now_;
    memory_.counter->template map<Domain>().insert(*counter);
    counted_ += packets;
    // A counter is looked at before it starts again, as the agent copies no faster than the tracker ticks.
    tick(0);
  }
  void changeState() {
    const Key key = anyKey();
    if (!memory_.wanted(key)) return;
    memory_.stateIs(key, *rc::gen::element(HoFlowState::inHardware, HoFlowState::overflow));
  }
  void tick(double seconds) {
    now_ += seconds;
    table_.tick(now_);
    agentFollows();
  }
  void finish() { table_.finish(now_); }

  void check() {
    RC_ASSERT(table_.size() <= limits_.maxFlows);
    RC_ASSERT(table_.candidates().size() <= limits_.maxCandidates);
    std::size_t flows = 0;
    table_.flows([&](const Key& key, const Tracker::Flow&) {
      ++flows;
      RC_ASSERT(memory_.wanted(key));
    });
    RC_ASSERT(flows == table_.size());
    RC_ASSERT(memory_.config->template map<Domain>().size() == flows);
  }
  void checkTotals() {
    std::uint64_t scaled = 0;
    std::uint64_t exact = 0;
    for (const auto& record : sink_.template records<Domain>()) {
      (record.counts.samples != 0 ? scaled : exact) += record.counts.packets;
      RC_ASSERT(record.counts.start <= record.counts.end);
      RC_ASSERT(record.counts.end <= now_);
    }
    RC_ASSERT(scaled == sampled_);
    RC_ASSERT(exact == counted_);
  }

 private:
  static Key key(unsigned flow, bool egress) {
    Key key;
    key.ipFlowKey.srcPort = static_cast<std::uint16_t>(flow);
    key.direction = egress ? AllowedTrafficDirection::egress : AllowedTrafficDirection::ingress;
    key.intfId = Pavo::IntfId(egress ? "Ethernet2" : "Ethernet1");
    return key;
  }
  static Key anyKey() { return key(*rc::gen::inRange(0U, kFlows), *rc::gen::arbitrary<bool>()); }
  bool anyInHardware(const FlowKey& flow) {
    return memory_.tables.inHardware(key(flow.srcPort, false)) ||
           memory_.tables.inHardware(key(flow.srcPort, true));
  }
  void agentFollows() {
    for (unsigned flow = 0; flow < kFlows; ++flow) {
      bool any = false;
      for (const bool egress : {false, true}) {
        any = any || memory_.wanted(key(flow, egress));
        if (!memory_.wanted(key(flow, egress)))
          memory_.status->template map<Domain>().erase(key(flow, egress));
      }
      const FlowKey flowKey = key(flow, false).ipFlowKey;
      if (!any) {
        memory_.counter->template map<Domain>().erase(flowKey);
      } else if (!memory_.tables.counter(flowKey)) {
        memory_.counterIs(flowKey, 0, 0, 0, now_);
      }
    }
  }

  double now_ = 1000;
  const Tracker::FlowLimits limits_;
  TestSupport::MemoryTables memory_;
  Tracker::Interfaces interfaces_;
  TestSupport::RecordingSink sink_;
  Tracker::FlowTable<Domain> table_;
  std::uint64_t sampled_ = 0;
  std::uint64_t counted_ = 0;
};

template <class Domain>
void live(World<Domain>& world) {
  const auto steps = *rc::gen::inRange(1, 200);
  for (int step = 0; step < steps; ++step) {
    switch (*rc::gen::inRange(0, 4)) {
      case 0:
        world.sample();
        break;
      case 1:
        world.count();
        break;
      case 2:
        world.changeState();
        break;
      default:
        world.tick(*rc::gen::inRange(0, 12));
    }
    world.check();
  }
  world.finish();
}

template <class Domain>
class FlowTablePropertyTest : public testing::Test {};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(FlowTablePropertyTest, Families);

TYPED_TEST(FlowTablePropertyTest, RecordsTellOfEveryPacketOnce) {
  const auto holds = rc::check([] {
    World<TypeParam> world(
        {.samplesToLearn = 1, .maxFlows = 100, .maxCandidates = 100, .idleTimeout = 30, .activeTimeout = 20});
    live(world);
    world.checkTotals();
  });
  EXPECT_TRUE(holds);
}

TYPED_TEST(FlowTablePropertyTest, BoundsHoldWhateverComes) {
  const auto holds = rc::check([] {
    World<TypeParam> world(
        {.samplesToLearn = 2, .maxFlows = 2, .maxCandidates = 2, .idleTimeout = 30, .activeTimeout = 20});
    live(world);
  });
  EXPECT_TRUE(holds);
}

}  // namespace
