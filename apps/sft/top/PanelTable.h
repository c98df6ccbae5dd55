// A panel's rows laid out in columns: as many as fit, the important ones first.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "top/Bars.h"
#include "top/Grid.h"

namespace Sft::Top {

struct Column {
  enum class Kind : std::uint8_t { left, right, bar };
  std::string_view name;
  Kind kind = Kind::left;
  std::size_t least = 0;  // characters; narrower it is left out
  std::size_t most = 0;
  unsigned rank = 0;  // the smaller, the longer it stays when there is little room
};

struct PanelTable {
  struct Line {
    std::vector<std::string> cells;  // by column; that of a bar is empty
    double share = 0;                // for the bar
    Style style = Style::plain;
  };
  std::vector<Column> columns;
  std::vector<Line> lines = {};
  std::string empty = {};  // said when there are no lines
};

// Where in the grid.
struct Place {
  std::size_t row = 0;
  std::size_t column = 0;
  Size size;
};

// The width of each column, 0 when it is left out; a blank stands between two. Room that is left goes to
// columns by their rank.
std::vector<std::size_t> columnWidths(const std::vector<Column>& columns, std::size_t width);

// The heading, if asked for, and the lines below it.
void drawTable(Grid& grid, const Place& place, const PanelTable& table, bool heading, BarKind bars);

// Cut to a width; the last character then says so.
std::string cut(std::string_view text, std::size_t width);

}  // namespace Sft::Top
