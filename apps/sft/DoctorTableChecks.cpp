// Checks of the shared tables and of the run directory.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "Doctor.h"
#include "Output.h"
#include "PublishedTables.h"
#include "TrackerWords.h"

namespace Sft::DoctorChecks {
namespace {

using Kiv::Value;
using Object = Value::Object;
using namespace FlowTracking;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

constexpr double kLittle = 0.1;  // of a file system
constexpr double kNearlyNothing = 0.02;

struct Place {
  std::string path;
  std::string_view collection;
};

// What the agent writes, and what it reads.
std::vector<Place> written() {
  const auto status = tablePath<HoFlowStatus>();
  const auto counter = tablePath<HoFlowCounter>();
  const auto states = tablePath<HosStateCounter>();
  return {{status, IpFamily<IPv4>::kStatusCollection},   {status, IpFamily<IPv6>::kStatusCollection},
          {counter, IpFamily<IPv4>::kCounterCollection}, {counter, IpFamily<IPv6>::kCounterCollection},
          {states, IpFamily<IPv4>::kStateCollection},    {states, IpFamily<IPv6>::kStateCollection}};
}

const WalkedTable* find(const DoctorFacts& facts, const Place& place) {
  const auto found = std::find_if(facts.tables.begin(), facts.tables.end(), [&](const WalkedTable& each) {
    return each.status.path == place.path && each.status.collection == place.collection;
  });
  return found == facts.tables.end() ? nullptr : &*found;
}

Object placeOf(const WalkedTable& table) {
  return {{"path", table.status.path}, {"collection", table.status.collection}};
}

// Who repairs a table: its next writer reads it whole before it writes.
std::string repairOf(const WalkedTable& table) {
  return table.status.path == tablePath<HoFlowConfig>()
             ? std::string(kRestartTracker) + " (its start repairs the table), or sft flow want the flow anew"
             : std::string(kRestartAgent) + " (its start repairs the table)";
}

Value examples(const FlowDoubts::Kind& kind) {
  return Object{{"flows", kind.count}, {"examples", Value::List(kind.examples)}};
}

}  // namespace

void mounts(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  std::vector<Place> expected = written();
  expected.push_back({tablePath<HoFlowConfig>(), IpFamily<IPv4>::kConfigCollection});
  expected.push_back({tablePath<HoFlowConfig>(), IpFamily<IPv6>::kConfigCollection});
  for (const Place& place : expected) {
    if (find(facts, place) != nullptr) continue;
    findings.push_back(
        {Severity::error, "table-missing",
         fmt::format("{} {} is missing, although an agent runs that mounted it: somebody has taken "
                     "its file away.",
                     place.path, place.collection),
         Object{{"path", place.path}, {"collection", place.collection}}, false, std::string(kRestartAgent)});
  }
}

void damage(const DoctorFacts& facts, Findings& findings) {
  for (const WalkedTable& table : facts.tables) {
    if (!table.status.problem.empty()) {
      Object record = placeOf(table);
      record.emplace_back("problem", table.status.problem);
      findings.push_back({Severity::error, "table-unusable", table.status.problem + '.', record, false,
                          fmt::format("rm {}; {}",
                                      shellWord((facts.runDir / "tables" / table.status.path.c_str() /
                                                 table.status.collection.c_str())
                                                    .native()),
                                      kRestartAgent)});
    }
    for (const std::string& each : table.damages) {
      Object record = placeOf(table);
      record.emplace_back("damage", each);
      findings.push_back({Severity::error, "damage", each + '.', record, false, repairOf(table)});
    }
  }
}

void writers(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads() || !facts.system.agent.ready || facts.agentProcess == 0) return;
  for (const Place& place : written()) {
    const WalkedTable* table = find(facts, place);
    if (table == nullptr || !table->status.problem.empty()) continue;
    const std::uint64_t writer = table->status.writer;
    Object record = placeOf(*table);
    record.emplace_back("writer", writer == 0 ? Value() : Value(writer));
    record.emplace_back("agent", facts.agentProcess);
    if (writer != 0 && writer != facts.agentProcess) {
      findings.push_back({Severity::error, "writer-other",
                          fmt::format("{} {} is written by process {}, not by the agent, process {}.",
                                      place.path, place.collection, writer, facts.agentProcess),
                          record, false, fmt::format("kill {}; {}", writer, kRestartAgent)});
    } else if (writer == 0 && table->status.entries != 0 && place.path == tablePath<HoFlowStatus>()) {
      findings.push_back({Severity::warning, "writer-gone",
                          fmt::format("{} {} has records and no writer, although the agent is ready.",
                                      place.path, place.collection),
                          record, false, std::string(kRestartAgent)});
    }
  }
}

