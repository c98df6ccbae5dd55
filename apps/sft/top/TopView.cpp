#include "top/TopView.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <numeric>

#include "top/Panels.h"

namespace Sft::Top {
namespace {

constexpr std::size_t kLeastBody = 3;
constexpr std::size_t kWide = 70;
constexpr std::size_t kLeastBar = 8;
constexpr double kNearlyFull = 0.9;
constexpr std::size_t kLargeRows = 40;  // from here on the other panels are shown, too
constexpr std::size_t kLargeColumns = 150;
constexpr std::size_t kOtherRows = 12;

struct Layout {
  bool title = false, families = false, traffic = false, heading = false, footer = false;
  std::size_t body = 0;
  std::size_t others = 0;
};

bool troubled(const TopModel& model) {
  return !model.away().empty() || !model.tables().problem.empty();
}

Layout layoutOf(const TopModel& model, Size size) {
  Layout layout;
  std::size_t left = size.rows;
  const auto take = [&](std::size_t rows, std::size_t keep) {
    if (left < rows + keep) return false;
    left -= rows;
    return true;
  };
  take(1, 1);  // the tabs
  layout.heading = take(1, kLeastBody);
  layout.title = take(1, kLeastBody);
  if (troubled(model)) layout.traffic = take(1, kLeastBody);
  layout.families = take(2, kLeastBody);
  layout.footer = take(1, kLeastBody);
  if (!troubled(model)) layout.traffic = take(1, kLeastBody + 2);
  if (size.rows >= kLargeRows && size.columns >= kLargeColumns) {
    layout.others = kOtherRows;
    left -= kOtherRows;
  }
  layout.body = left;
  return layout;
}

void putRight(Grid& grid, std::size_t row, std::string_view text, Style style) {
  const std::size_t columns = grid.size().columns;
  grid.put(row, columns - std::min(columns, text.size()), cut(text, columns), style);
}

void drawTitle(Grid& grid, std::size_t row, const TopModel& model) {
  const std::size_t columns = grid.size().columns;
  const auto now = static_cast<std::time_t>(model.now());
  std::string right = fmt::format("{:%H:%M:%S}Z", fmt::gmtime(now));
  if (columns >= kWide)
    right = fmt::format("every {:g} s  {:%Y-%m-%d} {}", model.interval(), fmt::gmtime(now), right);
  if (model.paused()) right = "PAUSED  " + right;
  const std::size_t room = columns - std::min(columns, right.size() + 2);
  grid.put(row, 0, cut("sft top  " + model.runDir(), room), Style::bold);
  putRight(grid, row, right, model.paused() ? Style::warning : Style::plain);
}

std::string familyText(const TopModel& model, std::size_t family, std::size_t columns) {
  const FamilyCounts& counts = model.tables().families[family];
  const std::string most = model.budget() ? fmt::format("{}", *model.budget()) : "?";
  std::string text =
      columns < kWide
          ? fmt::format("{}/{}, overflow {}", counts.inHardware, most, counts.overflow)
          : fmt::format("{} of {} in hardware, {} in overflow", counts.inHardware, most, counts.overflow);
  if (counts.others > 0) text += fmt::format(", {} other", counts.others);
  if (!(family == 0 ? model.selection().ipv4 : model.selection().ipv6)) text += " (off)";
  return text;
}

// How much of the budget is used; all of none.
double usedShare(const TopModel& model, std::size_t family) {
  const auto& budget = model.budget();
  if (!budget) return 0;
  if (*budget == 0) return 1;
  return static_cast<double>(model.tables().families[family].inHardware) / static_cast<double>(*budget);
}

void drawFamilies(Grid& grid, std::size_t row, const TopModel& model, BarKind bars) {
  constexpr std::array<std::string_view, 2> kNames{"IPv4 [", "IPv6 ["};
  const std::size_t columns = grid.size().columns;
  const std::array<std::string, 2> texts{familyText(model, 0, columns), familyText(model, 1, columns)};
  const std::size_t taken = kNames[0].size() + 2 + std::max(texts[0].size(), texts[1].size());
  const std::size_t width = std::max(columns - std::min(columns, taken), kLeastBar);
  for (std::size_t family = 0; family < texts.size(); ++family, ++row) {
    const double share = usedShare(model, family);
    const Style style = share >= 1 ? Style::bad : share >= kNearlyFull ? Style::warning : Style::good;
    std::size_t column = grid.put(row, 0, kNames[family]);
    column = grid.put(row, column, bar(share, width, bars), style);
    grid.put(row, column, "] " + texts[family]);
  }
}

template <class Rows, class Member>
PerSecond sum(const Rows& rows, Member member) {
  PerSecond all;
  for (const auto& each : rows) {
    if (each.*member) all = all.value_or(0) + *(each.*member);
  }
  return all;
}

void drawTrouble(Grid& grid, std::size_t row, const TopModel& model) {
  std::string text = model.away();
  if (!model.tables().problem.empty()) {
    if (!text.empty()) text += "; ";
    text += model.tables().problem;
    if (model.tables().damages > 1) text += fmt::format(" (and {} more)", model.tables().damages - 1);
  }
  grid.put(row, 0, cut(text, grid.size().columns), Style::bad);
}

void drawTraffic(Grid& grid, std::size_t row, const TopModel& model) {
  if (troubled(model)) return drawTrouble(grid, row, model);
  const auto& ports = model.ports();
  const auto& samplings = model.samplings();
  grid.put(row, 0,
           fmt::format("in {} pkt/s {} bit/s  out {} pkt/s {} bit/s  samples {}/s  lost {}/s",
                       shortNumber(sum(ports, &RatedPort::packetsInRate)),
                       shortNumber(bits(sum(ports, &RatedPort::bytesInRate))),
                       shortNumber(sum(ports, &RatedPort::packetsOutRate)),
                       shortNumber(bits(sum(ports, &RatedPort::bytesOutRate))),
                       shortNumber(sum(samplings, &RatedSampling::samplesRate)),
                       shortNumber(sum(samplings, &RatedSampling::dropsRate))));
}

// The first row that is shown: no screen is left half empty while there are rows before it.
std::size_t firstRow(const TopModel& model, std::size_t shown) {
  const std::size_t rows = model.rows(model.panel());
  return std::min(model.scrolled(model.panel()), rows > shown ? rows - shown : 0);
}

// "1-17 of 1036": of the rows that a panel has those that are shown.
std::string rowsText(const TopModel& model, std::size_t shown) {
  const std::size_t from = firstRow(model, shown);
  const std::size_t rows = model.rows(model.panel());
  const std::uint64_t all = model.panel() == Panel::flows ? model.taken() : rows;
  const std::size_t end = std::min(rows, from + shown);
  return fmt::format("{}-{} of {}", end == 0 ? 0 : from + 1, end, all);
}

std::string selectionText(const TopModel& model) {
  const Selection& selection = model.selection();
  std::string text = fmt::format("by {}{}", nameOf(selection.order), selection.reversed ? " reversed" : "");
  if (!selection.state.empty()) text += fmt::format(", {}", selection.state);
  if (!selection.text.empty()) text += fmt::format(", \"{}\"", cut(selection.text, 24));
  return text;
}

void drawTabs(Grid& grid, std::size_t row, const TopModel& model, std::size_t shown) {
  std::string right = rowsText(model, shown);
  if (model.panel() == Panel::flows) right = fmt::format("{}  {}", selectionText(model), right);
  std::size_t column = 0;
  for (std::size_t each = 0; each < kPanelNames.size(); ++each) {
    const bool chosen = static_cast<Panel>(each) == model.panel();
    if (!chosen && grid.size().columns < kWide) continue;
    column = grid.put(row, column,
                      fmt::format("{1}{0}{2}", kPanelNames[each], chosen ? "[" : " ", chosen ? "]" : " "),
                      chosen ? Style::bold : Style::dim);
  }
  const std::size_t room = grid.size().columns - std::min(grid.size().columns, column + 1);
  putRight(grid, row, cut(right, room), Style::plain);
}

void drawFooter(Grid& grid, std::size_t row, const TopModel& model) {
  if (model.typing()) {
    const std::size_t column = grid.put(row, 0, "filter: ", Style::bold);
    const std::size_t behind = grid.put(row, column, *model.typing() + "_", Style::bold);
    grid.put(row, behind + 2, "Enter: keep it  Esc: as before", Style::dim);
    return;
  }
  grid.put(row, 0, "q quit  ? keys  Tab panel  s order  r reverse  / filter  f state  Space pause",
           Style::dim);
}

void drawHelp(Grid& grid, const Place& place) {
  for (std::size_t line = 0; line < std::min(kKeyHelp.size(), place.size.rows); ++line) {
    grid.put(place.row + line, place.column, kKeyHelp[line].keys, Style::bold);
    grid.put(place.row + line, place.column + 22, kKeyHelp[line].what);
  }
}

// The panels that are not chosen, side by side.
void drawOthers(Grid& grid, const Place& place, const TopModel& model, BarKind bars) {
  const std::size_t width = place.size.columns / (kPanelNames.size() - 1);
  std::size_t column = 0;
  for (std::size_t each = 0; each < kPanelNames.size(); ++each) {
    const auto panel = static_cast<Panel>(each);
    if (panel == model.panel()) continue;
    grid.put(place.row, column, kPanelNames[each], Style::bold);
    const Place table{place.row + 1, column, {place.size.rows - 1, width - 2}};
    drawTable(grid, table, panelTable(model, panel, 0, place.size.rows, width - 2), true, bars);
    column += width;
  }
}

}  // namespace

std::size_t pageOf(const TopModel& model, Size size) {
  return layoutOf(model, size).body;
}

Grid frame(const TopModel& model, Size size, BarKind bars) {
  Grid grid(size);
  const Layout layout = layoutOf(model, size);
  std::size_t row = 0;
  if (layout.title) drawTitle(grid, row++, model);
  if (layout.families) {
    drawFamilies(grid, row, model, bars);
    row += 2;
  }
  if (layout.traffic) drawTraffic(grid, row++, model);
  const Panel panel = model.panel();
  drawTabs(grid, row++, model, layout.body);
  const Place body{row, 0, {layout.body + (layout.heading ? 1 : 0), size.columns}};
  if (model.helps()) {
    drawHelp(grid, body);
  } else {
    drawTable(grid, body, panelTable(model, panel, firstRow(model, layout.body), layout.body, size.columns),
              layout.heading, bars);
  }
  row += body.size.rows;
  if (layout.others > 0) drawOthers(grid, {row, 0, {layout.others, size.columns}}, model, bars);
  if (layout.footer) drawFooter(grid, size.rows - 1, model);
  return grid;
}

}  // namespace Sft::Top
