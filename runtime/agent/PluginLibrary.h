// A plugin's shared library while it is loaded.
#pragma once

#include <filesystem>
#include <vector>

#include "AgentConfig.h"

namespace Pexa {

// Loading runs the library's static initialisers, which register its plugins with DefaultPluginLoader().
// Unloading destroys its static plugin instances, and then its code and type records are gone.
// REQUIRES: at destruction nothing outside the library refers to an object whose class it holds.
class PluginLibrary {
 public:
  // A plain name is looked for in the configuration's folder, in lib and lib/pexa beside the program's
  // folder, and where the system looks for libraries; a relative path in the first three; an absolute path is
  // taken as it is. Throws ConfigError when it cannot be loaded, registers no plugin, or is loaded already.
  explicit PluginLibrary(const PluginConfig& config);
  ~PluginLibrary();
  PluginLibrary(PluginLibrary&& other) noexcept;
  PluginLibrary& operator=(PluginLibrary&&) = delete;

  // Where a library of this name is looked for, first to last.
  static std::vector<std::filesystem::path> candidates(const PluginConfig& config);

 private:
  void* handle_ = nullptr;
};

}  // namespace Pexa
