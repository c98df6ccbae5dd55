// Any bytes as the agent's configuration and as the tracker's: each is refused with one line that begins with
// the file, or is a configuration within its bounds.
#include <sys/mman.h>
#include <unistd.h>

#include <set>
#include <string>

#include "FuzzTarget.h"
#include "TrackerConfig.h"
#include "agent/AgentConfig.h"

namespace {

// The input as a file of the process's own memory.
std::string fileOf(const std::uint8_t* data, std::size_t size) {
  static const int file = ::memfd_create("configuration", MFD_CLOEXEC);
  FUZZ_REQUIRE(file != -1);
  FUZZ_REQUIRE(::ftruncate(file, 0) == 0);
  FUZZ_REQUIRE(::pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  return "/proc/self/fd/" + std::to_string(file);
}

void checkRefusal(const std::string& file, const Pexa::ConfigError& refused) {
  const std::string text = refused.what();
  FUZZ_REQUIRE(text.starts_with(file + ':'));
  FUZZ_REQUIRE(text.find('\n') == std::string::npos);
}

void checkAgent(const std::string& file) {
  try {
    const Pexa::AgentConfig config = Pexa::readAgentConfig(file);
    std::set<std::string> names;
    for (const auto& port : config.ports) {
      FUZZ_REQUIRE(names.insert(port.name).second);
      FUZZ_REQUIRE(!port.name.empty() && !port.source.empty());
      FUZZ_REQUIRE(port.vlan <= 4095);
    }
    for (const auto& forward : config.forwards) {
      FUZZ_REQUIRE(names.contains(forward.from) && names.contains(forward.to));
    }
  } catch (const Pexa::ConfigError& refused) {
    checkRefusal(file, refused);
  }
}

void checkTracker(const std::string& file) {
  try {
    const Tracker::TrackerConfig config = Tracker::readTrackerConfig(file);
    FUZZ_REQUIRE(config.limits.samplesToLearn >= 1 && config.limits.maxFlows >= 1);
    FUZZ_REQUIRE(config.limits.idleTimeout > 0 && config.limits.activeTimeout > 0);
    FUZZ_REQUIRE(config.collectors.size() <= Tracker::FlowExporter::kMostCollectors);
    FUZZ_REQUIRE(config.ipfix.templateRefresh > 0);
  } catch (const Pexa::ConfigError& refused) {
    checkRefusal(file, refused);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file = fileOf(data, size);
  checkAgent(file);
  checkTracker(file);
  return 0;
}
