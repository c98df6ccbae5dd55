// What is traced, over the three places that keep a level by name: text traces ("Pexa::Sft", to the log), the
// categories of the trace ring ("Sft"), and debug handlers ("SftPexa").
#pragma once

#include <string_view>

#include "Kiv.h"
#include "skein/TraceRing.h"

namespace Pexa {

// An object {"name","channel","level"} for each name that is known so far; channel is text, ring or debug.
Kiv::Value::List traceLevels(const Skein::TraceRing& ring);

// Sets the level of a name wherever it is known. -1 is off; a ring category knows 0 (events) and 1 (packets).
// Throws Kiv::ValueError when the name is not known, naming those that are, or the level is out of range.
void traceLevelIs(Skein::TraceRing& ring, std::string_view name, std::int64_t level);

}  // namespace Pexa
