// Which kind of flow tracking this is, as it stands in the path of each of its tables.
#pragma once

#include <string_view>

#include "Kiv.h"

namespace SampledFlowTracker {

// "sampled".
const Kiv::String& featureType();

// The counter table's own name, the last component of its path.
inline constexpr std::string_view kCounterName = "hfc";

}  // namespace SampledFlowTracker