void audit(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads()) return;
  if (!facts.auditProblem.empty()) {
    findings.push_back({Severity::note, "audit-not-done",
                        fmt::format("The agent was not audited: {}.", facts.auditProblem),
                        Object{{"problem", facts.auditProblem}}, false, "sft audit"});
  }
  // What `sft audit --repair` puts right; the rest goes when its offload is withdrawn.
  constexpr std::array<std::string_view, 4> kRepaired{"per-state count", "references of a counter",
                                                      "counter without a status",
                                                      "local counter without a status"};
  for (const Value& each : facts.audit) {
    const std::string kind = memberAt(each, {"kind"}).text();
    if (kind == "damage") continue;  // told by the walks over the tables
    const bool repaired = std::find(kRepaired.begin(), kRepaired.end(), kind) != kRepaired.end();
    findings.push_back(
        {Severity::warning, "audit-difference",
         fmt::format("{}, {} {}: found {}, expected {}.", memberAt(each, {"family"}).text(), kind,
                     memberAt(each, {"key"}).text(), memberAt(each, {"found"}).text(),
                     memberAt(each, {"expected"}).text()),
         each, false,
         repaired ? "sft audit --repair"
                  : "sft flow unwant and sft flow want of the flow (or the tracker's next withdrawal)"});
  }
}

void flows(const DoctorFacts& facts, Findings& findings) {
  if (!facts.system.agent.offloads() || !facts.system.agent.ready) return;
  if (facts.flows.unseen.count != 0) {
    findings.push_back(
        {Severity::error, "wanted-not-seen",
         fmt::format("{} offloads are wanted for more than 10 seconds, and the agent has given them no "
                     "status: it is busy, or a damaged record keeps it from them.",
                     facts.flows.unseen.count),
         examples(facts.flows.unseen), false, std::string(kRestartAgent)});
  }
  if (facts.flows.notWanted.count != 0) {
    findings.push_back(
        {Severity::warning, "status-not-wanted",
         fmt::format("{} flows have a status and are not wanted; the agent is about to take them away, "
                     "or has missed that.",
                     facts.flows.notWanted.count),
         examples(facts.flows.notWanted), true, std::string(kRestartAgent) + ", when it stays"});
  }
}

void clock(const DoctorFacts& facts, Findings& findings) {
  if (facts.flows.future.count == 0) return;
  findings.push_back(
      {Severity::warning, "clock-skew",
       fmt::format("The records of {} flows have times that lie ahead of this clock ({}): it was set "
                   "back, or their writer's runs ahead.",
                   facts.flows.future.count, timeText(facts.now)),
       examples(facts.flows.future), true, "timedatectl"});
}

void space(const DoctorFacts& facts, Findings& findings) {
  if (facts.spaceAll == 0) return;
  const double free = static_cast<double>(facts.spaceFree) / static_cast<double>(facts.spaceAll);
  if (free >= kLittle) return;
  findings.push_back(
      {free < kNearlyNothing ? Severity::error : Severity::warning, "space-low",
       fmt::format("{:.0f} of {:.0f} MiB are free where the run directory is: tables that cannot grow "
                   "refuse stores.",
                   static_cast<double>(facts.spaceFree) / (1 << 20),
                   static_cast<double>(facts.spaceAll) / (1 << 20)),
       Object{{"runDir", facts.runDir.native()}, {"free", facts.spaceFree}, {"all", facts.spaceAll}}, false,
       fmt::format("mount -o remount,size=... {}", shellWord(facts.runDir.native()))});
}

void files(const DoctorFacts& facts, Findings& findings) {
  constexpr std::array<std::string_view, 4> kKnown{"agent.lock", "trace.ring", "control.sock",
                                                   "flow-tracker.sock"};
  for (const std::string& file : facts.files) {
    const Object record{{"file", file}};
    const std::string remove = fmt::format("rm {}", shellWord((facts.runDir / file).native()));
    const bool deserted = (file == "control.sock" && facts.system.agent.standing == Standing::absent) ||
                          (file == "flow-tracker.sock" && facts.system.tracker.standing == Standing::absent);
    if (deserted) {
      findings.push_back(
          {Severity::note, "socket-deserted",
           fmt::format("{} is there, and nobody serves it: its program was killed; its next start "
                       "replaces it.",
                       file),
           record, true, remove});
    } else if (std::find(kKnown.begin(), kKnown.end(), file) == kKnown.end()) {
      findings.push_back({Severity::note, "file-left-over",
                          fmt::format("{} belongs to none of the programs of a run directory.", file), record,
                          false, remove});
    }
  }
}

}  // namespace Sft::DoctorChecks
