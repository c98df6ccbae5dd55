// state_machine_bench [--flows N,...] [--family IPv4|IPv6] [--phases] [--traffic]
//
// Prints a table a family; nanoseconds are those of the processor, an item. Exit status 1, with one line,
// when something was not done as it should be.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "Phases.h"

namespace {

struct Options {
  std::vector<std::uint32_t> flows{1000, 10000, 100000, 1000000};
  std::string family;
  bool phases = false;
  bool traffic = false;
};

template <class Domain>
void run(const Options& options) {
  const std::string name(FlowTracking::IpFamily<Domain>::kName);
  if (!options.family.empty() && options.family != name) return;
  SftBench::Report report;
  for (const std::uint32_t flows : options.flows) {
    report.columnIs(fmt::format("{}", flows));
    if (options.phases || !options.traffic) SftBench::runPhases<Domain>(report, flows);
    if (options.traffic || !options.phases) SftBench::runTraffic<Domain>(report, flows);
    fmt::print(stderr, "{}, {} flows: done\n", name, flows);
  }
  fmt::print("{}, flows:\n{}\n", name, report.text());
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Measures the state machine at several sizes");
  app.add_option("--flows", options.flows, "sizes")->delimiter(',')->check(CLI::Range(16, 4000000));
  app.add_option("--family", options.family)->check(CLI::IsMember({"IPv4", "IPv6"}));
  app.add_flag("--phases", options.phases, "only scans, changes, polls, restarts");
  app.add_flag("--traffic", options.traffic, "only how long packets wait meanwhile");
  CLI11_PARSE(app, argc, argv);
  try {
    run<SftBench::IPv4>(options);
    run<SftBench::IPv6>(options);
  } catch (const std::exception& error) {
    fmt::print(stderr, "state_machine_bench: {}\n", error.what());
    return 1;
  }
  return 0;
}
