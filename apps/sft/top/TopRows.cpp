#include "top/TopRows.h"

#include "RecordValues.h"

namespace Sft::Top {
namespace {

using Kiv::Value;
using Object = Value::Object;

Value orNull(const PerSecond& rate) {
  return rate ? Value(*rate) : Value();
}
Value orNull(const std::string& text) {
  return text.empty() ? Value() : Value(text);
}

Object familyRow(const TopModel& model, std::string_view family, const FamilyCounts& counts) {
  return {{"panel", "family"},
          {"family", family},
          {"budget", model.budget() ? Value(*model.budget()) : Value()},
          {"inHardware", counts.inHardware},
          {"overflow", counts.overflow},
          {"other", counts.others}};
}

template <class Key>
Value keyValue(const Key& key) {
  return Kiv::ValueTraits<Key>::toValue(key);
}

Object flowRow(const FlowRow& row, double now) {
  return {{"panel", "flow"},
          {"key", std::visit([](const auto& key) { return keyValue(key); }, row.key)},
          {"family", row.ipv6() ? "IPv6" : "IPv4"},
          {"flow", row.name()},
          {"directionName", row.direction()},
          {"wanted", row.wanted},
          {"state", row.state ? Value(static_cast<unsigned>(*row.state)) : Value()},
          {"stateName", row.stands()},
          {"age", row.since > 0 ? Value(now - row.since) : Value()},
          {"packets", row.counted ? Value(row.packets) : Value()},
          {"bytes", row.counted ? Value(row.bytes) : Value()},
          {"packetsPerSecond", row.rate ? Value(row.rate->packets) : Value()},
          {"bitsPerSecond", row.rate ? Value(row.rate->bits()) : Value()}};
}

Object samplingRow(const RatedSampling& row) {
  return {{"panel", "sampling"},
          {"intfId", row.interface},
          {"direction", row.direction},
          {"rate", row.rate},
          {"pool", row.pool},
          {"samples", row.samples},
          {"drops", row.drops},
          {"samplesPerSecond", orNull(row.samplesRate)},
          {"dropsPerSecond", orNull(row.dropsRate)}};
}

Object reasonRow(const RatedReason& row) {
  return {{"panel", "reason"},    {"category", row.category}, {"source", row.source},
          {"reason", row.reason}, {"count", row.count},       {"perSecond", orNull(row.perSecond)}};
}

Object portRow(const RatedPort& row) {
  return {{"panel", "port"},
          {"name", row.name},
          {"kind", row.kind},
          {"up", row.up},
          {"replay", orNull(row.replay)},
          {"packetsIn", row.packetsIn},
          {"bytesIn", row.bytesIn},
          {"packetsOut", row.packetsOut},
          {"bytesOut", row.bytesOut},
          {"drops", row.dropsIn + row.dropsOut},
          {"packetsInPerSecond", orNull(row.packetsInRate)},
          {"bytesInPerSecond", orNull(row.bytesInRate)},
          {"packetsOutPerSecond", orNull(row.packetsOutRate)},
          {"bytesOutPerSecond", orNull(row.bytesOutRate)},
          {"dropsPerSecond", orNull(row.dropsRate)}};
}

}  // namespace

Value::List rowsOf(const TopModel& model) {
  Value::List rows;
  rows.emplace_back(
      Object{{"panel", "agent"}, {"answers", model.away().empty()}, {"why", orNull(model.away())}});
  const TableLook& tables = model.tables();
  rows.emplace_back(Object{{"panel", "tables"},
                           {"flows", tables.met},
                           {"taken", tables.taken},
                           {"damages", tables.damages},
                           {"problem", orNull(tables.problem)}});
  rows.emplace_back(familyRow(model, "IPv4", tables.families[0]));
  rows.emplace_back(familyRow(model, "IPv6", tables.families[1]));
  for (const FlowRow& each : model.flows()) rows.emplace_back(flowRow(each, model.now()));
  for (const RatedSampling& each : model.samplings()) rows.emplace_back(samplingRow(each));
  for (const RatedReason& each : model.reasons()) rows.emplace_back(reasonRow(each));
  for (const RatedPort& each : model.ports()) rows.emplace_back(portRow(each));
  return rows;
}

}  // namespace Sft::Top
