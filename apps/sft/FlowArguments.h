// Wanted offloads as they are written on a command line: one of them, and which are meant.
#pragma once

#include <string>
#include <variant>

#include "FlowKey.h"
#include "FlowPattern.h"

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

// Which flows the arguments mean: what is empty or "*" is open. An end of a flow is an address, one with a
// prefix length, a port behind either, or parts of it:
//   10.0.0.1   10.0.0.0/8   10.0.0.1:80   *:80   2001:db8::1   2001:db8::/32   [2001:db8::/32]:53   *
// Throws MisuseError, which names the argument.
FlowTracking::FlowPattern flowPattern(const FlowArguments& arguments);

}  // namespace Sft
