// A state machine with everything around it: tables in memory, local counters, its helper, a scheduler of its
// own and a clock that stands.
//
//   class AdmissionTest : public StateMachineTest<Domain> {};
//   this->start();                              // synchronous: all but the timers is done when it returns
//   this->want(this->key(1));                   // a flow tracker publishes a wanted offload
//   EXPECT_EQ(this->stateOf(this->key(1)), HoFlowState::inHardware);
//
// With tasks, nothing happens until the test runs them: runSlice() one run, runAll() until nothing is due.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "ManualClock.h"
#include "SftPexa/SftPexaFtHOCSM.h"
#include "TableLookup.h"
#include "TaskThings.h"
#include "quell/TableFile.h"

namespace SampledFlowTracker {

inline constexpr auto kInHardware = FlowTracking::HoFlowState::inHardware;
inline constexpr auto kOverflow = FlowTracking::HoFlowState::overflow;

// What the trace says of a reconciliation's run that came to the table's end.
inline std::string doneText(unsigned processed, unsigned deletions) {
  return fmt::format(
      "Deletion scan for reconciliation is done, last task run processed {} items, deleting {} items.",
      processed, deletions);
}

// The state machine's world, without a family.
class StateMachineWorld {
 public:
  using Counters = Pexa::Counter::PexaSftHoCounterCollection;
  static constexpr auto kSynchronous = Zun::SynchronousChoice::synchronous;
  static constexpr auto kTasks = Zun::SynchronousChoice::tasks;

  StateMachineWorld() {
    attach(*hoFlowConfig);
    attach(*hoFlowStatus);
    attach(*hoFlowCounter);
    attach(*hosStateCounter);
  }
  StateMachineWorld(const StateMachineWorld&) = delete;
  StateMachineWorld& operator=(const StateMachineWorld&) = delete;

  // Builds a state machine over the tables, as they are, and switches its notifications on.
  void start(Zun::SynchronousChoice choice = kSynchronous) {
    control.synchronous = choice;
    sm = sftPexaFtHOCSMFactory(hoFlowConfig, hoFlowStatus, hoFlowCounter, hosStateCounter, localCounters,
                               helper, control);
    sm->hasNotificationActiveIs(true);
  }
  // With tasks, until nothing is due.
  void startAndRun() {
    start(kTasks);
    runAll();
  }
  // The agent goes down. Waiting flows live in the helper, and the packet path's counters in the process:
  // both are gone; the tables stay.
  void stop() {
    sm.reset();
    const auto budget = helper->maxInHardwareFlows();
    helper = sftPexaDrovaHelperFactory(hosStateCounter);
    helper->maxInHardwareFlowsIs(budget);
    localCounters = Pexa::Counter::pexaSftHoCounterCollectionFactory("counters");
  }
  void budgetIs(std::uint32_t flows) { helper->maxInHardwareFlowsIs(flows); }

  // Runs the first due task; its slice is spent from the n-th question on. False when none is due.
  bool runSlice(unsigned entries = 1) {
    TestSupport::CountedSlice slice(entries);
    return scheduler->runTask(slice);
  }
  // Runs until nothing is due; how many runs that took.
  unsigned runAll() {
    TestSupport::EndlessSlice endless;
    unsigned runs = 0;
    while (runs < kTooMany && scheduler->runTask(endless)) ++runs;
    EXPECT_LT(runs, kTooMany) << "the tasks do not come to rest";
    return runs;
  }
  // The same one entry a run.
  unsigned runAllInSlices() {
    unsigned runs = 0;
    while (runs < kTooMany && runSlice()) ++runs;
    EXPECT_LT(runs, kTooMany) << "the tasks do not come to rest";
    return runs;
  }
  // Runs until nothing is due, a number of entries each; the names of the tasks in the order of their runs.
  std::vector<std::string> runNames(unsigned entries = kTooMany) {
    std::vector<std::string> names;
    for (unsigned runs = 0; runs < kTooMany; ++runs) {
      std::vector<std::pair<Kiv::Ptr<Olt::Task>, std::uint64_t>> before;
      for (Olt::Task* each : scheduler->tasks()) before.emplace_back(each, each->runs());
      if (!runSlice(entries)) break;
      for (const auto& [each, count] : before) {
        if (each->runs() != count) names.push_back(each->name());
      }
    }
    return names;
  }
  // A second goes by: the next pass over the local counters is due.
  void second() {
    clock.advance(1.0);
    runAll();
  }
  // The task of a name, or null.
  const Olt::Task* task(std::string_view name) const {
    for (const Olt::Task* each : scheduler->tasks()) {
      if (each->name() == name) return each;
    }
    return nullptr;
  }
  // Whether this is the build in which every yield point yields: a run handles one entry there.
  static bool yieldsAlways() {
    const auto probeScheduler = Kiv::makePtr<Olt::TaskScheduler>("probe");
    const auto probe = probeScheduler->taskIs("probe", 0);
    bool yields = false;
    const auto reactor = TestSupport::reactorOf(probe, [&] { yields = probe->taskShouldYield(); });
    probe->scheduleTask();
    TestSupport::EndlessSlice endless;
    probeScheduler->runTask(endless);
    return yields;
  }

