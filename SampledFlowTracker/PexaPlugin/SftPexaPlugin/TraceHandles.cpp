#include "TraceHandles.h"

#include "Duvo.h"

namespace SampledFlowTracker {

const Kiv::String& _defaultPexaTraceHandle() {
  static const Kiv::String name = "Sft";
  return name;
}

const Kiv::TraceHandle& _defaultTraceHandle() {
  static const Kiv::TraceHandle handle("Pexa::Sft", 0);
  return handle;
}

void textTrace(std::string_view function, int line, std::string_view text) {
  Kiv::TraceHelper(_defaultTraceHandle(), 0, kTraceFile, line, function).write(text);
}

void traceBoth(const Skein::CallSite& site, std::string_view text, std::string_view filter) {
  Duvo::SkeinConverter converter;
  converter << text;
  if (ringTraced(site, filter)) converter.toSkein(Skein::agentTraceHandle(), site, filter);
  if (textTraced()) {
    converter.toText(Kiv::TraceHelper(_defaultTraceHandle(), 0, kTraceFile, site.line(), site.function()));
  }
}

}  // namespace SampledFlowTracker
