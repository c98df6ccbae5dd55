// The checks of `sft doctor`: each looks at the facts and tells what it finds.
//
// A check that is to be added goes into one of the Doctor...Checks.cpp and into the table in Doctor.cpp; what
// it needs to know and nobody has fetched, into DoctorFacts.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DoctorFacts.h"

namespace Sft {

enum class Severity {
  note,     // worth knowing
  warning,  // less is done than was meant to be
  error,    // something is broken
};
std::string_view severityText(Severity severity);

struct Finding {
  Severity severity;
  std::string_view kind;  // a word that scripts may rely on
  std::string what;       // a sentence
  Kiv::Value record;      // what it is about
  bool corrects = false;  // whether it corrects itself
  std::string command{};  // that corrects it; empty when nothing is to be done
};
using Findings = std::vector<Finding>;

struct Check {
  std::string_view name;
  std::string_view looksAt;
  void (*look)(const DoctorFacts& facts, Findings& findings);
};
std::span<const Check> doctorChecks();

// What all checks find, in their order.
Findings doctor(const DoctorFacts& facts);

namespace DoctorChecks {
inline constexpr std::string_view kRestartAgent = "systemctl restart pexa-agent";
inline constexpr std::string_view kRestartTracker = "systemctl restart flow-tracker";
// A word of a command, as a shell takes it.
std::string shellWord(std::string_view word);

// The agent and its configuration
void agent(const DoctorFacts& facts, Findings& findings);
void plugin(const DoctorFacts& facts, Findings& findings);
void families(const DoctorFacts& facts, Findings& findings);
void budget(const DoctorFacts& facts, Findings& findings);
void interfaces(const DoctorFacts& facts, Findings& findings);
void ports(const DoctorFacts& facts, Findings& findings);
void sampling(const DoctorFacts& facts, Findings& findings);
void collectors(const DoctorFacts& facts, Findings& findings);
void stores(const DoctorFacts& facts, Findings& findings);
void watchers(const DoctorFacts& facts, Findings& findings);
// The tables and the run directory
void mounts(const DoctorFacts& facts, Findings& findings);
void damage(const DoctorFacts& facts, Findings& findings);
void writers(const DoctorFacts& facts, Findings& findings);
void audit(const DoctorFacts& facts, Findings& findings);
void flows(const DoctorFacts& facts, Findings& findings);
void clock(const DoctorFacts& facts, Findings& findings);
void space(const DoctorFacts& facts, Findings& findings);
void files(const DoctorFacts& facts, Findings& findings);
// The flow tracker
void tracker(const DoctorFacts& facts, Findings& findings);
void trackerInput(const DoctorFacts& facts, Findings& findings);
void trackerInterfaces(const DoctorFacts& facts, Findings& findings);
void trackerBounds(const DoctorFacts& facts, Findings& findings);
void trackerCollectors(const DoctorFacts& facts, Findings& findings);
}  // namespace DoctorChecks

}  // namespace Sft
