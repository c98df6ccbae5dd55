#include "SecurityConfig.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include "TomlReader.h"

namespace Pexa {
namespace {

std::optional<gid_t> groupIn(const TomlTable& table, std::string_view key) {
  const auto name = table.string(key);
  if (!name) return std::nullopt;
  try {
    return Guard::groupOf(*name);
  } catch (const Kiv::ValueError& error) {
    throw ConfigError(table.placeOf(key), fmt::format("{} {}", key, error.what()));
  }
}

std::string identity() {
  if (::geteuid() == 0) return "runs as root, with all its rights";
  return fmt::format("runs as user {}", ::geteuid());
}

}  // namespace

SecurityConfig readSecurity(const TomlTable& table) {
  table.refuseUnknownKeys({"user", "read_group", "change_group", "filter_system_calls"});
  SecurityConfig config;
  if (const auto name = table.string("user")) {
    try {
      config.user = Guard::User::of(*name);
    } catch (const Kiv::ValueError& error) {
      throw ConfigError(table.placeOf("user"), fmt::format("user {}", error.what()));
    }
  }
  config.groups.readers = groupIn(table, "read_group");
  config.groups.changers = groupIn(table, "change_group");
  config.filterSystemCalls = table.boolean("filter_system_calls").value_or(true);
  return config;
}

void seal(const SecurityConfig& config, Guard::Sockets sockets) {
  Guard::noNewPrivileges();
  if (!config.filterSystemCalls) {
    spdlog::info("{}; system calls are not filtered: filter_system_calls is false", identity());
    return;
  }
  const std::string why = Guard::filterSystemCalls(sockets);
  if (why.empty()) {
    spdlog::info("{}; system calls are filtered", identity());
  } else {
    spdlog::warn("{}; system calls are not filtered: {}", identity(), why);
  }
}

}  // namespace Pexa
