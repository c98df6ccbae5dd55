// The shared tables of a run directory, looked into and changed in their files: with or without an agent.
#pragma once

#include <istream>
#include <string>

#include "Command.h"

namespace Sft {

void listTables(const Context& context);
// Makes the table when it is absent, as the agent would when it mounts it. Throws CommandError when its path
// is that of no known table.
void tableIs(const Context& context, const std::string& path);
void dumpTable(const Context& context, const std::string& path, const std::string& collection);

// Reads a JSON object a line, records or keys; empty lines are passed over. All lines are read and checked
// before the first is stored: one bad line, named by its number, and nothing is stored. Both report how many
// records were put, or deleted of how many asked for.
void putRecords(const Context& context, const std::string& path, const std::string& collection,
                std::istream& in);
void deleteRecords(const Context& context, const std::string& path, const std::string& collection,
                   std::istream& in);

}  // namespace Sft
