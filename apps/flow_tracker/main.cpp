// flow-tracker --config FILE [--run-dir DIR] [--check]
#include <fmt/format.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <new>

#include "Daemon.h"

namespace {

constexpr int kFailed = 1;
constexpr int kMisused = 2;

constexpr const char* kFooter = R"(Configuration (TOML; all but [[interface]] may be left out):
  listen = "0.0.0.0:6343"     where sFlow datagrams arrive; port 0: any
  run_dir = "/run/pexa"       the agent's run directory: its shared tables, and this program's control socket
  samples_to_learn = 2        samples that make a flow a wanted offload
  idle_timeout = 30           seconds without a sample or a counted packet
  max_flows = 8192            learned flows of each address family; when reached, new ones wait
  max_candidates = 65536      flows of each family on the way there; a new one replaces the oldest
  [[interface]]
  index = 1                   as sFlow numbers it; the agent's ports are numbered from 1
  name = "Ethernet1"          as wanted offloads name it
  agent = "192.0.2.1"         only this agent's index
  vlan = 1                    VLAN of untagged packets when the agent does not tell it
  [[collector]]
  address = "192.0.2.9:4739"  of flow records, as IPFIX over UDP; at most eight
  [ipfix]
  active_timeout = 60         seconds after which a flow that goes on is told
  template_refresh = 60       seconds between two sendings of the templates
  observation_domain = 1
  [security]
  user = "pexa"               started as root, whom to become once the port is open
  read_group = "netops"       who may ask, beside those who may read run_dir
  filter_system_calls = true

SIGTERM ends it in order, SIGUSR1 writes the statistics to the log (standard error).)";

struct Options {
  std::string config;
  std::string runDir;
  bool check = false;
};

void run(const Options& options) {
  Tracker::TrackerConfig config = Tracker::readTrackerConfig(options.config);
  if (options.check) {
    fmt::print("{}: ok\n", options.config);
    return;
  }
  if (!options.runDir.empty()) config.runDir = options.runDir;
  Tracker::Daemon daemon(config);
  Pexa::seal(config.security, Guard::Sockets::local);
  daemon.run();
}

void logToStandardError() {
  spdlog::set_default_logger(spdlog::stderr_logger_st("flow-tracker"));
  spdlog::set_pattern("%Y-%m-%dT%H:%M:%S.%e %n %l: %v");
  spdlog::flush_on(spdlog::level::info);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Learns flows from sFlow version 5 datagrams, wants them offloaded into hardware, ages them out "
      "and exports flow records.",
      "flow-tracker");
  app.footer(kFooter);
  app.add_option("--config", options.config, "TOML configuration")->required();
  app.add_option("--run-dir", options.runDir,
                 "directory of tables and control socket, before the configured one");
  app.add_flag("--check", options.check,
               "read the configuration, say whether it is right, and do nothing else");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    fmt::print(stderr, "flow-tracker: {}, expected --config FILE [--run-dir DIR] [--check]\n", error.what());
    return kMisused;
  }
  logToStandardError();
  try {
    run(options);
    return 0;
  } catch (const std::runtime_error& error) {
    fmt::print(stderr, "flow-tracker: {}\n", error.what());
    return kFailed;
  } catch (const std::bad_alloc&) {
    // What is wanted stays wanted: the next one goes on from it.
    fmt::print(stderr, "flow-tracker: no memory left, expected more of it, or a smaller max_flows\n");
    return kFailed;
  }
}
