#include "top/CounterRates.h"

namespace Sft::Top {

std::optional<double> CounterRates::perSecond(const std::string& name, std::uint64_t count, double now) {
  const auto [at, first] = readings_.try_emplace(name);
  const Reading before = at->second;
  at->second = {count, now};
  if (first || count < before.count || now <= before.time) return std::nullopt;
  return static_cast<double>(count - before.count) / (now - before.time);
}

}  // namespace Sft::Top
