#include "PluginLibrary.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

#include "PexaPlugin.h"

namespace Pexa {
namespace {

constexpr std::string_view kInstalledFolder = "pexa";  // in lib, where an installation has its libraries

// Null with the reason when the library cannot be loaded. Types or plugins of its names that are known
// already make its static initialisers throw.
void* load(const std::filesystem::path& library, std::string& reason) {
  try {
    void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) reason = ::dlerror();
    return handle;
  } catch (const std::exception& error) {
    reason = fmt::format("{}: {}", library.native(), error.what());
    return nullptr;
  }
}

}  // namespace

std::vector<std::filesystem::path> PluginLibrary::candidates(const PluginConfig& config) {
  const std::filesystem::path name = config.library;
  if (name.is_absolute()) return {name};
  std::error_code ignored;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
  const auto configDir = std::filesystem::absolute(config.place.file).parent_path();
  std::vector<std::filesystem::path> found{(configDir / name).lexically_normal()};
  const auto lib = program.parent_path().parent_path() / "lib";
  found.push_back((lib / name).lexically_normal());
  found.push_back((lib / kInstalledFolder / name).lexically_normal());
  if (!name.has_parent_path()) found.push_back(name);
  return found;
}

PluginLibrary::PluginLibrary(const PluginConfig& config) {
  const std::size_t before = DefaultPluginLoader().size();
  std::string reason;
  for (const auto& library : candidates(config)) {
    std::error_code ignored;
    if (library.has_parent_path() && !std::filesystem::exists(library, ignored)) continue;
    handle_ = load(library, reason);
    break;
  }
  if (handle_ == nullptr) {
    std::vector<std::string> places;
    for (const auto& library : candidates(config)) places.push_back(library.native());
    if (reason.empty()) reason = fmt::format("not found in {}", fmt::join(places, " or "));
    throw ConfigError(
        config.place,
        fmt::format("plugin \"{}\" cannot be loaded: {}, expected a plugin library", config.library, reason));
  }
  if (DefaultPluginLoader().size() == before) {
    ::dlclose(handle_);
    throw ConfigError(config.place,
                      fmt::format("\"{}\" registers no plugin that is not there already, expected a "
                                  "plugin library of this agent, once",
                                  config.library));
  }
}

PluginLibrary::PluginLibrary(PluginLibrary&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)) {}

PluginLibrary::~PluginLibrary() {
  if (handle_ != nullptr) ::dlclose(handle_);
}

}  // namespace Pexa
