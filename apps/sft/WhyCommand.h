// `sft why`: where the flows that are meant stand, and why.
#pragma once

#include <cstdint>

#include "CommandLine.h"

namespace Sft {

void addWhyCommand(CLI::App& app, CommandLine& line);

// Shows at most `limit` flows (0: all), and counts all of them by verdict. Gives the program's status: 0 when
// every flow that is meant, and at least one, is in hardware and counted; 1 when not. Throws CommandError
// when tables cannot be read, MisuseError on arguments that cannot be understood.
int why(const Context& context, const FlowArguments& arguments, std::uint64_t limit);

}  // namespace Sft
