// The plugin's numbers. All are kept where they arise; here they get their names.
#include "SftPexaPlugin.h"

namespace SampledFlowTracker {

namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::IpFamily;
using Metrics::Family;
using Metrics::Labels;
using Metrics::Snapshot;
using Pexa::Counter::OffloadOutcome;

// Calls call(Domain()) for each family.
template <class Call>
void forEachFamily(const Call& call) {
  call(Pavo::Traits::IPv4());
  call(Pavo::Traits::IPv6());
}

template <class Domain>
std::string familyName(Domain) {
  return std::string(IpFamily<Domain>::kName);
}

std::string stateName(FlowTracking::HoFlowState state) {
  using FlowTracking::HoFlowState;
  switch (state) {
    case HoFlowState::none:
      return "none";
    case HoFlowState::pending:
      return "pending";
    case HoFlowState::inHardware:
      return "in-hardware";
    case HoFlowState::overflow:
      return "overflow";
  }
  return std::to_string(unsigned(state));
}

void outcomesInto(Snapshot& snapshot, const Pexa::Counter::OffloadOutcomes& outcomes) {
  static constexpr std::pair<OffloadOutcome, std::string_view> kOutcomes[] = {
      {OffloadOutcome::offloaded, "offloaded"},
      {OffloadOutcome::noStatus, "no_flow_status"},
      {OffloadOutcome::notInHardware, "not_in_hardware"},
      {OffloadOutcome::notTcpOrUdp, "not_tcp_or_udp"}};
  static constexpr std::pair<AllowedTrafficDirection, std::string_view> kDirections[] = {
      {AllowedTrafficDirection::ingress, "ingress"}, {AllowedTrafficDirection::egress, "egress"}};
  Family& packets = snapshot.counter("sft_packets_total",
                                     "Packets that the offload decision looked at, by what it made of them.");
  const auto labels = [](std::string family, std::string_view direction, std::string_view outcome) {
    return Labels{{"family", std::move(family)},
                  {"direction", std::string(direction)},
                  {"outcome", std::string(outcome)}};
  };
  for (const auto& each : kDirections) {
    const auto direction = each.first;
    const auto directionName = each.second;
    forEachFamily([&]<class Domain>(Domain family) {
      for (const auto& [outcome, name] : kOutcomes)
        packets.add(labels(familyName(family), directionName, name),
                    outcomes.count<Domain>(direction, outcome));
    });
    packets.add(labels("other", directionName, "not_offloaded_family"), outcomes.others(direction));
  }
}

void budgetInto(Snapshot& snapshot, const SftPexaDrovaHelper& helper) {
  Family& budget =
      snapshot.gauge("sft_hardware_flows_max", "Flows of a family that may be in hardware at a time.");
  Family& waiting = snapshot.gauge("sft_overflow_entries", "Flows that wait for room in hardware.");
  forEachFamily([&]<class Domain>(Domain family) {
    budget.add({{"family", familyName(family)}}, helper.maxInHardwareFlows());
    waiting.add({{"family", familyName(family)}}, helper.overflow<Domain>().size());
  });
}

// A table that is damaged tells what can be read of it.
template <class Domain>
void statesOf(const FlowTracking::HosStateCounter& counts, Family& flows, Domain family) {
  const auto& map = counts.map<Domain>();
  FlowTracking::HosStateCounterEntry entry;
  try {
    for (bool more = map.first(entry); more; more = map.after(entry.key, entry))
      flows.add({{"family", familyName(family)}, {"state", stateName(entry.key.state)}}, entry.count);
  } catch (const Fenn::CorruptionDetectedException& damage) {
    map.doCorruptionDetected(damage.what());
  }
}

void statesInto(Snapshot& snapshot, const FlowTracking::HosStateCounter& counts) {
  Family& flows = snapshot.gauge("sft_flows", "Wanted offloads by state, as they are published: sft states.");
  forEachFamily([&](auto family) { statesOf(counts, flows, family); });
}

void changesInto(Snapshot& snapshot, const SftPexaFtHOCSM& machine) {
  Family& admissions =
      snapshot.counter("sft_admissions_total", "Flows that came into hardware, promoted ones among them.");
  Family& promotions = snapshot.counter("sft_promotions_total",
                                        "Flows that came into hardware after they had waited for room.");
  Family& overflows = snapshot.counter("sft_overflows_total", "Flows that came to wait for room.");
  Family& withdrawals =
      snapshot.counter("sft_withdrawals_total", "Flows that were withdrawn, in hardware or waiting.");
  forEachFamily([&]<class Domain>(Domain family) {
    const FlowChanges& changes = machine.flowChanges<Domain>();
    const Labels labels{{"family", familyName(family)}};
    admissions.add(labels, changes.admissions);
    promotions.add(labels, changes.promotions);
    overflows.add(labels, changes.overflows);
    withdrawals.add(labels, changes.withdrawals);
  });
}

void outputsInto(Snapshot& snapshot, const SftPexaFtHOCSM& machine) {
  Family& pending =
      snapshot.gauge("sft_reconciliation_pending",
                     "Whether an output has still to be brought in line after the start: 1 or 0.");
  Family& entries = snapshot.counter("sft_reconciliation_entries_total",
                                     "Entries of an earlier run that were looked through.");
  Family& deletions = snapshot.counter("sft_reconciliation_deletions_total",
                                       "Entries of an earlier run that were deleted, nobody wanting them.");
  Family& failed =
      snapshot.counter("sft_stores_failed_total", "Stores that the table of an output did not take.");
  for (const OutputId id : kReadyChain) {
    const OutputBase& output = machine.output(id);
    const Labels labels{{"output", std::string(nameOf(id))}};
    pending.add(labels, output.ready() ? 0 : 1);
    entries.add(labels, output.reconciled());
    deletions.add(labels, output.reconciliationDeletions());
    failed.add(labels, output.storesFailed());
  }
}

void localCountersInto(Snapshot& snapshot, const Pexa::Counter::PexaSftHoCounterCollection& counters) {
  Family& records = snapshot.gauge("sft_local_counters", "Flows that the packet path has counters of.");
  forEachFamily([&]<class Domain>(Domain family) {
    records.add({{"family", familyName(family)}}, counters.counters<Domain>().size());
  });
}

}  // namespace

void SftPexaPlugin::metricsInto(Snapshot& snapshot) const {
  if (const auto& counters = localHoCounters()) {
    outcomesInto(snapshot, counters->outcomes());
    localCountersInto(snapshot, *counters);
  }
  if (const auto& helper = drovaHelper()) budgetInto(snapshot, *helper);
  if (const auto& counts = hosStateCounter()) statesInto(snapshot, *counts);
  if (const auto& machine = hocSm()) {
    changesInto(snapshot, *machine);
    outputsInto(snapshot, *machine);
  }
}

}  // namespace SampledFlowTracker
