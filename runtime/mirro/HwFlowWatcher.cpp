#include "HwFlowWatcher.h"

namespace HwFlowWatcher {

namespace {

Kiv::Ptr<Capabilities> capabilitiesFactory(const Kiv::String& name) {
  auto capabilities = Kiv::makePtr<Capabilities>(name);
  capabilities->hasNotificationActiveIs(true);
  return capabilities;
}

}  // namespace

const Kiv::Type& Capabilities::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<Capabilities>("HwFlowWatcher::Capabilities")
          .attribute("feature", &Capabilities::feature, &Capabilities::featureIs)
          .attribute("awakeSupported", &Capabilities::awakeSupported, &Capabilities::awakeSupportedIs)
          .constructor(&capabilitiesFactory, "name")
          .build();
  return type;
}

namespace {
const Kiv::Module kModule("HwFlowWatcher", {&Capabilities::kivType()});
}

}  // namespace HwFlowWatcher
