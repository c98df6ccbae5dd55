// The status of the agent's Ethernet interfaces, which the agent itself keeps at "interface/status/eth/intf".
#pragma once

#include <cstdint>

#include "Kiv.h"
#include "Pavo.h"

namespace Interface {

struct EthIntfStatus {
  std::uint32_t ifIndex = 0;
  bool up = false;
  std::uint64_t speedBitsPerSecond = 0;
  bool operator==(const EthIntfStatus&) const = default;
};

class EthIntfStatusDir : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { interfacesAttr = 1 };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Null when there is no such interface.
  const EthIntfStatus* interfaceStatus(const Pavo::IntfId& intfId) const;
  void interfaceStatusIs(const Pavo::IntfId& intfId, const EthIntfStatus& status);
  const Kiv::Map<Pavo::IntfId, EthIntfStatus>& interfaces() const { return interfaces_; }

 private:
  Kiv::Map<Pavo::IntfId, EthIntfStatus> interfaces_;
};

}  // namespace Interface
