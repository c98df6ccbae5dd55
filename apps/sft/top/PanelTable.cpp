#include "top/PanelTable.h"

#include <algorithm>
#include <numeric>

namespace Sft::Top {
namespace {

void drawCell(Grid& grid, std::size_t row, std::size_t column, std::size_t width, std::string_view text,
              const Column& kind, Style style) {
  const std::string shown = cut(text, width);
  const std::size_t indent = kind.kind == Column::Kind::right ? width - shown.size() : 0;
  grid.put(row, column + indent, shown, style);
}

}  // namespace

std::string cut(std::string_view text, std::size_t width) {
  if (text.size() <= width) return std::string(text);
  if (width == 0) return {};
  return std::string(text.substr(0, width - 1)) + '~';
}

std::vector<std::size_t> columnWidths(const std::vector<Column>& columns, std::size_t width) {
  std::vector<std::size_t> byRank(columns.size());
  std::iota(byRank.begin(), byRank.end(), 0);
  std::stable_sort(byRank.begin(), byRank.end(),
                   [&](std::size_t a, std::size_t b) { return columns[a].rank < columns[b].rank; });
  std::vector<std::size_t> widths(columns.size());
  std::size_t left = width + 1;  // the last column has no blank behind it
  for (const std::size_t each : byRank) {
    if (columns[each].least + 1 > left) break;
    widths[each] = columns[each].least;
    left -= columns[each].least + 1;
  }
  for (const std::size_t each : byRank) {
    if (widths[each] == 0) continue;
    const std::size_t more = std::min(left, columns[each].most - columns[each].least);
    widths[each] += more;
    left -= more;
  }
  return widths;
}

void drawTable(Grid& grid, const Place& place, const PanelTable& table, bool heading, BarKind bars) {
  const auto widths = columnWidths(table.columns, place.size.columns);
  std::size_t row = place.row;
  const std::size_t end = place.row + place.size.rows;
  const auto drawRow = [&](Style style, const auto& draw) {
    std::size_t column = place.column;
    for (std::size_t each = 0; each < widths.size(); ++each) {
      if (widths[each] == 0) continue;
      draw(each, column, style);
      column += widths[each] + 1;
    }
    ++row;
  };
  if (heading && row < end) {
    grid.put(row, place.column, std::string(place.size.columns, ' '), Style::heading);
    drawRow(Style::heading, [&](std::size_t each, std::size_t column, Style style) {
      drawCell(grid, row, column, widths[each], table.columns[each].name, table.columns[each], style);
    });
  }
  if (table.lines.empty() && row < end) grid.put(row, place.column, table.empty, Style::dim);
  for (const PanelTable::Line& line : table.lines) {
    if (row >= end) return;
    drawRow(line.style, [&](std::size_t each, std::size_t column, Style style) {
      if (table.columns[each].kind == Column::Kind::bar) {
        grid.put(row, column, bar(line.share, widths[each], bars), Style::bar);
      } else {
        drawCell(grid, row, column, widths[each], line.cells[each], table.columns[each], style);
      }
    });
  }
}

}  // namespace Sft::Top
