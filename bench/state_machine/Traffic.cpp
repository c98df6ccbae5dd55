// The agent's loop under packets, while the state machine has work for seconds: how long packets wait for the
// loop to come back to them, and what is dropped at a rate that an idle agent carries.
#include <algorithm>

#include "Agent.h"
#include "Phases.h"

namespace SftBench {
namespace {

constexpr std::uint32_t kRoom = 1 << 24;
// What a packet costs the kernel on a live port; "Live" in docs/performance.md.
constexpr double kDevice = 4e-6;
constexpr double kShare = 0.8;    // of what the idle agent carries
constexpr double kIdleRun = 0.2;  // seconds of the processor
constexpr unsigned kPasses = 2;   // of the poll

// One agent's life over a million flows, under one load.
template <class Domain>
class Life {
 public:
  explicit Life(std::uint32_t flows) : flows_(flows) {
    for (std::uint32_t i = 0; i < flows_; ++i) world_.want(i);
    world_.start(kRoom);
  }

  // Packets a second that the agent carries with nothing else to do.
  double idleRate() {
    world_.runUntilIdle();
    Agent<Domain> agent(world_, flows_);
    const Seconds start = Seconds::now();
    return agent.run({0, kDevice}, [&] { return world_.idle() && (Seconds::now() - start).cpu > kIdleRun; })
        .carried;
  }

  // Calls told(phase, outcome).
  template <class Told>
  void run(const Load& load, const Told& told) {
    const auto whileBusy = [&] {
      return Agent<Domain>(world_, flows_).run(load, [&] { return world_.idle(); });
    };
    told("first scan", whileBusy());
    require(world_.flowsIn(HoFlowState::inHardware) == flows_, "every flow is in hardware");

    for (std::uint32_t i = 0; i < flows_; ++i) world_.localTable()->counterIs(flow<Domain>(i));
    const auto generation = [&] { return world_.sm().inputSmScanState()->template generation<Domain>(); };
    const std::uint64_t enough = generation() + kPasses;
    told("poll", Agent<Domain>(world_, flows_).run(load, [&] { return generation() >= enough; }));

    world_.stop();
    world_.start(kRoom);
    told("restart", whileBusy());
    require(world_.status().size() == flows_, "every flow has a status still");

    world_.stop();
    for (std::uint32_t i = 0; i < flows_; ++i) world_.unwant(hoFlow<Domain>(i));
    world_.start(kRoom);
    told("all stale", whileBusy());
    require(world_.status().empty(), "no stale status is left");
    // A counter that a poll publishes meanwhile counts as written, and stays.
    require(world_.counter().size() < flows_, "stale counters are deleted");
  }

 private:
  World<Domain> world_;
  const std::uint32_t flows_;
};

void put(Report& report, const std::string& phase, std::vector<Seconds> waits) {
  require(!waits.empty(), "packets came while the state machine worked");
  const auto us = [&](double share, double Seconds::*clock) {
    std::sort(waits.begin(), waits.end(),
              [&](const Seconds& a, const Seconds& b) { return a.*clock < b.*clock; });
    const auto at = static_cast<std::size_t>(share * static_cast<double>(waits.size() - 1));
    return waits[at].*clock * 1e6;
  };
  report.put(phase + ": bursts", "", static_cast<double>(waits.size()));
  report.put(phase + ": median wait", "us", us(0.5, &Seconds::cpu));
  report.put(phase + ": 99.9% wait at most", "us", us(0.999, &Seconds::cpu));
  report.put(phase + ": longest wait", "us", us(1, &Seconds::cpu));
  report.put(phase + ": longest wait, on the wall", "us", us(1, &Seconds::wall));
}

}  // namespace

template <class Domain>
void runTraffic(Report& report, std::uint32_t flows) {
  const char* const worst = "packets: 99.9% wait at most, in the worst phase";
  Life<Domain>(flows).run({}, [&](const std::string& phase, auto outcome) {
    const std::string line = "packets, " + phase;
    put(report, line, std::move(outcome.waits));
    report.put(worst, "us", std::max(report.value(worst), report.value(line + ": 99.9% wait at most")));
  });

  Life<Domain> life(flows);
  const double rate = kShare * Life<Domain>(std::min(flows, kMostPackets)).idleRate();
  report.put("packets at a rate: a second", "", rate);
  std::uint64_t dropped = 0;
  life.run({rate, kDevice}, [&](const std::string& phase, const auto& outcome) {
    report.put("packets at a rate, " + phase + ": dropped", "", static_cast<double>(outcome.dropped));
    dropped += outcome.dropped;
  });
  report.put("packets at a rate: dropped", "", static_cast<double>(dropped));
}
template void runTraffic<IPv4>(Report& report, std::uint32_t flows);
template void runTraffic<IPv6>(Report& report, std::uint32_t flows);

}  // namespace SftBench
