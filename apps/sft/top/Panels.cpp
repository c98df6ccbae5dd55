#include "top/Panels.h"

#include <fmt/format.h>

#include <algorithm>

#include "FlowWords.h"

namespace Sft::Top {
namespace {

using Kind = Column::Kind;
using Line = PanelTable::Line;

constexpr std::size_t kFlowName = 41;  // holds most IPv4 flows whole
constexpr std::size_t kFlowNameNarrow = 20;
constexpr std::size_t kNarrow = 70;

// Calls `add` with each of the rows shown; the largest of `measure` over all rows has a whole bar.
template <class Row, class Measure, class Add>
void addLines(const std::vector<Row>& rows, std::size_t from, std::size_t most, const Measure& measure,
              const Add& add) {
  double largest = 0;
  for (const Row& each : rows) largest = std::max(largest, measure(each));
  for (std::size_t at = from; at < std::min(rows.size(), from + most); ++at) {
    add(rows[at], largest > 0 ? measure(rows[at]) / largest : 0);
  }
}

Style styleOf(const FlowRow& row) {
  if (!row.state) return Style::warning;
  if (!row.wanted) return Style::dim;
  return *row.state == FlowTracking::HoFlowState::inHardware ? Style::plain : Style::warning;
}

Line flowLine(const FlowRow& row, double share, double now) {
  const auto counted = [&](std::uint64_t count) {
    return shortNumber(row.counted ? PerSecond(static_cast<double>(count)) : std::nullopt);
  };
  return {.cells = {row.name(),
                    row.direction() == "ingress"  ? "in"
                    : row.direction() == "egress" ? "out"
                                                  : "?",
                    row.interface(), row.stands(), ageText(row.since, now),
                    shortNumber(row.rate ? PerSecond(row.rate->packets) : std::nullopt),
                    shortNumber(row.rate ? PerSecond(row.rate->bits()) : std::nullopt), "",
                    counted(row.packets), counted(row.bytes)},
          .share = share,
          .style = styleOf(row)};
}

PanelTable flowTable(const TopModel& model, std::size_t from, std::size_t most, std::size_t width) {
  const std::size_t name = width < kNarrow ? kFlowNameNarrow : kFlowName;
  PanelTable table{.columns = {{"flow", Kind::left, name, 66, 0},
                               {"dir", Kind::left, 3, 3, 3},
                               {"interface", Kind::left, 9, 22, 6},
                               {"state", Kind::left, 11, 11, 2},
                               {"age", Kind::right, 7, 7, 7},
                               {"pkt/s", Kind::right, 5, 5, 1},
                               {"bit/s", Kind::right, 5, 5, 4},
                               {"", Kind::bar, 6, 40, 5},
                               {"packets", Kind::right, 7, 7, 8},
                               {"bytes", Kind::right, 5, 7, 9}},
                   .lines = {},
                   .empty = {}};
  table.empty = !model.looked()           ? "reading the tables"
                : model.tables().met == 0 ? "no flow is wanted in hardware"
                                          : "no flow is taken by the filters (c clears them)";
  const bool bits = model.selection().order == Order::bits;
  const auto measure = [bits](const FlowRow& row) {
    return !row.rate ? 0 : bits ? row.rate->bytes : row.rate->packets;
  };
  addLines(model.flows(), from, most, measure, [&](const FlowRow& row, double share) {
    table.lines.push_back(flowLine(row, share, model.now()));
  });
  return table;
}

std::string counted(std::uint64_t count) {
  return shortNumber(static_cast<double>(count));
}
std::string noRows(const TopModel& model, std::string_view none) {
  return std::string(model.away().empty() ? model.asked() ? none : "asking the agent" : "no agent answers");
}

PanelTable samplingTable(const TopModel& model, std::size_t from, std::size_t most) {
  PanelTable table{.columns = {{"interface", Kind::left, 9, 22, 0},
                               {"direction", Kind::left, 9, 9, 1},
                               {"one in", Kind::right, 6, 8, 2},
                               {"samples/s", Kind::right, 9, 9, 1},
                               {"drops/s", Kind::right, 7, 7, 3},
                               {"", Kind::bar, 6, 40, 4},
                               {"samples", Kind::right, 7, 7, 5},
                               {"drops", Kind::right, 5, 5, 6},
                               {"pool", Kind::right, 5, 7, 7}},
                   .lines = {},
                   .empty = noRows(model, "no packet could have been sampled yet")};
  addLines(
      model.samplings(), from, most, [](const RatedSampling& row) { return row.samplesRate.value_or(0); },
      [&](const RatedSampling& row, double share) {
        table.lines.push_back({.cells = {row.interface, row.direction, counted(row.rate),
                                         shortNumber(row.samplesRate), shortNumber(row.dropsRate), "",
                                         counted(row.samples), counted(row.drops), counted(row.pool)},
                               .share = share,
                               .style = row.dropsRate.value_or(0) > 0 ? Style::warning : Style::plain});
      });
  return table;
}

PanelTable reasonTable(const TopModel& model, std::size_t from, std::size_t most) {
  PanelTable table{.columns = {{"category", Kind::left, 8, 12, 3},
                               {"reason", Kind::left, 14, 40, 0},
                               {"source", Kind::left, 10, 30, 4},
                               {"/s", Kind::right, 5, 5, 1},
                               {"count", Kind::right, 5, 7, 2},
                               {"", Kind::bar, 6, 40, 5}},
                   .lines = {},
                   .empty = noRows(model, "nothing was counted yet")};
  addLines(
      model.reasons(), from, most, [](const RatedReason& row) { return row.perSecond.value_or(0); },
      [&](const RatedReason& row, double share) {
        const std::size_t blanks = row.reason.find_first_not_of(' ');
        table.lines.push_back(
            {.cells = {row.category, blanks == std::string::npos ? "" : row.reason.substr(blanks), row.source,
                       shortNumber(row.perSecond), counted(row.count), ""},
             .share = share});
      });
  return table;
}

std::string portState(const RatedPort& row) {
  if (!row.up) return "down";
  return row.replay.empty() ? "up" : row.replay;
}

PanelTable portTable(const TopModel& model, std::size_t from, std::size_t most) {
  PanelTable table{.columns = {{"port", Kind::left, 9, 22, 0},
                               {"kind", Kind::left, 7, 7, 6},
                               {"state", Kind::left, 8, 8, 5},
                               {"in pkt/s", Kind::right, 8, 8, 1},
                               {"in bit/s", Kind::right, 8, 8, 3},
                               {"out pkt/s", Kind::right, 9, 9, 2},
                               {"out bit/s", Kind::right, 9, 9, 4},
                               {"drops/s", Kind::right, 7, 7, 7},
                               {"", Kind::bar, 6, 40, 8},
                               {"packets in", Kind::right, 10, 10, 9},
                               {"packets out", Kind::right, 11, 11, 10},
                               {"drops", Kind::right, 5, 5, 11}},
                   .lines = {},
                   .empty = noRows(model, "the agent has no ports")};
  addLines(
      model.ports(), from, most,
      [](const RatedPort& row) { return row.packetsInRate.value_or(0) + row.packetsOutRate.value_or(0); },
      [&](const RatedPort& row, double share) {
        table.lines.push_back(
            {.cells = {row.name, row.kind, portState(row), shortNumber(row.packetsInRate),
                       shortNumber(bits(row.bytesInRate)), shortNumber(row.packetsOutRate),
                       shortNumber(bits(row.bytesOutRate)), shortNumber(row.dropsRate), "",
                       counted(row.packetsIn), counted(row.packetsOut), counted(row.dropsIn + row.dropsOut)},
             .share = share,
             .style = row.up && row.replay != "damaged" ? Style::plain : Style::bad});
      });
  return table;
}

}  // namespace

PanelTable panelTable(const TopModel& model, Panel panel, std::size_t from, std::size_t most,
                      std::size_t width) {
  switch (panel) {
    case Panel::flows:
      return flowTable(model, from, most, width);
    case Panel::sampling:
      return samplingTable(model, from, most);
    case Panel::reasons:
      return reasonTable(model, from, most);
    case Panel::ports:
      break;
  }
  return portTable(model, from, most);
}

}  // namespace Sft::Top
