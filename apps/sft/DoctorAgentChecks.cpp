// Checks of the agent, its plugins, ports and sampling.
#include <fmt/format.h>

#include "Doctor.h"
#include "Families.h"
#include "TrackerWords.h"

namespace Sft::DoctorChecks {
namespace {

using Kiv::Value;
using Object = Value::Object;

constexpr std::string_view kTrackingPath = "hardware/flowtracking/config/sampled";
constexpr std::string_view kSampledPath = "sflow/hwconfigdir/sampledflowtracker";

bool agentAnswers(const DoctorFacts& facts) {
  return facts.system.agent.standing == Standing::answers;
}
std::uint64_t wantedOf(const DoctorFacts& facts) {
  return facts.wanted[0] + facts.wanted[1];
}

// "[\"Ethernet1\"]", as `sft state set` takes it.
std::string listText(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& each : names) text += fmt::format("{}\"{}\"", text.empty() ? "" : ",", each);
  return '[' + text + ']';
}

// The flow tracker is the only writer of what is wanted as long as it runs.
std::string wantAnew(const DoctorFacts& facts) {
  std::string want = "sft flow want one of sft flows --state overflow anew";
  if (facts.system.tracker.standing == Standing::absent) return want;
  return fmt::format("systemctl stop flow-tracker; {}; systemctl start flow-tracker", want);
}

void noPorts(const DoctorFacts& facts, const std::set<std::string>& enabled, std::string_view direction,
             Findings& findings) {
  std::set<std::string> kept = enabled;
  std::erase_if(kept, [&](const std::string& each) { return !facts.system.agent.ports.contains(each); });
  for (const std::string& each : enabled) {
    if (kept.contains(each)) continue;
    findings.push_back(
        {Severity::warning, "interface-is-no-port",
         fmt::format("{} is enabled in {}, and the agent has no port of that name.", each, direction),
         Object{{"interface", each}, {"direction", direction}}, false,
         fmt::format("sft state set {} {}Interfaces {}", kSampledPath, direction,
                     shellWord(listText(kept)))});
  }
}

void regularSflow(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.regularSflow) return;
  findings.push_back({Severity::warning, "regular-sflow",
                      "Regular sFlow is on, and takes every interface from flow tracking.",
                      Object{{"path", "sflow/hwconfigdir/sflow"}, {"enabled", true}}, false,
                      "sft state set sflow/hwconfigdir/sflow enabled false"});
}

}  // namespace

void agent(const DoctorFacts& facts, Findings& findings) {
  const AgentFacts& agent = facts.system.agent;
  const Object record{{"runDir", facts.runDir.native()}, {"problem", agent.problem}};
  if (agent.standing == Standing::absent) {
    findings.push_back({Severity::error, "agent-not-running",
                        fmt::format("No agent runs, so that nothing is in hardware; {} offloads are wanted.",
                                    wantedOf(facts)),
                        record, false, "systemctl start pexa-agent"});
  } else if (agent.standing == Standing::silent) {
    findings.push_back({Severity::error, "agent-not-asked",
                        fmt::format("The agent could not be asked: {}.", agent.problem), record, false,
                        std::string(kRestartAgent)});
  }
}

void plugin(const DoctorFacts& facts, Findings& findings) {
  if (!agentAnswers(facts)) return;
  const AgentFacts& agent = facts.system.agent;
  switch (agent.plugin) {
    case AgentFacts::Plugin::absent:
      findings.push_back(
          {Severity::error, "no-plugin", "The agent runs without the flow tracking plugin.",
           Object{{"plugin", "libPexaSampledFlowTracker.so"}}, false,
           "add libPexaSampledFlowTracker.so to plugins in agent.toml; " + std::string(kRestartAgent)});
      return;
    case AgentFacts::Plugin::standby:
      findings.push_back({Severity::note, "agent-in-standby",
                          "The agent is in standby, and offloads nothing.", Object{{"mode", "standby"}},
                          false, "set mode = \"active\" in agent.toml; " + std::string(kRestartAgent)});
      return;
    case AgentFacts::Plugin::active:
      break;
  }
  if (agent.ready) return;
  findings.push_back({Severity::note, "reconciling", "The agent still reconciles what an earlier run left.",
                      Object{{"entity", "SampledFlowTracker.hocSm"}, {"ready", false}}, true, "sft tasks"});
}

