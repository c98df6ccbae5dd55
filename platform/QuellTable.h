// One collection's file, mapped: the reading side inline, because it runs for each packet.
//
// Neighbours: QuellLayout.h draws the file byte by byte; runtime/quell has the writing side, opening and
// repair.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Quell {

class Table {
 public:
  virtual ~Table() = default;

  // 64-bit hash of a key's bytes; the same in every process.
  template <std::size_t KeyBytes>
  static std::uint64_t hash(const void* key);

  std::uint64_t entries() const;
  void prefetchIndex(std::uint64_t hash) const;
  void prefetchRecord(std::uint64_t hash) const;
  template <std::size_t KeyBytes, std::size_t RecordBytes>
  bool find(const void* key, std::uint64_t hash, void* out) const;

  bool walkFirst(void* out) const;
  bool walkAfter(const void* key, void* out) const;
  bool walkAtOrAfter(const void* key, void* out) const;

  void store(const void* record);
  bool erase(const void* key);
};

}  // namespace Quell
