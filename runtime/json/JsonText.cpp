#include "JsonText.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "KivQuoted.h"

namespace Json {
namespace {

using Node = nlohmann::ordered_json;

Node nodeOf(const Kiv::Value& value);

Node entityNode(const Kiv::Ptr<const Kiv::PtrInterface>& entity) {
  if (!entity) return nullptr;
  Node node = {{"type", entity->fwkType().name()}};
  const auto* named = dynamic_cast<const Kiv::Entity*>(entity.get());
  node["name"] = named != nullptr ? Node(named->name()) : Node(nullptr);
  return node;
}

Node listNode(const Kiv::Value::List& list) {
  Node node = Node::array();
  for (const Kiv::Value& each : list) node.push_back(nodeOf(each));
  return node;
}

Node objectNode(const Kiv::Value::Object& object) {
  Node node = Node::object();
  for (const auto& [name, member] : object) node[name] = nodeOf(member);
  return node;
}

Node nodeOf(const Kiv::Value& value) {
  if (value.isNone()) return nullptr;
  if (const auto* held = value.as<bool>()) return *held;
  if (const auto* held = value.as<std::int64_t>()) return *held;
  if (const auto* held = value.as<std::uint64_t>()) return *held;
  if (const auto* held = value.as<double>()) return *held;
  if (const auto* held = value.as<Kiv::String>()) return *held;
  if (const auto* held = value.as<Kiv::Value::List>()) return listNode(*held);
  if (const auto* held = value.as<Kiv::Value::Object>()) return objectNode(*held);
  if (const auto* held = value.as<Kiv::Ptr<const Kiv::PtrInterface>>()) return entityNode(*held);
  Kiv::throwValueError("a value that JSON can show", value);
}

// Builds the value as the library reads, so that what its tree would swallow is seen: members that come
// twice, integers too large, depth.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  Kiv::Value take() { return std::move(root_); }
  const std::string& error() const { return error_; }

  bool null() override { return put(Kiv::Value()); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(number_integer_t value) override { return put(static_cast<std::int64_t>(value)); }
  bool number_unsigned(number_unsigned_t value) override {
    // One integer, one form: what fits the signed type is signed wherever it came from.
    if (value <= static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max())) {
      return put(static_cast<std::int64_t>(value));
    }
    return put(static_cast<std::uint64_t>(value));
  }
  bool number_float(number_float_t value, const string_t& digits) override {
    if (digits.find_first_of(".eE") == string_t::npos) {
      return fail(fmt::format("the integer {} does not fit 64 bits", digits));
    }
    return put(value);
  }
  bool string(string_t& value) override { return put(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return fail("binary value"); }
  bool start_object(std::size_t /*elements*/) override { return open(Kiv::Value::Object()); }
  bool key(string_t& name) override {
    const auto& members = std::get<Kiv::Value::Object>(open_.back().value);
    const auto same = [&](const auto& member) { return member.first == name; };
    if (std::any_of(members.begin(), members.end(), same)) {
      return fail(fmt::format("member {} comes twice", Kiv::quoted(name)));
    }
    open_.back().key = std::move(name);
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*elements*/) override { return open(Kiv::Value::List()); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& problem) override {
    if (!error_.empty()) return false;
    // "[json.exception.parse_error.101] parse error at line 1, column 3: syntax error while ... - what"
    std::string what = problem.what();
    if (const auto colon = what.find(": "); colon != std::string::npos) what.erase(0, colon + 2);
    error_ = fmt::format("not JSON at byte {}: {}", position, what);
    return false;
  }

 private:
  struct Level {
    std::variant<Kiv::Value::List, Kiv::Value::Object> value;
    std::string key;  // of the member whose value comes next
  };

  bool fail(std::string what) {
    error_ = std::move(what);
    return false;
  }
  bool put(Kiv::Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (auto* list = std::get_if<Kiv::Value::List>(&open_.back().value)) {
      list->push_back(std::move(value));
    } else {
      std::get<Kiv::Value::Object>(open_.back().value)
          .emplace_back(std::move(open_.back().key), std::move(value));
    }
    return true;
  }
  template <class T>
  bool open(T empty) {
    if (open_.size() == kMostDepth) return fail(fmt::format("more than {} levels deep", kMostDepth));
    open_.push_back({std::move(empty), {}});
    return true;
  }
  bool close() {
    auto done = std::move(open_.back().value);
    open_.pop_back();
    return std::visit([&](auto& value) { return put(Kiv::Value(std::move(value))); }, done);
  }

  Kiv::Value root_;
  std::vector<Level> open_;
  std::string error_;
};

bool tellsOfAnEntity(const Kiv::Value::Object& object) {
  return object.size() == 2 && object[0].first == "type" && object[1].first == "name" &&
         object[0].second.as<Kiv::String>() != nullptr && object[1].second.as<Kiv::String>() != nullptr;
}

}  // namespace

std::string text(const Kiv::Value& value) {
  return nodeOf(value).dump(-1, ' ', false, Node::error_handler_t::replace);
}

Kiv::Value parse(std::string_view text) {
  Builder builder;
  if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) throw Kiv::ValueError(builder.error());
  return builder.take();
}

Kiv::Value withEntities(Kiv::Value value, const EntityFinder& find) {
  if (const auto* list = value.as<Kiv::Value::List>()) {
    Kiv::Value::List result;
    for (const Kiv::Value& each : *list) result.push_back(withEntities(each, find));
    return result;
  }
  const auto* object = value.as<Kiv::Value::Object>();
  if (object == nullptr) return value;
  if (tellsOfAnEntity(*object)) {
    const auto& type = *(*object)[0].second.as<Kiv::String>();
    const auto& name = *(*object)[1].second.as<Kiv::String>();
    const auto entity = find(type, name);
    if (!entity)
      throw Kiv::ValueError(fmt::format("no entity {} of type {}", Kiv::quoted(name), Kiv::quoted(type)));
    return entity;
  }
  Kiv::Value::Object result;
  for (const auto& [name, member] : *object) result.emplace_back(name, withEntities(member, find));
  return result;
}

}  // namespace Json
