// The slow side of reading a table: chains, misses, walks, changes under way, and telling damage from them.
//
// What a reader sees while the writer works is always one of these: a record that is whole and belongs to the
// entry that led to it; or something that has changed when it looks again, and then it starts over. Anything
// that is wrong and stays as it is, is damage.
// Threading: as Table.
#pragma once

#include <cstdint>
#include <string>

#include "QuellTable.h"
#include "quell/SlotAccess.h"
#include "quell/TableFile.h"

namespace Quell {

class TableScan {
 public:
  explicit TableScan(const Table& table) : table_(table), file_(*table.file_) {}

  bool find(const void* key, std::uint64_t hash, void* out);
  // The first record at or behind a place in the order, and, where a key is given, behind the key (or at it)
  // among the records of that place.
  bool walk(std::uint64_t position, const void* key, bool inclusive, void* out);
  std::uint64_t entries();

 private:
  enum class Reading { whole, changed, damaged };
  struct Chain {
    bool damaged = false;
    bool changed = false;
  };

  // The state of the index, checked and noted in the table. Throws on damage.
  std::uint64_t state();
  bool stateIs(std::uint64_t state) const;
  // Calls visit(cell, entry) for each entry of a bucket and its overflow buckets until it answers false.
  template <class Visit>
  Chain visitChain(std::uint64_t number, const Visit& visit);
  enum class BucketLook { verified, unverified, damaged };
  BucketLook look(const Layout::Bucket& bucket, std::uint64_t& meta,
                  std::array<std::uint64_t, Layout::kEntriesPerBucket>& entries);
  // The record behind an entry into words_, its key's hash into hash_.
  Reading read(const Layout::Word& cell, std::uint64_t entry);
  // The same, following the entry while it changes; `changed` when it went, or never stood still.
  Reading follow(const Layout::Word& cell, std::uint64_t entry);
  Reading settled(const Layout::Word& cell, std::uint64_t entry, std::string why);
  bool slotExists(std::uint64_t slot) const;
  bool isBehind(std::uint64_t position, const void* key, bool inclusive) const;
  Chain nextInBucket(std::uint64_t number, std::uint64_t position, const void* key, bool inclusive,
                     bool& found);
  [[noreturn]] void damage(const std::string& why) const;
  std::string text(const std::string& why) const;

  const Table& table_;
  TableFile& file_;
  std::string why_;  // what the last damage was
  std::uint64_t hash_ = 0;
  RecordWords words_;
  RecordWords best_;
  std::uint64_t bestPosition_ = 0;
};

}  // namespace Quell
