// Commands that a running agent answers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Command.h"

namespace Sft {

// "ports", "samples", "reasons" and "tasks": shows the rows of the request of this name.
void showRows(const Context& context, const std::string& request);
// The agent's display of its local counters; with JSON every record.
void showLocal(const Context& context);

void stateGet(const Context& context, const std::string& path, const std::optional<std::string>& attribute);
void stateSet(const Context& context, const std::string& path, const std::string& attribute,
              const std::string& value);
void attrGet(const Context& context, const std::string& entity, const std::optional<std::string>& name);
void attrSet(const Context& context, const std::string& entity, const std::string& name,
             const std::string& value);
// Arguments read NAME=VALUE.
void attrCall(const Context& context, const std::string& entity, const std::string& name,
              const std::vector<std::string>& arguments);

void showTraceLevels(const Context& context);
void setTraceLevel(const Context& context, const std::string& name, int level);

// A value as it is written on a command line: JSON when it is JSON, else a string.
Kiv::Value valueFromArgument(const std::string& text);

}  // namespace Sft
