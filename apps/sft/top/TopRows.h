// A model as rows for scripts. "panel" tells what a row is of:
//
//   agent      {"answers","why"}; why is null when it answers
//   tables     {"flows","taken","damages","problem"}; problem is null without damage
//   family     {"family","budget","inHardware","overflow","other"}; budget is null when it is not known
//   flow       {"key","family","flow","directionName","wanted","state","stateName","age","packets","bytes",
//               "packetsPerSecond","bitsPerSecond"}; null where `sft flows` has it, and rates as below
//   sampling   the members of `sft samples`, "samplesPerSecond","dropsPerSecond"
//   reason     the members of `sft reasons`, "perSecond"
//   port       "name","kind","up","replay", the counts, and "...PerSecond" for each
//
// A rate that is not known is null.
#pragma once

#include "top/TopModel.h"

namespace Sft::Top {

Kiv::Value::List rowsOf(const TopModel& model);

}  // namespace Sft::Top
