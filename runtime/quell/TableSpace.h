// What the writer may use of the file: free slots, free overflow buckets, and memory behind each region,
// reserved before it is touched (a store to a page that the file system has no room for would kill the
// process).
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "quell/TableFile.h"

namespace Quell {

class TableSpace {
 public:
  explicit TableSpace(TableFile& file);

  // --- Slots, oldest freed first.
  // Makes sure that so many can be taken. False when there is no room.
  bool slotsFree(std::uint64_t count);
  // REQUIRES: slotsFree.
  std::uint64_t takeSlot();
  void giveSlot(std::uint64_t slot) { freeSlots_.push_back(static_cast<std::uint32_t>(slot)); }
  std::uint64_t slots() const { return slots_; }

  // --- Index, overflow buckets, journal. False when there is no room.
  bool bucketsReserved(std::uint64_t count);
  bool overflowFree(std::uint64_t count);
  // REQUIRES: overflowFree. The bucket is empty, its link none.
  std::uint64_t takeOverflow();
  void giveOverflow(std::uint64_t number) { freeOverflow_.push_back(static_cast<std::uint32_t>(number)); }
  bool journalReserved(std::uint64_t position);

  // What a repair found in use; all else is free. Throws TableError when there is no room to work at all.
  void usedIs(const std::vector<bool>& slots, const std::vector<bool>& overflow, std::uint64_t buckets);

 private:
  bool extendSlots();
  // A region of the file, and how far it is reserved and in large pages.
  struct Region {
    std::uint64_t offset = 0;
    std::uint64_t most = 0;
    std::uint64_t reserved = 0;
    std::uint64_t gathered = 0;
  };
  // Reserves [0, end) of a region, somewhat ahead.
  bool reserveTo(Region& region, std::uint64_t end);
  // The next two megabytes as one large page. False, and nothing done, where that is not to be had.
  bool reserveLargePage(Region& region);
  void gather(Region& region);

  TableFile& file_;
  std::deque<std::uint32_t> freeSlots_;
  std::uint64_t slots_ = 0;
  std::vector<std::uint32_t> freeOverflow_;
  std::uint64_t overflowUsed_ = 0;  // overflow buckets that were ever in use
  Region index_;
  Region overflow_;
  Region journal_;
  Region records_;
};

}  // namespace Quell
