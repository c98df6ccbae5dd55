// How values print in the state machine's traces.
//
//   Optional( 7 )      None      Tuple( 1, true )      true      4294967295
//
// Keys, records and counters print their own text.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "Kiv.h"

namespace SampledFlowTracker {

// All of them first, so that each prints what any other can hold.
template <class T>
void drovaPrint(std::ostream& out, const T& value);
template <class T>
void drovaPrint(std::ostream& out, const std::optional<T>& value);
template <class... Members>
void drovaPrint(std::ostream& out, const std::tuple<Members...>& value);
template <class T>
void drovaPrint(std::ostream& out, const Kiv::Ptr<T>& value);

// The bool mode of the stream is on for this one value only.
inline void drovaPrint(std::ostream& out, bool value) {
  out.setf(std::ios_base::boolalpha);
  out << value;
  out.unsetf(std::ios_base::boolalpha);
}
template <class T>
void drovaPrint(std::ostream& out, const std::optional<T>& value) {
  if (!value) {
    out << "None";
    return;
  }
  out << "Optional( ";
  drovaPrint(out, *value);
  out << " )";
}
template <class... Members>
void drovaPrint(std::ostream& out, const std::tuple<Members...>& value) {
  out << "Tuple( ";
  const char* separator = "";
  const auto member = [&](const auto& each) {
    out << separator;
    drovaPrint(out, each);
    separator = ", ";
  };
  std::apply([&](const auto&... members) { (member(members), ...); }, value);
  out << " )";
}
template <class T>
void drovaPrint(std::ostream& out, const Kiv::Ptr<T>& value) {
  if (!value) {
    out << "None";
  } else {
    out << *value;
  }
}
template <class T>
void drovaPrint(std::ostream& out, const T& value) {
  if constexpr (std::is_unsigned_v<T>) {
    out << std::uint64_t{value};  // a byte prints as a number
  } else {
    out << value;
  }
}

template <class T>
std::string drovaText(const T& value) {
  std::ostringstream out;
  drovaPrint(out, value);
  return out.str();
}

}  // namespace SampledFlowTracker
