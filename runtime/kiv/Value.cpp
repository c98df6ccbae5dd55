#include "KivValue.h"

#include <fmt/format.h>

#include "KivEntity.h"
#include "KivQuoted.h"

namespace Kiv {

String quoted(std::string_view text) {
  String out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20 || c == '\x7f') {
      out += fmt::format("\\u{:04x}", static_cast<unsigned>(static_cast<unsigned char>(c)));
    } else {
      out += c;
    }
  }
  return out + '"';
}

namespace {

String nested(const Value& value) {
  const String* text = value.as<String>();
  return text != nullptr ? quoted(*text) : value.text();
}

struct TextOf {
  String operator()(std::monostate) const { return ""; }
  String operator()(bool value) const { return value ? "true" : "false"; }
  String operator()(std::int64_t value) const { return fmt::to_string(value); }
  String operator()(std::uint64_t value) const { return fmt::to_string(value); }
  String operator()(double value) const { return fmt::format("{:.6f}", value); }
  String operator()(const String& value) const { return value; }
  String operator()(const Value::List& value) const {
    String out = "[";
    for (const Value& each : value) out += (out.size() > 1 ? ", " : "") + nested(each);
    return out + "]";
  }
  String operator()(const Value::Object& value) const {
    String out = "{";
    for (const auto& [name, each] : value)
      out += (out.size() > 1 ? ", " : "") + quoted(name) + ": " + nested(each);
    return out + "}";
  }
  String operator()(const Ptr<const PtrInterface>& value) const {
    if (!value) return "none";
    const auto* entity = dynamic_cast<const Entity*>(value.get());
    const String& type = value->fwkType().name();
    return entity != nullptr ? type + "(" + quoted(entity->name()) + ")" : type;
  }
  String operator()(const Value::Opaque&) const { return "(opaque)"; }
};

struct DescriptionOf {
  String operator()(std::monostate) const { return "nothing"; }
  String operator()(bool value) const { return value ? "true" : "false"; }
  String operator()(std::int64_t value) const { return fmt::format("the number {}", value); }
  String operator()(std::uint64_t value) const { return fmt::format("the number {}", value); }
  String operator()(double value) const { return fmt::format("the number {}", value); }
  String operator()(const String& value) const { return "the string " + quoted(value); }
  String operator()(const Value::List&) const { return "a list"; }
  String operator()(const Value::Object&) const { return "an object"; }
  String operator()(const Ptr<const PtrInterface>& value) const { return "the entity " + TextOf{}(value); }
  String operator()(const Value::Opaque&) const { return "an opaque value"; }
};

}  // namespace

Value Value::opaque(Opaque value) {
  Value result;
  result.data_ = std::move(value);
  return result;
}

const Value* Value::member(std::string_view name) const {
  const Object* object = as<Object>();
  if (object == nullptr) return nullptr;
  for (const auto& [memberName, value] : *object) {
    if (memberName == name) return &value;
  }
  return nullptr;
}

String Value::described() const {
  return std::visit(DescriptionOf{}, data_);
}

String Value::text() const {
  return std::visit(TextOf{}, data_);
}

bool Value::operator==(const Value& other) const {
  if (data_.index() != other.data_.index()) {
    // The same whole number may be held signed or unsigned.
    const auto* left = as<std::int64_t>();
    const auto* right = other.as<std::uint64_t>();
    if (left != nullptr && right != nullptr) return *left >= 0 && static_cast<std::uint64_t>(*left) == *right;
    if (as<std::uint64_t>() != nullptr && other.as<std::int64_t>() != nullptr) return other == *this;
    return false;
  }
  return std::visit(
      [&]<class T>(const T& held) {
        if constexpr (std::is_same_v<T, Opaque>) {
          return false;  // nothing is known of what it holds
        } else {
          return held == *other.as<T>();
        }
      },
      data_);
}

void throwValueError(std::string_view expected, const Value& got) {
  throw ValueError(fmt::format("expected {}, got {}", expected, got.described()));
}

std::int64_t signedFromValue(const Value& value, std::int64_t least, std::int64_t most) {
  std::int64_t number = 0;
  if (const auto* held = value.as<std::int64_t>()) {
    number = *held;
  } else if (const auto* bare = value.as<std::uint64_t>();
             bare != nullptr && *bare <= std::uint64_t{INT64_MAX}) {
    number = static_cast<std::int64_t>(*bare);
  } else {
    throwValueError(fmt::format("a whole number from {} to {}", least, most), value);
  }
  if (number < least || number > most)
    throwValueError(fmt::format("a whole number from {} to {}", least, most), value);
  return number;
}

std::uint64_t unsignedFromValue(const Value& value, std::uint64_t most) {
  std::uint64_t number = 0;
  if (const auto* held = value.as<std::uint64_t>()) {
    number = *held;
  } else if (const auto* bare = value.as<std::int64_t>(); bare != nullptr && *bare >= 0) {
    number = static_cast<std::uint64_t>(*bare);
  } else {
    throwValueError(fmt::format("a whole number from 0 to {}", most), value);
  }
  if (number > most) throwValueError(fmt::format("a whole number from 0 to {}", most), value);
  return number;
}

double ValueTraits<double>::fromValue(const Value& value) {
  if (const auto* held = value.as<double>()) return *held;
  if (const auto* whole = value.as<std::int64_t>()) return static_cast<double>(*whole);
  if (const auto* whole = value.as<std::uint64_t>()) return static_cast<double>(*whole);
  throwValueError("a number", value);
}

}  // namespace Kiv
