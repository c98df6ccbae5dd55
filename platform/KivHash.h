// The framework's hash mixer: joins the hashes of a value's members into one.
#pragma once

#include <cstdint>

namespace Kiv {

class HashMixer {
 public:
  explicit HashMixer(std::uint32_t seed) : state_(seed) {}
  HashMixer& feed(std::uint32_t value) {
    state_ = (state_ ^ value) * 0x9e3779b97f4a7c15U;
    state_ ^= state_ >> 32;
    return *this;
  }
  std::uint32_t result() const { return static_cast<std::uint32_t>(state_); }

 private:
  std::uint64_t state_;
};

}  // namespace Kiv
