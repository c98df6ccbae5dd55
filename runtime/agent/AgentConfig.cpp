#include "AgentConfig.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>

#include "Bridging.h"
#include "Pavo.h"
#include "TomlReader.h"

namespace Pexa {
namespace {

bool isAddress(const std::string& text) {
  std::uint8_t bytes[16];
  return ::inet_pton(AF_INET, text.c_str(), bytes) == 1 || ::inet_pton(AF_INET6, text.c_str(), bytes) == 1;
}

class Reader {
 public:
  Reader(const std::filesystem::path& file, const toml::table& tree) : top_(file.string(), tree, "the file") {
    config_.file = file;
  }

  AgentConfig read() {
    top_.refuseUnknownKeys({"mode", "run_dir", "plugins", "port", "forward", "replay", "sflow", "metrics",
                            "security", "state", "trace_filter", "trace"});
    readMode();
    if (const auto dir = top_.string("run_dir")) config_.runDir = fromHere(*dir);
    top_.strings("plugins", [&](std::string library, ConfigPlace place) {
      config_.plugins.push_back({std::move(library), std::move(place)});
    });
    top_.tables("port", [&](const TomlTable& table) { readPort(table); });
    if (const auto table = top_.table("forward")) readForwards(*table);
    readPace();
    if (const auto table = top_.table("sflow")) readSflow(*table);
    if (const auto table = top_.table("metrics")) readMetrics(*table);
    if (const auto table = top_.table("security")) config_.security = readSecurity(*table);
    if (const auto table = top_.table("state")) readStates(*table);
    top_.tables("trace_filter", [&](const TomlTable& table) { readTraceFilter(table); });
    if (const auto table = top_.table("trace")) readTrace(*table);
    return std::move(config_);
  }

 private:
  std::string fromHere(const std::string& path) const {
    return (std::filesystem::absolute(config_.file).parent_path() / path).lexically_normal().string();
  }

  void readMode() {
    const auto mode = top_.string("mode");
    if (!mode || *mode == "active") return;
    if (*mode != "standby") {
      throw ConfigError(top_.placeOf("mode"),
                        fmt::format("mode \"{}\", expected \"active\" or \"standby\"", *mode));
    }
    config_.mode = PexaMode::standby;
  }

  void readPace() {
    const auto table = top_.table("replay");
    if (!table) return;
    table->refuseUnknownKeys({"pace"});
    const auto pace = table->string("pace");
    if (!pace || *pace == "fast") return;
    if (*pace != "recorded") {
      throw ConfigError(table->placeOf("pace"),
                        fmt::format("pace \"{}\", expected \"fast\" or \"recorded\"", *pace));
    }
    config_.pace = Capture::Pace::recorded;
  }

  void readPort(const TomlTable& table) {
    table.refuseUnknownKeys({"name", "capture", "device", "write", "vlan"});
    PortConfig port;
    port.place = table.place();
    port.name = table.neededString("name");
    checkPortName(port.name, table.placeOf("name"));
    port.vlan =
        static_cast<std::uint16_t>(table.integer("vlan", 0, Bridging::VlanIdOrAnyOrNone::kMost).value_or(1));
    readSource(table, port);
    config_.ports.push_back(std::move(port));
  }

  void checkPortName(const std::string& name, const ConfigPlace& place) const {
    try {
      static_cast<void>(Pavo::IntfId(name));
    } catch (const Kiv::ValueError&) {
      throw ConfigError(place, fmt::format("port name \"{}\", expected at most {} bytes without NUL", name,
                                           Pavo::IntfId::kMost));
    }
    if (const PortConfig* other = find(name)) {
      throw ConfigError(
          place, fmt::format("port \"{}\" is already there on line {}, expected a name of its own", name,
                             other->place.line));
    }
  }

  void readSource(const TomlTable& table, PortConfig& port) const {
    static constexpr std::pair<std::string_view, Capture::PortKind> kSources[] = {
        {"capture", Capture::PortKind::capture},
        {"device", Capture::PortKind::device},
        {"write", Capture::PortKind::write}};
    unsigned sources = 0;
    for (const auto& [key, kind] : kSources) {
      const auto source = table.string(key);
      if (!source) continue;
      ++sources;
      port.kind = kind;
      port.source = kind == Capture::PortKind::device ? *source : fromHere(*source);
    }
    if (sources != 1) {
      throw ConfigError(
          port.place, fmt::format("port \"{}\" has {}, expected one of capture, device and write", port.name,
                                  sources == 0 ? "no source" : "more than one source"));
    }
    checkSourceIsFree(port);
  }

  // Two ports may replay one capture; they may not share an interface, nor write into what another one uses.
  void checkSourceIsFree(const PortConfig& port) const {
    for (const PortConfig& other : config_.ports) {
      if (!inEachOthersWay(port, other)) continue;
      throw ConfigError(port.place,
                        fmt::format("\"{}\" of port \"{}\" is already port \"{}\"'s, expected another one",
                                    port.source, port.name, other.name));
    }
  }

  static bool inEachOthersWay(const PortConfig& port, const PortConfig& other) {
    using Capture::PortKind;
    const bool devices = port.kind == PortKind::device && other.kind == PortKind::device;
    if (devices) return port.source == other.source;
    const bool files = port.kind != PortKind::device && other.kind != PortKind::device;
    const bool written = port.kind == PortKind::write || other.kind == PortKind::write;
    return files && written && isOneFile(port.source, other.source);
  }

