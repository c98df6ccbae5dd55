// The hardware flow-tracking configuration and capabilities, as entities of the state database.
#pragma once

#include <cstdint>

#include "Kiv.h"

namespace HwFlowTracking {

// What the operator wants: offload per family, and the sampling rate, 1 in `sampleRate` packets (0: none).
class Config : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { hwOffloadIpv4Attr = 1, hwOffloadIpv6Attr, sampleRateAttr };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  bool hwOffloadIpv4() const { return hwOffloadIpv4_; }
  bool hwOffloadIpv6() const { return hwOffloadIpv6_; }
  std::uint32_t sampleRate() const { return sampleRate_; }
  void hwOffloadIpv4Is(bool value) { attributeIs(hwOffloadIpv4_, value, hwOffloadIpv4Attr); }
  void hwOffloadIpv6Is(bool value) { attributeIs(hwOffloadIpv6_, value, hwOffloadIpv6Attr); }
  void sampleRateIs(std::uint32_t value) { attributeIs(sampleRate_, value, sampleRateAttr); }

 private:
  bool hwOffloadIpv4_ = false;
  bool hwOffloadIpv6_ = false;
  std::uint32_t sampleRate_ = 0;
};

// What this agent can do; written once, when the plugin is activated.
class Capabilities : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId {
    nonDefaultVrfExportAttr = 1,
    maxTrackersAttr,
    maxExportersPerTrackerAttr,
    maxCollectorsPerExporterAttr,
    hwOffloadIpv4Attr,
    hwOffloadIpv6Attr,
    supportedAttr
  };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  bool nonDefaultVrfExport() const { return nonDefaultVrfExport_; }
  std::uint32_t maxTrackers() const { return maxTrackers_; }
  std::uint32_t maxExportersPerTracker() const { return maxExportersPerTracker_; }
  std::uint32_t maxCollectorsPerExporter() const { return maxCollectorsPerExporter_; }
  bool hwOffloadIpv4() const { return hwOffloadIpv4_; }
  bool hwOffloadIpv6() const { return hwOffloadIpv6_; }
  bool supported() const { return supported_; }
  void nonDefaultVrfExportIs(bool value) {
    attributeIs(nonDefaultVrfExport_, value, nonDefaultVrfExportAttr);
  }
  void maxTrackersIs(std::uint32_t value) { attributeIs(maxTrackers_, value, maxTrackersAttr); }
  void maxExportersPerTrackerIs(std::uint32_t value) {
    attributeIs(maxExportersPerTracker_, value, maxExportersPerTrackerAttr);
  }
  void maxCollectorsPerExporterIs(std::uint32_t value) {
    attributeIs(maxCollectorsPerExporter_, value, maxCollectorsPerExporterAttr);
  }
  void hwOffloadIpv4Is(bool value) { attributeIs(hwOffloadIpv4_, value, hwOffloadIpv4Attr); }
  void hwOffloadIpv6Is(bool value) { attributeIs(hwOffloadIpv6_, value, hwOffloadIpv6Attr); }
  void supportedIs(bool value) { attributeIs(supported_, value, supportedAttr); }

 private:
  bool nonDefaultVrfExport_ = false;
  std::uint32_t maxTrackers_ = 0;
  std::uint32_t maxExportersPerTracker_ = 0;
  std::uint32_t maxCollectorsPerExporter_ = 0;
  bool hwOffloadIpv4_ = false;
  bool hwOffloadIpv6_ = false;
  bool supported_ = false;
};

}  // namespace HwFlowTracking
