#include "SmTrace.h"

namespace SampledFlowTracker {

namespace {
constinit Skein::CallSite ringSite("Sft", __FILE__, __LINE__, "SftPexaFtHOCSM", Skein::Volume::event);
}  // namespace

SmTrace::SmTrace() : debug_(Fenn::Platform::getDebugHandler(kName, 0)), handle_(Kiv::String(kName), 0) {}

void SmTrace::write(unsigned level, std::string_view handler, std::string_view text) const {
  Kiv::TraceHelper(handle_, level, __FILE__, __LINE__, handler).write(text);
  if (ring_ != nullptr && ring_->enabled(ringSite)) ring_->write(ringSite, text);
}

}  // namespace SampledFlowTracker
