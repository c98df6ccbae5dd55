// The trace ring, read from its file: with a running agent, or after it is gone.
#pragma once

#include "Command.h"

namespace Sft {

// Every record in the ring, the oldest first; then, if asked to follow, those that come, until interrupted.
void showTrace(const Context& context, bool follow);

}  // namespace Sft
