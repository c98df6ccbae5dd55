// What a row of an answer must have. All throw Kiv::ValueError, which says what is missing or wrong; from
// within ControlClient::ask it becomes an error that names who answered so.
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "Kiv.h"

namespace Sft {

inline const Kiv::Value& memberOf(const Kiv::Value& row, std::string_view name) {
  const Kiv::Value* value = row.member(name);
  if (value == nullptr) throw Kiv::ValueError(fmt::format("has no \"{}\"", name));
  return *value;
}

// What a row or a member of one holds, without a copy.
inline const Kiv::Value::Object& objectIn(const Kiv::Value& row) {
  if (const auto* held = row.as<Kiv::Value::Object>()) return *held;
  Kiv::throwValueError("an object", row);
}
template <class T>
const T& memberAs(const Kiv::Value& row, std::string_view name, std::string_view expected) {
  const Kiv::Value& value = memberOf(row, name);
  if (const T* held = value.as<T>()) return *held;
  throw Kiv::ValueError(fmt::format("\"{}\": expected {}, got {}", name, expected, value.described()));
}

// Converted as everywhere (Kiv::ValueTraits).
template <class T>
T memberTo(const Kiv::Value& row, std::string_view name) {
  const Kiv::Value& value = memberOf(row, name);
  try {
    return Kiv::ValueTraits<T>::fromValue(value);
  } catch (const Kiv::ValueError& error) {
    throw Kiv::ValueError(fmt::format("\"{}\": {}", name, error.what()));
  }
}

}  // namespace Sft
