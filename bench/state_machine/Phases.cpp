#include "Phases.h"

#include <algorithm>

#include "World.h"

namespace SftBench {
namespace {

using SampledFlowTracker::OutputId;

constexpr std::uint32_t kBatch = 256;     // changes that the agent hears of at once
constexpr std::uint32_t kChanges = 8192;  // single changes of a kind
constexpr std::uint32_t kSweeps = 5;
constexpr std::uint32_t kRoom = 1 << 24;  // more than is ever wanted
constexpr double kPollInterval = 1.0;
// A restart takes the first status for stale before the scan has come to it, and counts the flow once more;
// see "What surprises" in docs/state-machine.md.
constexpr std::uint32_t kCountedAgain = 1;

template <class Phase>
Seconds timed(const Phase& phase) {
  const Seconds start = Seconds::now();
  phase();
  return Seconds::now() - start;
}

double perFlow(std::uint64_t bytes, std::uint64_t before, std::uint32_t flows) {
  return static_cast<double>(bytes - std::min(bytes, before)) / flows;
}

// The unit that everything else is compared with: a record stored in a shared table of that many.
template <class Domain>
void measureStore(Report& report, std::uint32_t flows) {
  World<Domain> world;
  world.mountAgent();
  auto& map = world.status();
  const auto order = visitOrder(flows);
  const auto storeAll = [&] {
    for (const std::uint32_t i : order) map.insert(status<Domain>(i, HoFlowState::overflow));
  };
  report.put("store of a new record", timed(storeAll), flows);
  report.put("store over a record", timed(storeAll), flows);
  require(map.size() == flows, "every record is stored");
}

// When each output became ready, on the processor's clock.
class ReadyTimes : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit ReadyTimes(const Kiv::Ptr<SampledFlowTracker::OutputState>& state) {
    notifierIs(state);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId attribute) override {
    if (attribute <= SampledFlowTracker::kOutputs) at_[attribute - 1] = Seconds::now();
  }
  // From the output that is before it in the chain, or from a start, to this one.
  Seconds took(OutputId id, const Seconds& start) const {
    const std::size_t position = SampledFlowTracker::chainPosition(id);
    const Seconds& from = position == 0 ? start : at_[indexOf(SampledFlowTracker::kReadyChain[position - 1])];
    return at_[indexOf(id)] - from;
  }

 private:
  std::array<Seconds, SampledFlowTracker::kOutputs> at_{};
};

template <class Domain>
constexpr OutputId familyOutput(OutputId ipv4, OutputId ipv6) {
  return FlowTracking::IpFamily<Domain>::kIndex == 0 ? ipv4 : ipv6;
}

template <class Domain>
class Phases {
 public:
  Phases(Report& report, std::uint32_t flows) : report_(report), flows_(flows) {}

  // Each with a frame of its own, so that a profile tells them apart.
  void run() {
    measureStore<Domain>(report_, flows_);
    admission();
    poll();
    singleChanges();
    restart();
    wholeStale();
    sweep();
  }

 private:
  void wantAll(World<Domain>& world) const {
    for (std::uint32_t i = 0; i < flows_; ++i) world.want(i);
  }

  [[gnu::noinline]] void admission() {
    World<Domain>& world = world_;
    const std::uint64_t configBefore = world.tableBytes(FlowTracking::HoFlowConfig::mountPath(kFeature));
    wantAll(world);
    world.mountAgent();
    memory("memory: wanted offload", world.tableBytes(FlowTracking::HoFlowConfig::mountPath(kFeature)),
           configBefore);
    const std::uint64_t statusBefore = world.tableBytes(FlowTracking::HoFlowStatus::mountPath(kFeature));
    const std::uint64_t counterBefore =
        world.tableBytes(FlowTracking::HoFlowCounter::mountPath(kFeature, "hfc"));

    world.start(kRoom);
    const Seconds initial = timed([&] { world.runUntil([&] { return world.sm().initialScanDone(); }); });
    const Seconds events = timed([&] { world.runUntilIdle(); });
    report_.put("initial scan, nothing delivered", initial, flows_);
    report_.put("event scan with admission", events, flows_);
    report_.put("first scan and admission", initial + events, flows_);
    memory("memory: status", world.tableBytes(FlowTracking::HoFlowStatus::mountPath(kFeature)), statusBefore);
    memory("memory: counter", world.tableBytes(FlowTracking::HoFlowCounter::mountPath(kFeature, "hfc")),
           counterBefore);
    expectAdmitted(world, flows_);
  }
  // `counted`: how many flows too many the per-state count has.
  static void expectAdmitted(World<Domain>& world, std::uint32_t flows, std::uint32_t counted = 0) {
    require(world.status().size() == flows, "every wanted flow has a status");
    require(world.counter().size() == flows, "every admitted flow has a counter");
    require(world.flowsIn(HoFlowState::inHardware) == flows + counted,
            "every flow is counted as in hardware");
    require(world.waiting() == 0, "no flow waits");
    require(world.sm().storesFailed() == 0, "every store succeeded");
  }
  void memory(const char* line, std::uint64_t bytes, std::uint64_t before) {
    report_.put(line, "bytes", perFlow(bytes, before, flows_));
  }

