// `sft top`: flows by rate, the budget in use, sampling, reasons and ports, live on the whole screen.
#pragma once

#include "CommandLine.h"

namespace Sft {

void addTopCommand(CLI::App& app, CommandLine& line);

}  // namespace Sft
