// The figures of a report that scripts/bench holds against targets, as lines for a program.
#pragma once

#include <string>

#include "Measure.h"

namespace SftBench {

// "name<TAB>value<TAB>unit" a line, of the report's last column; what was not measured is left out. The names
// are those of scripts/lib/bench_control.py.
std::string targetRows(const Report& report);

}  // namespace SftBench
