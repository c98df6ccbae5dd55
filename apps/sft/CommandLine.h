// The command line: what it says, and how a command is added to it.
//
// A command is a CLI11 subcommand. A file of commands defines them with `command` and `onRun` in a function
// `void add...(CLI::App&, CommandLine&)`, which main calls.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Command.h"
#include "FlowArguments.h"
#include "FlowViews.h"

namespace Sft {

// The command that was given last stands in `run`; the options of all commands are here, each used by its
// own.
struct CommandLine {
  Context context;
  std::string path, collection, attribute, value, entity, name;
  std::vector<std::string> arguments;
  int level = 0;
  std::uint64_t limit = 0;
  bool follow = false;
  bool repair = false;
  bool list = false;
  int status = 0;  // of the program, when the command could be done
  FlowFilter filter;
  bool onlyIpv4 = false, onlyIpv6 = false;
  FlowArguments flow;
  std::function<void()> run;

  static std::optional<std::string> optional(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
  }
};

// A subcommand that takes the program's own options behind it, too.
inline CLI::App* command(CLI::App& parent, const std::string& name, const std::string& what) {
  CLI::App* app = parent.add_subcommand(name, what);
  app->fallthrough();
  return app;
}

// What is done once the whole line is understood.
inline void onRun(CLI::App* app, CommandLine& line, std::function<void()> run) {
  app->callback([&line, run = std::move(run)] { line.run = run; });
}

}  // namespace Sft
