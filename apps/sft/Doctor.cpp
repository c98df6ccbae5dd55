#include "Doctor.h"

namespace Sft {
namespace {

constexpr Check kChecks[] = {
    {"agent", "whether an agent runs and answers", DoctorChecks::agent},
    {"plugin", "whether it has the plugins, active, and has reconciled", DoctorChecks::plugin},
    {"families", "families whose offload is off although flows are wanted", DoctorChecks::families},
    {"budget", "a budget of 0, room that nobody got", DoctorChecks::budget},
    {"interfaces", "enabled interfaces that are no ports, none enabled, regular sFlow that takes all",
     DoctorChecks::interfaces},
    {"ports", "ports that are down, damaged captures, dropped packets", DoctorChecks::ports},
    {"sampling", "a sampling rate of 0, samples that were dropped", DoctorChecks::sampling},
    {"collectors", "sFlow without collectors, datagrams that were lost", DoctorChecks::collectors},
    {"stores", "stores that a table did not take", DoctorChecks::stores},
    {"watchers", "readers of the agent that fell behind, or met torn or damaged records",
     DoctorChecks::watchers},
    {"mounts", "tables that a running agent should have", DoctorChecks::mounts},
    {"damage", "files that are no tables, records that cannot be read", DoctorChecks::damage},
    {"writers", "tables of the agent without a writer, or with another one", DoctorChecks::writers},
    {"audit", "what `sft audit` compares: counts, counters and overflow entries with the statuses",
     DoctorChecks::audit},
    {"flows", "wanted offloads that the agent has not seen, statuses that nobody wants", DoctorChecks::flows},
    {"clock", "records whose times lie ahead", DoctorChecks::clock},
    {"space", "a file system of the run directory that is nearly full", DoctorChecks::space},
    {"files", "files in the run directory that are nobody's, sockets without a server", DoctorChecks::files},
    {"tracker", "whether a flow tracker runs and answers where flows are wanted", DoctorChecks::tracker},
    {"tracker-input", "a tracker that hears nothing, or not all", DoctorChecks::trackerInput},
    {"tracker-interfaces", "interfaces whose samples the tracker passes over, names that are no ports",
     DoctorChecks::trackerInterfaces},
    {"tracker-bounds", "flows and stores that were refused, candidates that were pushed out",
     DoctorChecks::trackerBounds},
    {"tracker-collectors", "IPFIX collectors that refuse, messages and records that were lost",
     DoctorChecks::trackerCollectors},
};

}  // namespace

std::string DoctorChecks::shellWord(std::string_view word) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=:,./@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string_view::npos) return std::string(word);
  std::string text = "'";
  for (const char each : word) each == '\'' ? text += "'\\''" : text += each;
  return text + '\'';
}

std::string_view severityText(Severity severity) {
  switch (severity) {
    case Severity::note:
      return "note";
    case Severity::warning:
      return "warning";
    case Severity::error:
      break;
  }
  return "error";
}

std::span<const Check> doctorChecks() {
  return kChecks;
}

Findings doctor(const DoctorFacts& facts) {
  Findings findings;
  for (const Check& each : kChecks) each.look(facts, findings);
  return findings;
}

}  // namespace Sft
