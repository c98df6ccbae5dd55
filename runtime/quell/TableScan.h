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
#include "quell/WalkPlace.h"

namespace Quell {

class TableScan {
 public:
  explicit TableScan(const Table& table) : table_(table), file_(*table.file_), place_(*table.walk_) {}

  bool find(const void* key, std::uint64_t hash, void* out);
  // The record behind a key, when the walk gave the key's last and still stands in its bucket. False when
  // that is not so, or the bucket has no more: `walk` it is then.
  bool walkOn(const void* key, void* out);
  // The first record at or behind a place in the order, and, where a key is given, behind the key (or at it)
  // among the records of that place.
  bool walk(std::uint64_t position, const void* key, bool inclusive, void* out);
  // A key that a walk meets soon; see Table.
  bool ahead(void* key);
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
  enum class BucketLook { verified, unverified, damaged };
  static void unseen(const Layout::Bucket& /*bucket*/, std::uint64_t /*meta*/, BucketLook /*look*/) {}
  // Calls visit(cell, entry) for each entry of a bucket and its overflow buckets until it answers false, and
  // before those of each bucket seen(bucket, meta, look).
  template <class Visit, class Seen = decltype(&unseen)>
  Chain visitChain(std::uint64_t number, const Visit& visit, const Seen& seen = &unseen);
  BucketLook look(const Layout::Bucket& bucket, std::uint64_t& meta,
                  std::array<std::uint64_t, Layout::kEntriesPerBucket>& entries);
  // The record behind an entry into words_, its key's hash into hash_.
  Reading read(const Layout::Word& cell, std::uint64_t entry);
  // The same, following the entry while it changes; `changed` when it went, or never stood still.
  Reading follow(const Layout::Word& cell, std::uint64_t entry);
  Reading wrong(std::string why);
  bool slotExists(std::uint64_t slot) const;
  // The entries of a bucket into place_, in table order; remembered where W1 allows it.
  Chain gather(std::uint64_t number, std::uint64_t state);
  void insertInOrder(const WalkPlace::Entry& entry);
  bool isBehind(const WalkPlace::Entry& each, std::uint64_t position, const void* key, bool inclusive) const;
  // The first record of place_ at or behind a place in the order, which the walk stands at then; null when
  // there is none.
  const WalkPlace::Entry* stepIn(std::uint64_t position, const void* key, bool inclusive);
  static bool stands(const WalkPlace::Entry& each);
  // Whether the records of place_ still are what was copied (W3).
  bool asCopied();
  bool asCopied(const WalkPlace::Entry& each) const;
  // Asks for the memory that the walk reads after a bucket, and notes what is there by now.
  void prefetchBehind(std::uint64_t position, std::uint64_t number);
  template <class Visit>
  void visitSlots(std::uint64_t number, const Visit& visit) const;
  std::uint64_t behindBucket(std::uint64_t position, std::uint64_t number) const;
  [[noreturn]] void damage(const std::string& why) const;
  std::string text(const std::string& why) const;

  const Table& table_;
  TableFile& file_;
  WalkPlace& place_;
  std::string why_;  // what the last damage was
  std::uint64_t hash_ = 0;
  std::uint64_t meta_ = 0;  // of the slot read last
  RecordWords words_;
};

}  // namespace Quell
