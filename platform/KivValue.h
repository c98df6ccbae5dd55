// Values without a static type: what an attribute holds when it is reached by name, what a configuration
// file, a JSON record or a command line says. ValueTraits converts each C++ type to and from it.
#pragma once

#include <any>
#include <concepts>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "KivPtr.h"
#include "KivString.h"

namespace Kiv {

// A value of the wrong type or out of range. The text says what was expected and what was given.
class ValueError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Value {
 public:
  using List = std::vector<Value>;
  using Object = std::vector<std::pair<String, Value>>;  // members in their order
  // Opaque carries an argument of an invoked handler that has no other form (a packet context).
  using Opaque = std::any;

  Value() = default;
  Value(bool value) : data_(value) {}  // NOLINT(google-explicit-constructor): values are written as literals
  template <std::signed_integral T>
  Value(T value) : data_(static_cast<std::int64_t>(value)) {}  // NOLINT(google-explicit-constructor)
  template <std::unsigned_integral T>
  requires(!std::same_as<T, bool>) Value(T value)
      : data_(static_cast<std::uint64_t>(value)) {}                  // NOLINT(google-explicit-constructor)
  Value(double value) : data_(value) {}                              // NOLINT(google-explicit-constructor)
  Value(String value) : data_(std::move(value)) {}                   // NOLINT(google-explicit-constructor)
  Value(std::string_view value) : data_(String(value)) {}            // NOLINT(google-explicit-constructor)
  Value(const char* value) : data_(String(value)) {}                 // NOLINT(google-explicit-constructor)
  Value(List value) : data_(std::move(value)) {}                     // NOLINT(google-explicit-constructor)
  Value(Object value) : data_(std::move(value)) {}                   // NOLINT(google-explicit-constructor)
  Value(Ptr<const PtrInterface> value) : data_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  static Value opaque(Opaque value);

  bool isNone() const { return std::holds_alternative<std::monostate>(data_); }
  // Null when the value is of another type.
  template <class T>
  const T* as() const {
    return std::get_if<T>(&data_);
  }
  // Null when this is no object or has no such member.
  const Value* member(std::string_view name) const;

  // For an error message: "boolean true", "string \"abc\"", "list", "nothing".
  String described() const;
  // For a person: text as it is, numbers in decimal, lists and objects in JSON style.
  String text() const;

  bool operator==(const Value& other) const;

 private:
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, String, List, Object,
               Ptr<const PtrInterface>, Opaque>
      data_;
};

// Throws ValueError "expected EXPECTED, got DESCRIPTION".
[[noreturn]] void throwValueError(std::string_view expected, const Value& got);

// How a C++ type becomes a Value and back. toValue never fails; fromValue throws ValueError and never
// converts between kinds (a string "1" is no number, 1 is no boolean). Types elsewhere specialise it beside
// themselves.
template <class T, class = void>
struct ValueTraits;

template <>
struct ValueTraits<bool> {
  static constexpr std::string_view kTypeName = "bool";
  static Value toValue(bool value) { return Value(value); }
  static bool fromValue(const Value& value) {
    if (const bool* held = value.as<bool>()) return *held;
    throwValueError("true or false", value);
  }
};

// Throws ValueError unless the value is an integer between the bounds.
std::int64_t signedFromValue(const Value& value, std::int64_t least, std::int64_t most);
std::uint64_t unsignedFromValue(const Value& value, std::uint64_t most);

template <class T>
struct ValueTraits<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
  static constexpr std::string_view kTypeName = std::is_signed_v<T> ? "integer" : "unsigned integer";
  static Value toValue(T value) { return Value(value); }
  static T fromValue(const Value& value) {
    if constexpr (std::is_signed_v<T>) {
      return static_cast<T>(
          signedFromValue(value, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
    } else {
      return static_cast<T>(unsignedFromValue(value, std::numeric_limits<T>::max()));
    }
  }
};

template <>
struct ValueTraits<double> {
  static constexpr std::string_view kTypeName = "number";
  static Value toValue(double value) { return Value(value); }
  static double fromValue(const Value& value);  // integers are numbers too
};

template <>
struct ValueTraits<String> {
  static constexpr std::string_view kTypeName = "string";
  static Value toValue(const String& value) { return Value(value); }
  static String fromValue(const Value& value) {
    if (const String* held = value.as<String>()) return *held;
    throwValueError("a string", value);
  }
};

template <class T>
struct ValueTraits<Ptr<T>> {
  static constexpr std::string_view kTypeName = "entity";
  static Value toValue(const Ptr<T>& value) { return Value(Ptr<const PtrInterface>(value)); }
  static Ptr<T> fromValue(const Value& value) {
    if (value.isNone()) return {};
    const auto* held = value.as<Ptr<const PtrInterface>>();
    if (held == nullptr) throwValueError("an entity", value);
    if (!*held) return {};
    auto* object = dynamic_cast<const T*>(held->get());
    if (object == nullptr) throwValueError("an entity of another type", value);
    return Ptr<T>(const_cast<T*>(object));
  }
};

// A list of values of one type; an element that does not fit makes the whole list not fit.
template <class T>
struct ValueTraits<std::vector<T>> {
  static constexpr std::string_view kTypeName = "list";
  static Value toValue(const std::vector<T>& values) {
    Value::List list;
    list.reserve(values.size());
    for (const T& each : values) list.push_back(ValueTraits<T>::toValue(each));
    return Value(std::move(list));
  }
  static std::vector<T> fromValue(const Value& value) {
    const auto* held = value.as<Value::List>();
    if (held == nullptr) throwValueError("a list", value);
    std::vector<T> values;
    values.reserve(held->size());
    for (const Value& each : *held) values.push_back(ValueTraits<T>::fromValue(each));
    return values;
  }
};

}  // namespace Kiv
