// VLAN ids and traffic directions.
#pragma once

#include <cstdint>
#include <stdexcept>

namespace Bridging {

enum class AllowedTrafficDirection : std::uint8_t { none = 0, ingress = 1, egress = 2, both = 3 };

// A VLAN id, or "any", or "none", in 16 bits.
class VlanIdOrAnyOrNone {
 public:
  static constexpr std::uint16_t kMost = 4095;
  static constexpr std::uint16_t kAny = 4096;
  static constexpr std::uint16_t kNone = 0xffff;

  constexpr VlanIdOrAnyOrNone() = default;
  constexpr explicit VlanIdOrAnyOrNone(std::uint16_t raw) : raw_(raw) {}
  // Any of the 65,536 values.
  constexpr std::uint16_t raw() const { return raw_; }
  // The VLAN id. Throws std::range_error when this is none.
  std::uint16_t value() const {
    if (raw_ > kMost) throw std::range_error("Bridging::VlanIdOrAnyOrNone::value > 4095 not allowed");
    return raw_;
  }
  constexpr bool operator==(const VlanIdOrAnyOrNone&) const = default;

 private:
  std::uint16_t raw_ = kNone;
};

}  // namespace Bridging
