#include "AgentMetrics.h"

#include "quell/TableMetrics.h"

namespace Pexa {
namespace {

using Direction = Bridging::AllowedTrafficDirection;
using Metrics::Family;
using Metrics::Snapshot;

// The families of sampling, for each sampler in turn.
class SamplingFamilies {
 public:
  SamplingFamilies(Snapshot& snapshot, const AgentPorts& ports)
      : ports_(ports),
        rate_(snapshot.gauge("pexa_sampling_rate", "One packet in so many is sampled.")),
        pool_(snapshot.counter("pexa_sample_pool_packets_total", "Packets that could have been sampled.")),
        samples_(snapshot.counter("pexa_samples_total", "Samples taken.")),
        drops_(snapshot.counter("pexa_sample_drops_total", "Samples taken that did not get out.")) {}

  void add(const Sflow::SflowSamplerHelperBase& sampler, Direction direction) {
    const auto& states = sampler.states(direction);
    for (std::size_t index = 0; index < states.size() && index < ports_.all().size(); ++index) {
      const Sflow::SamplerState& state = states[index];
      if (state.rate == 0) continue;  // saw no packet that could have been sampled
      const Metrics::Labels labels{{"interface", std::string(ports_.all()[index].port->intfId().name())},
                                   {"direction", direction == Direction::ingress ? "ingress" : "egress"}};
      if (!rate_.numbers().contains(labels)) rate_.add(labels, state.rate);  // of two samplers, the first
      pool_.add(labels, state.pool);
      samples_.add(labels, state.samples);
      drops_.add(labels, state.drops);
    }
  }

 private:
  const AgentPorts& ports_;
  Family& rate_;
  Family& pool_;
  Family& samples_;
  Family& drops_;
};

}  // namespace

AgentMetrics::AgentMetrics(const Parts& parts)
    : parts_(parts), slice_(parts.slices.kindIs("metrics")), started_(Kiv::System::currentTimeUtc()) {}

Metrics::Snapshot AgentMetrics::snapshot() {
  parts_.slices.begin();
  Snapshot snapshot;
  processInto(snapshot);
  portsInto(snapshot);
  reasonsInto(snapshot);
  samplingInto(snapshot);
  collectorsInto(snapshot);
  tasksInto(snapshot);
  Quell::metricsInto(parts_.tables, snapshot);
  parts_.slices.metricsInto(snapshot);
  for (const auto& plugin : parts_.manager.plugins()) plugin->metricsInto(snapshot);
  parts_.slices.ended(slice_);
  return snapshot;
}

void AgentMetrics::processInto(Snapshot& snapshot) const {
  snapshot.gauge("pexa_build_info", "The agent that runs.").add({{"version", PEXA_VERSION}}, 1);
  snapshot.gauge("process_start_time_seconds", "When the agent was started, in seconds since 1970.")
      .add(started_);
}

void AgentMetrics::portsInto(Snapshot& snapshot) const {
  auto& packets =
      snapshot.counter("pexa_port_packets_total", "Packets that came in by a port, or left by it.");
  auto& bytes = snapshot.counter("pexa_port_bytes_total", "Bytes of these packets on the wire.");
  auto& drops = snapshot.counter("pexa_port_drops_total",
                                 "Packets that were lost before they could be received, or sent.");
  auto& up = snapshot.gauge("pexa_port_up", "Whether packets can pass: 1 or 0.");
  for (const AgentPort& port : parts_.ports.all()) {
    port.device->refresh();
    const Capture::PortCounts& counts = port.device->counts();
    const std::string& name = port.port->name();
    packets.add({{"port", name}, {"direction", "in"}}, counts.packetsIn);
    packets.add({{"port", name}, {"direction", "out"}}, counts.packetsOut);
    bytes.add({{"port", name}, {"direction", "in"}}, counts.bytesIn);
    bytes.add({{"port", name}, {"direction", "out"}}, counts.bytesOut);
    drops.add({{"port", name}, {"direction", "in"}}, counts.dropsIn);
    drops.add({{"port", name}, {"direction", "out"}}, counts.dropsOut);
    up.add({{"port", name}}, port.device->up() ? 1 : 0);
  }
}

void AgentMetrics::reasonsInto(Snapshot& snapshot) const {
  auto& reasons =
      snapshot.counter("pexa_reasons_total", "Packets by why they were treated as they were: sft reasons.");
  for (const NamedCounters::Count& count : parts_.reasons.all()) {
    reasons.add({{"category", count.category}, {"source", count.source}, {"reason", count.reason}},
                count.count);
  }
}

void AgentMetrics::samplingInto(Snapshot& snapshot) const {
  SamplingFamilies families(snapshot, parts_.ports);
  for (const Sflow::SflowSamplerHelperBase* sampler : parts_.exporter.samplers()) {
    families.add(*sampler, Direction::ingress);
    families.add(*sampler, Direction::egress);
  }
}

void AgentMetrics::collectorsInto(Snapshot& snapshot) const {
  auto& sent = snapshot.counter("pexa_sflow_datagrams_total", "sFlow datagrams that went to a collector.");
  auto& lost = snapshot.counter("pexa_sflow_datagrams_lost_total",
                                "sFlow datagrams that did not get out, or that the collector refused.");
  for (const auto& collector : parts_.exporter.collectors()) {
    const Metrics::Labels labels{{"collector", collector.channel->name()}};
    sent.add(labels, collector.datagrams);
    lost.add(labels, collector.lost);
  }
}

void AgentMetrics::tasksInto(Snapshot& snapshot) const {
  auto& runs = snapshot.counter("pexa_task_runs_total", "Runs of a task.");
  auto& entries = snapshot.counter("pexa_task_entries_total", "Entries that a task's runs did.");
  auto& pending = snapshot.gauge("pexa_task_pending", "Entries that a task has left, where it tells.");
  for (const Olt::Task* task : parts_.tasks.tasks()) {
    const Metrics::Labels labels{{"task", task->name()}};
    runs.add(labels, task->runs());
    entries.add(labels, task->workCount());
    pending.add(labels, task->workPending());
  }
}

}  // namespace Pexa
