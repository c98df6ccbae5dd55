// What a client of the control socket may ask of a running agent. A request is an object whose member
// "request" names it; the other members are its arguments:
//
//   ports, samples, reasons, tasks                   a row for each
//   collectors                                       {"collector","datagrams","lost"} for each of sFlow
//   metrics                                          a row for each number (metrics/MetricRows.h)
//   local                                            a row for each local counter of every collection
//   local display                                    {"collection","keyType","text"} for each collection
//   state get   path [attribute]                     one row: the attributes with their values
//   state set   path attribute value
//   attr get    entity [name]                        likewise, for any entity (EntityFinder.h)
//   attr set    entity name value
//   attr call   entity name arguments                one row {"result"}; arguments is an object
//   trace levels                                     {"name","channel","level"} for each
//   trace level name level                           level -1 to 9
//
// "set", "call" and "trace level" change something, all else only asks.
//
// Threading: the event thread.
#pragma once

#include "AgentMetrics.h"
#include "AgentPorts.h"
#include "ControlSocket.h"
#include "EntityFinder.h"
#include "Olt.h"
#include "mirro/StateDatabase.h"
#include "pexa/NamedCounters.h"
#include "sflow/SflowExporter.h"
#include "skein/TraceRing.h"

namespace Pexa {

class ControlRequests {
 public:
  struct Parts {
    Mirro::StateDatabase& state;
    PluginManager& manager;
    AgentPorts& ports;
    NamedCounters& reasons;
    Sflow::SflowExporter& exporter;
    Olt::TaskScheduler& tasks;
    Skein::TraceRing& trace;
    AgentMetrics& metrics;
  };
  // The parts must outlive this.
  explicit ControlRequests(const Parts& parts) : parts_(parts), finder_(parts.state, parts.manager) {}

  // Throws std::runtime_error (Kiv::TypeError, Kiv::ValueError) with what is wrong; nothing is changed then.
  ControlSocket::Rows answer(const Kiv::Value& request);
  // Whether a request may change anything. One that nobody knows does not.
  static bool changes(const Kiv::Value& request);

 private:
  using Rows = ControlSocket::Rows;
  Rows ports(const Kiv::Value& request);
  Rows samples(const Kiv::Value& request);
  Rows reasons(const Kiv::Value& request);
  Rows tasks(const Kiv::Value& request);
  Rows metrics(const Kiv::Value& request);
  Rows collectors(const Kiv::Value& request);
  Rows local(const Kiv::Value& request);
  Rows localDisplay(const Kiv::Value& request);
  Rows stateGet(const Kiv::Value& request);
  Rows stateSet(const Kiv::Value& request);
  Rows attrGet(const Kiv::Value& request);
  Rows attrSet(const Kiv::Value& request);
  Rows attrCall(const Kiv::Value& request);
  Rows traceLevels(const Kiv::Value& request);
  Rows traceLevel(const Kiv::Value& request);
  Kiv::Value withEntities(const Kiv::Value& value) const;

  struct Request;
  static const Request kRequests[];

  Parts parts_;
  EntityFinder finder_;
};

}  // namespace Pexa
