#include <spdlog/spdlog.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "Fenn.h"

namespace {

constexpr const char* kDefaultDirectory = "/etc/pexa/toggles";

std::filesystem::path toggleFile(std::string_view file) {
  const char* directory = std::getenv("PEXA_TOGGLE_DIR");
  return std::filesystem::path(directory != nullptr && *directory != '\0' ? directory : kDefaultDirectory) /
         file;
}

// The toggle's value; none when the file does not have it. Throws when the file or the value is not what it
// should be, with a text that says so.
std::optional<bool> readToggle(std::istream& in, std::string_view name) {
  const nlohmann::json toggles = nlohmann::json::parse(in, nullptr, false);
  if (!toggles.is_object()) throw std::runtime_error("expected a JSON object of names and booleans");
  const auto found = toggles.find(std::string(name));
  if (found == toggles.end()) return std::nullopt;
  if (!found->is_boolean()) {
    throw std::runtime_error("expected true or false for \"" + std::string(name) + "\", got " +
                             found->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  }
  return found->get<bool>();
}

}  // namespace

bool getToggleState(std::string_view name, std::string_view file, bool defaultState) {
  const std::filesystem::path path = toggleFile(file);
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) return defaultState;
  try {
    std::ifstream in(path);
    if (!in || std::filesystem::is_directory(path)) throw std::runtime_error("cannot be read");
    return readToggle(in, name).value_or(defaultState);
  } catch (const std::exception& error) {
    spdlog::warn("toggle file {}: {}; {} is {}", path.string(), error.what(), name, defaultState);
    return defaultState;
  }
}
