// The agent's ports: what the configuration names, opened, and where each one's packets go.
//
// Neighbours: capture/PortDevice.h is what stands behind a port; PatchPanel.h moves packets between them.
// Threading: the event thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "AgentConfig.h"
#include "Interface.h"
#include "PexaPort.h"
#include "capture/PortDevice.h"
#include "sflow/Counters.h"

namespace Pexa {

struct AgentPort {
  Kiv::Ptr<const PexaPortBase> port;
  std::unique_ptr<Capture::PortDevice> device;  // null until it is opened
  AgentPort* forward = nullptr;                 // where its packets leave; null: nowhere
  bool endReported = false;
  std::string errorReported;  // what was wrong when it was reported last; empty: nothing
  std::string noteReported;
};

class AgentPorts : public Sflow::CounterSource {
 public:
  // Opens the ports that packets come in on. Throws ConfigError, at the port's line, for one that cannot be:
  // no such capture or interface, not Ethernet.
  explicit AgentPorts(const AgentConfig& config);
  // Opens those that write, which empties their files: the last thing that a start does. Throws ConfigError
  // for a file that cannot be written. REQUIRED before packets run.
  void openWriters();

  std::vector<AgentPort>& all() { return ports_; }
  const std::vector<AgentPort>& all() const { return ports_; }
  // The table that plugins see.
  const Kiv::Ptr<Ports>& table() const { return table_; }

  // Held, captures wait with their first packet; live ports do not. Not held unless told so.
  void replaysHeldIs(bool held);
  // Whether a capture has packets left, held or not.
  bool replaying() const;
  bool anyDamaged() const;
  // Logs what is new since the last call: captures whose replay came to its end, live ports with which
  // something else is wrong than before, or nothing any more.
  void report();
  // Hands what is written so far to the files.
  void flush();
  // Asks each port for its present status and puts it into the directory.
  void statusInto(Interface::EthIntfStatusDir& dir);
  // An object a port, for `sft ports`.
  Kiv::Value::List rows();

  std::uint32_t ports() const override { return static_cast<std::uint32_t>(ports_.size()); }
  Sflow::IfCounters ifCounters(std::uint32_t portIndex) const override;

 private:
  static void reportEnd(AgentPort& port);
  static void reportChange(AgentPort& port);

  const std::vector<PortConfig> configs_;
  const Capture::Pace pace_;
  std::vector<AgentPort> ports_;  // as in the configuration
  Kiv::Ptr<Ports> table_;
};

}  // namespace Pexa
