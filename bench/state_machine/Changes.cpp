// A single change on its way: another process wants a flow, and reads the statuses until the flow's is there.
// The agent has a full burst of packets whenever it looks, and all flows of the size in hardware.
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "Agent.h"
#include "Phases.h"

namespace SftBench {
namespace {

constexpr std::uint32_t kChanges = 5000;
constexpr std::uint32_t kFewChanges = 200;  // of a size that is only tried out
constexpr std::uint32_t kSmall = 10000;
constexpr double kPatience = 5;  // seconds for one change
constexpr std::uint32_t kRoom = 1 << 24;

// What both processes see.
struct Shared {
  // Seconds on the wall in which the agent had no processor, up to its last burst, and its bursts.
  std::atomic<double> away{0};
  std::atomic<std::uint64_t> bursts{0};
  std::atomic<std::uint32_t> made{0};
  std::atomic<bool> done{false};
  std::atomic<bool> failed{false};
  std::array<double, kChanges> wall{};     // seconds from the store
  std::array<double, kChanges> without{};  // of these, those in which the agent had no processor
};

class SharedPage {
 public:
  SharedPage()
      : at_(::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    require(at_ != MAP_FAILED, "memory for both processes");
    shared_ = new (at_) Shared;
  }
  ~SharedPage() { ::munmap(at_, sizeof(Shared)); }
  SharedPage(const SharedPage&) = delete;
  SharedPage& operator=(const SharedPage&) = delete;
  Shared* operator->() const { return shared_; }
  Shared& operator*() const { return *shared_; }

 private:
  void* at_;
  Shared* shared_ = nullptr;
};

// Another process away from this one's processor, where this has one alone: it would not be given that before
// this one gives it up.
void processorElsewhere(pid_t pid) {
  cpu_set_t agents;
  CPU_ZERO(&agents);
  if (::sched_getaffinity(0, sizeof agents, &agents) != 0 || CPU_COUNT(&agents) != 1) return;
  cpu_set_t others;
  CPU_ZERO(&others);
  for (int each = 0; each < ::sysconf(_SC_NPROCESSORS_ONLN); ++each) {
    if (!CPU_ISSET(each, &agents)) CPU_SET(each, &others);
  }
  ::sched_setaffinity(pid, sizeof others, &others);
}

// The other process.
template <class Domain>
class Tracker {
 public:
  Tracker(const std::string& runDir, Shared& shared)
      : shared_(shared),
        tables_(Kiv::makePtr<Quell::SharedTables>("tracker", runDir)),
        wanted_(mount<FlowTracking::HoFlowConfig>(*tables_, FlowTracking::HoFlowConfig::mountPath(kFeature),
                                                  KivQuell::KivQuellType::written)),
        status_(mount<FlowTracking::HoFlowStatus>(*tables_, FlowTracking::HoFlowStatus::mountPath(kFeature),
                                                  KivQuell::KivQuellType::published)) {}

  void change(std::uint32_t from, std::uint32_t changes) {
    std::mt19937 random(1);
    for (std::uint32_t i = 0; i < changes && !shared_.failed; ++i) {
      one(from, i);
      // So that changes come at any place of the loop.
      std::this_thread::sleep_for(std::chrono::microseconds(200 + random() % 500));
    }
  }

 private:
  void one(std::uint32_t from, std::uint32_t i) {
    FlowTracking::HoFlowConfigRecord<Domain> record;
    record.key = hoFlow<Domain>(from + i);
    const double away = shared_.away;
    const double start = Seconds::now().wall;
    wanted_->template map<Domain>().insert(record);
    tables_->flush();
    double now = start;
    while (!status_->template map<Domain>().has(record.key)) {
      now = Seconds::now().wall;
      if (now - start > kPatience) shared_.failed = true;
      if (shared_.failed) return;
    }
    shared_.wall[i] = Seconds::now().wall - start;
    const std::uint64_t burst = shared_.bursts;
    while (shared_.bursts == burst && !shared_.failed) {
      if (Seconds::now().wall - start > kPatience) shared_.failed = true;
    }
    shared_.without[i] = shared_.away - away;
    shared_.made = i + 1;
  }

  Shared& shared_;
  Kiv::Ptr<Quell::SharedTables> tables_;
  Kiv::Ptr<FlowTracking::HoFlowConfig> wanted_;
  Kiv::Ptr<FlowTracking::HoFlowStatus> status_;
};

template <class Domain>
pid_t trackerStarts(const std::string& runDir, std::uint32_t from, std::uint32_t changes, Shared& shared) {
  const pid_t pid = ::fork();
  require(pid >= 0, "another process");
  if (pid != 0) {
    processorElsewhere(pid);
    return pid;
  }
  try {
    Tracker<Domain>(runDir, shared).change(from, changes);
  } catch (const std::exception&) {
    shared.failed = true;
  }
  shared.done = true;
  ::_exit(0);
}

double at(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

}  // namespace

template <class Domain>
void runChanges(Report& report, std::uint32_t flows) {
  World<Domain> world;
  for (std::uint32_t i = 0; i < flows; ++i) world.want(i);
  world.start(kRoom);
  world.runUntilIdle();
  world.tables().flush();
  world.trackerEnds();

  SharedPage shared;
  const std::uint32_t changes = flows < kSmall ? kFewChanges : kChanges;
  const pid_t tracker = trackerStarts<Domain>(world.runDir(), flows, changes, *shared);
  const Seconds start = Seconds::now();
  Agent<Domain>(world, flows).run({}, [&] {
    const Seconds took = Seconds::now() - start;
    shared->away = took.wall - took.cpu;
    ++shared->bursts;
    return shared->done.load();
  });
  shared->failed = true;  // the other process waits for bursts no more
  ::waitpid(tracker, nullptr, 0);
  require(shared->made == changes, "every change of the other process came to its status");
  require(world.flowsIn(HoFlowState::inHardware) == flows + changes, "every flow is in hardware");

  const std::vector<double> wall(shared->wall.begin(), shared->wall.begin() + changes);
  std::vector<double> given = wall;
  for (std::uint32_t i = 0; i < changes; ++i) given[i] = std::max(0.0, wall[i] - shared->without[i]);
  report.put("change to status: median", "us", at(given, 0.5) * 1e6);
  report.put("change to status: 99.9% at most", "us", at(given, 0.999) * 1e6);
  report.put("change to status: longest", "us", at(given, 1) * 1e6);
  report.put("change to status, on the wall: median", "us", at(wall, 0.5) * 1e6);
  report.put("change to status, on the wall: 99.9% at most", "us", at(wall, 0.999) * 1e6);
}
template void runChanges<IPv4>(Report& report, std::uint32_t flows);
template void runChanges<IPv6>(Report& report, std::uint32_t flows);

}  // namespace SftBench
