// A collection's file, opened, judged and mapped whole.
//
// The mapping reaches over the end of the file to the layout's limits, so that it never moves; whoever
// follows a number into it first asks slotsInFile(). Neighbours: QuellLayout.h; TableWriter changes what is
// in it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "KivPrefetch.h"
#include "Quell.h"
#include "QuellLayout.h"
#include "quell/TablePlace.h"

namespace Quell {

class TableFile {
 public:
  enum class Access { read, write };

  // What a new file is to say of itself.
  struct Creation {
    const RecordType* type = nullptr;
    std::string containerType;
    std::uint64_t capacity = 64;  // entries to have room for at once
  };

  // The file of a place. Throws TableError when it is absent, no table, of a newer layout, truncated or
  // damaged where it says what it is; the file is left as it was.
  static std::shared_ptr<TableFile> open(const TablePlace& place, Access access);
  // As open; creates the file, empty, when it is absent. The file gets its name when it is complete.
  static std::shared_ptr<TableFile> openOrCreate(const TablePlace& place, const Creation& creation,
                                                 Access access);
  // A file without a name that goes with its last user.
  static std::shared_ptr<TableFile> anonymous(const TablePlace& place, const Creation& creation);
  // The same file for writing: this object when it is open for writing. Throws TableError, also when another
  // file stands in its place by now.
  static std::shared_ptr<TableFile> writable(const std::shared_ptr<TableFile>& file);

  ~TableFile();
  TableFile(const TableFile&) = delete;
  TableFile& operator=(const TableFile&) = delete;

  // Throws TableError unless the file holds records of this type: name, record and key sizes.
  void requireType(const RecordType& type) const;

  const TablePlace& place() const { return place_; }
  // "path collection", as messages name the table.
  const std::string& name() const { return name_; }
  const Layout::Identity& identity() const { return identity_; }
  int descriptor() const { return descriptor_.get(); }

  Layout::Header& header() const { return *reinterpret_cast<Layout::Header*>(base_); }
  Layout::Bucket& bucket(std::uint64_t number) const {
    return reinterpret_cast<Layout::Bucket*>(base_ + Layout::kIndexOffset)[number];
  }
  Layout::Bucket& overflow(std::uint64_t number) const {
    return reinterpret_cast<Layout::Bucket*>(base_ + Layout::kOverflowOffset)[number];
  }
  // The words of the journal entry for a position.
  Layout::Word* journal(std::uint64_t position) const {
    return reinterpret_cast<Layout::Word*>(base_ + Layout::kJournalOffset +
                                           position % Layout::kJournalEntries * journalEntryBytes_);
  }
  std::byte* records() const { return base_ + identity_.recordsOffset; }
  Layout::Word* slot(std::uint64_t number) const {
    return reinterpret_cast<Layout::Word*>(records() + number * slotBytes_);
  }
  void prefetchSlot(std::uint64_t number) const { Kiv::prefetch(slot(number), slotBytes_); }
  std::uint64_t slotBytes() const { return slotBytes_; }
  std::uint64_t journalEntryBytes() const { return journalEntryBytes_; }
  std::size_t keyBytes() const { return identity_.keyBytes; }
  std::size_t recordBytes() const { return identity_.recordBytes; }

  // How many slots the file has room for by its size now. Throws TableError when it cannot be asked.
  std::uint64_t slotsInFile() const;
  // Gets memory for a part of the file, extending the file when the part lies behind its end. False when
  // there is no room: nothing has changed.
  bool reserve(std::uint64_t offset, std::uint64_t bytes) const;
  // The same for the whole of a large page that nothing is in yet, got as one where the file system has them.
  bool reserveLargePage(std::uint64_t offset) const;
  // Asks for one large page at an offset (a multiple of its size), in place of the small ones there: lookups
  // in a large table spend half their time on address translation otherwise. A file system that has none
  // keeps small ones.
  void gatherLargePage(std::uint64_t offset) const;

  // Takes the writer's lock of the file. False when somebody has it.
  bool lock();
  void unlock();

  // Looks at what was being changed, which had to be taken again, by the users of this object. Counted where
  // a reader does not find what it came for at once.
  std::uint64_t tornReads() const { return tornReads_.load(std::memory_order_relaxed); }
  void tornReadsInc() { tornReads_.fetch_add(1, std::memory_order_relaxed); }

 private:
  TableFile(TablePlace place, Descriptor descriptor, Access access);
  static Descriptor openNamed(const TablePlace& place, Access access);
  static void initialise(int fd, const TablePlace& place, const Creation& creation);
  void judge();
  void map();

  TablePlace place_;
  std::string name_;
  Descriptor descriptor_;
  Access access_;
  Layout::Identity identity_{};
  std::uint64_t slotBytes_ = 0;
  std::uint64_t journalEntryBytes_ = 0;
  std::byte* base_ = nullptr;
  void* reserved_ = nullptr;  // addresses around the mapping
  std::size_t mapped_ = 0;
  std::atomic<std::uint64_t> tornReads_{0};
  std::atomic<bool> locked_{false};  // the lock is the open file's: users of this object settle it here
};

}  // namespace Quell
