// The overflow helper: the hardware flow budget, and the flows that wait for room in it. This build has none;
// the root entity's attribute for it stays empty.
#pragma once

#include "Kiv.h"

namespace SampledFlowTracker {

class SftPexaDrovaHelper : public Kiv::PtrInterface {};

}  // namespace SampledFlowTracker
