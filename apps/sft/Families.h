// The families, by the index that facts about both of them have.
#pragma once

#include <array>
#include <string_view>

#include "IpFamily.h"

namespace Sft {

struct FamilyNames {
  std::string_view name;       // as people read it
  std::string_view offloaded;  // the attribute that switches its offload, and that announces it
};

inline constexpr std::array<FamilyNames, 2> kFamilies{{
    {FlowTracking::IpFamily<Pavo::Traits::IPv4>::kName, "hwOffloadIpv4"},
    {FlowTracking::IpFamily<Pavo::Traits::IPv6>::kName, "hwOffloadIpv6"},
}};

}  // namespace Sft
