#include "TraceCommands.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <thread>

#include "skein/TraceReader.h"

namespace Sft {
namespace {

constexpr std::chrono::milliseconds kFollowPause(100);  // between two looks at a ring that is followed

Kiv::Value rowOf(const Skein::TraceRecord& record) {
  return Kiv::Value::Object{
      {"serial", record.serial},     {"time", record.time},
      {"category", record.category}, {"volume", record.volume == Skein::Volume::event ? "event" : "packet"},
      {"file", record.file},         {"line", record.line},
      {"function", record.function}, {"filter", record.filter},
      {"text", record.text}};
}

std::string lineOf(const Skein::TraceRecord& record) {
  const auto seconds = static_cast<std::time_t>(record.time);
  const auto microseconds = static_cast<int>((record.time - std::floor(record.time)) * 1e6);
  const std::string filter = record.filter.empty() ? "" : fmt::format(" [{}]", record.filter);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z {}:{}{} {}\n", fmt::gmtime(seconds), microseconds,
                     record.file, record.line, filter, record.text);
}

}  // namespace

void showTrace(const Context& context, bool follow) {
  Skein::TraceReader reader(context.runDir / Skein::TraceRing::kFileName);
  Output output(context.json);
  for (;;) {
    for (Skein::TraceRecord record; reader.next(record);) {
      context.json ? output.row(rowOf(record)) : print(lineOf(record));
    }
    output.finish();
    if (!follow) return;
    std::this_thread::sleep_for(kFollowPause);
  }
}

}  // namespace Sft
