#include "quell/TableSpace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>

#include "quell/BucketEdit.h"

namespace Quell {

using namespace Layout;

namespace {
constexpr std::uint64_t kMostStep = std::uint64_t{1} << 20;  // bytes reserved at once: bounds the pause
}

bool TableSpace::extendSlots() {
  if (slots_ >= kMostSlots) return false;
  const std::uint64_t offset = file_.identity().recordsOffset;
  const std::uint64_t end = slots_ * file_.slotBytes();
  const std::uint64_t step =
      std::clamp(roundUp(end / 8, kPage), roundUp(kSpareSlots * file_.slotBytes(), kPage), kMostStep);
  const std::uint64_t most = kMostSlots * file_.slotBytes();
  const std::uint64_t from = end / kPage * kPage;
  if (!file_.reserve(offset + from, std::min(end + step, most) - from)) return false;
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
  return slot;
}

bool TableSpace::reserveTo(std::uint64_t offset, std::uint64_t& reserved, std::uint64_t end,
                           std::uint64_t most) {
  if (end <= reserved) return true;
  const std::uint64_t step = std::clamp(roundUp(reserved / 8, kPage), kPage, kMostStep);
  const std::uint64_t to = std::min(std::max(roundUp(end, kPage), reserved + step), roundUp(most, kPage));
  if (end > to || !file_.reserve(offset + reserved, to - reserved)) return false;
  reserved = to;
  return true;
}

bool TableSpace::bucketsReserved(std::uint64_t count) {
  return reserveTo(kIndexOffset, indexBytes_, count * sizeof(Bucket), kMostBuckets * sizeof(Bucket));
}

bool TableSpace::overflowFree(std::uint64_t count) {
  if (freeOverflow_.size() >= count) return true;
  const std::uint64_t used = overflowUsed_ + count - freeOverflow_.size();
  return reserveTo(kOverflowOffset, overflowBytes_, used * sizeof(Bucket),
                   kMostOverflowBuckets * sizeof(Bucket));
}

std::uint64_t TableSpace::takeOverflow() {
  std::uint64_t number = overflowUsed_;
  if (freeOverflow_.empty()) {
    ++overflowUsed_;
  } else {
    number = freeOverflow_.back();
    freeOverflow_.pop_back();
  }
  BucketEdit(file_.overflow(number)).clear();
  return number;
}

bool TableSpace::journalReserved(std::uint64_t position) {
  const std::uint64_t bytes = kJournalEntries * file_.journalEntryBytes();
  return reserveTo(kJournalOffset, journalBytes_,
                   (position % kJournalEntries + 1) * file_.journalEntryBytes(), bytes);
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
  for (std::uint64_t number = 0; number < overflow.size(); ++number) {
    if (!overflow[number]) giveOverflow(number);
  }
  // Reserving what is reserved costs little and says that no store below will fault.
  indexBytes_ = overflowBytes_ = journalBytes_ = 0;
  const bool room =
      file_.reserve(0, kPage) && bucketsReserved(buckets) && overflowFree(freeOverflow_.size()) &&
      reserveTo(kOverflowOffset, overflowBytes_, overflowUsed_ * sizeof(Bucket),
                kMostOverflowBuckets * sizeof(Bucket)) &&
      (slots_ == 0 || file_.reserve(file_.identity().recordsOffset, slots_ * file_.slotBytes()));
  if (!room)
    throw TableError(fmt::format("{}: the file system has no room for the table", file_.place().fileName()));
}

}  // namespace Quell
