#include "top/TerminalCheck.h"

#include <fmt/format.h>

// term.h calls macros "columns" and "lines": it is kept out of other files.
#include <curses.h>
#include <term.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Command.h"

namespace Sft::Top {
namespace {

std::string terminalName() {
  const char* name = std::getenv("TERM");
  return name == nullptr ? "" : name;
}

}  // namespace

void requireTerminal() {
  constexpr std::string_view kInstead = "or --once, which prints one frame";
  if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0) {
    throw CommandError(
        fmt::format("top: standard input or output is no terminal, expected one, {}", kInstead));
  }
  int found = 0;
  const bool known = ::setupterm(nullptr, STDOUT_FILENO, &found) == OK;
  const char* move = known ? ::tigetstr("cup") : nullptr;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): what curses answers for no such capability
  const bool moves = move != nullptr && move != reinterpret_cast<const char*>(-1);
  if (known) ::del_curterm(cur_term);  // the display has its own
  if (!moves) {
    throw CommandError(fmt::format("top: TERM \"{}\" {}, expected a terminal that moves its cursor, {}",
                                   terminalName(), known ? "cannot move its cursor" : "is not known",
                                   kInstead));
  }
}

}  // namespace Sft::Top
