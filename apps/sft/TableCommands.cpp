#include "TableCommands.h"

#include <fmt/format.h>

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HosStateCounter.h"
#include "json/JsonText.h"
#include "quell/SharedTables.h"
#include "quell/TablePlace.h"
#include "quell/TableStore.h"

namespace Sft {
namespace {

using Kiv::Value;

// The container type of a table that has this path, whatever kind of flow tracking it names; empty when no
// table has it.
Kiv::String typeOfPath(const std::string& path) {
  const auto parts = Quell::TablePlace{"", path, "x"}.folders();
  if (parts.size() < 2) return {};
  const std::string& tracking = parts[1];
  const auto is = [&](const Kiv::String& mountPath) { return path == mountPath; };
  using namespace FlowTracking;
  if (is(HoFlowStatus::mountPath(tracking))) return HoFlowStatus::kivType().name();
  if (is(HoFlowConfig::mountPath(tracking))) return HoFlowConfig::kivType().name();
  if (is(HosStateCounter::mountPath(tracking))) return HosStateCounter::kivType().name();
  if (is(HoFlowCounter::mountPath(tracking, parts.back()))) return HoFlowCounter::kivType().name();
  return {};
}

// Reads values, a line each, and has each one checked. Throws CommandError, with the number of the line, at
// the first that is wrong.
std::vector<Value> readLines(std::istream& in, const std::function<void(const Value&)>& check) {
  std::vector<Value> values;
  Terminal::Progress progress("lines read and checked");
  std::string line;
  for (std::size_t number = 1; std::getline(in, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      values.push_back(Json::parse(line));
      check(values.back());
      progress.at(number);
    } catch (const Kiv::ValueError& error) {
      throw CommandError(
          fmt::format("standard input line {}: {}; nothing was changed", number, error.what()));
    }
  }
  if (in.bad()) throw CommandError("standard input could not be read to its end; nothing was changed");
  return values;
}

// Space for a record or key of a size known at run time, aligned for any of them.
std::vector<std::max_align_t> space(std::size_t bytes) {
  return std::vector<std::max_align_t>(bytes / sizeof(std::max_align_t) + 1);
}

// A table's file can fail in the middle of many records: the disk is full, another process writes by now.
template <class Each>
void forAll(const std::vector<Value>& values, const char* done, const Each& each) {
  std::size_t count = 0;
  Terminal::Progress progress(fmt::format("records {}", done), values.size());
  try {
    for (const Value& value : values) {
      each(value);
      progress.at(++count);
    }
  } catch (const Quell::TableError& error) {
    if (count == 0) throw;
    throw CommandError(
        fmt::format("{}; {} of {} records were {} before", error.what(), count, values.size(), done));
  }
}

void report(const Context& context, const Value::Object& counts, const std::string& text) {
  if (!context.json) print(text + '\n');
  Output output(context.json);
  if (context.json) output.row(counts);
  output.finish();
}

Value writerOf(const Quell::TableStatus& collection) {
  return collection.writer == 0 ? Value() : Value(collection.writer);
}

Value::Object collectionRow(const Quell::TableStatus& each, bool whole) {
  Value::Object row;
  if (whole) row.emplace_back("path", each.path);
  row.emplace_back("collection", each.collection);
  if (whole) row.emplace_back("type", each.containerType);
  row.emplace_back("entries", each.entries);
  row.emplace_back("writer", writerOf(each));
  if (!each.problem.empty()) row.emplace_back("problem", each.problem);
  return row;
}

Value::Object tableRow(std::span<const Quell::TableStatus> collections) {
  std::uint64_t entries = 0;
  Value writer;
  Value::List rows;
  std::string type;
  for (const Quell::TableStatus& each : collections) {
    entries += each.entries;
    if (writer.isNone()) writer = writerOf(each);
    if (type.empty()) type = each.containerType;  // a damaged file tells none
    rows.emplace_back(collectionRow(each, false));
  }
  return {{"path", collections.front().path},
          {"type", type},
          {"entries", entries},
          {"writer", writer},
          {"collections", std::move(rows)}};
}

}  // namespace

void tableIs(const Context& context, const std::string& path) {
  for (const auto& each : Quell::listTables(context.runDir)) {
    if (each.path == path) return;
  }
  const Kiv::String type = typeOfPath(path);
  if (type.empty()) {
    throw CommandError(
        fmt::format("no table \"{}\" in {}, and its path is that of no known table, expected one like "
                    "\"{}\"",
                    path, context.runDir.native(), FlowTracking::HoFlowStatus::mountPath("sampled")));
  }
  Quell::SharedTables tables("sft", context.runDir);
  tables.doMount(path, type, KivQuell::MountInfo(KivQuell::KivQuellType::written));
}

// People get a line a collection; a script gets an object a table, with the sum of its entries, its writer (a
// table may be written in one collection only) and its collections.
void listTables(const Context& context) {
  Output output(context.json);
  const auto found = Quell::listTables(context.runDir);
  for (std::size_t first = 0, end = 0; first < found.size(); first = end) {
    while (end < found.size() && found[end].path == found[first].path) ++end;
    const std::span<const Quell::TableStatus> table(&found[first], end - first);
    if (context.json) {
      output.row(tableRow(table));
    } else {
      for (const Quell::TableStatus& each : table) output.row(collectionRow(each, true));
    }
  }
  output.finish();
}

void dumpTable(const Context& context, const std::string& path, const std::string& collection) {
  const Quell::OpenCollection table(context.runDir, path, collection);
  Output output(context.json);
  std::size_t damages = 0;
  table.forEach([&](const Value& record) { output.row(record); },
                [&](const std::string& what) {
                  ++damages;
                  tell(what);
                });
  output.finish();
  if (damages != 0) {
    throw CommandError(fmt::format("{} {} is damaged in {} places, expected none; what can be read was shown",
                                   path, collection, damages));
  }
}

void putRecords(const Context& context, const std::string& path, const std::string& collection,
                std::istream& in) {
  std::filesystem::create_directories(context.runDir);
  tableIs(context, path);
  Quell::OpenCollection table(context.runDir, path, collection);
  const Quell::RecordType& type = table.map().type();
  auto record = space(type.recordBytes);
  const auto values = readLines(in, [&](const Value& value) { type.fromValue(value, record.data()); });
  forAll(values, "put", [&](const Value& value) { table.put(value); });
  if (!values.empty()) table.flush();
  report(context, {{"put", values.size()}}, fmt::format("{} records put", values.size()));
}

void deleteRecords(const Context& context, const std::string& path, const std::string& collection,
                   std::istream& in) {
  Quell::OpenCollection table(context.runDir, path, collection);
  const Quell::RecordType& type = table.map().type();
  auto key = space(type.keyBytes);
  const auto values = readLines(in, [&](const Value& value) { type.keyFromValue(value, key.data()); });
  std::size_t deleted = 0;
  forAll(values, "asked for", [&](const Value& value) { deleted += table.del(value) ? 1 : 0; });
  if (!values.empty()) table.flush();
  report(context, {{"deleted", deleted}, {"absent", values.size() - deleted}},
         fmt::format("{} records deleted, {} were not there", deleted, values.size() - deleted));
}

}  // namespace Sft
