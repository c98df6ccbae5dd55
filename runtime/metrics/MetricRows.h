// A snapshot as rows, for the control socket: an object for each number, whole values as integers,
//
//   {"name","type","help","labels":{...},"value"}
//
// and one for each histogram, its counts those of what was at most "le":
//
//   {"name","type","help","labels":{...},"buckets":[{"le","count"}],"sum","count"}
#pragma once

#include "KivValue.h"
#include "Metrics.h"

namespace Metrics {

// By name, and by labels within it.
Kiv::Value::List rowsOf(const Snapshot& snapshot);

}  // namespace Metrics
