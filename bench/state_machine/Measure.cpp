#include "Measure.h"

#include <fmt/format.h>
#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <limits>
#include <stdexcept>

namespace SftBench {

namespace {

double read(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

Seconds Seconds::now() {
  return {read(CLOCK_THREAD_CPUTIME_ID), read(CLOCK_MONOTONIC)};
}

std::uint64_t heapBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::uint64_t fileBytes(const std::string& folder) {
  std::uint64_t bytes = 0;
  for (const auto& each : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat status {};
    if (each.is_regular_file() && ::stat(each.path().c_str(), &status) == 0) {
      bytes += static_cast<std::uint64_t>(status.st_blocks) * 512;  // the unit of st_blocks
    }
  }
  return bytes;
}

void require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error("not as it should be: " + what);
}

void Report::columnIs(const std::string& name) {
  columns_.push_back(name);
  for (Line& line : lines_) line.values.resize(columns_.size(), std::numeric_limits<double>::quiet_NaN());
}

void Report::put(const std::string& line, const std::string& unit, double value) {
  auto at = std::find_if(lines_.begin(), lines_.end(), [&](const Line& each) { return each.name == line; });
  if (at == lines_.end()) {
    at = lines_.insert(at, Line{line, unit, {}});
    at->values.resize(columns_.size(), std::numeric_limits<double>::quiet_NaN());
  }
  at->values.back() = value;
}

void Report::put(const std::string& line, const Seconds& took, std::uint64_t items) {
  put(line, "ns", items == 0 ? 0 : took.cpu * 1e9 / static_cast<double>(items));
}

double Report::value(const std::string& line) const {
  const auto at =
      std::find_if(lines_.begin(), lines_.end(), [&](const Line& each) { return each.name == line; });
  return at == lines_.end() || std::isnan(at->values.back()) ? 0 : at->values.back();
}

bool Report::has(const std::string& line) const {
  const auto at =
      std::find_if(lines_.begin(), lines_.end(), [&](const Line& each) { return each.name == line; });
  return at != lines_.end() && !std::isnan(at->values.back());
}

std::string Report::text() const {
  std::size_t width = 0;
  for (const Line& line : lines_) width = std::max(width, line.name.size());
  std::string text = fmt::format("{:<{}} {:>6}", "", width, "");
  for (const std::string& column : columns_) text += fmt::format(" {:>12}", column);
  text += '\n';
  for (const Line& line : lines_) {
    text += fmt::format("{:<{}} {:>6}", line.name, width, line.unit);
    for (const double value : line.values) {
      text += std::isnan(value) ? fmt::format(" {:>12}", "-")
                                : fmt::format(" {:>12.{}f}", value, value < 100 ? 1 : 0);
    }
    text += '\n';
  }
  return text;
}

}  // namespace SftBench
