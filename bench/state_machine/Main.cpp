// state_machine_bench [--flows N,...] [--family IPv4|IPv6] [--phases] [--traffic] [--changes] [--tsv]
//
// Prints a table a family; nanoseconds are those of the processor, an item. With --tsv, for scripts/bench,
// the figures that have a target and what memory they take, a line each: name, value, unit. Exit status 1,
// with one line, when something was not done as it should be.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "Phases.h"
#include "TargetRows.h"
#include "agent/SteadyMemory.h"

namespace {

struct Options {
  std::vector<std::uint32_t> flows{1000, 10000, 100000, 1000000};
  std::string family;
  bool phases = false;
  bool traffic = false;
  bool changes = false;
  bool tsv = false;
};

template <class Domain>
void run(const Options& options) {
  const std::string name(FlowTracking::IpFamily<Domain>::kName);
  if (!options.family.empty() && options.family != name) return;
  SftBench::Report report;
  for (const std::uint32_t flows : options.flows) {
    report.columnIs(fmt::format("{}", flows));
    const bool all = !options.phases && !options.traffic && !options.changes;
    if (options.phases || all) SftBench::runPhases<Domain>(report, flows);
    if (options.traffic || all) SftBench::runTraffic<Domain>(report, flows);
    if (options.changes || all) SftBench::runChanges<Domain>(report, flows);
    fmt::print(stderr, "{}, {} flows: done\n", name, flows);
  }
  if (options.tsv) {
    fmt::print("{}", SftBench::targetRows(report));
  } else {
    fmt::print("{}, flows:\n{}\n", name, report.text());
  }
}

}  // namespace

int main(int argc, char** argv) {
  Pexa::steadyMemory();
  Options options;
  CLI::App app("Measures the state machine at several sizes");
  app.add_option("--flows", options.flows, "sizes")->delimiter(',')->check(CLI::Range(16, 4000000));
  app.add_option("--family", options.family)->check(CLI::IsMember({"IPv4", "IPv6"}));
  app.add_flag("--phases", options.phases, "only scans, changes, polls, restarts");
  app.add_flag("--traffic", options.traffic, "only how long packets wait meanwhile");
  app.add_flag("--changes", options.changes, "only changes of another process");
  app.add_flag("--tsv", options.tsv, "lines of name, value and unit; of one size and one family");
  CLI11_PARSE(app, argc, argv);
  if (options.tsv && (options.flows.size() != 1 || options.family.empty())) {
    fmt::print(stderr, "state_machine_bench: --tsv: expected one size and a family\n");
    return 1;
  }
  try {
    run<SftBench::IPv4>(options);
    run<SftBench::IPv6>(options);
  } catch (const std::exception& error) {
    fmt::print(stderr, "state_machine_bench: {}\n", error.what());
    return 1;
  }
  return 0;
}
