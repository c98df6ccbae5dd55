// An input read piece by piece; what is not there reads as zeroes.
#pragma once

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "FuzzTarget.h"

class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }
  template <class T>
  T take() {
    static_assert(std::is_trivially_copyable_v<T>);
    T value{};
    const auto bytes = takeBytes(sizeof(T));
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }
  bool flag() { return (take<std::uint8_t>() & 1U) != 0; }
  // A number below `limit`.
  std::size_t below(std::size_t limit) { return take<std::uint16_t>() % limit; }
  // At most so many.
  std::span<const std::uint8_t> takeBytes(std::size_t most) {
    const auto taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  std::string_view rest() const { return {reinterpret_cast<const char*>(rest_.data()), rest_.size()}; }

 private:
  std::span<const std::uint8_t> rest_;
};
