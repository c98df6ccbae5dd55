// The tracker's configuration: a TOML file, read and checked whole before anything is done.
//
//   listen = "0.0.0.0:6343"              # where sFlow datagrams arrive
//   run_dir = "/run/pexa"                # of the agent: shared tables; and of the tracker's control socket
//   samples_to_learn = 2
//   idle_timeout = 30                    # seconds
//   max_flows = 8192                     # of each family
//   max_candidates = 65536               # of each family
//   [[interface]]                        # index, name, agent = "ADDRESS" unless any agent's, vlan = 1
//   [[collector]]                        # address = "HOST:PORT"; at most eight
//   [ipfix]                              # active_timeout = 60, template_refresh = 60 (seconds),
//   observation_domain = 1
//   [security]                           # user, groups, system calls: agent/SecurityConfig.h
//
// Relative paths in it are relative to the folder of the file. Neighbours: Daemon.h acts on it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "FlowExporter.h"
#include "FlowTable.h"
#include "Interfaces.h"
#include "agent/ConfigError.h"
#include "agent/SecurityConfig.h"

namespace Tracker {

struct CollectorConfig {
  std::string address;  // "HOST:PORT"
  Pexa::ConfigPlace place;
};

struct TrackerConfig {
  std::filesystem::path file;
  std::string listen = "0.0.0.0:6343";
  Pexa::ConfigPlace listenPlace;
  std::filesystem::path runDir = "/run/pexa";
  FlowLimits limits;
  Interfaces interfaces;
  std::vector<CollectorConfig> collectors;
  ExportConfig ipfix;
  Pexa::SecurityConfig security;
};

// Reads and checks a configuration file. Throws Pexa::ConfigError at the first thing that is wrong: no file,
// broken TOML, an unknown key, a wrong type, a number out of range, an interface or a collector twice, more
// collectors than there may be.
TrackerConfig readTrackerConfig(const std::filesystem::path& file);

}  // namespace Tracker
