#include "top/Selection.h"

#include <algorithm>
#include <compare>

namespace Sft::Top {
namespace {

// Rows without a rate stand behind those that stand still.
double packetRate(const FlowRow& row) {
  return row.rate ? row.rate->packets : -1;
}
double byteRate(const FlowRow& row) {
  return row.rate ? row.rate->bytes : -1;
}
// The older, the smaller; a time that is not told counts as younger than any.
double youth(const FlowRow& row) {
  return row.since > 0 ? row.since : 1e300;
}

std::partial_ordering compared(Order order, const FlowRow& a, const FlowRow& b) {
  switch (order) {
    case Order::rate:
      return packetRate(b) <=> packetRate(a);
    case Order::bits:
      return byteRate(b) <=> byteRate(a);
    case Order::packets:
      return b.packets <=> a.packets;
    case Order::bytes:
      return b.bytes <=> a.bytes;
    case Order::age:
      return youth(a) <=> youth(b);
    case Order::state:
      return a.stands() <=> b.stands();
    case Order::name:
      break;
  }
  return std::partial_ordering::equivalent;
}

}  // namespace

std::string lowered(std::string text) {
  for (char& each : text) {
    if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
  }
  return text;
}

bool Selection::takes(const FlowRow& row) const {
  if (!(row.ipv6() ? ipv6 : ipv4)) return false;
  if (!state.empty() && row.stands() != state) return false;
  return text.empty() || lowered(row.text()).find(lowered(text)) != std::string::npos;
}

bool Selection::before(const FlowRow& a, const FlowRow& b) const {
  const auto found = compared(order, a, b);
  if (found != std::partial_ordering::equivalent) return reversed ? found > 0 : found < 0;
  return order == Order::name && reversed ? b.key < a.key : a.key < b.key;
}

void BestRows::offer(const FlowRow& row) {
  if (!selection_.takes(row)) return;
  ++taken_;
  rows_.push_back(row);
  if (rows_.size() >= 2 * most_) cut();
}

void BestRows::cut() {
  if (rows_.size() <= most_) return;
  const auto end = rows_.begin() + static_cast<std::ptrdiff_t>(most_);
  std::nth_element(rows_.begin(), end, rows_.end(),
                   [this](const FlowRow& a, const FlowRow& b) { return selection_.before(a, b); });
  rows_.erase(end, rows_.end());
}

std::vector<FlowRow> BestRows::finish() {
  cut();
  std::sort(rows_.begin(), rows_.end(),
            [this](const FlowRow& a, const FlowRow& b) { return selection_.before(a, b); });
  return std::move(rows_);
}

}  // namespace Sft::Top
