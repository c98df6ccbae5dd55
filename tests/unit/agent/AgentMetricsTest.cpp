// The agent's own numbers, and those that plugins add.
#include "agent/AgentMetrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Mirro.h"
#include "TempDir.h"

namespace {

using Direction = Bridging::AllowedTrafficDirection;
using Metrics::Labels;

class Sampler : public Sflow::SflowSamplerHelperBase {
 public:
  explicit Sampler(const Kiv::Ptr<const Pexa::Ports>& ports)
      : SflowSamplerHelperBase("sampler", {}, ports, {}) {}
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  std::uint32_t ingressSampleRate() const override { return 1; }
  std::uint32_t egressSampleRate() const override { return 0; }
  bool samplingWanted(Direction, const Pavo::IntfId&) const override { return true; }
};

class MillPlugin : public Pexa::PexaPluginBase {
 public:
  using PexaPluginBase::PexaPluginBase;
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  void doMounts(const Kiv::Ptr<Pexa::PluginContext>&) override {}
  void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>&) override {}
  void activeInit(Pexa::PexaMode) override {}
  void metricsInto(Metrics::Snapshot& snapshot) const override {
    snapshot.counter("mill_sacks_total", "Sacks.").add(++asked_);
  }

 private:
  mutable unsigned asked_ = 0;
};

class AgentMetricsTest : public testing::Test {
 protected:
  AgentMetricsTest() {
    ports_.openWriters();
    ports_.table()->sampleReceiverIs(&exporter_);
  }
  ~AgentMetricsTest() override { manager_->pluginDelAll(); }

  static Pexa::AgentConfig config() {
    Pexa::AgentConfig result;
    Pexa::PortConfig port;
    port.name = "Ethernet1";
    port.kind = Capture::PortKind::write;
    port.source = "/dev/null";
    result.ports.push_back(port);
    return result;
  }
  // The number of a family under these labels; none when it is not there.
  std::optional<double> number(const std::string& name, const Labels& labels = {}) {
    const Metrics::Snapshot snapshot = metrics_.snapshot();
    const auto family = snapshot.families().find(name);
    if (family == snapshot.families().end()) return std::nullopt;
    const auto found = family->second.numbers().find(labels);
    return found == family->second.numbers().end() ? std::nullopt : std::optional(found->second);
  }

  TestSupport::TempDir dir_;
  Pexa::AgentPorts ports_{config()};
  Kiv::Ptr<Pexa::PluginManager> manager_ = Kiv::makePtr<Pexa::PluginManager>("manager");
  Pexa::NamedCounters reasons_;
  Sflow::SflowExporter exporter_{Sflow::ExporterConfig{}};
  Kiv::Ptr<Olt::TaskScheduler> tasks_ = Kiv::makePtr<Olt::TaskScheduler>("tasks");
  Kiv::Ptr<Quell::SharedTables> tables_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Pexa::LoopSlices slices_;
  Pexa::AgentMetrics metrics_{{*manager_, ports_, reasons_, exporter_, *tasks_, *tables_, slices_}};
};

TEST_F(AgentMetricsTest, PortsTellPacketsBytesDropsAndWhetherTheyAreUp) {
  const std::array<std::uint8_t, 60> frame{};
  ports_.all()[0].device->transmit(Pavo::Pkt(frame.data(), frame.size(), 100), 0);
  EXPECT_EQ(number("pexa_port_packets_total", {{"port", "Ethernet1"}, {"direction", "out"}}), 1);
  EXPECT_EQ(number("pexa_port_packets_total", {{"port", "Ethernet1"}, {"direction", "in"}}), 0);
  EXPECT_EQ(number("pexa_port_bytes_total", {{"port", "Ethernet1"}, {"direction", "out"}}), 100);
  EXPECT_EQ(number("pexa_port_drops_total", {{"port", "Ethernet1"}, {"direction", "out"}}), 0);
  EXPECT_EQ(number("pexa_port_up", {{"port", "Ethernet1"}}), 1);
}

TEST_F(AgentMetricsTest, EachReasonIsANumber) {
  reasons_.count("Drop", "Sft", "No flow status");
  reasons_.count("Drop", "Sft", "No flow status");
  EXPECT_EQ(
      number("pexa_reasons_total", {{"category", "Drop"}, {"source", "Sft"}, {"reason", "No flow status"}}),
      2);
}

TEST_F(AgentMetricsTest, SamplingIsToldOfInterfacesThatSawPackets) {
  const auto sampler = Kiv::makePtr<Sampler>(ports_.table());
  const Labels in{{"interface", "Ethernet1"}, {"direction", "ingress"}};
  EXPECT_EQ(number("pexa_samples_total", in), std::nullopt);
  const std::array<std::uint8_t, 60> frame{};
  sampler->maybeSampleIngress(Pavo::Pkt(frame.data(), frame.size(), 60), ports_.table()->all()[0]);
  EXPECT_EQ(number("pexa_sampling_rate", in), 1);
  EXPECT_EQ(number("pexa_sample_pool_packets_total", in), 1);
  EXPECT_EQ(number("pexa_samples_total", in), 1);
  EXPECT_EQ(number("pexa_sample_drops_total", in), 0);
  EXPECT_EQ(number("pexa_samples_total", {{"interface", "Ethernet1"}, {"direction", "egress"}}),
            std::nullopt);
}

TEST_F(AgentMetricsTest, TasksOfOneNameAreOne) {
  const auto first = tasks_->taskIs("scan", 1);
  const auto second = tasks_->taskIs("scan", 1);
  first->taskWorkCountInc(3);
  first->taskWorkPendingIs(7);
  second->taskWorkCountInc(4);
  EXPECT_EQ(number("pexa_task_entries_total", {{"task", "scan"}}), 7);
  EXPECT_EQ(number("pexa_task_pending", {{"task", "scan"}}), 7);
  EXPECT_EQ(number("pexa_task_runs_total", {{"task", "scan"}}), 0);
}

TEST_F(AgentMetricsTest, APluginIsAskedWhileItHasJoined) {
  manager_->pluginIs(Kiv::makePtr<MillPlugin>("Mill"));
  EXPECT_EQ(number("mill_sacks_total"), 1);
  EXPECT_EQ(number("mill_sacks_total"), 2);
  manager_->pluginDelAll();
  EXPECT_EQ(number("mill_sacks_total"), std::nullopt);
}

TEST_F(AgentMetricsTest, TheProcessTellsItsVersionAndStart) {
  const auto snapshot = metrics_.snapshot();
  EXPECT_EQ(snapshot.families().at("pexa_build_info").numbers().begin()->first.at(0).first, "version");
  const double started = *number("process_start_time_seconds");
  EXPECT_GT(started, 0);
  EXPECT_LE(started, Kiv::System::currentTimeUtc());
}

TEST_F(AgentMetricsTest, ASnapshotIsASliceOfTheLoop) {
  metrics_.snapshot();
  const auto slices = metrics_.snapshot().families().at("pexa_loop_slice_seconds").histograms();
  EXPECT_EQ(slices.at({{"work", "metrics"}}).count(), 1U) << "the one before";
}

}  // namespace
