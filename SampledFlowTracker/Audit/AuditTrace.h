// Where the audit tells what it did by itself: one line in the agent's log and in the trace ring.
#pragma once

#include <string_view>

namespace SampledFlowTracker {

void auditLog(std::string_view text);

}  // namespace SampledFlowTracker
