#include "PublishedTables.h"

#include <fmt/format.h>

#include <cstdio>

namespace Sft {
namespace {

constexpr std::string_view kTracking = "sampled";
constexpr std::string_view kCounterName = "hfc";

}  // namespace

template <>
Kiv::String tablePath<FlowTracking::HoFlowConfig>() {
  return FlowTracking::HoFlowConfig::mountPath(kTracking);
}
template <>
Kiv::String tablePath<FlowTracking::HoFlowStatus>() {
  return FlowTracking::HoFlowStatus::mountPath(kTracking);
}
template <>
Kiv::String tablePath<FlowTracking::HoFlowCounter>() {
  return FlowTracking::HoFlowCounter::mountPath(kTracking, kCounterName);
}
template <>
Kiv::String tablePath<FlowTracking::HosStateCounter>() {
  return FlowTracking::HosStateCounter::mountPath(kTracking);
}

void requireRunDir(const Context& context) {
  if (std::filesystem::is_directory(context.runDir)) return;
  throw CommandError(fmt::format("{}: no such folder, expected the run directory of an agent (--run-dir)",
                                 context.runDir.native()));
}

Damages::Damages() : Damages(tell) {}

void Damages::met(const std::string& what) {
  ++count_;
  tell_(what);
}

void Damages::requireNone() const {
  if (count_ == 0) return;
  throw CommandError(
      fmt::format("the tables are damaged in {} places, expected none; what can be read was shown", count_));
}

}  // namespace Sft
