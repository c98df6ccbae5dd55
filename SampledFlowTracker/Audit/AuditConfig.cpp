#include "AuditConfig.h"

#include <array>

namespace SampledFlowTracker {

namespace {

// By AfterRestart.
constexpr std::array<std::string_view, 3> kWords = {"off", "report", "repair"};

Kiv::Ptr<AuditConfig> auditConfigFactory(const Kiv::String& name) {
  auto config = Kiv::makePtr<AuditConfig>(name);
  config->hasNotificationActiveIs(true);
  return config;
}

}  // namespace

const Kiv::Type& AuditConfig::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<AuditConfig>("SampledFlowTracker::AuditConfig")
          .attribute("afterRestart", &AuditConfig::afterRestart, &AuditConfig::afterRestartIs)
          .constructor(&auditConfigFactory, "name")
          .build();
  return type;
}

}  // namespace SampledFlowTracker

namespace Kiv {

using SampledFlowTracker::AfterRestart;

Value ValueTraits<AfterRestart>::toValue(AfterRestart value) {
  return Value(SampledFlowTracker::kWords[static_cast<std::size_t>(value)]);
}

AfterRestart ValueTraits<AfterRestart>::fromValue(const Value& value) {
  const auto* text = value.as<String>();
  for (std::size_t i = 0; text != nullptr && i < SampledFlowTracker::kWords.size(); ++i) {
    if (*text == SampledFlowTracker::kWords[i]) return static_cast<AfterRestart>(i);
  }
  throwValueError("\"off\", \"report\" or \"repair\"", value);
}

}  // namespace Kiv