  [[gnu::noinline]] void poll() {
    const std::uint64_t heap = heapBytes();
    for (std::uint32_t i = 0; i < flows_; ++i) world_.localTable()->counterIs(flow<Domain>(i));
    memory("memory: local counter", heapBytes(), heap);
    count();
    report_.put("poll, every counter changed", pass(), flows_);
    expectPublished(1);
    count();
    report_.put("poll, every counter changed again", pass(), flows_);
    expectPublished(2);
    report_.put("poll, no counter changed", pass(), flows_);
  }
  // A packet of each flow.
  void count() {
    for (std::uint32_t i = 0; i < flows_; ++i) {
      world_.localTable()->counterIs(flow<Domain>(i))->hoCount(Pavo::IntfId(kIntf), 100);
    }
  }
  Seconds pass() {
    const auto generation = [&] { return world_.sm().inputSmScanState()->template generation<Domain>(); };
    const std::uint64_t before = generation();
    clock_.advance(kPollInterval + 0.5);
    return timed([&] { world_.runUntil([&] { return generation() != before; }); });
  }
  void expectPublished(std::uint64_t packets) {
    for (const std::uint32_t i : {std::uint32_t{0}, flows_ / 2, flows_ - 1}) {
      require(world_.counter().get(flow<Domain>(i)).packets == packets,
              "the poll published what was counted");
    }
  }

  // Each heard of by the agent through the table's journal, as from another process.
  [[gnu::noinline]] void singleChanges() {
    const auto heard = [&](const auto& change) {
      Seconds took;
      for (std::uint32_t done = 0; done < kChanges; done += kBatch) {
        for (std::uint32_t i = done; i < done + kBatch; ++i) change(i);
        const Seconds batch = timed([&] { world_.tell(); });
        took.cpu += batch.cpu;
      }
      return took;
    };
    report_.put("one flow more", heard([&](std::uint32_t i) { world_.want(flows_ + i); }), kChanges);
    expectAdmitted(world_, flows_ + kChanges);
    report_.put("a changed configuration", heard([&](std::uint32_t i) { world_.want(flows_ + i); }),
                kChanges);
    expectAdmitted(world_, flows_ + kChanges);
    report_.put("one flow less", heard([&](std::uint32_t i) { world_.unwant(hoFlow<Domain>(flows_ + i)); }),
                kChanges);
    expectAdmitted(world_, flows_);
  }

  // Another agent over the tables that this one left: everything is wanted still.
  [[gnu::noinline]] void restart() {
    world_.stop();
    world_.newLocalCounters();
    const std::uint64_t heap = heapBytes();
    world_.start(kRoom);
    const Seconds scan = timed([&] { world_.runUntil([&] { return scanned(); }); });
    memory("memory: seen keys while reconciling", heapBytes(), heap);
    const Seconds rest = timed([&] { world_.runUntilIdle(); });
    report_.put("restart, nothing stale", scan + rest, flows_);
    memory("memory: left when reconciled", heapBytes(), heap);
    expectAdmitted(world_, flows_, kCountedAgain);
  }
  bool scanned() {
    return world_.sm().initialScanDone() && world_.sm().inputSmScanState()->template scan<Domain>();
  }

