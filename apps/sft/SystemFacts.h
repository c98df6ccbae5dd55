// What the programs of a run directory say of themselves, as far as flows depend on it.
//
// Neighbours: WhyFlow.h and the checks of `sft doctor` judge by it.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>

#include "Command.h"
#include "FlowPattern.h"
#include "Kiv.h"

namespace Sft {

// Whether a program could be asked.
enum class Standing {
  answers,
  absent,  // it does not run
  silent,  // it runs, or may run, and could not be asked
};

// By family: IPv4, IPv6.
template <class T>
using Families = std::array<T, 2>;

struct AgentFacts {
  Standing standing = Standing::absent;
  std::string problem;  // why it could not be asked

  enum class Plugin { active, standby, absent } plugin = Plugin::absent;
  bool offloads() const { return standing == Standing::answers && plugin == Plugin::active; }
  // All that follows is known of an active plugin only.
  Families<bool> offloaded{};
  Families<bool> announced{};  // in the agent's capabilities
  std::uint32_t sampleRate = 0;
  std::uint32_t budget = 0;  // of each family
  bool ready = false;        // reconciled
  std::uint64_t storesFailed = 0;
  bool regularSflow = false;  // which takes every interface
  std::set<std::string> ports;
  std::set<std::string> ingress;
  std::set<std::string> egress;
};

struct TrackerFacts {
  Standing standing = Standing::absent;
  std::string problem;
  Kiv::Value statistics;  // docs/flow-tracker.md
  std::uint64_t samplesToLearn = 0;
  std::uint64_t maxFlows = 0;
  std::set<std::string> interfaces;  // that have a name there
};

struct SystemFacts {
  AgentFacts agent;
  TrackerFacts tracker;
  // Flows of each family, by the published counts.
  Families<std::uint64_t> inHardware{};
  Families<std::uint64_t> waiting{};
};

// Asks both programs, and reads the published counts. What cannot be asked or read is told in the result.
SystemFacts systemFacts(const Context& context);

}  // namespace Sft
