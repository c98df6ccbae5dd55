// The naive state machine in its world, with the operations of a history.
#pragma once

#include <memory>

#include "NaiveHistory.h"
#include "NaiveStateMachine.h"

namespace Naive {

class Twin {
 public:
  World world;

  void construct(const Start& start) {
    machine_.reset();
    if (!start.sameHelper) {
      world.v4.overflow.clear();
      world.v6.overflow.clear();
    }
    if (!start.sameCounters) {
      world.v4.local.clear();
      world.v6.local.clear();
    }
    machine_ = std::make_unique<StateMachine>(world, start.synchronous ? Mode::synchronous : Mode::tasks);
  }
  void teardown() { machine_.reset(); }
  void notificationsOff() {
    if (machine_) machine_->notificationsOff();
  }
  template <class Domain>
  void configIs(const typename Tables<Domain>::Config& config) {
    world.tables<Domain>().config.put(config.key, config);
    if (machine_) machine_->configChanged<Domain>(config.key);
  }
  template <class Domain>
  void configDel(const FlowTracking::HoFlowKey<Domain>& key) {
    auto& config = world.tables<Domain>().config;
    const std::size_t before = config.size();
    config.del(key);
    if (machine_ && config.size() != before) machine_->configChanged<Domain>(key);
  }
  template <class Domain>
  void configQuietlyIs(const typename Tables<Domain>::Config& config) {
    world.tables<Domain>().config.put(config.key, config);
  }
  template <class Domain>
  void configQuietlyDel(const FlowTracking::HoFlowKey<Domain>& key) {
    world.tables<Domain>().config.del(key);
  }
  template <class Domain>
  void lookAgain() {
    if (machine_) machine_->lookAgain<Domain>();
  }
  void budgetIs(std::uint32_t flows) { world.budget = flows; }
  template <class Domain>
  void countPacket(const FlowTracking::FlowKey<Domain>& flow, const Pavo::IntfId& intfId,
                   std::uint32_t bytes) {
    auto& local = world.tables<Domain>().local;
    LocalCount count = local.get(flow).value_or(LocalCount{});
    ++count.packets;
    count.bytes += bytes;
    count.intfId = intfId;
    count.updateTime = world.now;
    local.put(flow, count);
  }
  void work(unsigned entries) {
    if (machine_) machine_->runWork(entries);
  }
  std::size_t works() const { return machine_ ? machine_->works() : 0; }
  void nowIs(double now) { world.now = now; }

  // Null when there is none.
  const StateMachine* machine() const { return machine_.get(); }

 private:
  std::unique_ptr<StateMachine> machine_;
};

}  // namespace Naive
