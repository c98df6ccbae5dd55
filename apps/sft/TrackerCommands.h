// `sft tracker`: what the flow tracker of the run directory has counted, learned, and not learned yet.
#pragma once

#include <CLI/CLI.hpp>

#include "CommandLine.h"

namespace Sft {

void addTrackerCommand(CLI::App& app, CommandLine& line);

// Defines the arguments that say which flows are meant (FlowArguments.h).
void addPatternArguments(CLI::App& command, FlowArguments& flow);

}  // namespace Sft