void families(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  const AgentFacts& agent = facts.system.agent;
  const bool allOff = !agent.offloaded[0] && !agent.offloaded[1];
  for (std::size_t i = 0; i < agent.offloaded.size(); ++i) {
    if (agent.offloaded[i] || (facts.wanted[i] == 0 && !allOff)) continue;
    const std::string attribute(kFamilies[i].offloaded);
    findings.push_back({Severity::warning, "family-disabled",
                        fmt::format("The offload of {} is off, and {} offloads of it are wanted.{}",
                                    kFamilies[i].name, facts.wanted[i],
                                    agent.announced[i] ? "" : " The agent does not announce that it could."),
                        Object{{"path", kTrackingPath}, {attribute, false}}, false,
                        fmt::format("sft state set {} {} true", kTrackingPath, attribute)});
  }
}

void budget(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  constexpr std::string_view kSet = "sft attr set SampledFlowTracker.drovaHelper maxInHardwareFlows 2048";
  const std::uint64_t budget = facts.system.agent.budget;
  if (budget == 0) {
    findings.push_back({Severity::error, "budget-nothing", "The budget is 0: no flow comes into hardware.",
                        Object{{"entity", "SampledFlowTracker.drovaHelper"}, {"maxInHardwareFlows", budget}},
                        false, std::string(kSet)});
    return;
  }
  for (std::size_t i = 0; i < facts.system.waiting.size(); ++i) {
    const std::uint64_t in = facts.system.inHardware[i];
    const std::uint64_t waiting = facts.system.waiting[i];
    if (waiting == 0) continue;
    const Object record{
        {"family", kFamilies[i].name}, {"inHardware", in}, {"waiting", waiting}, {"budget", budget}};
    if (in < budget) {
      findings.push_back(
          {Severity::warning, "room-not-given",
           fmt::format("{} {} flows wait although there is room for {}: it is given away with the next "
                       "withdrawal only.",
                       waiting, kFamilies[i].name, budget - in),
           record, false, wantAnew(facts)});
    } else {
      findings.push_back({Severity::note, "budget-used-up",
                          fmt::format("All room for {} flows is used, {} of {} wait.", kFamilies[i].name,
                                      waiting, in + waiting),
                          record, true, ""});
    }
  }
}

void interfaces(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  const AgentFacts& agent = facts.system.agent;
  noPorts(facts, agent.ingress, "ingress", findings);
  noPorts(facts, agent.egress, "egress", findings);
  regularSflow(facts, findings);
  if (!agent.ingress.empty() || !agent.egress.empty()) return;
  findings.push_back(
      {Severity::warning, "no-interface-enabled", "No interface takes part in flow tracking.",
       Object{{"path", kSampledPath}}, false,
       fmt::format("sft state set {} ingressInterfaces {}", kSampledPath, shellWord(listText(agent.ports)))});
}

void ports(const DoctorFacts& facts, Findings& findings) {
  for (const Value& port : facts.ports) {
    const std::string name = memberAt(port, {"name"}).text();
    if (memberAt(port, {"replay"}) == Value("damaged")) {
      findings.push_back(
          {Severity::error, "capture-damaged",
           fmt::format("The capture of {} is damaged: {}.", name, memberAt(port, {"error"}).text()), port,
           false, ""});
    } else if (memberAt(port, {"up"}) == Value(false)) {
      findings.push_back({Severity::warning, "port-down", fmt::format("Port {} is down.", name), port, true,
                          fmt::format("ip link set {} up (the device of the port)", name)});
    }
    const std::uint64_t drops = countAt(port, {"dropsIn"}) + countAt(port, {"dropsOut"});
    if (drops != 0) {
      findings.push_back({Severity::warning, "port-drops",
                          fmt::format("Port {} has lost {} packets: {} coming in, {} going out.", name, drops,
                                      countAt(port, {"dropsIn"}), countAt(port, {"dropsOut"})),
                          port, false, ""});
    }
  }
}

