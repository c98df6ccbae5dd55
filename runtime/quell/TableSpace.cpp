#include "quell/TableSpace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>

#include "quell/BucketEdit.h"

namespace Quell {

using namespace Layout;

namespace {
constexpr std::size_t kSlotsAhead = 4;
constexpr std::uint64_t kMostStep = std::uint64_t{1} << 20;  // bytes reserved ahead: bounds the pause
}  // namespace

TableSpace::TableSpace(TableFile& file)
    : file_(file),
      index_{kIndexOffset, kMostBuckets * sizeof(Bucket)},
      overflow_{kOverflowOffset, kMostOverflowBuckets * sizeof(Bucket)},
      journal_{kJournalOffset, kJournalEntries * file.journalEntryBytes()},
      records_{file.identity().recordsOffset, kMostSlots * file.slotBytes()} {}

bool TableSpace::reserveTo(Region& region, std::uint64_t end) {
  if (end <= region.reserved) return true;
  while (region.reserved < end && reserveLargePage(region)) continue;
  if (end <= region.reserved) return true;
  const std::uint64_t most = roundUp(region.most, kPage);
  const std::uint64_t step = std::clamp(roundUp(region.reserved / 8, kPage), kPage, kMostStep);
  std::uint64_t to = std::min(std::max(roundUp(end, kPage), region.reserved + step), most);
  // Not past the end of a large page, so that the next one is got empty.
  const std::uint64_t large = roundUp(region.reserved + 1, kRegionAlignment);
  if (end <= large) to = std::min(to, large);
  if (end > to || !file_.reserve(region.offset + region.reserved, to - region.reserved)) return false;
  region.reserved = to;
  gather(region);
  return true;
}

// Behind the first megabytes a region grows by large pages that are got empty, 0.5 to 0.8 ms each. As small
// pages that were filled and then gathered, the same two megabytes took 3.9 ms, 2.3 of them at one go.
bool TableSpace::reserveLargePage(Region& region) {
  if (region.reserved == 0 || region.reserved % kRegionAlignment != 0 ||
      region.reserved + kRegionAlignment > region.most ||
      region.reserved + kRegionAlignment <= region.gathered ||
      !file_.reserveLargePage(region.offset + region.reserved)) {
    return false;
  }
  region.reserved += kRegionAlignment;
  region.gathered = region.reserved;
  return true;
}

void TableSpace::gather(Region& region) {
  for (; region.gathered + kRegionAlignment / 2 <= region.reserved; region.gathered += kRegionAlignment) {
    file_.gatherLargePage(region.offset + region.gathered);
  }
}

bool TableSpace::extendSlots() {
  const std::uint64_t wanted = std::min(slots_ + kSpareSlots, kMostSlots);
  if (slots_ == wanted || !reserveTo(records_, wanted * file_.slotBytes())) return false;
  const std::uint64_t now = file_.slotsInFile();
  for (std::uint64_t slot = slots_; slot < now; ++slot) giveSlot(slot);
  slots_ = now;
  return true;
}

bool TableSpace::slotsFree(std::uint64_t count) {
  // More than asked for, so that no slot is filled again at once; but with no room left, any free one will
  // do.
  while (freeSlots_.size() < count + kSpareSlots) {
    if (!extendSlots()) break;
  }
  return freeSlots_.size() >= count;
}

std::uint64_t TableSpace::takeSlot() {
  assert(!freeSlots_.empty());
  const std::uint64_t slot = freeSlots_.front();
  freeSlots_.pop_front();
  // Freed long ago and far apart: a poll's store waited for the slot that it fills.
  if (freeSlots_.size() > kSlotsAhead) file_.prefetchSlot(freeSlots_[kSlotsAhead]);
  return slot;
}

bool TableSpace::bucketsReserved(std::uint64_t count) {
  return reserveTo(index_, count * sizeof(Bucket));
}

bool TableSpace::overflowFree(std::uint64_t count) {
  if (freeOverflow_.size() >= count) return true;
  const std::uint64_t used = overflowUsed_ + count - freeOverflow_.size();
  return reserveTo(overflow_, used * sizeof(Bucket));
}

std::uint64_t TableSpace::takeOverflow() {
  std::uint64_t number = overflowUsed_;
  if (freeOverflow_.empty()) {
    file_.header().overflow.store(countWord(++overflowUsed_), std::memory_order_relaxed);
  } else {
    number = freeOverflow_.back();
    freeOverflow_.pop_back();
  }
  BucketEdit(file_.overflow(number)).clear();
  return number;
}

bool TableSpace::journalReserved(std::uint64_t position) {
  return reserveTo(journal_, (position % kJournalEntries + 1) * file_.journalEntryBytes());
}

void TableSpace::usedIs(const std::vector<bool>& slots, const std::vector<bool>& overflow,
                        std::uint64_t buckets) {
  slots_ = slots.size();
  freeSlots_.clear();
  freeOverflow_.clear();
  for (std::uint64_t slot = 0; slot < slots.size(); ++slot) {
    if (!slots[slot]) giveSlot(slot);
  }
  overflowUsed_ = overflow.size();
  file_.header().overflow.store(countWord(overflowUsed_), std::memory_order_relaxed);
  for (std::uint64_t number = 0; number < overflow.size(); ++number) {
    if (!overflow[number]) giveOverflow(number);
  }
  // Reserving what is reserved costs little and says that no store below will fault.
  for (Region* region : {&index_, &overflow_, &journal_, &records_}) region->reserved = region->gathered = 0;
  const bool room = file_.reserve(0, kPage) && bucketsReserved(buckets) &&
                    reserveTo(overflow_, overflowUsed_ * sizeof(Bucket)) &&
                    reserveTo(records_, slots_ * file_.slotBytes());
  if (!room) {
    throw TableError(fmt::format("{}: the file system has no room for the table", file_.place().fileName()));
  }
}

}  // namespace Quell
