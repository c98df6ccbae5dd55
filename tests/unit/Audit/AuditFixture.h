// An agent with the tracker and its audit: a state machine that runs, tables in memory, and tasks that run
// when a test says so.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "AgentFixture.h"
#include "ManualClock.h"
#include "PacketBuilder.h"
#include "RecordTypes.h"
#include "RecordingTraces.h"
#include "SftPexaAudit.h"
#include "SftPexaPlugin/FeatureType.h"
#include "TaskThings.h"

namespace SampledFlowTracker {

using FlowTracking::HoFlowConfig;
using FlowTracking::HoFlowCounter;
using FlowTracking::HoFlowState;
using FlowTracking::HoFlowStatus;
using FlowTracking::HosStateCounter;
using Families = ::testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;

inline Pavo::IpAddr testAddress(Pavo::Traits::IPv4, std::uint32_t last) {
  return TestSupport::address4("10.0.0." + std::to_string(last));
}
inline Pavo::Ip6Addr testAddress(Pavo::Traits::IPv6, std::uint32_t last) {
  return TestSupport::address6("2001:db8::" + std::to_string(last));
}

// Flows and offloads by a number.
template <class Domain>
FlowTracking::FlowKey<Domain> flowOf(std::uint32_t number) {
  FlowTracking::FlowKey<Domain> key;
  key.vlan = 1;
  key.srcAddr = testAddress(Domain(), 1);
  key.dstAddr = testAddress(Domain(), 2);
  key.ipProto = 17;
  key.srcPort = static_cast<std::uint16_t>(number);
  key.dstPort = 80;
  return key;
}
template <class Domain>
FlowTracking::HoFlowKey<Domain> keyOf(std::uint32_t number, bool egress = false) {
  using Direction = Bridging::AllowedTrafficDirection;
  return {flowOf<Domain>(number), egress ? Direction::egress : Direction::ingress, Pavo::IntfId("Ethernet1")};
}

// A tracker whose shared tables are in memory, and its audit; nothing is activated yet.
struct AuditedAgent {
  explicit AuditedAgent(bool withTracker = true) {
    FlowTracking::recordTypesRegister();
    audit->savePluginRef(agent.database);
    if (withTracker) tracker = agent.mountedPlugin();
    for (const auto& [path, table] : agent.tables->tables) {
      for (Quell::MapBase* map : table->collections()) Quell::attachAnonymous(*map);
    }
  }
  // Takes the configuration of the audit over, as an agent's file has it.
  void configure(AfterRestart afterRestart) {
    agent.database->configurationIs(
        Kiv::String(SftPexaAudit::kConfigPath),
        {{"afterRestart", Kiv::ValueTraits<AfterRestart>::toValue(afterRestart), "agent.toml", 7}});
  }
  void mountAudit() {
    audit->doMounts(agent.context);
    while (agent.database->completeMounts()) continue;
  }
  void activate() {
    tracker->activeInit(Pexa::PexaMode::active);
    audit->activeInit(Pexa::PexaMode::active);
  }
  // One task, or all that is due; a task that wants another slice counts again.
  bool runOne(unsigned questions) {
    TestSupport::CountedSlice slice(questions);
    return scheduler->runTask(slice);
  }
  void runDue() {
    TestSupport::EndlessSlice slice;
    for (int i = 0; i < 100'000 && scheduler->runTask(slice); ++i) continue;
  }

  template <class T>
  T& table(const Kiv::String& path) const {
    return dynamic_cast<T&>(*agent.tables->tables.at(path));
  }
  HoFlowConfig& config() const { return table<HoFlowConfig>(HoFlowConfig::mountPath(featureType())); }
  HoFlowStatus& status() const { return table<HoFlowStatus>(HoFlowStatus::mountPath(featureType())); }
  HoFlowCounter& counter() const {
    return table<HoFlowCounter>(HoFlowCounter::mountPath(featureType(), kCounterName));
  }
  HosStateCounter& stateCounter() const {
    return table<HosStateCounter>(HosStateCounter::mountPath(featureType()));
  }

  TestSupport::ManualClock clock;
  TestSupport::RecordingText log{"Pexa::SftAudit", -1};
  AgentFixture agent;
  Kiv::Ptr<Olt::TaskScheduler> scheduler = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  Kiv::Ptr<SftPexaAudit> audit = SftPexaAudit::SftPexaAuditIs(Kiv::String(SftPexaAudit::kName));
  Kiv::Ptr<SftPexaPlugin> tracker;
  const Kiv::Module types{"auditTypes", {&AuditConfig::kivType()}};
};

// What is said of one family of an agent: flows are wanted and withdrawn, tables are looked at and made
// wrong. One at a time.
template <class Domain>
struct AuditedFamily {
  using Key = FlowTracking::HoFlowKey<Domain>;
  using FlowKey = FlowTracking::FlowKey<Domain>;
  using Status = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;
  static constexpr std::string_view kFamily = FlowTracking::IpFamily<Domain>::kName;

  AuditedAgent world;

