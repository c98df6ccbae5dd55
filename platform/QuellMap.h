// The map of a shared table: keyed lookup without locks, walks in table order, insert or overwrite, delete.
//
//   record = status.hoIpFlowStatus().get(key);             // a default record when there is none
//   for (auto e = map.first(r); e; e = map.after(key, r)) { key = r.key; ... }
//
// Promises
// Q1  A lookup gives a record as its writer stored it, or none; a record that cannot be read whole is damage.
// Q2  A record that is overwritten is never absent: a reader gets the old one or the new one.
// Q3  A walk meets an entry that is present during the whole walk exactly once, whatever else comes, goes or
//     grows in between; it is resumed from any key, present or not.
// Q4  Damage is counted and thrown as Fenn::CorruptionDetectedException; doCorruptionDetected reports it.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "Fenn.h"
#include "Quell.h"
#include "QuellTable.h"

namespace Quell {

// One collection, without its types.
class MapBase {
 public:
  MapBase(Container& owner, std::string name, const RecordType& type);
  ~MapBase();
  MapBase(const MapBase&) = delete;
  MapBase& operator=(const MapBase&) = delete;

  const std::string& name() const { return name_; }
  const RecordType& type() const { return type_; }
  // Entries now. 0 while no table is attached.
  std::size_t size() const { return table_ ? table_->entries() : 0; }
  bool empty() const { return size() == 0; }

  // Reports damage: counted, one line in the log a message, told to the handler that a test may set.
  void doCorruptionDetected(std::string_view message) const;
  std::uint64_t corruptions() const { return corruptions_; }

  // The file behind the map; null until mounted. The mounting service attaches and detaches.
  const std::shared_ptr<Table>& table() const { return table_; }
  void tableIs(std::shared_ptr<Table> table) { table_ = std::move(table); }
  Container& owner() const { return owner_; }

 protected:
  // Throws TableError when no table is attached or this process cannot become its writer.
  Table& writable();

 private:
  Container& owner_;
  std::string name_;
  const RecordType& type_;
  std::shared_ptr<Table> table_;
  mutable std::uint64_t corruptions_ = 0;
};

// REQUIRES of Record: trivially copyable, its first member is `Key key`, no padding that is not written
// (declare it). REQUIRES of Key: every bit takes part in its equality.
template <class Key, class Record>
class Map : public MapBase {
 public:
  static_assert(std::is_trivially_copyable_v<Record> && std::is_standard_layout_v<Record>);
  static_assert(std::has_unique_object_representations_v<Key>);
  using KeyType = Key;
  using RecordTypeT = Record;
  using MapBase::MapBase;

  // What a lookup may prepare: computed once, used by prefetch and find.
  static std::uint64_t hash(const Key& key) { return Table::hash<sizeof(Key)>(&key); }
  // Ask for the memory that a find of this hash reads first, and then for what that names.
  void prefetchIndex(std::uint64_t hash) const {
    if (table()) table()->prefetchIndex(hash);
  }
  void prefetchRecord(std::uint64_t hash) const {
    if (table()) table()->prefetchRecord(hash);
  }

  // The record under a key, copied out. False when absent. Throws Fenn::CorruptionDetectedException (Q4).
  bool find(const Key& key, Record& out) const { return find(key, hash(key), out); }
  bool find(const Key& key, std::uint64_t hash, Record& out) const {
    return table() && table()->template find<sizeof(Key), sizeof(Record)>(&key, hash, &out);
  }
  bool has(const Key& key) const {
    Record record;
    return find(key, record);
  }
  // The record under a key, or a default one when absent.
  Record get(const Key& key) const { return get(key, hash(key)); }
  Record get(const Key& key, std::uint64_t hash) const {
    Record record;
    if (!find(key, hash, record)) record = Record();
    return record;
  }

  // Walking in table order; false at the end. Damaged entries on the way throw; a walk goes on behind one
  // with after() from the last key met, having asked skipDamaged() to step over it.
  bool first(Record& out) const { return table() && table()->walkFirst(&out); }
  bool after(const Key& key, Record& out) const { return table() && table()->walkAfter(&key, &out); }
  bool atOrAfter(const Key& key, Record& out) const { return table() && table()->walkAtOrAfter(&key, &out); }

  // Inserts or overwrites the record under its own key. Throws TableError.
  void insert(const Record& record) { writable().store(&record); }
  // Takes the record out. False, and nothing written, when absent. Throws TableError.
  bool erase(const Key& key) { return size() != 0 && writable().erase(&key); }
};

}  // namespace Quell
