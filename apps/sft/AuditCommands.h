// `sft audit`: has the running agent compare what it keeps beside its statuses with the statuses.
#pragma once

#include <functional>

#include "Command.h"

namespace Sft {

// Starts an audit, which repairs what it can when asked to, and shows each finding and a summary. Gives the
// program's status: 0 when there is no difference, or each has been repaired; 1 when some are left. Throws
// CommandError when the agent has no audit, refuses one, or could not bring it to its end.
int audit(const Context& context, bool repair);

// Has the agent audit itself, repairing nothing, and calls with each finding
// {"family","kind","key","found","expected","repaired"}. Throws as above.
void auditFindings(const Context& context, const std::function<void(const Kiv::Value&)>& each);

}  // namespace Sft