void sampling(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  if (facts.system.agent.sampleRate == 0) {
    findings.push_back({Severity::warning, "sampling-off", "The sampling rate is 0: nothing is sampled.",
                        Object{{"path", kTrackingPath}, {"sampleRate", 0}}, false,
                        fmt::format("sft state set {} sampleRate 1000", kTrackingPath)});
  }
  for (const Value& each : facts.samples) {
    const std::uint64_t drops = countAt(each, {"drops"});
    if (drops == 0) continue;
    findings.push_back(
        {Severity::warning, "samples-dropped",
         fmt::format("{} of {} samples of {} in {} were dropped.", drops, countAt(each, {"samples"}),
                     memberAt(each, {"intfId"}).text(), memberAt(each, {"direction"}).text()),
         each, false, "sft collectors"});
  }
}

void collectors(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  if (!facts.collectors) return;
  if (facts.collectors->empty() && facts.system.agent.sampleRate != 0) {
    findings.push_back({Severity::warning, "no-collector",
                        "sFlow has no collector: samples go nowhere, and no flow tracker learns of them.",
                        Object{{"samples", facts.samples.size()}}, false,
                        "set collectors in [sflow] of agent.toml; " + std::string(kRestartAgent)});
  }
  for (const Value& each : *facts.collectors) {
    const std::uint64_t lost = countAt(each, {"lost"});
    if (lost == 0) continue;
    findings.push_back({Severity::warning, "collector-lost",
                        fmt::format("{} datagrams to the collector {} were lost or refused, {} were sent.",
                                    lost, memberAt(each, {"collector"}).text(), countAt(each, {"datagrams"})),
                        each, false, "start what listens there (flow-tracker, a collector)"});
  }
}

void stores(const DoctorFacts& facts, Findings& findings) {
  if (facts.system.agent.storesFailed == 0) return;
  findings.push_back(
      {Severity::error, "stores-failed",
       fmt::format("{} stores were not taken by a table: its file system is full, or another process "
                   "writes it; the agent's log has the reasons.",
                   facts.system.agent.storesFailed),
       Object{{"entity", "SampledFlowTracker.hocSm"}, {"storesFailed", facts.system.agent.storesFailed}},
       false, std::string(kRestartAgent)});
}

void watchers(const DoctorFacts& facts, Findings& findings) {
  struct Watched {
    std::string_view metric, kind, what;
    Severity severity;
    bool corrects;
  };
  constexpr Watched kWatched[] = {
      {"pexa_table_overruns_total", "watcher-behind",
       "fell so far behind the changes that it looked at everything again", Severity::note, true},
      {"pexa_table_corrupt_reads_total", "corrupt-reads", "met records that it could not read",
       Severity::error, false},
  };
  for (const Value& row : facts.metrics) {
    for (const Watched& each : kWatched) {
      if (memberAt(row, {"name"}) != Value(each.metric)) continue;
      const Value value = memberAt(row, {"value"});
      const double* number = value.as<double>();
      const std::uint64_t count =
          number != nullptr ? static_cast<std::uint64_t>(*number) : countAt(row, {"value"});
      if (count == 0) continue;
      findings.push_back({each.severity, each.kind,
                          fmt::format("The agent {}: {} times, in table {} {}.", each.what, count,
                                      memberAt(row, {"labels", "table"}).text(),
                                      memberAt(row, {"labels", "collection"}).text()),
                          row, each.corrects, each.corrects ? "" : "sft doctor (its damage findings)"});
    }
  }
}

}  // namespace Sft::DoctorChecks
