// What the plugin tells of itself: the numbers of its children, under their names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "Metrics.h"
#include "SftPexaPlugin/SftPexaPlugin.h"
#include "quell/TableFile.h"

namespace SampledFlowTracker {
namespace {

using Bridging::AllowedTrafficDirection;
using Metrics::Labels;
using Pexa::Counter::OffloadOutcome;

template <class Domain>
class PluginMetrics : public testing::Test {
 protected:
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;

  PluginMetrics() {
    for (Quell::Container* container : std::initializer_list<Quell::Container*>{
             config_.get(), status_.get(), counter_.get(), states_.get()})
      for (Quell::MapBase* map : container->collections()) Quell::attachAnonymous(*map);
    plugin_->hosStateCounterIs(states_);
  }
  void start(Zun::SynchronousChoice choice = Zun::SynchronousChoice::synchronous) {
    Zun::SmControl control;
    control.synchronous = choice;
    plugin_->localHoCountersIs("counters");
    plugin_->drovaHelperIs(states_)->maxInHardwareFlowsIs(2);
    plugin_->hocSmIs(config_, status_, counter_, states_, plugin_->localHoCounters(), plugin_->drovaHelper(),
                     control);
  }
  static FlowTracking::FlowKey<Domain> flow(std::uint16_t port) {
    FlowTracking::FlowKey<Domain> key;
    key.srcPort = port;
    return key;
  }
  static FlowTracking::HoFlowKey<Domain> key(std::uint16_t port) {
    return {flow(port), AllowedTrafficDirection::ingress, Pavo::IntfId("Ethernet1")};
  }
  void want(std::uint16_t port) {
    FlowTracking::HoFlowConfigRecord<Domain> record;
    record.key = key(port);
    config_->map<Domain>().insert(record);
  }
  Metrics::Snapshot snapshot() const {
    Metrics::Snapshot result;
    plugin_->metricsInto(result);
    return result;
  }
  // None when it is not there.
  std::optional<double> number(const std::string& name, const Labels& labels) const {
    const Metrics::Snapshot all = snapshot();
    const auto family = all.families().find(name);
    if (family == all.families().end()) return std::nullopt;
    const auto found = family->second.numbers().find(labels);
    return found == family->second.numbers().end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<double> ofFamily(const std::string& name, Labels labels = {}) const {
    labels.insert(labels.begin(), {"family", kV4 ? "IPv4" : "IPv6"});
    return number(name, labels);
  }

  Kiv::Ptr<SftPexaPlugin> plugin_ = SftPexaPlugin::SftPexaPluginIs("SampledFlowTracker");
  Kiv::Ptr<FlowTracking::HoFlowConfig> config_ = Kiv::makePtr<FlowTracking::HoFlowConfig>("config");
  Kiv::Ptr<FlowTracking::HoFlowStatus> status_ = Kiv::makePtr<FlowTracking::HoFlowStatus>("status");
  Kiv::Ptr<FlowTracking::HoFlowCounter> counter_ = Kiv::makePtr<FlowTracking::HoFlowCounter>("counter");
  Kiv::Ptr<FlowTracking::HosStateCounter> states_ = Kiv::makePtr<FlowTracking::HosStateCounter>("states");
};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(PluginMetrics, Families);

TYPED_TEST(PluginMetrics, BudgetStatesAndChangesAreTold) {
  this->start();
  for (std::uint16_t port = 1; port <= 4; ++port) this->want(port);
  this->config_->template map<TypeParam>().erase(this->key(4));
  EXPECT_EQ(this->ofFamily("sft_hardware_flows_max"), 2);
  EXPECT_EQ(this->ofFamily("sft_flows", {{"state", "in-hardware"}}), 2);
  EXPECT_EQ(this->ofFamily("sft_flows", {{"state", "overflow"}}), 1);
  EXPECT_EQ(this->ofFamily("sft_overflow_entries"), 1);
  EXPECT_EQ(this->ofFamily("sft_admissions_total"), 2);
  EXPECT_EQ(this->ofFamily("sft_promotions_total"), 0);
  EXPECT_EQ(this->ofFamily("sft_overflows_total"), 2);
  EXPECT_EQ(this->ofFamily("sft_withdrawals_total"), 1);
  this->config_->template map<TypeParam>().erase(this->key(1));
  EXPECT_EQ(this->ofFamily("sft_promotions_total"), 1);
}

TYPED_TEST(PluginMetrics, EachOutcomeOfAPacketIsTold) {
  this->start();
  auto& outcomes = this->plugin_->localHoCounters()->outcomes();
  outcomes.template inc<TypeParam>(AllowedTrafficDirection::ingress, OffloadOutcome::offloaded);
  outcomes.template inc<TypeParam>(AllowedTrafficDirection::egress, OffloadOutcome::noStatus);
  outcomes.template inc<TypeParam>(AllowedTrafficDirection::egress, OffloadOutcome::notInHardware);
  outcomes.template inc<TypeParam>(AllowedTrafficDirection::egress, OffloadOutcome::notTcpOrUdp);
  outcomes.otherInc(AllowedTrafficDirection::ingress);
  const auto packets = [this](const char* direction, const char* outcome) {
    return this->ofFamily("sft_packets_total", {{"direction", direction}, {"outcome", outcome}});
  };
  EXPECT_EQ(packets("ingress", "offloaded"), 1);
  EXPECT_EQ(packets("egress", "offloaded"), 0);
  EXPECT_EQ(packets("egress", "no_flow_status"), 1);
  EXPECT_EQ(packets("egress", "not_in_hardware"), 1);
  EXPECT_EQ(packets("egress", "not_tcp_or_udp"), 1);
  EXPECT_EQ(
      this->number("sft_packets_total",
                   {{"family", "other"}, {"direction", "ingress"}, {"outcome", "not_offloaded_family"}}),
      1);
}

TYPED_TEST(PluginMetrics, LocalCountersAreCounted) {
  this->start();
  this->plugin_->localHoCounters()->counterIs(this->flow(1));
  EXPECT_EQ(this->ofFamily("sft_local_counters"), 1);
}

TYPED_TEST(PluginMetrics, ReconciliationTellsWhatItDid) {
  FlowTracking::HoFlowStatusRecord<TypeParam> left;
  for (std::uint16_t port = 1; port <= 2; ++port) {
    left.key = this->key(port);
    this->status_->template map<TypeParam>().insert(left);
  }
  this->want(1);
  this->start();
  const Labels labels{
      {"output", this->kV4 ? "hoFlowStatusHoIpFlowStatusOutput" : "hoFlowStatusHoIp6FlowStatusOutput"}};
  EXPECT_EQ(this->number("sft_reconciliation_pending", labels), 0);
  EXPECT_EQ(this->number("sft_reconciliation_entries_total", labels), 2);
  EXPECT_EQ(this->number("sft_reconciliation_deletions_total", labels), 1);
  EXPECT_EQ(this->number("sft_stores_failed_total", labels), 0);
}

TYPED_TEST(PluginMetrics, AnOutputIsPendingUntilItIsReady) {
  this->start(Zun::SynchronousChoice::tasks);
  for (const OutputId id : kReadyChain) {
    EXPECT_EQ(this->number("sft_reconciliation_pending", {{"output", std::string(nameOf(id))}}), 1);
  }
}

TYPED_TEST(PluginMetrics, DamagedStatesAreReportedAndTheOtherNumbersAreTold) {
  this->start();
  this->want(1);
  auto& map = this->states_->template map<TypeParam>();
  map.table()->file()->records()[8 + offsetof(FlowTracking::HosStateCounterEntry, count)] ^= std::byte{1};
  const auto reported = map.corruptions();
  EXPECT_EQ(this->ofFamily("sft_flows", {{"state", "in-hardware"}}), std::nullopt);
  EXPECT_EQ(map.corruptions(), reported + 1);
  EXPECT_EQ(this->ofFamily("sft_admissions_total"), 1);
}

TYPED_TEST(PluginMetrics, WithoutChildrenThereAreNoNumbersOfThem) {
  EXPECT_EQ(this->ofFamily("sft_admissions_total"), std::nullopt);
  EXPECT_EQ(this->snapshot().families().size(), 1U) << "the published states";
}

}  // namespace
}  // namespace SampledFlowTracker
