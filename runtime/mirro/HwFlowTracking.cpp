#include "HwFlowTracking.h"

namespace HwFlowTracking {

namespace {

Kiv::Ptr<Config> configFactory(const Kiv::String& name) {
  auto config = Kiv::makePtr<Config>(name);
  config->hasNotificationActiveIs(true);
  return config;
}

Kiv::Ptr<Capabilities> capabilitiesFactory(const Kiv::String& name) {
  auto capabilities = Kiv::makePtr<Capabilities>(name);
  capabilities->hasNotificationActiveIs(true);
  return capabilities;
}

}  // namespace

const Kiv::Type& Config::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<Config>("HwFlowTracking::Config")
          .attribute("hwOffloadIpv4", &Config::hwOffloadIpv4, &Config::hwOffloadIpv4Is)
          .attribute("hwOffloadIpv6", &Config::hwOffloadIpv6, &Config::hwOffloadIpv6Is)
          .attribute("sampleRate", &Config::sampleRate, &Config::sampleRateIs)
          .constructor(&configFactory, "name")
          .build();
  return type;
}

const Kiv::Type& Capabilities::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<Capabilities>("HwFlowTracking::Capabilities")
          .attribute("nonDefaultVrfExport", &Capabilities::nonDefaultVrfExport,
                     &Capabilities::nonDefaultVrfExportIs)
          .attribute("maxTrackers", &Capabilities::maxTrackers, &Capabilities::maxTrackersIs)
          .attribute("maxExportersPerTracker", &Capabilities::maxExportersPerTracker,
                     &Capabilities::maxExportersPerTrackerIs)
          .attribute("maxCollectorsPerExporter", &Capabilities::maxCollectorsPerExporter,
                     &Capabilities::maxCollectorsPerExporterIs)
          .attribute("hwOffloadIpv4", &Capabilities::hwOffloadIpv4, &Capabilities::hwOffloadIpv4Is)
          .attribute("hwOffloadIpv6", &Capabilities::hwOffloadIpv6, &Capabilities::hwOffloadIpv6Is)
          .attribute("supported", &Capabilities::supported, &Capabilities::supportedIs)
          .constructor(&capabilitiesFactory, "name")
          .build();
  return type;
}

namespace {
const Kiv::Module kModule("HwFlowTracking", {&Config::kivType(), &Capabilities::kivType()});
}

}  // namespace HwFlowTracking
