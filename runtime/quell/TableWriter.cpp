#include "quell/TableWriter.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include "quell/BucketEdit.h"
#include "quell/TableRepair.h"

namespace Quell {

using namespace Layout;

namespace {

[[noreturn]] void refuseBusy(const TableFile& file) {
  const std::uint64_t writer = file.header().writer.load(std::memory_order_relaxed);
  throw TableBusy(fmt::format("{}: process {} is the table's writer", file.place().fileName(),
                              writer == 0 ? std::string("(unknown)") : std::to_string(writer)));
}

// Asks before the file is opened for writing: watchers take the end of whoever had it open so, while it has
// a writer, for that writer's death.
const std::shared_ptr<TableFile>& withoutWriter(const std::shared_ptr<TableFile>& file) {
  if (!file->lock()) refuseBusy(*file);
  file->unlock();
  return file;
}

}  // namespace

TableWriter::TableWriter(const std::shared_ptr<TableFile>& file)
    : file_(TableFile::writable(withoutWriter(file))),
      space_(*file_),
      index_(*file_, space_),
      journal_(*file_, space_) {}

TableWriter::~TableWriter() {
  if (writing_) end();
}

void TableWriter::begin() {
  if (writing_) return;
  Header& header = file_->header();
  if (!file_->lock()) refuseBusy(*file_);
  try {
    const std::uint64_t last = header.writer.load(std::memory_order_relaxed);
    const std::uint64_t sessions = header.sessions.load(std::memory_order_relaxed);
    const bool known = last == 0 && session_ != 0 && session_ == sessions;
    header.writer.store(static_cast<std::uint64_t>(::getpid()), std::memory_order_relaxed);
    header.sessions.store(sessions + 1, std::memory_order_release);
    session_ = sessions + 1;
    journal_.begin();
    if (!known) putInOrder();
    if (last != 0) journal_.skip();  // it may have died between a store and its entry in the journal
  } catch (...) {
    session_ = 0;
    file_->unlock();
    throw;
  }
  writing_ = true;
}

void TableWriter::end() {
  flush();
  file_->header().writer.store(0, std::memory_order_relaxed);
  file_->unlock();
  writing_ = false;
}

void TableWriter::putInOrder() {
  const TableRepair found = repair(*file_);
  index_.stateIs(found.buckets, found.compactions, found.hashes);
  entries_ = found.entries;
  space_.usedIs(found.slots, found.overflow, found.buckets);
  if (!found.anything()) return;
  spdlog::warn("table {}: repaired: {}", file_->name(), found.text());
  journal_.skip();
}

TableIndex::Found TableWriter::locate(const void* key, std::uint64_t hash) {
  TableIndex::Found found = index_.locate(key, hash);
  if (found.damaged) {
    putInOrder();
    found = index_.locate(key, hash);
  }
  return found;
}

void TableWriter::noRoom() const {
  throw TableError(fmt::format("{}: no room for another record: {} entries, of {} at most",
                               file_->place().fileName(), entries_, kMostSlots - kSpareSlots));
}

void TableWriter::entriesIs(std::uint64_t entries) {
  entries_ = entries;
  file_->header().entries.store(countWord(entries), std::memory_order_release);
}

void TableWriter::store(const void* record) {
  const std::uint64_t hash = keyHash(record, file_->keyBytes());
  const TableIndex::Found found = locate(record, hash);
  const bool replaces = found.place.entry != 0;
  // One slot is kept back for the overwriting of what is there.
  if (!space_.slotsFree(replaces ? 1 : 2) || (found.place.bucket == nullptr && !index_.reserved()) ||
      !journal_.reserved()) {
    noRoom();
  }
  const std::uint64_t slot = space_.takeSlot();
  fillSlot(*file_, slot, record, hash);
  index_.slotHashIs(slot, hash);
  if (replaces) {
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): an entry is in a bucket
    BucketEdit(*found.place.bucket).entryIs(found.place.position, entryWord(hash, slot));
    if (entrySlot(found.place.entry) < space_.slots()) space_.giveSlot(entrySlot(found.place.entry));
  } else {
    index_.add(found.place, hash, entryWord(hash, slot));
    entriesIs(entries_ + 1);
    index_.grow(entries_);
  }
  journal_.append(record);
}

bool TableWriter::erase(const void* key) {
  const std::uint64_t hash = keyHash(key, file_->keyBytes());
  const TableIndex::Found found = locate(key, hash);
  if (found.place.entry == 0) return false;
  if (!journal_.reserved()) noRoom();
  BucketEdit(*found.place.bucket).entryIs(found.place.position, 0);
  if (entrySlot(found.place.entry) < space_.slots()) space_.giveSlot(entrySlot(found.place.entry));
  entriesIs(entries_ - 1);
  journal_.append(key);
  return true;
}

}  // namespace Quell
