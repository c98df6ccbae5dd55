// Ring-buffer trace: records in a file of the run directory that overwrite the oldest, readable at any time
// by `sft trace`, also after the agent died.
//
// Each place in the source that traces has a CallSite; its identifier is allocated on first use. A record is
// formed only when the handle has a trace file and the call site is enabled: one test otherwise.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KivString.h"

namespace Skein {

// Which records are wanted. Events (start, stop, configuration) are on from the start; records that a single
// packet causes are off until asked for, but for packets that match a trace filter.
enum class Volume : std::uint8_t { event, packet };

class CallSite {
 public:
  constexpr CallSite(std::string_view category, std::string_view file, int line, std::string_view function,
                     Volume volume)
      : category_(category), file_(file), function_(function), line_(line), volume_(volume) {}
  std::string_view category() const { return category_; }
  std::string_view file() const { return file_; }
  std::string_view function() const { return function_; }
  int line() const { return line_; }
  Volume volume() const { return volume_; }

 private:
  friend class TraceHandle;
  std::string_view category_;
  std::string_view file_;
  std::string_view function_;
  int line_;
  Volume volume_;
  mutable std::atomic<std::uint32_t> id_{0};  // 0 until first used
};

// The agent's trace. There is one in the process, shared by all.
class TraceHandle {
 public:
  virtual ~TraceHandle() = default;

  // Whether there is a trace file and this call site's records are wanted.
  bool enabled(const CallSite& site) const {
    const std::uint32_t volumes = volumes_.load(std::memory_order_relaxed);
    return volumes != 0 && isEnabled(site, volumes);
  }
  // Appends a record with a rendered text of at most a few hundred bytes (longer ones are cut). The filter's
  // name, or an empty one, says which trace filter the packet matched.
  virtual void write(const CallSite& site, std::string_view text, std::string_view filter = {}) = 0;

  // Which volumes are written for categories without a setting of their own; bit 0 events, bit 1 packets. 0
  // while there is no trace file.
  void volumesIs(std::uint32_t volumes) { volumes_.store(volumes, std::memory_order_relaxed); }
  std::uint32_t volumes() const { return volumes_.load(std::memory_order_relaxed); }
  // Highest level of a category: -1 nothing, 0 events, 1 packets too.
  virtual void categoryLevelIs(std::string_view category, int level) = 0;

 protected:
  virtual bool isEnabled(const CallSite& site, std::uint32_t volumes) const = 0;

 private:
  std::atomic<std::uint32_t> volumes_{0};
};

// The agent's shared handle. Without a trace file until the agent opens one.
TraceHandle& agentTraceHandle();
// Replaces the shared handle (null: back to the process's own). Returns the former one.
TraceHandle* agentTraceHandleIs(TraceHandle* handle);

}  // namespace Skein