  TestSupport::ManualClock clock;
  Kiv::Ptr<Olt::TaskScheduler> scheduler = Kiv::makePtr<Olt::TaskScheduler>("test");
  Kiv::Ptr<FlowTracking::HoFlowConfig> hoFlowConfig = Kiv::makePtr<FlowTracking::HoFlowConfig>("config");
  Kiv::Ptr<FlowTracking::HoFlowStatus> hoFlowStatus = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<FlowTracking::HoFlowCounter> hoFlowCounter = Kiv::makePtr<FlowTracking::HoFlowCounter>("counter");
  Kiv::Ptr<FlowTracking::HosStateCounter> hosStateCounter =
      Kiv::makePtr<FlowTracking::HosStateCounter>("stateCounter");
  Kiv::Ptr<Counters> localCounters = Pexa::Counter::pexaSftHoCounterCollectionFactory("counters");
  Kiv::Ptr<SftPexaDrovaHelper> helper = sftPexaDrovaHelperFactory(hosStateCounter);
  Zun::SmControl control{scheduler, 3, "test", nullptr, kSynchronous};
  Kiv::Ptr<SftPexaFtHOCSM> sm;  // goes first

 private:
  static constexpr unsigned kTooMany = 100'000;
  static void attach(Quell::Container& container) {
    for (Quell::MapBase* map : container.collections()) Quell::attachAnonymous(*map);
  }
};

// What is particular to a test of one family.
template <class Domain>
class FamilyWorld : public StateMachineWorld {
 public:
  using Key = FlowTracking::HoFlowKey<Domain>;
  using FlowKey = FlowTracking::FlowKey<Domain>;
  using Config = FlowTracking::HoFlowConfigRecord<Domain>;
  using Status = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;
  using Texts = StatementTexts<Domain>;
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;
  using InputSm = std::conditional_t<kV4, HoIpFlowConfigSm0, HoIp6FlowConfigSm1>;
  static constexpr const char* kScanTask =
      kV4 ? "SampledFlowTracker::SftPexaFtHOCSM-HoIpFlowConfigSm0InputScanTask"
          : "SampledFlowTracker::SftPexaFtHOCSM-HoIp6FlowConfigSm1InputScanTask";

  // Flow number n; and the offload wanted of it on an interface.
  static FlowKey flow(std::uint32_t n) {
    FlowKey key;
    key.vlan = 10;
    key.ipProto = 6;
    key.srcPort = static_cast<std::uint16_t>(n);
    key.dstPort = static_cast<std::uint16_t>(n >> 16);
    return key;
  }
  static Key key(std::uint32_t n, std::string_view intfId = "Ethernet1") {
    return Key(flow(n), Bridging::AllowedTrafficDirection::ingress, Pavo::IntfId(intfId));
  }
  static OutputId id(OutputId ipv4, OutputId ipv6) { return kV4 ? ipv4 : ipv6; }

  // What a flow tracker does. Offloads can be told apart by the time at which they were asked for.
  void want(const Key& key, double requestTime = 0) {
    Config record;
    record.key = key;
    record.requestTime = requestTime;
    configs().insert(record);
  }
  void wantMany(std::uint32_t from, std::uint32_t to) {
    for (std::uint32_t n = from; n <= to; ++n) want(key(n));
  }
  void unwant(const Key& key) { configs().erase(key); }
  // The same, with the change lost on its way; and how a reader is told that changes were.
  void wantUntold(const Key& key, double requestTime = 0) {
    Config record;
    record.key = key;
    record.requestTime = requestTime;
    configs().table()->store(&record);
  }
  void unwantUntold(const Key& key) { configs().table()->erase(&key); }
  void tellMissed() { hoFlowConfig->collectionChanged(configs(), nullptr); }
  // What the packet path does.
  void countPacket(const FlowKey& flow, std::uint32_t bytes = 100, std::string_view intfId = "Ethernet1") {
    localCounters->template counterIs<Domain>(flow)->hoCount(Pavo::IntfId(intfId), bytes);
  }

