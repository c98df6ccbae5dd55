// Leveled text traces. A handle has a name ("Pexa::Sft") and ten levels, each on or off; a trace at a level
// that is off costs one test and formats nothing. What is on is set from the environment (PEXA_TRACE), the
// agent's configuration, or `sft trace level NAME LEVEL`.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "KivString.h"

namespace Kiv {

// Levels 0 to 9; a smaller number is more important.
inline constexpr unsigned kTraceLevels = 10;

class TraceHandle {
 public:
  // Handles of one name share their levels. The number is the handle's first enabled state: 0 leaves all
  // levels off unless the environment or a former call switched them on.
  TraceHandle(String name, unsigned enabledLevels);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const String& name() const { return name_; }
  bool enabled(unsigned level) const { return (levels_->load(std::memory_order_relaxed) >> level & 1U) != 0; }

  // Switches levels 0 to `most` on and the others off; -1 switches all off. Applies to handles of this name
  // that exist now or come later.
  static void levelIs(std::string_view name, int most);
  struct State {
    String name;
    int level;  // highest enabled, -1: none
  };
  static std::vector<State> states();

 private:
  String name_;
  std::atomic<std::uint32_t>* levels_;  // bit n: level n is on; owned by the registry, kept for the process
};

// Where a trace line goes. The default writes "time name level function: text" to the agent's log.
struct TraceRecord {
  std::string_view handle;
  unsigned level;
  std::string_view file;
  int line;
  std::string_view function;
  std::string_view text;
};
class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};
// Null goes back to the default sink. Returns the former one.
TraceSink* traceSinkIs(TraceSink* sink);

// One text trace at one place in the source.
class TraceHelper {
 public:
  TraceHelper(const TraceHandle& handle, unsigned level, std::string_view file, int line,
              std::string_view function)
      : record_{handle.name(), level, file, line, function, {}} {}
  void write(std::string_view text);

 private:
  TraceRecord record_;
};

}  // namespace Kiv
