#include "Output.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "Command.h"
#include "json/JsonText.h"

namespace Sft {
namespace {

constexpr double kLatestTime = 253402300799.0;  // the end of the year 9999

bool isNumber(const Kiv::Value& value) {
  return value.as<std::int64_t>() != nullptr || value.as<std::uint64_t>() != nullptr ||
         value.as<double>() != nullptr;
}

}  // namespace

std::string timeText(double seconds) {
  if (seconds == 0) return "-";
  if (!(seconds > 0 && seconds <= kLatestTime)) return fmt::format("{}", seconds);
  const auto whole = static_cast<std::time_t>(seconds);
  const auto milliseconds = static_cast<int>((seconds - std::floor(seconds)) * 1000);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(whole), milliseconds);
}

Kiv::Value timeOrNone(double seconds) {
  return seconds == 0 ? Kiv::Value() : Kiv::Value(timeText(seconds));
}

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void tell(std::string_view what) {
  Terminal::clearProgress();
  fmt::print(stderr, "sft: {}\n", what);
}

Output::Output(bool json) : json_(json), quiet_(json && ::isatty(STDOUT_FILENO) == 1) {}

void Output::row(const Kiv::Value& row) {
  if (!quiet_) progress_.at(++rows_);
  if (json_) return print(Json::text(row) + '\n');
  Line line;
  addCells("", "value", row, line);
  lines_.push_back(std::move(line));
}

void Output::addCells(const std::string& path, const std::string& name, const Kiv::Value& value, Line& line) {
  if (const auto* object = value.as<Kiv::Value::Object>()) {
    for (const auto& [member, each] : *object)
      addCells(path.empty() ? member : fmt::format("{}.{}", path, member), member, each, line);
    return;
  }
  const std::size_t at = column(path, name);
  if (line.size() <= at) line.resize(at + 1);
  const auto* seconds = value.as<double>();
  if (seconds != nullptr && name.ends_with("Time")) {
    line[at] = {timeText(*seconds), false};
  } else if (value.as<Kiv::Value::List>() != nullptr ||
             value.as<Kiv::Ptr<const Kiv::PtrInterface>>() != nullptr) {
    line[at] = {Json::text(value), false};
  } else {
    line[at] = {value.isNone() ? "-" : value.text(), isNumber(value) || value.isNone()};
  }
  columns_[at].width = std::max(columns_[at].width, line[at].text.size());
  columns_[at].numbers = columns_[at].numbers && line[at].number;
}

std::size_t Output::column(const std::string& path, const std::string& name) {
  const auto same =
      std::find_if(columns_.begin(), columns_.end(), [&](const Column& each) { return each.path == path; });
  if (same != columns_.end()) return static_cast<std::size_t>(same - columns_.begin());
  const bool taken =
      std::any_of(columns_.begin(), columns_.end(), [&](const Column& each) { return each.name == name; });
  Column added{path, taken ? path : name};
  added.width = added.name.size();
  columns_.push_back(std::move(added));
  return columns_.size() - 1;
}

void Output::finish() {
  Terminal::clearProgress();
  if (!json_) printColumns();
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw CommandError("standard output could not be written, expected room for the whole answer");
  }
}

void Output::printColumns() const {
  if (lines_.empty()) return;
  Line headings;
  for (const Column& each : columns_) headings.push_back({each.name, each.numbers});
  printLine(headings);
  for (const Line& line : lines_) printLine(line);
}

void Output::printLine(const Line& line) const {
  std::string text;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const std::string& cell = i < line.size() ? line[i].text : "";
    const std::string padding(columns_[i].width - cell.size(), ' ');
    if (!text.empty() || i > 0) text += "  ";
    text += columns_[i].numbers ? padding + cell : cell + padding;
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  print(text + '\n');
}

}  // namespace Sft
