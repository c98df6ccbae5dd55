#include "TraceLevels.h"

#include <fmt/format.h>

#include "Fenn.h"

namespace Pexa {
namespace {

constexpr std::int64_t kMostRingLevel = 1;

int highestLevel(const Fenn::DebugHandler& handler) {
  int highest = -1;
  for (unsigned level = 0; level < Kiv::kTraceLevels; ++level) {
    if (handler.enabled(level)) highest = static_cast<int>(level);
  }
  return highest;
}

Kiv::Value row(std::string_view name, std::string_view channel, int level) {
  return Kiv::Value::Object{{"name", name}, {"channel", channel}, {"level", level}};
}

void checkRange(std::string_view name, std::int64_t level, std::int64_t most) {
  if (level >= -1 && level <= most) return;
  throw Kiv::ValueError(fmt::format("level {} of \"{}\", expected -1 to {}", level, name, most));
}

[[noreturn]] void throwUnknown(const Skein::TraceRing& ring, std::string_view name) {
  std::string known;
  for (const Kiv::Value& each : traceLevels(ring))
    known += (known.empty() ? "" : ", ") + each.member("name")->text();
  throw Kiv::ValueError(fmt::format("nothing traces as \"{}\", expected one of: {}", name, known));
}

}  // namespace

Kiv::Value::List traceLevels(const Skein::TraceRing& ring) {
  Kiv::Value::List rows;
  for (const auto& state : Kiv::TraceHandle::states()) rows.push_back(row(state.name, "text", state.level));
  for (const auto& category : ring.categoryLevels())
    rows.push_back(row(category.category, "ring", category.level));
  for (const auto& handler : Fenn::Platform::debugHandlers()) {
    rows.push_back(row(handler->name(), "debug", highestLevel(*handler)));
  }
  return rows;
}

void traceLevelIs(Skein::TraceRing& ring, std::string_view name, std::int64_t level) {
  bool known = false;
  for (const auto& category : ring.categoryLevels()) {
    if (category.category != name) continue;
    checkRange(name, level, kMostRingLevel);
    ring.categoryLevelIs(name, static_cast<int>(level));
    known = true;
  }
  for (const auto& state : Kiv::TraceHandle::states()) {
    if (state.name != name) continue;
    checkRange(name, level, Kiv::kTraceLevels - 1);
    Kiv::TraceHandle::levelIs(name, static_cast<int>(level));
    known = true;
  }
  for (const auto& handler : Fenn::Platform::debugHandlers()) {
    if (handler->name() != name) continue;
    checkRange(name, level, Kiv::kTraceLevels - 1);
    handler->levelsIs(level < 0 ? 0U : (2U << static_cast<unsigned>(level)) - 1U);
    known = true;
  }
  if (!known) throwUnknown(ring, name);
}

}  // namespace Pexa