  // A tracker that is ready, its budget as given, and an audit that does nothing by itself.
  void startReady(std::uint32_t budget = 100, AfterRestart afterRestart = AfterRestart::off) {
    world.configure(afterRestart);
    world.mountAudit();
    world.activate();
    world.tracker->drovaHelper()->maxInHardwareFlowsIs(budget);
    world.runDue();
    ASSERT_TRUE(world.tracker->hocSm()->ready());
  }

  void want(std::uint32_t number, bool egress = false) {
    FlowTracking::HoFlowConfigRecord<Domain> record;
    record.key = keyOf<Domain>(number, egress);
    world.config().map<Domain>().insert(record);
  }
  void unwant(std::uint32_t number, bool egress = false) {
    world.config().map<Domain>().erase(keyOf<Domain>(number, egress));
  }
  // What stands in the tables, without the state machine's doing.
  void statusIs(std::uint32_t number, HoFlowState state, bool egress = false) {
    Status record;
    record.key = keyOf<Domain>(number, egress);
    record.state = state;
    world.status().map<Domain>().insert(record);
  }
  void counterIs(std::uint32_t number, std::uint32_t hosEntries) {
    Counter record;
    record.key = flowOf<Domain>(number);
    record.hosEntries = hosEntries;
    world.counter().map<Domain>().insert(record);
  }
  void stateCountIs(HoFlowState state, std::uint32_t count) {
    FlowTracking::HosStateCounterEntry entry;
    entry.key = state;
    entry.count = count;
    world.stateCounter().map<Domain>().insert(entry);
  }
  std::uint32_t stateCount(HoFlowState state) { return world.stateCounter().map<Domain>().get(state).count; }
  std::uint32_t hosEntries(std::uint32_t number) {
    return world.counter().map<Domain>().get(flowOf<Domain>(number)).hosEntries;
  }
  bool hasCounter(std::uint32_t number) { return world.counter().map<Domain>().has(flowOf<Domain>(number)); }
  bool hasLocalCounter(std::uint32_t number) {
    return world.tracker->localHoCounters()->template counters<Domain>().has(flowOf<Domain>(number));
  }

  // Runs the audit's task alone, slice by slice, until the run is over; the clock moves over pauses.
  void finishRun(unsigned questions) {
    for (int i = 0; i < 100'000 && world.audit->running(); ++i) {
      if (!world.runOne(questions)) world.clock.advance(SftPexaAudit::kPause);
    }
    ASSERT_FALSE(world.audit->running());
  }
  // All findings of a run, each as it is shown.
  std::vector<std::string> takeFindings() {
    std::vector<std::string> shown;
    for (;;) {
      const AuditAnswer answer = world.audit->findings(world.audit->run(), 2);
      if (answer.findings.empty()) return shown;
      for (const Kiv::Value& each : answer.findings) shown.push_back(each.text());
    }
  }
  std::vector<std::string> auditOf(bool repair, unsigned questions = 1000) {
    world.audit->start(repair);
    finishRun(questions);
    return takeFindings();
  }
  static std::string finding(FindingKind kind, const std::string& key, const Kiv::Value& found,
                             const Kiv::Value& expected, bool repaired) {
    return Finding{kFamily, kind, key, found, expected, repaired}.value().text();
  }
  // A drift of every kind that can be repaired: flow 1 has a status, 50 and 51 have none.
  void drift() {
    if (!world.status().map<Domain>().has(keyOf<Domain>(1))) want(1);
    stateCountIs(HoFlowState::inHardware, 7);
    counterIs(1, 5);
    counterIs(50, 1);
    world.tracker->localHoCounters()->counterIs(flowOf<Domain>(51));
  }

  // By another way than the audit's.
  template <class Count>
  void forEachStatus(const Count& count) {
    Status status;
    auto& statuses = world.status().map<Domain>();
    for (bool more = statuses.first(status); more; more = statuses.after(status.key, status)) count(status);
  }
  void expectStateCountsExact() {
    std::map<HoFlowState, std::uint32_t> states;
    forEachStatus([&](const Status& status) { ++states[status.state]; });
    for (unsigned state = 0; state < 256; ++state) {
      const auto each = static_cast<HoFlowState>(state);
      EXPECT_EQ(stateCount(each), states.contains(each) ? states[each] : 0) << "state " << state;
    }
  }
  // Nothing of what is repaired is wrong.
  void expectExact() {
    expectStateCountsExact();
    std::map<FlowKey, std::uint32_t> references;
    forEachStatus([&](const Status& status) { ++references[status.key.ipFlowKey]; });
    Counter counter;
    auto& counters = world.counter().map<Domain>();
    for (bool more = counters.first(counter); more; more = counters.after(counter.key, counter)) {
      EXPECT_EQ(counter.hosEntries, references[counter.key]) << counter.key;
      EXPECT_NE(counter.hosEntries, 0U) << counter.key;
    }
    const auto& local = std::as_const(*world.tracker->localHoCounters()).template counters<Domain>();
    for (const auto* entry = local.first(); entry != nullptr; entry = local.after(entry)) {
      EXPECT_TRUE(references.contains(entry->key())) << entry->key();
    }
  }
};

template <class Domain>
class AuditTest : public ::testing::Test, public AuditedFamily<Domain> {};

}  // namespace SampledFlowTracker
