// Which flows are shown, and in which order.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "top/FlowRow.h"

namespace Sft::Top {

enum class Order : std::uint8_t { rate, bits, packets, bytes, age, name, state };
// "rate", "bits", ...: as `--sort` takes them.
inline constexpr std::array<std::string_view, 7> kOrderNames{"rate", "bits", "packets", "bytes",
                                                             "age",  "name", "state"};
inline std::string_view nameOf(Order order) {
  return kOrderNames[static_cast<std::size_t>(order)];
}

// Where flows may stand that are shown alone; the first shows all.
inline constexpr std::array<std::string_view, 5> kStateFilters{"", "in hardware", "overflow", "waiting",
                                                               "unwanted"};

struct Selection {
  Order order = Order::rate;
  // Largest, oldest, or by name and state the first, stand at the top; reversed, at the end.
  bool reversed = false;
  std::string text = {};   // in FlowRow::text, small or capital letters; all when empty
  std::string state = {};  // as FlowRow::stands has it; all when empty
  bool ipv4 = true;
  bool ipv6 = true;

  bool operator==(const Selection&) const = default;
  bool takes(const FlowRow& row) const;
  // A total order: what is equal stands by its key.
  bool before(const FlowRow& a, const FlowRow& b) const;
};

// The first rows of all that were offered.
class BestRows {
 public:
  BestRows(Selection selection, std::size_t most) : selection_(std::move(selection)), most_(most) {}
  void offer(const FlowRow& row);
  // How many were taken, kept or not.
  std::uint64_t taken() const { return taken_; }
  // In their order. Ends the offering.
  std::vector<FlowRow> finish();

 private:
  void cut();

  Selection selection_;
  std::size_t most_;
  std::uint64_t taken_ = 0;
  std::vector<FlowRow> rows_;  // at most twice as many as are kept
};

// Small letters of ASCII.
std::string lowered(std::string text);

}  // namespace Sft::Top
