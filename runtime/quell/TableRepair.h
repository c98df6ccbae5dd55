// Putting a table in order before it is written: what a writer that died left, and damage.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quell/TableFile.h"

namespace Quell {

// What a table holds, found by reading all of it, and what had to be put right.
struct TableRepair {
  std::uint64_t buckets = 0;
  std::uint64_t compactions = 0;
  std::uint64_t entries = 0;
  std::vector<bool> slots;            // in use
  std::vector<std::uint32_t> hashes;  // lower half of each used slot's hash
  std::vector<bool> overflow;         // in use, up to the last that is
  std::uint64_t doubles = 0;          // entries left twice by an interrupted split or compaction
  std::uint64_t damaged = 0;          // entries dropped because their record or their slot number is damaged
  std::uint64_t tags = 0;             // entries whose tag was put right
  std::uint64_t links = 0;            // links to overflow buckets dropped
  std::uint64_t unfinished = 0;       // buckets whose sequence or check was put right
  bool counts = false;                // the state word or the count of entries was put right

  bool anything() const { return doubles + damaged + tags + links + unfinished != 0 || counts; }
  // "3 entries left by an interrupted split dropped, ..."
  std::string text() const;
};

// REQUIRES: the file's lock is held. Readers may read meanwhile. Throws TableError when the size of the index
// cannot be told any more.
TableRepair repair(TableFile& file);

}  // namespace Quell
