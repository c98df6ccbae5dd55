// The real state machine over tables in memory, on a scheduler of its own, with the operations of a history.
#pragma once

#include <array>

#include "ManualClock.h"
#include "NaiveHistory.h"
#include "QuellLayout.h"
#include "SftPexa/SftPexaFtHOCSM.h"
#include "quell/TableFile.h"

namespace Naive {

// Changes a byte of a record behind the back of its table. REQUIRES: the key is present and can be read.
template <class Key, class Record>
void damageRecord(const Quell::Map<Key, Record>& map, const Key& key) {
  using namespace Quell::Layout;
  const Quell::TableFile& file = *map.table()->file();
  const std::uint64_t hash = map.hash(key);
  for (const auto& word : file.bucket(bucketOf(hash, stateBuckets(file.header().state))).entries) {
    const std::uint64_t entry = word;
    if (entry == 0 || entryTag(entry) != static_cast<std::uint32_t>(hash >> 32)) continue;
    // The last byte that the record surely has.
    reinterpret_cast<std::uint8_t*>(file.slot(entrySlot(entry)) + 1)[sizeof(Record) - 1] ^= 0x55U;
    return;
  }
  throw std::logic_error("there is no record to damage");
}

class Subject {
 public:
  using Machine = SampledFlowTracker::SftPexaFtHOCSM;

  Subject();

  void construct(const Start& start);
  void teardown() { machine_ = nullptr; }
  void notificationsOff() {
    if (machine_) machine_->hasNotificationActiveIs(false);
  }
  template <class Domain>
  void configIs(const typename Tables<Domain>::Config& record) {
    config->map<Domain>().insert(record);
  }
  template <class Domain>
  void configDel(const FlowTracking::HoFlowKey<Domain>& key) {
    config->map<Domain>().erase(key);
  }
  // As another process does it, whose changes have not been told here.
  template <class Domain>
  void configQuietlyIs(const typename Tables<Domain>::Config& record) {
    config->map<Domain>().table()->store(&record);
  }
  template <class Domain>
  void configQuietlyDel(const FlowTracking::HoFlowKey<Domain>& key) {
    config->map<Domain>().table()->erase(&key);
  }
  template <class Domain>
  void lookAgain() {
    config->collectionChanged(config->map<Domain>(), nullptr);
  }
  void budgetIs(std::uint32_t flows) {
    budget_ = flows;
    helper_->maxInHardwareFlowsIs(flows);
  }
  template <class Domain>
  void countPacket(const FlowTracking::FlowKey<Domain>& flow, const Pavo::IntfId& intfId,
                   std::uint32_t bytes) {
    counters_->counterIs<Domain>(flow)->hoCount(intfId, bytes);
  }
  void work(unsigned entries);
  std::size_t works() const { return scheduler_->due(); }
  void nowIs(double now) { clock_.nowIs(now); }

  // Null when there is none.
  const Machine* machine() const { return machine_.get(); }
  SampledFlowTracker::SftPexaDrovaHelper& helper() const { return *helper_; }
  const Pexa::Counter::PexaSftHoCounterCollection& counters() const { return *counters_; }
  // How often damage was reported by any of the tables.
  unsigned reports() const { return reports_; }

  const Kiv::Ptr<FlowTracking::HoFlowConfig> config = Kiv::makePtr<FlowTracking::HoFlowConfig>("config");
  const Kiv::Ptr<FlowTracking::HoFlowStatus> status = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  const Kiv::Ptr<FlowTracking::HoFlowCounter> counter = Kiv::makePtr<FlowTracking::HoFlowCounter>("counter");
  const Kiv::Ptr<FlowTracking::HosStateCounter> states =
      Kiv::makePtr<FlowTracking::HosStateCounter>("states");

 private:
  void newHelper();
  void newCounters();

  TestSupport::ManualClock clock_;
  Kiv::Ptr<Olt::TaskScheduler> scheduler_ = Kiv::makePtr<Olt::TaskScheduler>("twin");
  std::uint32_t budget_ = 0;
  unsigned reports_ = 0;
  Kiv::Ptr<SampledFlowTracker::SftPexaDrovaHelper> helper_;
  Kiv::Ptr<Pexa::Counter::PexaSftHoCounterCollection> counters_;
  Kiv::Ptr<Machine> machine_;
};

// Whether this is the build in which every yield point yields: every run does one entry then.
bool everyRunYields();

}  // namespace Naive
