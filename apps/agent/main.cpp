// pexa-agent --config FILE [--run-dir DIR] [--until-end] [--check]
#include <fmt/format.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <new>

#include "agent/Agent.h"
#include "agent/AgentConfig.h"
#include "agent/SteadyMemory.h"
#include "terminal/Progress.h"

namespace {

constexpr int kFailed = 1;
constexpr int kMisused = 2;

struct Options {
  std::string config;
  std::string runDir;
  bool untilEnd = false;
  bool check = false;
};

int run(const Options& options) {
  Pexa::AgentConfig config = Pexa::readAgentConfig(options.config);
  if (options.check) {
    fmt::print("{}: ok\n", options.config);
    return 0;
  }
  if (!options.runDir.empty()) config.runDir = options.runDir;
  Pexa::Agent agent(config);
  Pexa::seal(config.security,
             config.hasLivePorts() ? Guard::Sockets::localAndPackets : Guard::Sockets::local);
  return agent.run(options.untilEnd);
}

// Standard output belongs to nobody yet; what the agent has to say of itself goes to standard error.
void logToStandardError() {
  spdlog::set_default_logger(spdlog::stderr_logger_st("pexa-agent"));
  // On a terminal each line first takes off the one that tells of a replay's progress.
  const std::string erase = Terminal::watched() ? "\r\x1b[K" : "";
  spdlog::set_pattern(erase + "%Y-%m-%dT%H:%M:%S.%e %n %l: %v");
  spdlog::flush_on(spdlog::level::info);
}

}  // namespace

int main(int argc, char** argv) {
  Pexa::steadyMemory();
  Options options;
  CLI::App app("A forwarding agent: replays captures, forwards between ports, samples, and runs plugins.",
               "pexa-agent");
  app.add_option("--config", options.config, "TOML configuration")->required();
  app.add_option("--run-dir", options.runDir,
                 "directory of tables, control socket and trace, before the configured one");
  app.add_flag("--until-end", options.untilEnd, "leave when every capture is replayed");
  app.add_flag("--check", options.check,
               "read the configuration, say whether it is right, and do nothing else");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    fmt::print(stderr, "pexa-agent: {}, expected --config FILE [--run-dir DIR] [--until-end] [--check]\n",
               error.what());
    return kMisused;
  }
  logToStandardError();
  try {
    return run(options);
  } catch (const std::runtime_error& error) {
    fmt::print(stderr, "pexa-agent: {}\n", error.what());
    return kFailed;
  } catch (const std::bad_alloc&) {
    // Its tables and what others want stay: the next one goes on from them.
    fmt::print(stderr, "pexa-agent: no memory left, expected more of it, or fewer flows\n");
    return kFailed;
  }
}
