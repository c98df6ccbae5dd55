#include "top/Bars.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Sft::Top {

std::u32string bar(double share, std::size_t width, BarKind kind) {
  constexpr char32_t kFullBlock = U'\u2588';  // before it stand seven eighths, six, ... behind it
  const unsigned parts = kind == BarKind::blocks ? 8 : 1;
  const double all = static_cast<double>(width) * parts;
  const double wanted = std::isfinite(share) ? std::clamp(share, 0.0, 1.0) * all : 0;
  auto filled = static_cast<std::size_t>(std::lround(wanted));
  if (filled == 0 && wanted > 0) filled = 1;
  std::u32string text(filled / parts, kind == BarKind::blocks ? kFullBlock : U'#');
  if (filled % parts != 0) text += kFullBlock + static_cast<char32_t>(parts - filled % parts);
  text.resize(width, U' ');
  return text;
}

std::string shortNumber(std::optional<double> number) {
  constexpr std::array<char, 6> kUnits{'k', 'M', 'G', 'T', 'P', 'E'};
  if (!number) return "-";
  double value = *number;
  if (value == 0) return "0";
  if (value < 9.95) {
    const std::string text = fmt::format("{:.{}f}", value, value < 0.995 ? 2 : 1);
    return text.ends_with(".0") ? text.substr(0, text.size() - 2) : text;
  }
  if (value < 9999.5) return fmt::format("{:.0f}", value);
  std::size_t unit = 0;
  for (value /= 1000; value >= 999.5 && unit + 1 < kUnits.size(); value /= 1000) ++unit;
  const int digits = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f}{}", value, digits, kUnits[unit]);
}

}  // namespace Sft::Top
