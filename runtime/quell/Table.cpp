#include "QuellTable.h"

#include "Quell.h"
#include "quell/TableFile.h"
#include "quell/TableScan.h"
#include "quell/TableWriter.h"

namespace Quell {

Table::Table(std::shared_ptr<TableFile> file)
    : header_(&file->header()),
      index_(&file->bucket(0)),
      records_(file->records()),
      slots_(file->slotsInFile()),
      walk_(std::make_unique<WalkPlace>()),
      file_(std::move(file)) {}

Table::~Table() = default;

std::uint64_t Table::entries() const {
  const std::uint64_t word = header_->entries.load(std::memory_order_acquire);
  return Layout::countValid(word) ? Layout::countOf(word) : TableScan(*this).entries();
}

bool Table::findSlow(const void* key, std::uint64_t hash, void* out) const {
  return TableScan(*this).find(key, hash, out);
}

bool Table::walkFrom(std::uint64_t position, void* out) const {
  return TableScan(*this).walk(position, nullptr, true, out);
}

bool Table::walkKey(const void* key, bool inclusive, void* out) const {
  if (!inclusive && TableScan(*this).walkOn(key, out)) return true;
  const std::uint64_t position = reverseBits(keyHash(key, file_->keyBytes()));
  return TableScan(*this).walk(position, key, inclusive, out);
}

bool Table::walkAhead(void* key) const {
  return TableScan(*this).ahead(key);
}

void Table::writingIs() {
  if (!writer_) writer_ = std::make_unique<TableWriter>(file_);
  writer_->begin();
  writing_ = true;
}

void Table::writingDel() {
  if (writing_) writer_->end();
  writing_ = false;
}

void Table::store(const void* record) {
  if (!writing_) writingIs();
  writer_->store(record);
}

bool Table::erase(const void* key) {
  if (!writing_) writingIs();
  const bool walking = walk_->holds(header_->state.load(std::memory_order_relaxed), walk_->bucket);
  const bool erased = writer_->erase(key);
  if (walking) walk_->erased();  // W4
  return erased;
}

bool Table::expect(std::size_t entries) {
  if (!writing_) writingIs();
  return writer_->expect(entries);
}

void Table::flush() {
  if (writing_) writer_->flush();
}

}  // namespace Quell
