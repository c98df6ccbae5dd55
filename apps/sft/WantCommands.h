// Wanted offloads, published and withdrawn by hand in the table of the flow tracker: with or without an
// agent, and as long as no flow tracker writes it.
#pragma once

#include "Command.h"
#include "FlowArguments.h"

namespace Sft {

// Publishes the offload with the time of now. One that is wanted already is asked for again.
void wantFlow(const Context& context, const FlowArguments& arguments);
// Withdraws it. Throws CommandError when it is not wanted.
void unwantFlow(const Context& context, const FlowArguments& arguments);

}  // namespace Sft
