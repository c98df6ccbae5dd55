#include "KivTrace.h"

#include <spdlog/spdlog.h>

#include <charconv>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>

namespace Kiv {

namespace {

std::uint32_t bitsUpTo(int most) {
  if (most < 0) return 0;
  return (2U << static_cast<unsigned>(most)) - 1U;
}

int highestOf(std::uint32_t bits) {
  int highest = -1;
  for (unsigned level = 0; level < kTraceLevels; ++level) {
    if ((bits >> level & 1U) != 0) highest = static_cast<int>(level);
  }
  return highest;
}

// Levels by handle name. Entries stay for the life of the process: handles point at them, and a level that
// was set before its handle came is found by it.
class Levels {
 public:
  static Levels& instance() {
    static Levels levels;
    return levels;
  }
  std::atomic<std::uint32_t>* of(std::string_view name, std::uint32_t initial) {
    const std::lock_guard lock(mutex_);
    auto at = byName_.find(name);
    if (at == byName_.end()) {
      at = byName_.emplace(String(name), std::make_unique<std::atomic<std::uint32_t>>(initial)).first;
    }
    return at->second.get();
  }
  std::vector<TraceHandle::State> states() {
    const std::lock_guard lock(mutex_);
    std::vector<TraceHandle::State> result;
    for (const auto& [name, bits] : byName_) result.push_back({name, highestOf(bits->load())});
    return result;
  }

 private:
  // PEXA_TRACE is "NAME=LEVEL,NAME=LEVEL"; what is no such pair is left out.
  Levels() {
    const char* variable = std::getenv("PEXA_TRACE");
    std::string_view rest = variable != nullptr ? variable : "";
    while (!rest.empty()) {
      const std::string_view pair = rest.substr(0, rest.find(','));
      rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
      const std::size_t equals = pair.rfind('=');
      if (equals == std::string_view::npos) continue;
      const std::string_view number = pair.substr(equals + 1);
      int level = -1;
      const auto parsed = std::from_chars(number.data(), number.data() + number.size(), level);
      if (parsed.ec != std::errc() || level >= static_cast<int>(kTraceLevels)) continue;
      byName_.emplace(String(pair.substr(0, equals)),
                      std::make_unique<std::atomic<std::uint32_t>>(bitsUpTo(level)));
    }
  }
  std::mutex mutex_;
  std::map<String, std::unique_ptr<std::atomic<std::uint32_t>>, std::less<>> byName_;
};

class LogSink : public TraceSink {
 public:
  void write(const TraceRecord& record) override {
    spdlog::info("{} {} {}: {}", record.handle, record.level, record.function, record.text);
  }
};

LogSink logSink;
TraceSink* currentSink = &logSink;

}  // namespace

TraceHandle::TraceHandle(String name, unsigned enabledLevels)
    : name_(std::move(name)), levels_(Levels::instance().of(name_, enabledLevels)) {}

TraceHandle::~TraceHandle() = default;

void TraceHandle::levelIs(std::string_view name, int most) {
  Levels::instance().of(name, 0)->store(bitsUpTo(std::min(most, static_cast<int>(kTraceLevels) - 1)));
}

std::vector<TraceHandle::State> TraceHandle::states() {
  return Levels::instance().states();
}

TraceSink* traceSinkIs(TraceSink* sink) {
  TraceSink* former = currentSink;
  currentSink = sink != nullptr ? sink : &logSink;
  return former;
}

void TraceHelper::write(std::string_view text) {
  record_.text = text;
  currentSink->write(record_);
}

}  // namespace Kiv
