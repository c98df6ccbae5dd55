// The flow-watcher capabilities of this agent.
#pragma once

#include <cstdint>

#include "Kiv.h"

namespace HwFlowWatcher {

class Capabilities : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { featureAttr = 1, awakeSupportedAttr };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // The FlowTracking::FlowTrackingType of the tracker whose flows can be watched.
  std::uint32_t feature() const { return feature_; }
  bool awakeSupported() const { return awakeSupported_; }
  void featureIs(std::uint32_t value) { attributeIs(feature_, value, featureAttr); }
  void awakeSupportedIs(bool value) { attributeIs(awakeSupported_, value, awakeSupportedAttr); }

 private:
  std::uint32_t feature_ = 0;
  bool awakeSupported_ = false;
};

}  // namespace HwFlowWatcher
