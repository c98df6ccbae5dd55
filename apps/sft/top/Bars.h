// Bars and short numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Sft::Top {

// What bars are made of: eighths of a block, or "#" on a terminal that has none.
enum class BarKind : std::uint8_t { blocks, hashes };

// A bar of a share of a width, filled up with blanks. What is not nothing shows at least the shortest bar;
// shares behind 1 are 1.
std::u32string bar(double share, std::size_t width, BarKind kind);

// In at most 5 characters: "0", "0.25", "9.5", "12", "1234", "12.3k", "123k", "1.23M". "-" for none.
std::string shortNumber(std::optional<double> number);

}  // namespace Sft::Top
