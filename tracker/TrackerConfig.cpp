#include "TrackerConfig.h"

#include <fmt/format.h>

#include "agent/TomlReader.h"

namespace Tracker {
namespace {

using Pexa::ConfigError;
using Pexa::ConfigPlace;
using Pexa::TomlTable;

constexpr std::int64_t kMostSeconds = 86400;
constexpr std::int64_t kMostFlows = 4'000'000;  // a table has room for 8 million records
constexpr std::int64_t kMostCandidates = 16'000'000;
constexpr std::int64_t kMostSamples = 1'000'000;
constexpr std::int64_t kMostDomain = 0xffffffff;
constexpr std::int64_t kMostIndex = 0xfffffffe;

class Reader {
 public:
  Reader(const std::filesystem::path& file, const toml::table& tree) : top_(file.string(), tree, "the file") {
    config_.file = file;
  }

  TrackerConfig read() {
    top_.refuseUnknownKeys({"listen", "run_dir", "samples_to_learn", "idle_timeout", "max_flows",
                            "max_candidates", "interface", "collector", "ipfix", "security"});
    config_.listenPlace = top_.placeOf("listen");
    if (auto listen = top_.string("listen")) config_.listen = *std::move(listen);
    if (const auto dir = top_.string("run_dir")) config_.runDir = fromHere(*dir);
    readLimits();
    top_.tables("interface", [&](const TomlTable& table) { readInterface(table); });
    top_.tables("collector", [&](const TomlTable& table) { readCollector(table); });
    if (const auto table = top_.table("ipfix")) readIpfix(*table);
    if (const auto table = top_.table("security")) config_.security = Pexa::readSecurity(*table);
    return std::move(config_);
  }

 private:
  std::filesystem::path fromHere(const std::string& path) const {
    return (std::filesystem::absolute(config_.file).parent_path() / path).lexically_normal();
  }

  template <class Number>
  static void readNumber(const TomlTable& table, std::string_view key, std::int64_t least, std::int64_t most,
                         Number& held) {
    if (const auto number = table.integer(key, least, most)) held = static_cast<Number>(*number);
  }

  void readLimits() {
    FlowLimits& limits = config_.limits;
    readNumber(top_, "samples_to_learn", 1, kMostSamples, limits.samplesToLearn);
    readNumber(top_, "idle_timeout", 1, kMostSeconds, limits.idleTimeout);
    readNumber(top_, "max_flows", 1, kMostFlows, limits.maxFlows);
    readNumber(top_, "max_candidates", 1, kMostCandidates, limits.maxCandidates);
  }

  void readInterface(const TomlTable& table) {
    table.refuseUnknownKeys({"index", "name", "agent", "vlan"});
    Interface interface;
    const auto index = table.integer("index", 1, kMostIndex);
    if (!index) throw ConfigError(table.place(), "[[interface]] has no \"index\", expected index = 1");
    interface.index = static_cast<std::uint32_t>(*index);
    interface.intfId = intfId(table.neededString("name"), table.placeOf("name"));
    readNumber(table, "vlan", 0, Bridging::VlanIdOrAnyOrNone::kMost, interface.vlan);
    if (const auto agent = table.string("agent")) {
      interface.agent = AgentAddress::fromText(*agent);
      if (!interface.agent) {
        throw ConfigError(table.placeOf("agent"),
                          fmt::format("agent \"{}\", expected an IPv4 or IPv6 address", *agent));
      }
    }
    if (!config_.interfaces.add(interface)) {
      throw ConfigError(
          table.placeOf("index"),
          fmt::format("interface index {} is already there, expected one of its own", interface.index));
    }
  }

  void readCollector(const TomlTable& table) {
    table.refuseUnknownKeys({"address"});
    CollectorConfig collector{table.neededString("address"), table.placeOf("address")};
    for (const CollectorConfig& other : config_.collectors) {
      if (other.address != collector.address) continue;
      throw ConfigError(collector.place,
                        fmt::format("collector \"{}\" is already there on line {}, expected another one",
                                    collector.address, other.place.line));
    }
    if (config_.collectors.size() == FlowExporter::kMostCollectors) {
      throw ConfigError(table.place(), fmt::format("one collector too many, expected at most {}",
                                                   FlowExporter::kMostCollectors));
    }
    config_.collectors.push_back(std::move(collector));
  }

  void readIpfix(const TomlTable& table) {
    table.refuseUnknownKeys({"active_timeout", "template_refresh", "observation_domain"});
    readNumber(table, "active_timeout", 1, kMostSeconds, config_.limits.activeTimeout);
    readNumber(table, "template_refresh", 1, kMostSeconds, config_.ipfix.templateRefresh);
    readNumber(table, "observation_domain", 0, kMostDomain, config_.ipfix.observationDomain);
  }

  static Pavo::IntfId intfId(const std::string& name, const ConfigPlace& place) {
    try {
      return Pavo::IntfId(name);
    } catch (const Kiv::ValueError&) {
      throw ConfigError(place, fmt::format("interface name \"{}\", expected at most {} bytes without NUL",
                                           name, Pavo::IntfId::kMost));
    }
  }

  TrackerConfig config_;
  TomlTable top_;
};

}  // namespace

TrackerConfig readTrackerConfig(const std::filesystem::path& file) {
  const toml::table tree = Pexa::parseToml(file);
  return Reader(file, tree).read();
}

}  // namespace Tracker
