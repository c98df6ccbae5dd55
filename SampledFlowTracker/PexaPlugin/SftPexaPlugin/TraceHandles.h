// Where this library traces to: the ring buffer under the category "Sft", and the leveled text trace
// "Pexa::Sft".
//
// The packet path tests before it formats: textTraced() costs a load, and so does
// Skein::TraceHandle::enabled. Threading: the agent's event thread.
#pragma once

#include <string_view>

#include "Kiv.h"
#include "Skein.h"

namespace SampledFlowTracker {

// Names below are the agent's convention for a library's default handles; both are made on first use and
// kept.

// The category at the head of every ring-buffer record, and the source of counted reasons: "Sft".
const Kiv::String& _defaultPexaTraceHandle();
// The text trace handle "Pexa::Sft"; its level 0 gates the texts of the plugin and the packet path.
const Kiv::TraceHandle& _defaultTraceHandle();

// What trace records call this library's sources.
inline constexpr std::string_view kTraceFile = "SampledFlowTracker/PexaPlugin/SftPexaPlugin";

inline bool textTraced() {
  return _defaultTraceHandle().enabled(0);
}
// One text trace at level 0. To be called when textTraced().
void textTrace(std::string_view function, int line, std::string_view text);
// One text to both channels, for those that want it: the ring-buffer record is led by the category and a
// blank. Nothing is formatted here; call it when ringTraced() or textTraced().
void traceBoth(const Skein::CallSite& site, std::string_view text, std::string_view filter = {});

inline bool ringTraced(const Skein::CallSite& site, std::string_view filter = {}) {
  return Skein::agentTraceHandle().enabled(site, filter);
}

}  // namespace SampledFlowTracker
