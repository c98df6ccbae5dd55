// The agent's configuration: a TOML file, read and checked whole before anything is done.
//
//   mode = "active"                      # or "standby": the plugins mount and wait
//   run_dir = "/run/pexa"                # shared tables, control socket, trace ring
//   plugins = ["libName.so"]
//   [[port]]                             # name, one of capture, device and write, vlan = 1
//   [forward]                            # port = "port": what enters the left leaves the right
//   [replay]                             # pace = "fast" or "recorded"
//   [sflow]                              # agent = "ADDRESS", collectors = ["HOST:PORT"]
//   [metrics]                            # listen = "127.0.0.1:9475": the Prometheus endpoint
//   [security]                           # user, groups, system calls: SecurityConfig.h
//   [state."path"]                       # attribute = value
//   [[trace_filter]]                     # name, expression (as of tcpdump): whose packets are traced
//   [trace.level]                        # "Pexa::Sft" = 0 to 9: text traces to the log
//
// Relative paths in it are relative to the folder of the file. Neighbours: Agent.h acts on it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ConfigError.h"
#include "Kiv.h"
#include "PexaPlugin.h"
#include "SecurityConfig.h"
#include "capture/PortDevice.h"
#include "capture/ReplayPort.h"
#include "metrics/MetricEndpoint.h"

namespace Pexa {

struct PortConfig {
  std::string name;  // also its interface id
  Capture::PortKind kind = Capture::PortKind::capture;
  std::string source;  // path of the capture, or name of the Linux interface
  std::uint16_t vlan = 1;
  ConfigPlace place;
};

struct ForwardConfig {
  std::string from;
  std::string to;
  ConfigPlace place;
};

struct PluginConfig {
  std::string library;  // as the file names it
  ConfigPlace place;
};

struct SflowConfig {
  struct Collector {
    std::string text;  // "HOST:PORT"
    ConfigPlace place;
  };
  std::string agent;
  std::vector<Collector> collectors;
  ConfigPlace place;
};

struct MetricsConfig {
  static constexpr const char* kListen = "127.0.0.1:9475";
  Metrics::ListenAddress listen;
  ConfigPlace place;
};

struct StateConfig {
  struct Attribute {
    std::string name;
    Kiv::Value value;
    ConfigPlace place;
  };
  std::string path;
  std::vector<Attribute> attributes;
  ConfigPlace place;
};

struct TraceFilterConfig {
  std::string name;
  std::string expression;
  ConfigPlace place;
};

struct TraceLevelConfig {
  std::string handle;
  int most = 0;
};

struct AgentConfig {
  std::filesystem::path file;
  PexaMode mode = PexaMode::active;
  std::filesystem::path runDir = "/run/pexa";
  std::vector<PluginConfig> plugins;
  std::vector<PortConfig> ports;
  std::vector<ForwardConfig> forwards;
  Capture::Pace pace = Capture::Pace::fast;
  std::optional<SflowConfig> sflow;      // none: samples are taken and counted, and go nowhere
  std::optional<MetricsConfig> metrics;  // none: no endpoint
  SecurityConfig security;
  std::vector<StateConfig> states;
  std::vector<TraceFilterConfig> traceFilters;
  std::vector<TraceLevelConfig> traceLevels;

  bool hasLivePorts() const;
};

// Reads and checks a configuration file. Throws ConfigError at the first thing that is wrong: no file, broken
// TOML, an unknown key, a wrong type, a port twice, a port with no or two sources, a forward that leads
// nowhere.
AgentConfig readAgentConfig(const std::filesystem::path& file);

}  // namespace Pexa
