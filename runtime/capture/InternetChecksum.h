// The checksum of IP, TCP and UDP: the ones' complement sum of 16-bit words (RFC 1071).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Capture {

// Adds up bytes as words in the order in which they stand in memory, so that sums and results are stored as
// they are. Parts must have an even number of bytes, but for the last.
class InternetChecksum {
 public:
  // REQUIRES: less than 1 GB altogether.
  InternetChecksum& add(const std::uint8_t* bytes, std::size_t length) {
    std::uint64_t sums[4] = {};  // that do not wait for one another
    for (; length >= 16; bytes += 16, length -= 16) {
      for (std::size_t i = 0; i < 4; ++i) sums[i] += load<std::uint32_t>(bytes + 4 * i);
    }
    sum_ += sums[0] + sums[1] + sums[2] + sums[3];
    for (; length >= 2; bytes += 2, length -= 2) sum_ += load<std::uint16_t>(bytes);
    if (length != 0) {
      const std::uint8_t last[2] = {*bytes, 0};
      sum_ += load<std::uint16_t>(last);
    }
    return *this;
  }
  // Adds a number as it is on the wire, in two words.
  InternetChecksum& addNumber(std::uint32_t number) {
    const std::uint8_t bytes[4] = {static_cast<std::uint8_t>(number >> 24),
                                   static_cast<std::uint8_t>(number >> 16),
                                   static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    return add(bytes, sizeof bytes);
  }
  // Stores the checksum. 0 is stored as its equal, 0xffff: in UDP, 0 says that there is none.
  void store(std::uint8_t* at) const {
    std::uint64_t sum = sum_;
    while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
    auto check = static_cast<std::uint16_t>(~sum);
    if (check == 0) check = 0xffff;
    std::memcpy(at, &check, sizeof check);
  }

 private:
  template <typename Word>
  static Word load(const std::uint8_t* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
  }
  std::uint64_t sum_ = 0;
};

}  // namespace Capture
