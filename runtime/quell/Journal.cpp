#include "quell/Journal.h"

#include <unistd.h>

#include <array>
#include <cstring>

#include "quell/SlotAccess.h"

namespace Quell {

using namespace Layout;

namespace {

// The check of an entry covers where it stands, so that an old one is not taken for a new one.
std::uint64_t keySum(const std::uint64_t* key, std::size_t words, std::uint64_t position) {
  std::uint64_t sum = (position + 1) * factor(words);
  for (std::size_t i = 0; i < words; ++i) sum += key[i] * kFactors[i];
  return sum;
}

}  // namespace

void JournalWriter::begin() {
  rung_ = head_ = file_.header().journalHead.load(std::memory_order_relaxed);
}

void JournalWriter::append(const void* key) {
  RecordWords copy;
  const std::size_t count = wordsFor(file_.keyBytes());
  copy.words[count - 1] = 0;
  std::memcpy(copy.words.data(), key, file_.keyBytes());
  Word* entry = file_.journal(head_);
  entry[0].store(0, std::memory_order_relaxed);
  entry[1].store(keySum(copy.words.data(), count, head_), std::memory_order_release);
  for (std::size_t i = 0; i < count; ++i) entry[2 + i].store(copy.words[i], std::memory_order_release);
  entry[0].store(head_ + 1, std::memory_order_release);
  file_.header().journalHead.store(++head_, std::memory_order_release);
}

void JournalWriter::skip() {
  head_ += kJournalEntries + 1;
  file_.header().journalHead.store(head_, std::memory_order_release);
}

void JournalWriter::ring() {
  if (rung_ == head_) return;
  rung_ = head_;
  const auto stroke = static_cast<char>(head_);
  [[maybe_unused]] const auto written =
      ::pwrite(file_.descriptor(), &stroke, sizeof stroke, static_cast<off_t>(offsetof(Header, doorbell)));
}

JournalReader::JournalReader(const TableFile& file) : file_(file) {
  skip();
}

void JournalReader::skip() {
  position_ = file_.header().journalHead.load(std::memory_order_acquire);
}

JournalReader::News JournalReader::next(std::uint64_t* key) {
  const std::uint64_t head = file_.header().journalHead.load(std::memory_order_acquire);
  if (head == position_) return News::none;
  if (head - position_ <= kJournalEntries) {  // false also when the head went back
    const Word* entry = file_.journal(position_);
    const std::size_t count = wordsFor(file_.keyBytes());
    const std::uint64_t written = entry[0].load(std::memory_order_acquire);
    const std::uint64_t sum = entry[1].load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) key[i] = entry[2 + i].load(std::memory_order_acquire);
    if (written == position_ + 1 && entry[0].load(std::memory_order_relaxed) == written &&
        sum == keySum(key, count, position_)) {
      ++position_;
      return News::key;
    }
  }
  skip();
  return News::everything;
}

}  // namespace Quell
