// Typed access to a parsed TOML file that knows where everything stands. Internal to reading configurations.
#pragma once

#include <toml++/toml.h>

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "ConfigError.h"
#include "Kiv.h"

namespace Pexa {

// A table of the file. Each operation throws ConfigError, at the line of what it met.
class TomlTable {
 public:
  TomlTable(std::string file, const toml::table& table, std::string what)
      : file_(std::move(file)), table_(&table), what_(std::move(what)) {}

  ConfigPlace place() const { return placeOf(table_->source()); }
  ConfigPlace placeOf(const toml::source_region& region) const {
    return {file_, static_cast<unsigned>(region.begin.line)};
  }
  // Of a key that is there, else of the table.
  ConfigPlace placeOf(std::string_view key) const;

  void refuseUnknownKeys(std::initializer_list<std::string_view> known) const;
  bool has(std::string_view key) const { return table_->contains(key); }

  // None when the key is absent. An empty string is refused.
  std::optional<std::string> string(std::string_view key) const;
  std::string neededString(std::string_view key) const;
  std::optional<std::int64_t> integer(std::string_view key, std::int64_t least, std::int64_t most) const;
  std::optional<bool> boolean(std::string_view key) const;
  // Calls with (text, place) for each; nothing when the key is absent.
  template <class Each>
  void strings(std::string_view key, const Each& each) const {
    if (const toml::node* node = table_->get(key)) eachString(*node, key, each);
  }
  // Empty when the key is absent.
  std::optional<TomlTable> table(std::string_view key) const;
  // Calls with (TomlTable) for each table of [[key]].
  template <class Each>
  void tables(std::string_view key, const Each& each) const {
    const toml::node* node = table_->get(key);
    if (node == nullptr) return;
    const toml::array* list = node->as_array();
    if (list == nullptr || !list->is_array_of_tables())
      refuse(*node, key, "tables [[" + std::string(key) + "]]");
    for (const toml::node& one : *list)
      each(TomlTable(file_, *one.as_table(), "[[" + std::string(key) + "]]"));
  }
  // Calls with (key, node) for each member.
  template <class Each>
  void members(const Each& each) const {
    for (const auto& [key, node] : *table_) each(std::string_view(key.str()), node);
  }
  // Any value without a static type. Dates and times are refused.
  Kiv::Value value(std::string_view key, const toml::node& node) const;

  [[noreturn]] void refuse(const toml::node& node, std::string_view key, std::string_view expected) const;

 private:
  void eachString(const toml::node& node, std::string_view key,
                  const std::function<void(std::string, ConfigPlace)>& each) const;

  std::string file_;
  const toml::table* table_;
  std::string what_;  // "[sflow]", or "the file" at the top
};

// Throws ConfigError when the file cannot be read or is no TOML.
toml::table parseToml(const std::filesystem::path& file);

}  // namespace Pexa
