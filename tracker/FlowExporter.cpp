#include "FlowExporter.h"

#include <spdlog/spdlog.h>

#include <cmath>

namespace Tracker {

FlowExporter::FlowExporter(const ExportConfig& config, std::vector<Collector> collectors)
    : config_(config),
      collectors_(std::move(collectors)),
      encoder_(config.observationDomain, [this](std::span<const std::uint8_t> message) {
        for (Collector& collector : collectors_) collector.send(message);
      }) {}

template <class Action>
void FlowExporter::guarded(const Action& action) {
  if (collectors_.empty()) return;
  try {
    action();
  } catch (const std::runtime_error& error) {
    if (failed_++ == 0) spdlog::error("{}; counted from now on", error.what());
  }
}

template <class Domain>
void FlowExporter::add(const FlowRecord<Domain>& record) {
  guarded([&] {
    templatesWhenDue();
    encoder_.add(record);
  });
}

void FlowExporter::tick() {
  guarded([&] {
    templatesWhenDue();
    encoder_.flush();
  });
}

// Either way: a clock that was set back does not keep them waiting.
void FlowExporter::templatesWhenDue() {
  const double now = Kiv::System::currentTimeUtc();
  if (std::abs(now - templatesSent_) < config_.templateRefresh) return;
  templatesSent_ = now;
  encoder_.addTemplates();
}

Kiv::Value FlowExporter::value() const {
  Kiv::Value::List rows;
  for (const Collector& each : collectors_) {
    rows.emplace_back(Kiv::Value::Object{{"collector", each.name()},
                                         {"messages", each.sent()},
                                         {"lost", each.lost()},
                                         {"refused", each.refused()}});
  }
  return rows;
}

template void FlowExporter::add<Pavo::Traits::IPv4>(const FlowRecord<Pavo::Traits::IPv4>&);
template void FlowExporter::add<Pavo::Traits::IPv6>(const FlowRecord<Pavo::Traits::IPv6>&);

}  // namespace Tracker
