// The hardware-offload control state machine: from the wanted offloads to their status, counters and
// per-state counts. This build has none; the root entity's attribute for it stays empty.
#pragma once

#include "Kiv.h"

namespace SampledFlowTracker {

class SftPexaFtHOCSM : public Kiv::PtrInterface {};

}  // namespace SampledFlowTracker
