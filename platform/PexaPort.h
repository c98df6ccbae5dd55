// The agent's ports.
#pragma once

#include <cstdint>
#include <vector>

#include "Kiv.h"
#include "Pavo.h"

namespace Sflow {
class SampleReceiver;
}

namespace Pexa {

class PexaPortBase : public Kiv::Entity {
 public:
  PexaPortBase(Kiv::String name, const Pavo::IntfId& intfId, std::uint32_t portIndex, std::uint16_t vlan)
      : Kiv::Entity(std::move(name)), intfId_(intfId), portIndex_(portIndex), vlan_(vlan) {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // The empty id when the port stands for no interface.
  const Pavo::IntfId& intfId() const { return intfId_; }
  // Dense, from 0, in the order of the configuration; the sFlow interface index is one more.
  std::uint32_t portIndex() const { return portIndex_; }
  // VLAN of untagged packets.
  std::uint16_t vlan() const { return vlan_; }

 private:
  Pavo::IntfId intfId_;
  std::uint32_t portIndex_;
  std::uint16_t vlan_;
};

// The agent's port table.
class Ports : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  const std::vector<Kiv::Ptr<PexaPortBase>>& all() const { return ports_; }
  // Empty when there is none.
  Kiv::Ptr<PexaPortBase> port(const Pavo::IntfId& intfId) const;
  // REQUIRES: its index is the number of ports so far.
  void portAdd(const Kiv::Ptr<PexaPortBase>& port);

  // Where samplers hand their samples; null while the agent exports none.
  Sflow::SampleReceiver* sampleReceiver() const { return sampleReceiver_; }
  void sampleReceiverIs(Sflow::SampleReceiver* receiver) { sampleReceiver_ = receiver; }

 private:
  std::vector<Kiv::Ptr<PexaPortBase>> ports_;
  Sflow::SampleReceiver* sampleReceiver_ = nullptr;
};

}  // namespace Pexa
