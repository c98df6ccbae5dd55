#include "TomlReader.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace Pexa {
namespace {

std::string described(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return fmt::format("\"{}\"", node.as_string()->get());
    case toml::node_type::integer:
      return fmt::format("{}", node.as_integer()->get());
    case toml::node_type::boolean:
      return node.as_boolean()->get() ? "true" : "false";
    case toml::node_type::floating_point:
      return fmt::format("{}", node.as_floating_point()->get());
    case toml::node_type::array:
      return "an array";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

}  // namespace

toml::table parseToml(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::error_code ignored;
  if (!in || std::filesystem::is_directory(file, ignored)) {
    const char* why = in ? "is a folder" : std::strerror(errno);
    throw ConfigError({file.string(), 0},
                      fmt::format("cannot read the configuration: {}, expected a TOML file", why));
  }
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  try {
    return toml::parse(text, file.string());
  } catch (const toml::parse_error& error) {
    const auto line = static_cast<unsigned>(error.source().begin.line);
    std::string what(error.description());
    std::replace(what.begin(), what.end(), '\n', ' ');
    throw ConfigError({file.string(), line}, fmt::format("not TOML: {}", what));
  }
}

ConfigPlace TomlTable::placeOf(std::string_view key) const {
  const toml::node* node = table_->get(key);
  return node != nullptr ? placeOf(node->source()) : place();
}

void TomlTable::refuse(const toml::node& node, std::string_view key, std::string_view expected) const {
  throw ConfigError(placeOf(node.source()),
                    fmt::format("\"{}\" of {} is {}, expected {}", key, what_, described(node), expected));
}

void TomlTable::refuseUnknownKeys(std::initializer_list<std::string_view> known) const {
  for (const auto& [key, node] : *table_) {
    if (std::find(known.begin(), known.end(), key.str()) != known.end()) continue;
    throw ConfigError(placeOf(key.source()), fmt::format("unknown key \"{}\" in {}, expected one of: {}",
                                                         key.str(), what_, fmt::join(known, ", ")));
  }
}

std::optional<std::string> TomlTable::string(std::string_view key) const {
  const toml::node* node = table_->get(key);
  if (node == nullptr) return std::nullopt;
  const auto* text = node->as_string();
  if (text == nullptr || text->get().empty()) refuse(*node, key, "a string");
  return text->get();
}

std::string TomlTable::neededString(std::string_view key) const {
  if (auto text = string(key)) return *std::move(text);
  throw ConfigError(place(), fmt::format("{} has no \"{}\", expected {} = \"...\"", what_, key, key));
}

std::optional<bool> TomlTable::boolean(std::string_view key) const {
  const toml::node* node = table_->get(key);
  if (node == nullptr) return std::nullopt;
  const auto* held = node->as_boolean();
  if (held == nullptr) refuse(*node, key, "true or false");
  return held->get();
}

std::optional<std::int64_t> TomlTable::integer(std::string_view key, std::int64_t least,
                                               std::int64_t most) const {
  const toml::node* node = table_->get(key);
  if (node == nullptr) return std::nullopt;
  const auto* number = node->as_integer();
  if (number == nullptr || number->get() < least || number->get() > most) {
    refuse(*node, key, fmt::format("a number from {} to {}", least, most));
  }
  return number->get();
}

std::optional<TomlTable> TomlTable::table(std::string_view key) const {
  const toml::node* node = table_->get(key);
  if (node == nullptr) return std::nullopt;
  if (!node->is_table()) refuse(*node, key, fmt::format("a table [{}]", key));
  return TomlTable(file_, *node->as_table(), fmt::format("[{}]", key));
}

void TomlTable::eachString(const toml::node& node, std::string_view key,
                           const std::function<void(std::string, ConfigPlace)>& each) const {
  const toml::array* list = node.as_array();
  if (list == nullptr) refuse(node, key, "a list of strings");
  for (const toml::node& one : *list) {
    const auto* text = one.as_string();
    if (text == nullptr || text->get().empty()) refuse(one, key, "a list of strings");
    each(text->get(), placeOf(one.source()));
  }
}

Kiv::Value TomlTable::value(std::string_view key, const toml::node& node) const {
  switch (node.type()) {
    case toml::node_type::string:
      return node.as_string()->get();
    case toml::node_type::integer:
      return node.as_integer()->get();
    case toml::node_type::boolean:
      return node.as_boolean()->get();
    case toml::node_type::floating_point:
      return node.as_floating_point()->get();
    case toml::node_type::array: {
      Kiv::Value::List list;
      for (const toml::node& one : *node.as_array()) list.push_back(value(key, one));
      return list;
    }
    case toml::node_type::table: {
      Kiv::Value::Object object;
      for (const auto& [name, one] : *node.as_table())
        object.emplace_back(name.str(), value(name.str(), one));
      return object;
    }
    default:
      refuse(node, key, "a string, a number, true, false, a list or a table");
  }
}

}  // namespace Pexa
