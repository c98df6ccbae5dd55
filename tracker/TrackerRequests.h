// What the tracker's control socket, flow-tracker.sock in the run directory, answers. It speaks as the
// agent's does (runtime/agent/ControlSocket.h); none of the requests changes anything:
//
//   {"request":"statistics"}      one row
//   {"request":"flows"}           a row for each learned flow
//   {"request":"candidates"}      {"key","samples","lastSampled"} for each flow that was sampled and is not
//                                 learned, then {"candidates"}: how many there are. Arguments, both optional:
//                                 "match", a flow pattern (flow_records/FlowPattern.h); "most", rows of each
//                                 family: kMostCandidates unless given, and at most
//
// Neighbours: Daemon.h has the socket. Threading: the event thread.
#pragma once

#include "agent/ControlSocket.h"

namespace Tracker {

class DatagramSocket;
class FlowExporter;
class FlowTracker;

class TrackerRequests {
 public:
  static constexpr std::size_t kMostCandidates = 1000;

  // What is referred to must outlive this.
  TrackerRequests(const FlowTracker& tracker, const FlowExporter& exporter, const DatagramSocket& socket)
      : tracker_(tracker), exporter_(exporter), socket_(socket) {}

  // Throws Kiv::ValueError for a request that is not one of these, or whose arguments are wrong.
  Pexa::ControlSocket::Rows answer(const Kiv::Value& request) const;
  Kiv::Value::Object statistics() const;

 private:
  Pexa::ControlSocket::Rows flows() const;
  Pexa::ControlSocket::Rows candidates(const Kiv::Value& request) const;

  const FlowTracker& tracker_;
  const FlowExporter& exporter_;
  const DatagramSocket& socket_;
};

}  // namespace Tracker
