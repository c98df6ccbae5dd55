// The one writer of a table: takes the file's lock, repairs, stores and erases.
//
// A store fills a free slot, publishes it with one 8-byte store into the index, and only then frees the slot
// it replaces: readers get the old record or the new one, and a writer that dies loses at most that store.
// Threading: as Table.
#pragma once

#include <cstdint>
#include <memory>

#include "quell/Journal.h"
#include "quell/TableFile.h"
#include "quell/TableIndex.h"
#include "quell/TableSpace.h"

namespace Quell {

class TableWriter {
 public:
  explicit TableWriter(const std::shared_ptr<TableFile>& file);
  ~TableWriter();
  TableWriter(const TableWriter&) = delete;
  TableWriter& operator=(const TableWriter&) = delete;

  // Takes the lock and puts the table in order. Throws TableError; the text names the process that writes.
  void begin();
  // Gives the lock back.
  void end();

  // REQUIRES of all: begin. Throw TableError when there is no room; nothing has changed then.
  void store(const void* record);
  bool erase(const void* key);
  bool expect(std::uint64_t entries) { return entries_ != 0 || index_.expect(entries); }
  void flush() { journal_.ring(); }

 private:
  TableIndex::Found locate(const void* key, std::uint64_t hash);
  void putInOrder();
  void entriesIs(std::uint64_t entries);
  [[noreturn]] void noRoom() const;

  std::shared_ptr<TableFile> file_;
  TableSpace space_;
  TableIndex index_;
  JournalWriter journal_;
  bool writing_ = false;
  std::uint64_t session_ =
      0;  // the last in which this object wrote: while it stands, what is known here holds
  std::uint64_t entries_ = 0;
};

}  // namespace Quell
