#include "skein/TraceRing.h"

#include <algorithm>
#include <cassert>

#include "KivSystem.h"
#include "skein/RingWriter.h"

namespace Skein {

namespace {
constexpr std::int8_t kLevelUnknown = -2;

std::uint32_t volumesOf(int level) {
  return (level >= 0 ? volumeBit(Volume::event) : 0) | (level >= 1 ? volumeBit(Volume::packet) : 0);
}
}  // namespace

TraceRing::TraceRing(const std::filesystem::path& file, std::uint64_t bytes) {
  assert(bytes >= kLeastBytes);
  writer_ = std::make_unique<RingWriter>(file, bytes);
  levelsChanged();
}

TraceRing::~TraceRing() = default;

void TraceRing::write(const CallSite& site, std::string_view text, std::string_view filter) {
  writer_->append(Kiv::System::currentTimeUtc(), site, text, filter);
}

void TraceRing::defaultLevelIs(int level) {
  defaultLevel_ = std::clamp(level, -1, 1);
  levelsChanged();
}

void TraceRing::categoryLevelIs(std::string_view category, int level) {
  categories_.emplace(category);
  levels_.insert_or_assign(std::string(category), std::clamp(level, -1, 1));
  levelsChanged();
}

std::vector<TraceRing::CategoryLevel> TraceRing::categoryLevels() const {
  std::vector<CategoryLevel> result;
  for (const std::string& category : categories_) result.push_back({category, level(category)});
  return result;
}

void TraceRing::levelsChanged() {
  levelById_.clear();
  std::uint32_t volumes = volumesOf(defaultLevel_);
  for (const auto& [category, level] : levels_) volumes |= volumesOf(level);
  volumesIs(volumes);
}

int TraceRing::level(std::string_view category) const {
  const auto found = levels_.find(category);
  return found != levels_.end() ? found->second : defaultLevel_;
}

bool TraceRing::isEnabled(const CallSite& site, bool filterMatched) const {
  const std::uint32_t id = site.id();
  if (id >= levelById_.size()) levelById_.resize(id + std::size_t{1}, kLevelUnknown);
  if (levelById_[id] == kLevelUnknown) {
    categories_.emplace(site.category());
    levelById_[id] = static_cast<std::int8_t>(level(site.category()));
  }
  const std::int8_t held = levelById_[id];
  return filterMatched ? held >= 0 : (volumesOf(held) & volumeBit(site.volume())) != 0;
}

}  // namespace Skein
