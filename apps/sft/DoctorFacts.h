// What `sft doctor` looks at, fetched once: the checks judge it and ask nobody.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Kiv.h"
#include "SystemFacts.h"
#include "quell/TableStore.h"

namespace Sft {

// A collection's file, walked whole.
struct WalkedTable {
  Quell::TableStatus status;
  std::vector<std::string> damages;
};

// A flow, or whatever a finding is about, as its record tells it.
using Records = std::vector<Kiv::Value>;

// Flows whose records contradict each other, or the clock. Of each kind at most kMostExamples are kept.
struct FlowDoubts {
  static constexpr std::size_t kMostExamples = 3;
  struct Kind {
    std::uint64_t count = 0;
    Records examples;  // keys
    void add(Kiv::Value key) {
      if (++count <= kMostExamples) examples.push_back(std::move(key));
    }
  };
  Kind unseen;     // wanted for a while, and no status
  Kind notWanted;  // a status, and not wanted
  Kind future;     // a time that lies ahead
};

struct DoctorFacts {
  double now = 0;  // UTC seconds
  std::filesystem::path runDir;
  SystemFacts system;
  std::uint64_t agentProcess = 0;  // as the run directory's lock file says, 0 when it does not
  // Rows of the agent's answers, empty when it has no such request
  Records ports;
  Records samples;
  std::optional<Records> collectors;  // nothing when it has no such request: none is a finding
  Records metrics;
  std::vector<WalkedTable> tables;
  Families<std::uint64_t> wanted{};  // wanted offloads
  FlowDoubts flows;
  Records audit;                   // findings
  std::string auditProblem;        // why there was no audit; empty when there was one
  std::vector<std::string> files;  // what stands in the run directory, by relative paths, tables left out
  std::uint64_t spaceFree = 0;     // bytes of the run directory's file system
  std::uint64_t spaceAll = 0;
};

// Asks, walks and looks. What cannot be asked or read stands in the result. Throws Quell::TableError when the
// folder of the tables cannot be read.
DoctorFacts doctorFacts(const Context& context);

}  // namespace Sft
