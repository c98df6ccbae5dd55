// `sft metrics [PREFIX]`: the numbers of the running agent, as its Prometheus endpoint tells them.
#pragma once

#include "CommandLine.h"

namespace Sft {

// Defines the command. Without JSON a line a number: its name, its labels, its value; of a histogram how
// often, the mean, and what 99 of 100 did not exceed. Throws CommandError when no name begins with the
// prefix.
void addMetricsCommand(CLI::App& app, CommandLine& line);

}  // namespace Sft
