#include "ControlRequests.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "Cliprint.h"
#include "KivQuoted.h"
#include "TaskWork.h"
#include "TraceLevels.h"
#include "json/JsonText.h"
#include "metrics/MetricRows.h"

namespace Pexa {
namespace {

using Kiv::Value;
using Direction = Bridging::AllowedTrafficDirection;

const Value& member(const Value& request, std::string_view name) {
  if (const Value* found = request.member(name)) return *found;
  throw Kiv::ValueError(fmt::format("the request has no \"{}\"", name));
}

const Kiv::String& textMember(const Value& request, std::string_view name) {
  const Value& value = member(request, name);
  if (const auto* text = value.as<Kiv::String>()) return *text;
  Kiv::throwValueError(fmt::format("a string as \"{}\"", name), value);
}

void addSamplerRows(const Sflow::SflowSamplerHelperBase& sampler, const AgentPorts& ports,
                    Direction direction, Value::List& rows) {
  const auto& states = sampler.states(direction);
  for (std::size_t index = 0; index < states.size() && index < ports.all().size(); ++index) {
    const Sflow::SamplerState& state = states[index];
    if (state.rate == 0) continue;  // saw no packet that could have been sampled
    rows.push_back(Value::Object{{"intfId", ports.all()[index].port->intfId().name()},
                                 {"direction", direction == Direction::ingress ? "ingress" : "egress"},
                                 {"rate", state.rate},
                                 {"pool", state.pool},
                                 {"samples", state.samples},
                                 {"drops", state.drops}});
  }
}

}  // namespace

struct ControlRequests::Request {
  std::string_view name;
  Rows (ControlRequests::*answer)(const Value& request);
  bool changes = false;
};

const ControlRequests::Request ControlRequests::kRequests[] = {
    {"ports", &ControlRequests::ports},
    {"samples", &ControlRequests::samples},
    {"reasons", &ControlRequests::reasons},
    {"tasks", &ControlRequests::tasks},
    {"collectors", &ControlRequests::collectors},
    {"metrics", &ControlRequests::metrics},
    {"local", &ControlRequests::local},
    {"local display", &ControlRequests::localDisplay},
    {"state get", &ControlRequests::stateGet},
    {"state set", &ControlRequests::stateSet, true},
    {"attr get", &ControlRequests::attrGet},
    {"attr set", &ControlRequests::attrSet, true},
    {"attr call", &ControlRequests::attrCall, true},
    {"trace levels", &ControlRequests::traceLevels},
    {"trace level", &ControlRequests::traceLevel, true},
};

bool ControlRequests::changes(const Value& request) {
  const Value* name = request.member("request");
  return name != nullptr && std::any_of(std::begin(kRequests), std::end(kRequests), [&](const Request& each) {
           return each.changes && each.name == name->text();
         });
}

ControlSocket::Rows ControlRequests::answer(const Value& request) {
  const Kiv::String& name = textMember(request, "request");
  const auto* found = std::find_if(std::begin(kRequests), std::end(kRequests),
                                   [&](const Request& each) { return each.name == name; });
  if (found == std::end(kRequests))
    throw Kiv::ValueError(fmt::format("unknown request {}", Kiv::quoted(name)));
  return (this->*found->answer)(request);
}

ControlSocket::Rows ControlRequests::ports(const Value& /*request*/) {
  return rowsOf(parts_.ports.rows());
}

ControlSocket::Rows ControlRequests::samples(const Value& /*request*/) {
  Value::List rows;
  for (const Sflow::SflowSamplerHelperBase* sampler : parts_.exporter.samplers()) {
    addSamplerRows(*sampler, parts_.ports, Direction::ingress, rows);
    addSamplerRows(*sampler, parts_.ports, Direction::egress, rows);
  }
  return rowsOf(std::move(rows));
}

ControlSocket::Rows ControlRequests::reasons(const Value& /*request*/) {
  Value::List rows;
  for (const NamedCounters::Count& count : parts_.reasons.all()) {
    rows.push_back(Value::Object{{"category", count.category},
                                 {"source", count.source},
                                 {"reason", count.reason},
                                 {"count", count.count}});
  }
  return rowsOf(std::move(rows));
}

ControlSocket::Rows ControlRequests::tasks(const Value& /*request*/) {
  return rowsOf(taskRows(parts_.tasks));
}

ControlSocket::Rows ControlRequests::collectors(const Value& /*request*/) {
  Value::List rows;
  for (const Sflow::SflowExporter::CollectorState& each : parts_.exporter.collectors()) {
    rows.push_back(Value::Object{
        {"collector", each.channel->name()}, {"datagrams", each.datagrams}, {"lost", each.lost}});
  }
  return rowsOf(std::move(rows));
}

ControlSocket::Rows ControlRequests::metrics(const Value& /*request*/) {
  return rowsOf(Metrics::rowsOf(parts_.metrics.snapshot()));
}

ControlSocket::Rows ControlRequests::local(const Value& /*request*/) {
  Value::List rows;
  for (const auto& collection : parts_.manager.counterHolder->collections()) {
    Value::List records = collection->records();
    std::move(records.begin(), records.end(), std::back_inserter(rows));
  }
  return rowsOf(std::move(rows));
}

ControlSocket::Rows ControlRequests::localDisplay(const Value& /*request*/) {
  Value::List rows;
  for (const auto& collection : parts_.manager.counterHolder->collections()) {
    cliprint::PrinterV2 printer(cliprint::Style::pretty);
    collection->acrResponse(&printer);
    rows.push_back(Value::Object{
        {"collection", collection->name()}, {"keyType", collection->keyType()}, {"text", printer.finish()}});
  }
  return rowsOf(std::move(rows));
}

ControlSocket::Rows ControlRequests::stateGet(const Value& request) {
  const Kiv::String& path = textMember(request, "path");
  if (request.member("attribute") == nullptr) return oneRow(parts_.state.attributes(path));
  const Kiv::String& attribute = textMember(request, "attribute");
  return oneRow(Value::Object{{attribute, parts_.state.get(path, attribute)}});
}

ControlSocket::Rows ControlRequests::stateSet(const Value& request) {
  parts_.state.set(textMember(request, "path"), textMember(request, "attribute"),
                   withEntities(member(request, "value")));
  return noRows();
}

ControlSocket::Rows ControlRequests::attrGet(const Value& request) {
  const auto entity = finder_.find(textMember(request, "entity"));
  const Kiv::Type& type = entity->fwkType();
  Value::Object row;
  if (request.member("name") != nullptr) {
    const Kiv::String& name = textMember(request, "name");
    row.emplace_back(name, type.get(*entity, name));
  } else {
    for (const auto* attribute : type.attributes())
      row.emplace_back(attribute->name, attribute->get(*entity));
  }
  return oneRow(std::move(row));
}

ControlSocket::Rows ControlRequests::attrSet(const Value& request) {
  const auto entity = finder_.find(textMember(request, "entity"));
  entity->fwkType().set(*entity, textMember(request, "name"), withEntities(member(request, "value")));
  return noRows();
}

ControlSocket::Rows ControlRequests::attrCall(const Value& request) {
  const auto entity = finder_.find(textMember(request, "entity"));
  const Value arguments = withEntities(member(request, "arguments"));
  const auto* object = arguments.as<Value::Object>();
  if (object == nullptr) Kiv::throwValueError("an object as \"arguments\"", arguments);
  return oneRow(
      Value::Object{{"result", entity->fwkType().invoke(*entity, textMember(request, "name"), *object)}});
}

ControlSocket::Rows ControlRequests::traceLevels(const Value& /*request*/) {
  return rowsOf(Pexa::traceLevels(parts_.trace));
}

ControlSocket::Rows ControlRequests::traceLevel(const Value& request) {
  const Kiv::String& name = textMember(request, "name");
  const std::int64_t level = Kiv::signedFromValue(member(request, "level"), std::numeric_limits<int>::min(),
                                                  std::numeric_limits<int>::max());
  traceLevelIs(parts_.trace, name, level);
  return noRows();
}

Value ControlRequests::withEntities(const Value& value) const {
  return Json::withEntities(
      value, [this](std::string_view type, std::string_view name) { return finder_.find(type, name); });
}

}  // namespace Pexa
