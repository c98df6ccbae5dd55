// flow-tracker as a process: its socket, its second hand, its signals, its control socket.
//
// SIGTERM and SIGINT end it in order: what has arrived is taken, records are told, and what is wanted stays
// wanted for the next tracker. SIGUSR1 writes the statistics to the log.
//
// Neighbours: TrackerRequests.h has what the control socket answers, FlowTracker.h what is done with
// datagrams.
#pragma once

#include <memory>

#include "TrackerConfig.h"

namespace Tracker {

class Daemon {
 public:
  // Binds, opens and takes over, in an order in which an error leaves everything as it was. Throws
  // Pexa::ConfigError, Quell::TableError or another std::runtime_error.
  explicit Daemon(const TrackerConfig& config);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // Runs until a signal ends it.
  void run();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Tracker