  // Another agent, after the tracker has withdrawn everything.
  [[gnu::noinline]] void wholeStale() {
    world_.stop();
    for (std::uint32_t i = 0; i < flows_; ++i) world_.unwant(hoFlow<Domain>(i));
    for (std::uint32_t i = 0; i < flows_; ++i) world_.localTable()->counterIs(flow<Domain>(i));
    require(world_.wanted() == 0, "the tracker has withdrawn everything");
    world_.start(kRoom);
    const auto times = Kiv::makePtr<ReadyTimes>(world_.sm().outputState());
    const Seconds start = Seconds::now();
    world_.runUntilIdle();
    const auto put = [&](const char* line, OutputId ipv4, OutputId ipv6) {
      report_.put(line, times->took(familyOutput<Domain>(ipv4, ipv6), start), flows_);
      return report_.value(line);
    };
    // In the chain the families alternate: what precedes an output is quick, its table being empty.
    double each = put("stale status deleted", OutputId::hoFlowStatusHoIpFlowStatus,
                      OutputId::hoFlowStatusHoIp6FlowStatus);
    each += put("stale counter deleted", OutputId::hoFlowCounterHoIpFlowCounter,
                OutputId::hoFlowCounterHoIp6FlowCounter);
    report_.put("stale table entry deleted, on average", "ns", each / 2);
    put("stale local counter deleted", OutputId::localCounterCounterCollection,
        OutputId::localCounterCounterIp6Collection);
    require(world_.status().empty() && world_.counter().empty() && world_.local().empty() &&
                world_.flowsIn(HoFlowState::inHardware) == 0,
            "nothing stale is left");
  }

  // A full budget: one flow in eight is in hardware.
  [[gnu::noinline]] void sweep() {
    World<Domain> world;
    wantAll(world);
    const std::uint32_t budget = flows_ / 8;
    const std::uint64_t heap = heapBytes();
    world.start(budget);
    const Seconds scan = timed([&] { world.runUntilIdle(); });
    report_.put("first scan, seven of eight held back", scan, flows_);
    require(world.waiting() == flows_ - budget, "what the budget does not cover waits");
    require(world.flowsIn(HoFlowState::inHardware) == budget, "the budget is used up");
    report_.put("memory: waiting flow", "bytes", perFlow(heapBytes(), heap, flows_ - budget));

    Seconds took;
    for (std::uint32_t i = 0; i < kSweeps; ++i) {
      world.unwant(inHardware(world));
      took.cpu += timed([&] { world.tell(); }).cpu;
    }
    report_.put("one flow less, others waiting", "ms", took.cpu * 1e3 / kSweeps);
    report_.put("  of that, for each waiting flow", took, std::uint64_t{kSweeps} * world.waiting());
    require(world.waiting() == flows_ - budget - kSweeps, "each flow that went let one other in");
    require(world.flowsIn(HoFlowState::inHardware) == budget, "the budget is used up again");

    const std::uint64_t promoted = world.waiting();
    world.helper().maxInHardwareFlowsIs(kRoom);
    world.unwant(inHardware(world));
    const Seconds all = timed([&] { world.tell(); });
    report_.put("one flow less, room for all waiting", "ms", all.cpu * 1e3);
    report_.put("  of that, for each flow let in", all, promoted);
    expectAdmitted(world, flows_ - kSweeps - 1);
  }
  // Some flow in hardware.
  static FlowTracking::HoFlowKey<Domain> inHardware(World<Domain>& world) {
    typename World<Domain>::Status record;
    bool more = world.status().first(record);
    while (more && record.state != HoFlowState::inHardware) more = world.status().after(record.key, record);
    require(more, "a flow is in hardware");
    return record.key;
  }

  Report& report_;
  const std::uint32_t flows_;
  TestSupport::ManualClock clock_;
  World<Domain> world_;
};

}  // namespace

template <class Domain>
void runPhases(Report& report, std::uint32_t flows) {
  Phases<Domain>(report, flows).run();
}
template void runPhases<IPv4>(Report& report, std::uint32_t flows);
template void runPhases<IPv6>(Report& report, std::uint32_t flows);

}  // namespace SftBench
