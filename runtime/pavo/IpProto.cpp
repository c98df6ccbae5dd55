#include "Pavo.h"

namespace Pavo {

std::string stringValue(IpProto protocol) {
  switch (protocol) {
    case IpProto::ipProtoHopopt:
      return "ipProtoHopopt";
    case IpProto::ipProtoIcmp:
      return "ipProtoIcmp";
    case IpProto::ipProtoIgmp:
      return "ipProtoIgmp";
    case IpProto::ipProtoIpip:
      return "ipProtoIpip";
    case IpProto::ipProtoTcp:
      return "ipProtoTcp";
    case IpProto::ipProtoUdp:
      return "ipProtoUdp";
    case IpProto::ipProtoIpv6:
      return "ipProtoIpv6";
    case IpProto::ipProtoGre:
      return "ipProtoGre";
    case IpProto::ipProtoEsp:
      return "ipProtoEsp";
    case IpProto::ipProtoAh:
      return "ipProtoAh";
    case IpProto::ipProtoIcmpv6:
      return "ipProtoIcmpv6";
    case IpProto::ipProtoOspf:
      return "ipProtoOspf";
    case IpProto::ipProtoPim:
      return "ipProtoPim";
    case IpProto::ipProtoSctp:
      return "ipProtoSctp";
  }
  return std::to_string(static_cast<std::uint32_t>(protocol));
}

}  // namespace Pavo
