// flow-tracker as a process: its socket, its second hand, its signals, its control socket.
//
// SIGTERM and SIGINT end it in order: what has arrived is taken, records are told, and what is wanted stays
// wanted for the next tracker. SIGUSR1 writes the statistics to the log.
//
// The control socket, flow-tracker.sock in the run directory, speaks as the agent's does
// (runtime/agent/ControlSocket.h) and answers these requests:
//   {"request":"statistics"}      one row
//   {"request":"flows"}           a row for each learned flow
//   {"request":"candidates"}      {"key","samples","lastSampled"} for each flow that was sampled and is not
//                                 learned, then {"candidates"}: how many there are. Arguments, both optional:
//                                 "match", a flow pattern (flow_records/FlowPattern.h); "most", rows of each
//                                 family: 1000 unless given, and at most
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
