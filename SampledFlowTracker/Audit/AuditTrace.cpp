#include "AuditTrace.h"

#include "Duvo.h"

namespace SampledFlowTracker {

namespace {
constexpr std::string_view kTraceFile = "SampledFlowTracker/Audit";
}  // namespace

void auditLog(std::string_view text) {
  static constinit Skein::CallSite site("Sft", kTraceFile, __LINE__, "audit", Skein::Volume::event);
  static const Kiv::TraceHandle handle("Pexa::SftAudit", 0);
  Duvo::SkeinConverter converter;
  converter << text;
  if (Skein::agentTraceHandle().enabled(site)) converter.toSkein(Skein::agentTraceHandle(), site);
  converter.toText(Kiv::TraceHelper(handle, 0, kTraceFile, site.line(), site.function()));
}

}  // namespace SampledFlowTracker
