#include "PexaPacket.h"

namespace Pexa {

const Kiv::Ptr<const PexaPortBase>& PacketContext::noPort() {
  static const Kiv::Ptr<const PexaPortBase> none;
  return none;
}

}  // namespace Pexa
