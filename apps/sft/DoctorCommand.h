// `sft doctor`: looks at everything, and tells what it finds.
#pragma once

#include "CommandLine.h"

namespace Sft {

void addDoctorCommand(CLI::App& app, CommandLine& line);

}  // namespace Sft
