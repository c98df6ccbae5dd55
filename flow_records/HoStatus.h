// Whether offload is enabled, per family and direction: an entity of the state database that the plugin
// publishes.
#pragma once

#include "Kiv.h"

namespace FlowTracking {

class HoStatus : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { v4enabledAttr = 1, v6enabledAttr, egressV4EnabledAttr, egressV6EnabledAttr };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  bool v4enabled() const { return v4enabled_; }
  bool v6enabled() const { return v6enabled_; }
  bool egressV4Enabled() const { return egressV4Enabled_; }
  bool egressV6Enabled() const { return egressV6Enabled_; }
  void v4enabledIs(bool value) { attributeIs(v4enabled_, value, v4enabledAttr); }
  void v6enabledIs(bool value) { attributeIs(v6enabled_, value, v6enabledAttr); }
  void egressV4EnabledIs(bool value) { attributeIs(egressV4Enabled_, value, egressV4EnabledAttr); }
  void egressV6EnabledIs(bool value) { attributeIs(egressV6Enabled_, value, egressV6EnabledAttr); }

 private:
  bool v4enabled_ = false;
  bool v6enabled_ = false;
  bool egressV4Enabled_ = false;
  bool egressV6Enabled_ = false;
};

}  // namespace FlowTracking
