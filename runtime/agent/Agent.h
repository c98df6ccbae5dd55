// A forwarding agent: ports, pipeline, plugins, state database, shared tables, sFlow export, trace ring and
// control socket, put together from a configuration and run on one thread.
//
// Neighbours: AgentConfig.h says what to put together, EventLoop.h runs it, ControlRequests.h answers for it.
#pragma once

#include <memory>

#include "AgentConfig.h"

namespace Pexa {

class Agent {
 public:
  // Takes the run directory, opens the ports, loads the plugins and takes them as far as the configured mode;
  // packets do not run yet. Throws std::runtime_error (ConfigError where a line of the configuration is to
  // blame) at the first thing that is wrong; everything is taken down again then.
  explicit Agent(const AgentConfig& config);
  // Ends the packets, then lets go of everything whose code is in a plugin, then unloads the plugins.
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Runs until SIGTERM, SIGINT or stop(); if so asked, also until every capture is replayed and the last work
  // is done. The exit status: 1 when it ran until the end and a capture was damaged, else 0.
  int run(bool untilEnd);
  void stop();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Pexa
