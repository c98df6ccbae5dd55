// A sampler whose rates and interfaces a test sets, and ports and packets for it.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FakePorts.h"
#include "PacketBuilder.h"
#include "Sflow.h"

namespace TestSupport {

using Direction = Bridging::AllowedTrafficDirection;

class TestSampler : public Sflow::SflowSamplerHelperBase {
 public:
  // Seeded by the system, as every sampler is.
  explicit TestSampler(const Kiv::Ptr<Pexa::Ports>& table)
      : SflowSamplerHelperBase("TestSampler", {}, table, {}) {}
  TestSampler(const Kiv::Ptr<Pexa::Ports>& table, std::uint64_t seed) : TestSampler(table) { seedIs(seed); }
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<TestSampler>("TestSupport::TestSampler").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  std::uint32_t ingressSampleRate() const override { return ingressRate; }
  std::uint32_t egressSampleRate() const override { return egressRate; }
  bool samplingWanted(Direction direction, const Pavo::IntfId& intfId) const override {
    return !unwanted.contains({direction, std::string(intfId.name())});
  }

  std::uint32_t ingressRate = 1;
  std::uint32_t egressRate = 1;
  std::set<std::pair<Direction, std::string>> unwanted;
};

inline Packet somePacket() {
  return PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").udp(1000, 2000).payload(40).build();
}

}  // namespace TestSupport
