// What the state machine lives in: tables in files on a tmpfs, a flow tracker that publishes wanted offloads
// beside it, and the agent's scheduler, all for one family.
//
// The tracker has its own mounts, as another process has, and the agent hears of its changes through the
// tables' journal. Time stands still: the poll's second passes when a phase lets it.
#pragma once

#include <memory>

#include "Flows.h"
#include "ManualClock.h"
#include "Measure.h"
#include "RecordTypes.h"
#include "SftPexa/SftPexaFtHOCSM.h"
#include "TempDir.h"
#include "agent/EventLoop.h"
#include "agent/TaskWork.h"
#include "quell/SharedTables.h"

namespace SftBench {

inline constexpr const char* kFeature = "sampled";

// Mounts a table as the plugin does; the type is registered with the first one.
template <class Container>
Kiv::Ptr<Container> mount(Quell::SharedTables& tables, const Kiv::String& path, KivQuell::KivQuellType kind) {
  FlowTracking::recordTypesRegister();
  return Kiv::ptrCast<Container>(
      tables.doMount(path, Container::kivType().name(), KivQuell::MountInfo(kind)));
}

template <class Domain>
class World {
 public:
  using Key = FlowTracking::HoFlowKey<Domain>;
  using Status = FlowTracking::HoFlowStatusRecord<Domain>;
  using Counter = FlowTracking::HoFlowCounterRecord<Domain>;

  World()
      : wanted_(mount<FlowTracking::HoFlowConfig>(*tracker_, FlowTracking::HoFlowConfig::mountPath(kFeature),
                                                  KivQuell::KivQuellType::written)) {}

  // The tracker's side. Wanting what is wanted already changes its configuration.
  void want(std::uint32_t flow) {
    FlowTracking::HoFlowConfigRecord<Domain> record;
    record.key = hoFlow<Domain>(flow);
    record.requestTime = ++requests_;
    wanted_->template map<Domain>().insert(record);
  }
  void unwant(const Key& key) { wanted_->template map<Domain>().erase(key); }
  // Lets another process be the tracker from now on.
  void trackerEnds() { wanted_->template map<Domain>().table()->writingDel(); }
  const std::string& runDir() const { return dir_.path(); }
  std::size_t wanted() const { return wanted_->template map<Domain>().size(); }
  // The agent hears of what the tracker did.
  void tell() {
    tracker_->flush();
    while (tables_->deliver(kDelivered)) continue;
  }

  // The agent mounts the tables, if it has not yet, and starts its state machine.
  void start(std::uint32_t budget) {
    mountAgent();
    tell();  // what was done while nobody listened
    helper_ = SampledFlowTracker::sftPexaDrovaHelperFactory(stateCounter_);
    helper_->maxInHardwareFlowsIs(budget);
    Zun::SmControl control;
    control.taskScheduler = scheduler_;
    control.taskPriority = 3;
    control.synchronous = Zun::SynchronousChoice::tasks;
    sm_ = SampledFlowTracker::sftPexaFtHOCSMFactory(config_, status_, counter_, stateCounter_, local_,
                                                    helper_, control);
    sm_->hasNotificationActiveIs(true);
  }
  void stop() {
    sm_.reset();
    helper_.reset();
  }
  // The agent ends, and another one begins with no local counters.
  void newLocalCounters() { local_ = Pexa::Counter::pexaSftHoCounterCollectionFactory("Bench"); }

  // Turns of the agent's loop without packets, until something is so.
  template <class Until>
  void runUntil(const Until& until) {
    while (!until()) turn();
  }
  void runUntilIdle() {
    runUntil([this] { return idle(); });
  }
  // A state machine without anything to reconcile calls itself idle before its scan has delivered anything.
  bool idle() const { return sm_->idle() && scheduler_->due() == 0; }
  void turn() {
    require(scheduler_->due() != 0, "a state machine that is not done has something to do");
    work_.run(0, Pexa::EventLoop::kIdleSlice);
    if (++turns_ % Pexa::EventLoop::kTurnsPerLook == 0) tables_->flush();
  }

  SampledFlowTracker::SftPexaFtHOCSM& sm() { return *sm_; }
  SampledFlowTracker::SftPexaDrovaHelper& helper() { return *helper_; }
  const Kiv::Ptr<FlowTracking::HoFlowStatus>& statusTable() const { return status_; }
  const Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection>& localTable() const { return local_; }
  auto& status() { return status_->template map<Domain>(); }
  auto& counter() { return counter_->template map<Domain>(); }
  std::uint32_t flowsIn(HoFlowState state) {
    return stateCounter_->template map<Domain>().get(FlowTracking::HosStateCounterKey(state)).count;
  }
  auto& local() { return std::as_const(*local_).template counters<Domain>(); }
  std::size_t waiting() const { return helper_->template overflow<Domain>().size(); }
  Quell::SharedTables& tables() { return *tables_; }
  Pexa::TaskWork& work() { return work_; }
  void mountAgent() {
    if (tables_) return;
    using KivQuell::KivQuellType;
    tables_ = Kiv::makePtr<Quell::SharedTables>("agent", dir_.path());
    config_ = mount<FlowTracking::HoFlowConfig>(*tables_, FlowTracking::HoFlowConfig::mountPath(kFeature),
                                                KivQuellType::published);
    status_ = mount<FlowTracking::HoFlowStatus>(*tables_, FlowTracking::HoFlowStatus::mountPath(kFeature),
                                                KivQuellType::written);
    counter_ = mount<FlowTracking::HoFlowCounter>(
        *tables_, FlowTracking::HoFlowCounter::mountPath(kFeature, "hfc"), KivQuellType::written);
    stateCounter_ = mount<FlowTracking::HosStateCounter>(
        *tables_, FlowTracking::HosStateCounter::mountPath(kFeature), KivQuellType::written);
  }
  // Bytes of one table's files.
  std::uint64_t tableBytes(const Kiv::String& path) const {
    return fileBytes(dir_.path() + "/tables/" + std::string(path));
  }
  std::uint64_t allTableBytes() const { return fileBytes(dir_.path()); }

 private:
  static constexpr std::size_t kDelivered = 256;  // changed keys at a time

  const TestSupport::TempDir dir_;
  const Kiv::Ptr<Quell::SharedTables> tracker_ = Kiv::makePtr<Quell::SharedTables>("tracker", dir_.path());
  const Kiv::Ptr<FlowTracking::HoFlowConfig> wanted_;
  double requests_ = 0;

  Kiv::Ptr<Quell::SharedTables> tables_;
  Kiv::Ptr<FlowTracking::HoFlowConfig> config_;
  Kiv::Ptr<FlowTracking::HoFlowStatus> status_;
  Kiv::Ptr<FlowTracking::HoFlowCounter> counter_;
  Kiv::Ptr<FlowTracking::HosStateCounter> stateCounter_;
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> local_ =
      Pexa::Counter::pexaSftHoCounterCollectionFactory("Bench");
  const Kiv::Ptr<Olt::TaskScheduler> scheduler_ = Kiv::makePtr<Olt::TaskScheduler>("bench");
  Pexa::TaskWork work_{scheduler_};
  unsigned turns_ = 0;
  Kiv::Ptr<SampledFlowTracker::SftPexaDrovaHelper> helper_;
  Kiv::Ptr<SampledFlowTracker::SftPexaFtHOCSM> sm_;
};

}  // namespace SftBench
