// Ports that exist in a test only.
#pragma once

#include <cstdint>
#include <string>

#include "Pexa.h"

namespace TestSupport {

// A port table with "Ethernet1" … "EthernetN", each standing for the interface of its name.
class FakePorts {
 public:
  explicit FakePorts(unsigned count, std::uint16_t vlan = 1) : ports(Kiv::makePtr<Pexa::Ports>("ports")) {
    for (unsigned i = 0; i < count; ++i) add("Ethernet" + std::to_string(i + 1), vlan);
  }
  // A port without an interface when the name is empty.
  const Kiv::Ptr<const Pexa::PexaPortBase>& add(const std::string& name, std::uint16_t vlan = 1) {
    const auto index = static_cast<std::uint32_t>(ports->all().size());
    ports->portAdd(Kiv::makePtr<Pexa::PexaPortBase>(name, Pavo::IntfId(name), index, vlan));
    handles_.emplace_back(ports->all().back());
    return handles_.back();
  }
  // By index, from 0. Valid until a port is added.
  const Kiv::Ptr<const Pexa::PexaPortBase>& operator[](std::size_t index) const { return handles_.at(index); }

  Kiv::Ptr<Pexa::Ports> ports;

 private:
  std::vector<Kiv::Ptr<const Pexa::PexaPortBase>> handles_;
};

}  // namespace TestSupport
