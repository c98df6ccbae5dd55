// Everything the plugin mounts, as one table: seven entities of the state database, four shared tables.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "PexaPlugin.h"

namespace SampledFlowTracker {

// Where the entities of the state database stand.
namespace StatePath {
inline constexpr std::string_view kSflowHwConfig = "sflow/hwconfigdir/sflow";
inline constexpr std::string_view kSflowHwStatus = "sflow/hwstatus/dorn";
inline constexpr std::string_view kHwTrackingConfig = "hardware/flowtracking/config/sampled";
inline constexpr std::string_view kHwTrackingCapabilities = "hardware/flowtracking/capabilities/sampled";
inline constexpr std::string_view kFlowWatcherCapabilities = "hardware/flowwatcher/capabilities";
inline constexpr std::string_view kHoStatus = "flowtracking/hoStatus/sampled";
inline constexpr std::string_view kSftSflowHwConfig = "sflow/hwconfigdir/sampledflowtracker";
// Not mounted: the agent has it.
inline constexpr std::string_view kEthIntfStatusDir = "interface/status/eth/intf";
}  // namespace StatePath

struct StateMount {
  enum class Where : std::uint8_t { database, sharedTable };

  Where where;
  std::string_view path;  // of a shared table: what stands behind "flowtracking/<feature type>/hwOffload/"
  std::string_view typeName;
  std::string_view flags = {};  // database

  // Shared table. One that another process publishes is mounted without settings of its own.
  KivQuell::KivQuellType kind = KivQuell::KivQuellType::written;
  std::array<std::string_view, 2> collections = {};  // IPv4, IPv6
  std::uint32_t size = 0;
};

// The mounts, in the order in which they are made.
std::span<const StateMount> stateMounts();

// Makes them all: those of the database in one group of the mounter, which is closed at the end.
// REQUIRES: the context has an entity manager, and an agent with a shared-memory one.
void mountState(Mirro::Mounter& mounter, const Pexa::PluginContext& context);

}  // namespace SampledFlowTracker
