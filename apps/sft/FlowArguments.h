// A wanted offload as it is written on a command line.
#pragma once

#include <string>
#include <variant>

#include "FlowKey.h"

namespace Sft {

struct FlowArguments {
  std::string source;       // ADDRESS:PORT, as in 10.0.0.1:1234 or [2001:db8::1]:1234
  std::string destination;  // the same
  std::string proto;        // tcp, udp, or the number
  std::string vlan;         // 0 to 4095
  std::string direction;    // ingress, egress
  std::string interface;    // of an egress flow the one that it leaves by
  std::string vrf;          // the default VRF when empty
};

using AnyHoFlowKey = std::variant<FlowTracking::HoIpFlowKey, FlowTracking::HoIp6FlowKey>;

// The key that the arguments tell of, of the addresses' family. Throws MisuseError, which names the argument.
AnyHoFlowKey hoFlowKey(const FlowArguments& arguments);

}  // namespace Sft
