// Checks of the flow tracker.
#include <fmt/format.h>

#include <algorithm>

#include "Doctor.h"
#include "FlowWords.h"
#include "TrackerWords.h"

namespace Sft::DoctorChecks {
namespace {

using Kiv::Value;
using Object = Value::Object;

constexpr double kSilence = 60;  // seconds; counter samples come three times as often

bool trackerAnswers(const DoctorFacts& facts) {
  return facts.system.tracker.standing == Standing::answers;
}
const Value& statistics(const DoctorFacts& facts) {
  return facts.system.tracker.statistics;
}

// A finding for a counter that has counted.
struct Counted {
  std::string_view member;
  Severity severity;
  std::string_view kind;
  std::string_view what;  // behind the number
  std::string_view command;
};
void tellCounted(const Value& counters, std::span<const Counted> all, Findings& findings,
                 std::string_view of = {}) {
  for (const Counted& each : all) {
    const std::uint64_t count = countAt(counters, {each.member});
    if (count == 0) continue;
    Object record{{Kiv::String(each.member), count}};
    if (!of.empty()) record.emplace_back("of", of);
    findings.push_back({each.severity, each.kind,
                        fmt::format("{}{}{} {}.", of, of.empty() ? "" : ": ", count, each.what), record,
                        false, std::string(each.command)});
  }
}

double lastHeard(const Value& agents) {
  double last = 0;
  for (const Value& each : elementsOf(agents)) {
    const Value heard = memberAt(each, {"lastHeard"});
    if (const double* time = heard.as<double>()) last = std::max(last, *time);
  }
  return last;
}

}  // namespace

void tracker(const DoctorFacts& facts, Findings& findings) {
  const TrackerFacts& tracker = facts.system.tracker;
  const std::uint64_t wanted = facts.wanted[0] + facts.wanted[1];
  const Object record{{"wanted", wanted}, {"problem", tracker.problem}};
  if (tracker.standing == Standing::silent) {
    findings.push_back({Severity::error, "tracker-not-asked",
                        fmt::format("The flow tracker could not be asked: {}.", tracker.problem), record,
                        false, std::string(kRestartTracker)});
  } else if (tracker.standing == Standing::absent && wanted != 0) {
    findings.push_back(
        {Severity::warning, "tracker-not-running",
         fmt::format("{} offloads are wanted, and no flow tracker runs: nobody withdraws those that are "
                     "idle, and none are learned.",
                     wanted),
         record, false, "systemctl start flow-tracker"});
  }
}

void trackerInput(const DoctorFacts& facts, Findings& findings) {
  if (!trackerAnswers(facts)) return;
  const Value& all = statistics(facts);
  const Value agents = memberAt(all, {"agents"});
  const double last = lastHeard(agents);
  if (countAt(all, {"datagrams"}) == 0) {
    findings.push_back({Severity::warning, "tracker-hears-nothing",
                        "The flow tracker has heard no sFlow datagram since its start.",
                        Object{{"datagrams", 0}}, false,
                        "set collectors in [sflow] of agent.toml to where it listens; sft collectors"});
  } else if (last != 0 && last + kSilence < facts.now) {
    findings.push_back(
        {Severity::warning, "tracker-hears-nothing",
         fmt::format("The flow tracker has heard no sFlow datagram for {}.", ageText(last, facts.now)),
         Object{{"lastHeard", last}}, true, "sft collectors"});
  }
  constexpr Counted kLost[] = {
      {"datagramsMissed", Severity::warning, "datagrams-missed",
       "sFlow datagrams were lost on their way to the tracker", ""},
      {"datagramsDropped", Severity::warning, "datagrams-dropped",
       "sFlow datagrams were dropped by the kernel, because they came faster than they were taken",
       "sysctl -w net.core.rmem_max=... ; systemctl restart flow-tracker"},
  };
  tellCounted(all, kLost, findings);
  const Value malformed = memberAt(all, {"malformed"});
  if (const auto* kinds = malformed.as<Object>()) {
    for (const auto& [kind, value] : *kinds) {
      const std::uint64_t count = countAt(malformed, {kind});
      if (count == 0) continue;
      findings.push_back({Severity::warning, "datagrams-malformed",
                          fmt::format("{} datagrams were malformed ({}), and dropped.", count, kind),
                          Object{{"malformed", kind}, {"datagrams", count}}, false, ""});
    }
  }
}

void trackerInterfaces(const DoctorFacts& facts, Findings& findings) {
  if (!trackerAnswers(facts)) return;
  const Value unmapped = memberAt(statistics(facts), {"unmappedInterfaces"});
  for (const Value& each : elementsOf(unmapped)) {
    findings.push_back(
        {Severity::warning, "interface-unmapped",
         fmt::format("Interface index {} of the agent {} has no [[interface]]: {} samples were left out.",
                     countAt(each, {"index"}), memberAt(each, {"agent"}).text(), countAt(each, {"samples"})),
         each, false, fmt::format("add an [[interface]] to flow-tracker.toml; {}", kRestartTracker)});
  }
  if (facts.system.agent.standing != Standing::answers) return;
  for (const std::string& name : facts.system.tracker.interfaces) {
    if (facts.system.agent.ports.contains(name)) continue;
    findings.push_back(
        {Severity::note, "interface-is-no-port",
         fmt::format("The flow tracker names an interface {}, and the agent has no port of that name: "
                     "what is learned there never comes into hardware.",
                     name),
         Object{{"interface", name}}, false,
         fmt::format("correct [[interface]] in flow-tracker.toml; {}", kRestartTracker)});
  }
}

void trackerBounds(const DoctorFacts& facts, Findings& findings) {
  if (!trackerAnswers(facts)) return;
  constexpr Counted kFamily[] = {
      {"refused", Severity::warning, "tracker-full",
       "samples of flows found no room in the tracker (max_flows)",
       "raise max_flows in flow-tracker.toml; systemctl restart flow-tracker"},
      {"candidatesEvicted", Severity::note, "candidates-evicted",
       "candidates were pushed out by others before their next sample (max_candidates)",
       "raise max_candidates in flow-tracker.toml; systemctl restart flow-tracker"},
  };
  tellCounted(memberAt(statistics(facts), {"ipv4"}), kFamily, findings, "IPv4");
  tellCounted(memberAt(statistics(facts), {"ipv6"}), kFamily, findings, "IPv6");
  constexpr Counted kTables[] = {
      {"tableRefusals", Severity::error, "tracker-stores-failed",
       "stores of wanted offloads were not taken by the table", "systemctl restart flow-tracker"},
      {"tableDamages", Severity::error, "tracker-met-damage", "damaged records were met by the flow tracker",
       "systemctl restart flow-tracker (its start repairs the wanted offloads)"},
  };
  tellCounted(statistics(facts), kTables, findings);
}

void trackerCollectors(const DoctorFacts& facts, Findings& findings) {
  if (!trackerAnswers(facts)) return;
  constexpr Counted kCollector[] = {
      {"refused", Severity::warning, "collector-refuses", "times nobody listened there",
       "start the IPFIX collector there, or correct [[collector]] in flow-tracker.toml"},
      {"lost", Severity::warning, "collector-lost", "messages did not get out", ""},
  };
  const Value collectors = memberAt(statistics(facts), {"collectors"});
  for (const Value& each : elementsOf(collectors)) {
    tellCounted(each, kCollector, findings, "IPFIX collector " + memberAt(each, {"collector"}).text());
  }
  constexpr Counted kRecords[] = {
      {"recordsFailed", Severity::error, "records-failed", "flow records could not be encoded", ""}};
  tellCounted(statistics(facts), kRecords, findings);
}

}  // namespace Sft::DoctorChecks