  auto& configs() const { return hoFlowConfig->template map<Domain>(); }
  auto& statuses() const { return hoFlowStatus->template map<Domain>(); }
  auto& counters() const { return hoFlowCounter->template map<Domain>(); }
  auto& counts() const { return hosStateCounter->template map<Domain>(); }
  OverflowSet<Domain>& waiting() const { return helper->template overflow<Domain>(); }
  std::optional<Status> statusOf(const Key& key) const { return FlowTracking::lookUp(statuses(), key); }
  State stateOf(const Key& key) const {
    const auto record = statusOf(key);
    return record ? State(record->state) : std::nullopt;
  }
  std::optional<Counter> counterOf(const FlowKey& flow) const {
    return FlowTracking::lookUp(counters(), flow);
  }
  // Absent when no count is stored.
  std::optional<std::uint32_t> count(HoFlowState state) const {
    const auto entry = FlowTracking::lookUp(counts(), FlowTracking::HosStateCounterKey(state));
    return entry ? std::optional(entry->count) : std::nullopt;
  }
  bool hasLocal(const FlowKey& flow) const { return localCounters->template counters<Domain>().has(flow); }

  // Records as an earlier run left them.
  void leaveStatus(const Key& key, HoFlowState state = HoFlowState::inHardware, double time = 500) {
    Status record;
    record.key = key;
    record.state = state;
    record.creationTime = record.lastUpdateTime = time;
    statuses().insert(record);
  }
  void leaveCounter(const FlowKey& flow, std::uint32_t hosEntries = 1, std::uint64_t packets = 0) {
    Counter record;
    record.key = flow;
    record.hosEntries = hosEntries;
    record.packets = packets;
    counters().insert(record);
  }
  void leaveCount(HoFlowState state, std::uint32_t flows) {
    FlowTracking::HosStateCounterEntry entry;
    entry.key = state;
    entry.count = flows;
    counts().insert(entry);
  }

  // The keys of a table, or of a set, in its order.
  template <class Map>
  static auto keysOf(const Map& map) {
    std::vector<typename Map::KeyType> keys;
    typename Map::RecordTypeT record;
    for (bool more = map.first(record); more; more = map.after(record.key, record)) {
      keys.push_back(record.key);
    }
    return keys;
  }
  std::vector<Key> waitingKeys() const {
    std::vector<Key> keys;
    for (const auto* entry = waiting().first(); entry != nullptr; entry = waiting().after(entry->key)) {
      keys.push_back(entry->key);
    }
    return keys;
  }

  InputSm& inputSm() const {
    if constexpr (kV4) {
      return *sm->hoIpFlowConfigSm0();
    } else {
      return *sm->hoIp6FlowConfigSm1();
    }
  }
  FamilyOutputs<Domain>& outputs() const { return sm->template familyOutputs<Domain>(); }
  const Kiv::Ptr<Olt::TimerTask>& copyTask() const {
    return kV4 ? sm->copyLocalCountersTask() : sm->copyLocalIp6CountersTask();
  }
};

template <class Domain>
class StateMachineTest : public ::testing::Test, public FamilyWorld<Domain> {};

using Families = ::testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;

// Makes the record of a key unreadable, as a stray write would; which byte of its values is up to the caller.
template <class Map>
void damageRecord(const Map& map, const typename Map::KeyType& key) {
  const auto& file = map.table()->file();
  constexpr std::size_t kKeyBytes = sizeof(key);
  for (std::uint64_t slot = 0; slot < file->slotsInFile(); ++slot) {
    auto* words = file->slot(slot) + 1;
    typename Map::RecordTypeT record;
    std::memcpy(&record, static_cast<const void*>(words), sizeof(record));
    if (!(record.key == key)) continue;
    auto* bytes = reinterpret_cast<std::uint8_t*>(words);
    bytes[kKeyBytes < sizeof(record) ? sizeof(record) - 1 : 0] ^= 0x10U;
  }
}

// Writes down what damage a map reports.
class DamageReports {
 public:
  explicit DamageReports(Quell::MapBase& map) : map_(map) {
    map_.corruptionHandlerIs([this](std::string_view text) { texts.emplace_back(text); });
  }
  ~DamageReports() { map_.corruptionHandlerIs(nullptr); }
  DamageReports(const DamageReports&) = delete;
  DamageReports& operator=(const DamageReports&) = delete;
  std::vector<std::string> texts;

 private:
  Quell::MapBase& map_;
};

}  // namespace SampledFlowTracker
