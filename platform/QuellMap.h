// The map of a shared table: keyed lookup without locks, walks in table order, insert or overwrite, delete.
//
//   record = status.hoIpFlowStatus().get(key);             // a default record when there is none
//   for (bool more = map.first(r); more; more = map.after(r.key, r)) ...
//
// Promises
// Q1  A lookup gives a record as its writer stored it, or none; a record that cannot be read whole is damage.
// Q2  A record that is overwritten is never absent: a reader gets the old one or the new one.
// Q3  A walk meets an entry that is present during the whole walk exactly once, whatever else comes, goes or
//     grows in between; it is resumed from any key, present or not.
// Q4  Damage is thrown as Fenn::CorruptionDetectedException, and never delivered; doCorruptionDetected counts
// and
//     reports it.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
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
  MapBase(Container& owner, std::string name, const RecordType& type)
      : owner_(owner), name_(std::move(name)), type_(type) {}
  virtual ~MapBase() = default;
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
  void corruptionHandlerIs(std::function<void(std::string_view)> handler) {
    corruptionHandler_ = std::move(handler);
  }

  // The file behind the map; null until mounted. The mounting service attaches and detaches.
  const std::shared_ptr<Table>& table() const { return table_; }
  void tableIs(std::shared_ptr<Table> table) { table_ = std::move(table); }
  Container& owner() const { return owner_; }

  // The same operations on records and keys as bytes of the type's sizes, for who has no types (operator's
  // tools); aligned to 8. The hash of a key is Table's.
  bool findBytes(const void* key, void* out) const;
  void insertBytes(const void* record);
  bool eraseBytes(const void* key);
  // A key of this map as reactors get it.
  virtual Kiv::KeyRef keyRef(const void* key) const = 0;

 protected:
  // Throws TableError when no table is attached.
  Table& writable() const;
  // Tells the reactors in this process.
  void changed(const void* key) const { owner_.collectionChanged(*this, key); }

 private:
  Container& owner_;
  std::string name_;
  const RecordType& type_;
  std::shared_ptr<Table> table_;
  std::function<void(std::string_view)> corruptionHandler_;
  mutable std::uint64_t corruptions_ = 0;
  mutable std::string lastCorruption_;
};

// REQUIRES of Record: trivially copyable, its first member is `Key key`, no padding that is not written
// (declare it). REQUIRES of Key: every bit takes part in its equality.
template <class Key, class Record>
class Map : public MapBase {
 public:
  static_assert(std::is_trivially_copyable_v<Record> && std::is_standard_layout_v<Record>);
  static_assert(std::has_unique_object_representations_v<Key>);
  static_assert(sizeof(Record) <= Layout::kMostRecordBytes && sizeof(Key) <= sizeof(Record));
  static_assert(alignof(Record) <= 8);
  using KeyType = Key;
  using RecordTypeT = Record;
  using MapBase::MapBase;

  // What a lookup may prepare: computed once, used by prefetch and find.
  static std::uint64_t hash(const Key& key) { return Table::hash<sizeof(Key)>(&key); }
  using Place = Table::Place;
  // Ask for the memory that a find of this hash reads first, and then for what that names: see Table::place.
  void prefetchIndex(std::uint64_t hash) const {
    if (table()) table()->prefetchIndex(hash);
  }
  void prefetchRecord(std::uint64_t hash) const { place(hash); }
  Place place(std::uint64_t hash) const {
    return table() ? table()->template place<sizeof(Record)>(hash) : Place();
  }

  // The record under a key, copied out. False, and `out` unchanged, when absent. Throws
  // Fenn::CorruptionDetectedException (Q4).
  bool find(const Key& key, Record& out) const { return find(key, hash(key), out); }
  bool find(const Key& key, std::uint64_t hash, Record& out) const {
    return table() && table()->template find<sizeof(Key), sizeof(Record)>(&key, hash, &out);
  }
  // At a place that was found for the hash in this table.
  [[gnu::always_inline]] bool find(const Place& place, const Key& key, std::uint64_t hash,
                                   Record& out) const {
    return table() && table()->template find<sizeof(Key), sizeof(Record)>(place, &key, hash, &out);
  }
  bool has(const Key& key) const {
    Record record;
    return find(key, record);
  }
  // The record under a key, or a default one when absent.
  Record get(const Key& key) const { return get(key, hash(key)); }
  Record get(const Key& key, std::uint64_t hash) const {
    Record record{};
    find(key, hash, record);
    return record;
  }

  // Walking in table order; false at the end, `out` unchanged then. What cannot be read throws WalkDamage,
  // once those that can have been met up to there; behind() steps over it.
  bool first(Record& out) const { return table() && table()->walkFirst(&out); }
  bool after(const Key& key, Record& out) const { return table() && table()->walkAfter(&key, &out); }
  bool atOrAfter(const Key& key, Record& out) const { return table() && table()->walkAtOrAfter(&key, &out); }
  // Keys that the walk soon meets, as a hint; see Table::walkAhead.
  bool ahead(Key& key) const { return table() && table()->walkAhead(&key); }
  bool behind(const WalkDamage& damage, Record& out) const {
    return !damage.atEnd() && table() && table()->walkFrom(damage.resumeAt(), &out);
  }

  // Inserts or overwrites the record under its own key, and tells this process's reactors; those of other
  // processes hear when the table is flushed. Throws TableError.
  void insert(const Record& record) {
    writable().store(&record);
    changed(&record.key);
  }
  // So many records are about to be inserted: see Table::expect. Throws TableError when this process cannot
  // become the writer; a map that has records is left to its writer.
  bool expect(std::size_t entries) { return entries == 0 || !empty() || writable().expect(entries); }
  // Takes the record out. False, and nothing written, when absent. Throws TableError.
  bool erase(const Key& key) {
    if (empty() || !writable().erase(&key)) return false;
    changed(&key);
    return true;
  }

  Kiv::KeyRef keyRef(const void* key) const override { return Kiv::KeyRef(*static_cast<const Key*>(key)); }
};

// Gives a map a table in memory of its own, with room for so many entries to start with; for those who need
// no run directory. Throws TableError.
void attachAnonymous(MapBase& map, std::size_t capacity = 64);

}  // namespace Quell
