// The tracker's configuration: a TOML file, read and checked whole before anything is done.
//
//   listen = "0.0.0.0:6343"              # where sFlow datagrams arrive
//   run_dir = "/run/pexa"                # of the agent: shared tables; and of the tracker's control socket
//   samples_to_learn = 2
//   idle_timeout = 30                    # seconds
//   max_flows = 8192                     # of each family
//   max_candidates = 65536               # of each family
//   [[interface]]                        # index, name, agent = "ADDRESS" unless any agent's, vlan = 1
//
// Relative paths in it are relative to the folder of the file. Neighbours: Daemon.h acts on it.
#pragma once

#include <filesystem>
#include <string>

#include "FlowTable.h"
#include "Interfaces.h"
#include "agent/ConfigError.h"

namespace Tracker {

struct TrackerConfig {
  std::filesystem::path file;
  std::string listen = "0.0.0.0:6343";
  Pexa::ConfigPlace listenPlace;
  std::filesystem::path runDir = "/run/pexa";
  FlowLimits limits;
  Interfaces interfaces;
};

// Reads and checks a configuration file. Throws Pexa::ConfigError at the first thing that is wrong: no file,
// broken TOML, an unknown key, a wrong type, a number out of range, an interface twice.
TrackerConfig readTrackerConfig(const std::filesystem::path& file);

}  // namespace Tracker
