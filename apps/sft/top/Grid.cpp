#include "top/Grid.h"

namespace Sft::Top {
namespace {

// Of ASCII and block characters, which is all that a grid holds.
void appendUtf8(std::string& text, char32_t character) {
  const auto byte = [&](unsigned value) { text += static_cast<char>(static_cast<unsigned char>(value)); };
  if (character < 0x80) return byte(character);
  byte(0xe0 | character >> 12);
  byte(0x80 | (character >> 6 & 0x3f));
  byte(0x80 | (character & 0x3f));
}

}  // namespace

void Grid::cell(std::size_t row, std::size_t column, char32_t character, Style style) {
  if (row < size_.rows && column < size_.columns) cells_[row * size_.columns + column] = {character, style};
}

std::size_t Grid::put(std::size_t row, std::size_t column, std::string_view text, Style style) {
  for (const char each : text) {
    const bool shown = each >= ' ' && each <= '~';
    cell(row, column++, shown ? static_cast<char32_t>(each) : U'?', style);
  }
  return column;
}

std::size_t Grid::put(std::size_t row, std::size_t column, std::u32string_view text, Style style) {
  for (const char32_t each : text) cell(row, column++, each, style);
  return column;
}

void Grid::style(std::size_t row, Style style) {
  for (std::size_t column = 0; row < size_.rows && column < size_.columns; ++column) {
    cells_[row * size_.columns + column].style = style;
  }
}

std::string Grid::line(std::size_t row) const {
  std::size_t end = size_.columns;
  while (end > 0 && at(row, end - 1).character == U' ') --end;
  std::string text;
  for (std::size_t column = 0; column < end; ++column) appendUtf8(text, at(row, column).character);
  return text;
}

}  // namespace Sft::Top
