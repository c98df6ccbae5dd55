#include <algorithm>
#include <cassert>

#include "PexaPort.h"

namespace Pexa {

const Kiv::Type& PexaPortBase::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<PexaPortBase>("Pexa::PexaPortBase")
                                    .attribute("name", &PexaPortBase::name)
                                    .attribute("intfId", &PexaPortBase::intfId)
                                    .attribute("portIndex", &PexaPortBase::portIndex)
                                    .attribute("vlan", &PexaPortBase::vlan)
                                    .build();
  return type;
}

const Kiv::Type& Ports::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<Ports>("Pexa::Ports")
                                    .attribute("ports", [](const Ports& ports) { return ports.all().size(); })
                                    .build();
  return type;
}

Kiv::Ptr<PexaPortBase> Ports::port(const Pavo::IntfId& intfId) const {
  const auto found =
      std::find_if(ports_.begin(), ports_.end(), [&](const auto& port) { return port->intfId() == intfId; });
  return found != ports_.end() ? *found : Kiv::Ptr<PexaPortBase>();
}

void Ports::portAdd(const Kiv::Ptr<PexaPortBase>& port) {
  assert(port->portIndex() == ports_.size());
  ports_.push_back(port);
}

}  // namespace Pexa
