// A snapshot as rows, for the control socket: an object for each number,
//
//   {"name","type","help","labels":{...},"value"}                              whole values as integers
//   {"name","type","help","labels":{...},"buckets":[{"le","count"}],"sum","count"}    of a histogram; the
//   counts
//                                                                              are of what was at most "le"
#pragma once

#include "KivValue.h"
#include "Metrics.h"

namespace Metrics {

// By name, and by labels within it.
Kiv::Value::List rowsOf(const Snapshot& snapshot);

}  // namespace Metrics
