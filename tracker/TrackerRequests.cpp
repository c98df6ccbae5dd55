#include "TrackerRequests.h"

#include <fmt/format.h>

#include <utility>

#include "DatagramSocket.h"
#include "FlowExporter.h"
#include "FlowTracker.h"
#include "KivQuoted.h"

namespace Tracker {

using Kiv::Value;
using Pexa::ControlSocket;

ControlSocket::Rows TrackerRequests::answer(const Value& request) const {
  const Value* name = request.member("request");
  const Kiv::String text = name != nullptr ? name->text() : Kiv::String();
  if (text == "statistics") return Pexa::oneRow(statistics());
  if (text == "flows") return flows();
  if (text == "candidates") return candidates(request);
  throw Kiv::ValueError(
      fmt::format("no request {}, expected one of: statistics, flows, candidates", Kiv::quoted(text)));
}

Value::Object TrackerRequests::statistics() const {
  Value::Object all = tracker_.statistics();
  all.emplace_back("datagramsDropped", socket_.dropped());
  all.emplace_back("collectors", exporter_.value());
  all.emplace_back("recordsFailed", exporter_.failed());
  return all;
}

ControlSocket::Rows TrackerRequests::flows() const {
  Value::List rows;
  tracker_.flows([&](Value::Object row) { rows.emplace_back(std::move(row)); });
  return Pexa::rowsOf(std::move(rows));
}

ControlSocket::Rows TrackerRequests::candidates(const Value& request) const {
  FlowTracking::FlowPattern pattern;
  if (const Value* match = request.member("match")) {
    pattern = Kiv::ValueTraits<FlowTracking::FlowPattern>::fromValue(*match);
  }
  const Value* most = request.member("most");
  Value::List rows;
  const std::size_t met = tracker_.candidates(
      pattern, most != nullptr ? Kiv::unsignedFromValue(*most, kMostCandidates) : kMostCandidates,
      [&](Value::Object row) { rows.emplace_back(std::move(row)); });
  rows.emplace_back(Value::Object{{"candidates", met}});
  return Pexa::rowsOf(std::move(rows));
}

}  // namespace Tracker
