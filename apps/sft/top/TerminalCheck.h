// Whether there is a terminal that a full-screen display can be drawn on.
#pragma once

namespace Sft::Top {

// Throws CommandError when standard input or output is no terminal, or one that cannot move its cursor, as
// TERM tells.
void requireTerminal();

}  // namespace Sft::Top
