// Stands in for std::atomic in the words of a table: what a load sees and who goes on is the machine's to
// say. Outside of a machine's run it is a plain word.
#pragma once

#include <atomic>
#include <cstdint>

namespace Scheduled {

std::uint64_t load(const std::uint64_t& word, std::memory_order order);
void store(std::uint64_t& word, std::uint64_t value, std::memory_order order);

template <class Value>
class Atomic {
 public:
  static_assert(sizeof(Value) == sizeof(std::uint64_t));
  Value load(std::memory_order order = std::memory_order_seq_cst) const {
    return Scheduled::load(value_, order);
  }
  void store(Value value, std::memory_order order = std::memory_order_seq_cst) {
    Scheduled::store(value_, value, order);
  }

 private:
  Value value_;
};

}  // namespace Scheduled
