// The journal of changed keys: a ring in the file that the writer fills and watchers follow.
//
// Neighbours: TableWriter appends, TableWatcher follows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quell/TableFile.h"
#include "quell/TableSpace.h"

namespace Quell {

class JournalWriter {
 public:
  JournalWriter(TableFile& file, TableSpace& space) : file_(file), space_(space) {}

  // Takes up where the last writer left.
  void begin();
  // Makes sure that one append will find memory. False when there is no room.
  bool reserved() { return space_.journalReserved(head_); }
  // REQUIRES: reserved.
  void append(const void* key);
  // Watchers will look at everything: changes may have gone unrecorded.
  void skip();
  // Wakes the watchers when there is news since the last time.
  void ring();

 private:
  TableFile& file_;
  TableSpace& space_;
  std::uint64_t head_ = 0;
  std::uint64_t rung_ = 0;
};

class JournalReader {
 public:
  // Begins with what comes from now on.
  explicit JournalReader(const TableFile& file);

  enum class News {
    none,
    key,         // a key that changed
    everything,  // too far behind, or the journal is damaged: any key may have changed
  };
  // The next piece of news; the key's words to `key`. After `everything` it goes on with what comes from now
  // on.
  News next(std::uint64_t* key);
  // Goes on with what comes from now on.
  void skip();

 private:
  const TableFile& file_;
  std::uint64_t position_ = 0;
};

}  // namespace Quell
