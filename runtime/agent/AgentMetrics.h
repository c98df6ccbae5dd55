// The numbers of the running agent: its own, and those of the plugins that have joined. One source for the
// control socket and for the HTTP endpoint. docs/operating.md says what each means and what to watch.
//
// Nothing is counted for them: each is read where it is kept anyway. Threading: the event thread.
#pragma once

#include "AgentPorts.h"
#include "LoopSlices.h"
#include "Metrics.h"
#include "Olt.h"
#include "PexaPlugin.h"
#include "pexa/NamedCounters.h"
#include "quell/SharedTables.h"
#include "sflow/SflowExporter.h"

namespace Pexa {

class AgentMetrics {
 public:
  struct Parts {
    PluginManager& manager;
    AgentPorts& ports;
    NamedCounters& reasons;
    Sflow::SflowExporter& exporter;
    Olt::TaskScheduler& tasks;
    Quell::SharedTables& tables;
    LoopSlices& slices;
  };
  // The parts must outlive this. What is given is measured as a slice of its own, "metrics".
  explicit AgentMetrics(const Parts& parts);

  Metrics::Snapshot snapshot();

 private:
  void portsInto(Metrics::Snapshot& snapshot) const;
  void reasonsInto(Metrics::Snapshot& snapshot) const;
  void samplingInto(Metrics::Snapshot& snapshot) const;
  void collectorsInto(Metrics::Snapshot& snapshot) const;
  void tasksInto(Metrics::Snapshot& snapshot) const;
  void processInto(Metrics::Snapshot& snapshot) const;

  Parts parts_;
  const LoopSlices::Kind slice_;
  const double started_;  // UTC seconds
};

}  // namespace Pexa
