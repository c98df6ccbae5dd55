// What is measured, each from a world of its own, and checked.
#pragma once

#include <string>

#include "Flows.h"
#include "Measure.h"

namespace SftBench {

// Everything for one family at one size; the column of the report is set.
template <class Domain>
void runPhases(Report& report, std::uint32_t flows);

// The agent's loop with packets, while the state machine scans, polls, restarts and reconciles.
template <class Domain>
void runTraffic(Report& report, std::uint32_t flows);

// From a store in another process to the status being readable there, while packets keep the agent busy.
template <class Domain>
void runChanges(Report& report, std::uint32_t flows);

}  // namespace SftBench
