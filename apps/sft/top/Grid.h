// A frame before it is on a screen: a grid of characters with styles.
//
// Characters are ASCII, or the block characters of Bars.h; what else comes in a text is shown as "?". What
// does not fit is cut off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Sft::Top {

struct Size {
  std::size_t rows = 24;
  std::size_t columns = 80;
  bool operator==(const Size&) const = default;
};

enum class Style : std::uint8_t { plain, dim, bold, heading, good, warning, bad, bar };

struct Cell {
  char32_t character = U' ';
  Style style = Style::plain;
  bool operator==(const Cell&) const = default;
};

class Grid {
 public:
  explicit Grid(Size size) : size_(size), cells_(size.rows * size.columns) {}

  const Size& size() const { return size_; }
  // REQUIRES: inside the grid.
  const Cell& at(std::size_t row, std::size_t column) const { return cells_[row * size_.columns + column]; }

  // Writes from a place on, and gives the column behind. Nothing outside the grid is written.
  std::size_t put(std::size_t row, std::size_t column, std::string_view text, Style style = Style::plain);
  std::size_t put(std::size_t row, std::size_t column, std::u32string_view text, Style style = Style::plain);
  // Styles a whole row.
  void style(std::size_t row, Style style);

  // A line in UTF-8, without blanks at its end.
  std::string line(std::size_t row) const;

 private:
  void cell(std::size_t row, std::size_t column, char32_t character, Style style);

  Size size_;
  std::vector<Cell> cells_;
};

}  // namespace Sft::Top
