// Ring-buffer trace: records in a file of the run directory that overwrite the oldest, readable at any time
// by `sft trace`, also after the agent died.
//
// Each place in the source that traces has a CallSite; its identifier is allocated on first use. A record is
// formed only when its call site is enabled, which costs one test while nobody wants such records:
//
//   static constinit Skein::CallSite site("Sft", __FILE__, __LINE__, __func__, Skein::Volume::packet);
//   if (trace.enabled(site, filter)) trace.write(site, text, filter);
//
// Threading: the agent's event thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "KivString.h"

namespace Skein {

// Which records are wanted. Events (start, stop, configuration) are on from the start; records that a single
// packet causes are off until asked for, but for packets that match a trace filter.
enum class Volume : std::uint8_t { event, packet };

constexpr std::uint32_t volumeBit(Volume volume) {
  return 1U << static_cast<unsigned>(volume);
}

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
  // Names the call site in this process, from 1 up.
  std::uint32_t id() const {
    const std::uint32_t id = id_.load(std::memory_order_relaxed);
    return id != 0 ? id : allocateId();
  }

 private:
  std::uint32_t allocateId() const;

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

  // Whether there is a trace file and this call site's records are wanted. With the name of the trace filter
  // that the packet matches, if any: such a packet's records are wanted whatever the volume, unless the call
  // site's category is off altogether.
  bool enabled(const CallSite& site, std::string_view filter = {}) const {
    std::uint32_t volumes = volumes_.load(std::memory_order_relaxed);
    if (volumes != 0 && !filter.empty()) volumes |= volumeBit(Volume::packet);
    return (volumes & volumeBit(site.volume())) != 0 && isEnabled(site, !filter.empty());
  }
  // Appends a record with a rendered text of at most a few hundred bytes (longer ones are cut). The filter's
  // name, or an empty one, says which trace filter the packet matched.
  virtual void write(const CallSite& site, std::string_view text, std::string_view filter = {}) = 0;

  // The volumes that some category wants, as bits of volumeBit(); 0 while there is no trace file. Kept by the
  // trace itself: it is what a call site is tested against first.
  void volumesIs(std::uint32_t volumes) { volumes_.store(volumes, std::memory_order_relaxed); }
  std::uint32_t volumes() const { return volumes_.load(std::memory_order_relaxed); }
  // Highest level of a category: -1 nothing, 0 events, 1 packets too.
  virtual void categoryLevelIs(std::string_view category, int level) = 0;

 protected:
  // Whether the call site's category wants it, once its volume is wanted by some category or a filter
  // matched.
  virtual bool isEnabled(const CallSite& site, bool filterMatched) const = 0;

 private:
  std::atomic<std::uint32_t> volumes_{0};
};

// The agent's shared handle. Without a trace file until the agent opens one.
TraceHandle& agentTraceHandle();
// Replaces the shared handle (null: back to the process's own). Returns the former one.
TraceHandle* agentTraceHandleIs(TraceHandle* handle);

}  // namespace Skein
