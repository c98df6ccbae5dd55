// Reads the words of an XDR text (big-endian, 4-byte units) one behind the other, never behind its end.
//
// A read that does not fit gives 0 and marks the reader as cut; what is read after it is 0 too. So a
// structure is read straight, and asked about once, at its end.
#pragma once

#include <cstdint>
#include <span>

#include "Pavo.h"

namespace Tracker {

class XdrReader {
 public:
  using Bytes = std::span<const std::uint8_t>;

  explicit XdrReader(Bytes bytes) : rest_(bytes) {}

  std::uint32_t word() {
    const Bytes bytes = take(4);
    return bytes.empty() ? 0 : Pavo::load32(bytes.data());
  }
  // The next bytes. Empty, and cut, when there are not as many.
  Bytes take(std::size_t count) {
    if (count > rest_.size()) {
      cut_ = true;
      rest_ = {};
      return {};
    }
    const Bytes taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }
  // The next bytes and what fills them up to a whole unit.
  Bytes takePadded(std::uint32_t count) {
    const Bytes taken = take(count);
    take((4 - count % 4) % 4);
    return cut_ ? Bytes() : taken;
  }
  // A length, and as many bytes with their filling.
  Bytes opaque() { return takePadded(word()); }

  bool cut() const { return cut_; }
  std::size_t left() const { return rest_.size(); }

 private:
  Bytes rest_;
  bool cut_ = false;
};

}  // namespace Tracker
