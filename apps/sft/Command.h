// What every command has: where the agent's files are and how to show what was found.
#pragma once

#include <filesystem>
#include <stdexcept>

#include "Output.h"

namespace Sft {

struct Context {
  std::filesystem::path runDir = "/run/pexa";
  bool json = false;
};

// A command that cannot be done: one line that says what, where and what was expected.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A command line that cannot be understood; the same line, and another status of the program.
class MisuseError : public CommandError {
 public:
  using CommandError::CommandError;
};

}  // namespace Sft