  // By whatever names. A device file (/dev/null) is not in anybody's way.
  static bool isOneFile(const std::string& left, const std::string& right) {
    std::error_code absent;
    if (!std::filesystem::exists(left, absent)) return left == right;
    return std::filesystem::is_regular_file(left, absent) && std::filesystem::equivalent(left, right, absent);
  }

  const PortConfig* find(std::string_view name) const {
    const auto found = std::find_if(config_.ports.begin(), config_.ports.end(),
                                    [&](const PortConfig& port) { return port.name == name; });
    return found == config_.ports.end() ? nullptr : &*found;
  }

  void readForwards(const TomlTable& table) {
    table.members([&](std::string_view from, const toml::node& node) {
      const auto to = table.string(from);
      const ConfigPlace place = table.placeOf(node.source());
      const PortConfig& source = forwardedPort(from, place);
      const PortConfig& target = forwardedPort(*to, place);
      if (source.kind == Capture::PortKind::write) {
        throw ConfigError(
            place, fmt::format("nothing enters on port \"{}\", which writes a capture, expected a port "
                               "with a capture to replay or a device",
                               from));
      }
      if (target.kind == Capture::PortKind::capture) {
        throw ConfigError(place,
                          fmt::format("nothing can leave on port \"{}\", which replays a capture, expected a "
                                      "port with a device or a capture to write",
                                      *to));
      }
      if (from == *to) {
        throw ConfigError(place,
                          fmt::format("port \"{}\" is forwarded to itself, expected another port", from));
      }
      config_.forwards.push_back({std::string(from), *to, place});
    });
  }

  const PortConfig& forwardedPort(std::string_view name, const ConfigPlace& place) const {
    if (const PortConfig* port = find(name)) return *port;
    throw ConfigError(place,
                      fmt::format("[forward] names port \"{}\", which is not there, expected the name of a "
                                  "[[port]]",
                                  name));
  }

  void readSflow(const TomlTable& table) {
    table.refuseUnknownKeys({"agent", "collectors"});
    SflowConfig sflow;
    sflow.place = table.place();
    sflow.agent = table.neededString("agent");
    if (!isAddress(sflow.agent)) {
      throw ConfigError(table.placeOf("agent"),
                        fmt::format("agent \"{}\", expected an IPv4 or IPv6 address", sflow.agent));
    }
    table.strings("collectors", [&](const std::string& text, const ConfigPlace& place) {
      sflow.collectors.push_back({text, place});
    });
    if (sflow.collectors.empty()) {
      throw ConfigError(sflow.place, "[sflow] has no collectors, expected collectors = [\"192.0.2.1:6343\"]");
    }
    config_.sflow = std::move(sflow);
  }

  void readMetrics(const TomlTable& table) {
    table.refuseUnknownKeys({"listen"});
    const ConfigPlace place = table.placeOf("listen");
    try {
      const auto listen = Metrics::ListenAddress::of(table.string("listen").value_or(MetricsConfig::kListen));
      config_.metrics = MetricsConfig{listen, place};
    } catch (const Kiv::ValueError& error) {
      throw ConfigError(place, fmt::format("listen {}", error.what()));
    }
  }

  void readStates(const TomlTable& states) {
    states.members([&](std::string_view path, const toml::node&) {
      const TomlTable table = *states.table(path);
      StateConfig state;
      state.path = path;
      state.place = table.place();
      table.members([&](std::string_view name, const toml::node& node) {
        state.attributes.push_back(
            {std::string(name), table.value(name, node), table.placeOf(node.source())});
      });
      config_.states.push_back(std::move(state));
    });
  }

  void readTraceFilter(const TomlTable& table) {
    table.refuseUnknownKeys({"name", "expression"});
    TraceFilterConfig filter{table.neededString("name"), table.neededString("expression"),
                             table.placeOf("expression")};
    for (const TraceFilterConfig& other : config_.traceFilters) {
      if (other.name != filter.name) continue;
      throw ConfigError(table.placeOf("name"),
                        fmt::format("trace filter \"{}\" is already there, expected a name of "
                                    "its own",
                                    filter.name));
    }
    config_.traceFilters.push_back(std::move(filter));
  }

  void readTrace(const TomlTable& trace) {
    trace.refuseUnknownKeys({"level"});
    const auto levels = trace.table("level");
    if (!levels) return;
    levels->members([&](std::string_view handle, const toml::node&) {
      const auto most = levels->integer(handle, -1, Kiv::kTraceLevels - 1);
      config_.traceLevels.push_back({std::string(handle), static_cast<int>(*most)});
    });
  }

  AgentConfig config_;
  TomlTable top_;
};

}  // namespace

bool AgentConfig::hasLivePorts() const {
  return std::any_of(ports.begin(), ports.end(),
                     [](const PortConfig& port) { return port.kind == Capture::PortKind::device; });
}

AgentConfig readAgentConfig(const std::filesystem::path& file) {
  const toml::table tree = parseToml(file);
  return Reader(file, tree).read();
}

}  // namespace Pexa
