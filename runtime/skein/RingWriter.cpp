#include "skein/RingWriter.h"

#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "skein/TraceRing.h"

namespace Skein {

namespace {

// The text's beginning, at most so many bytes of it, without half a UTF-8 character at the end.
std::string_view cut(std::string_view text, std::size_t most) {
  if (text.size() <= most) return text;
  std::size_t end = most;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
  return text.substr(0, end);
}

class RecordFiller {
 public:
  explicit RecordFiller(RecordWords& words) : bytes_(reinterpret_cast<char*>(words.data())) {}
  template <class Length>
  void put(std::string_view text, std::size_t most, Length& length) {
    const std::string_view part = cut(text, most);
    std::copy(part.begin(), part.end(), bytes_ + used_);
    used_ += part.size();
    length = static_cast<Length>(part.size());
  }
  std::uint32_t padded() {
    while (used_ % 8 != 0) bytes_[used_++] = '\0';
    return static_cast<std::uint32_t>(used_);
  }

 private:
  char* bytes_;
  std::size_t used_ = sizeof(RecordHeader);
};

}  // namespace

RingWriter::RingWriter(const std::filesystem::path& file, std::uint64_t bytes) {
  if (!openFormer(file, bytes)) ring_ = RingMapping::create(file, bytes);
  ring_->writerIs(static_cast<std::uint64_t>(::getpid()));
}

RingWriter::~RingWriter() {
  ring_->writerIs(0);
}

// False when there is no usable file of this size. Throws when another process writes it.
bool RingWriter::openFormer(const std::filesystem::path& file, std::uint64_t bytes) {
  if (!std::filesystem::exists(file)) return false;
  if (!std::filesystem::is_regular_file(file))
    throw RingError("trace file " + file.string() + ": no regular file");
  try {
    ring_ = RingMapping::open(file, RingMapping::Access::write);
  } catch (const RingError& error) {
    spdlog::warn("{}; a new one takes its place", error.what());
    return false;
  }
  if (!ring_->lock()) {
    throw RingError("trace file " + file.string() + ": process " + std::to_string(ring_->writer()) +
                    " is writing it already");
  }
  if (ring_->dataBytes() + sizeof(RingHeader) != (bytes & ~std::uint64_t{7})) return false;
  if (!ring_->positionsSound()) {
    spdlog::warn("trace file {}: damaged header: impossible positions at byte 32; a new one takes its place",
                 file.string());
    return false;
  }
  findEnd(file);
  return true;
}

// Walks over the records left by the writer before. What is damaged goes, with all that is older.
void RingWriter::findEnd(const std::filesystem::path& file) {
  head_ = ring_->head();
  tail_ = ring_->tail();
  RecordWords words;
  std::uint64_t damaged = 0;
  for (std::uint64_t at = ring_->recordPosition(tail_); at < head_; at = ring_->recordPosition(at)) {
    const std::uint64_t bytes = ring_->copy(at, words);
    if (bytes != 0 && at + bytes <= head_ && valid(words, at)) {
      if (!isFiller(words)) serial_ = headerOf(words).serial;
      at += bytes;
    } else {
      at += 8;
      tail_ = at;
      ++damaged;
    }
  }
  if (damaged == 0) return;
  spdlog::warn(
      "trace file {}: damaged records left by the writer before; they and the older ones are dropped",
      file.string());
  ring_->tailIs(tail_ = std::min(ring_->recordPosition(tail_), head_));
}

void RingWriter::append(double time, const CallSite& site, std::string_view text, std::string_view filter) {
  RecordWords words;
  RecordHeader header{};
  RecordFiller filler(words);
  filler.put(site.category(), kMostShort, header.categoryBytes);
  filler.put(filter, kMostShort, header.filterBytes);
  filler.put(site.file(), kMostName, header.fileBytes);
  filler.put(site.function(), kMostName, header.functionBytes);
  filler.put(text, kMostTextBytes, header.textBytes);
  header.bytes = filler.padded();
  header.serial = ++serial_;
  header.time = time;
  header.line = static_cast<std::uint32_t>(site.line());
  header.volume = static_cast<std::uint8_t>(site.volume());

  if (header.bytes > ring_->bytesToEnd(head_)) {
    const std::uint64_t rest = ring_->bytesToEnd(head_);
    if (rest < sizeof(RecordHeader)) {
      head_ += rest;
    } else {
      RecordWords fillerWords{};
      fillerWords[1] = rest | kFiller;
      publish(fillerWords, rest);
    }
  }
  std::memcpy(words.data(), &header, sizeof(header));
  publish(words, header.bytes);
}

void RingWriter::publish(RecordWords& words, std::uint64_t bytes) {
  makeRoom(head_ + bytes);
  words[0] = head_;
  words[1] = static_cast<std::uint32_t>(words[1]) | std::uint64_t{recordChecksum(words)} << 32;
  const std::uint64_t stored = isFiller(words) ? 16 : bytes;
  for (std::uint64_t at = 0; at < stored; at += 8) ring_->store(head_ + at, words[at / 8]);
  head_ += bytes;
  ring_->headIs(head_);
}

// Moves the tail over whole records until nothing from it on will be overwritten up to the end.
void RingWriter::makeRoom(std::uint64_t end) {
  const std::uint64_t keep = end > ring_->dataBytes() ? end - ring_->dataBytes() : 0;
  if (tail_ >= keep) return;
  while (tail_ < keep) {
    tail_ = ring_->recordPosition(tail_);
    if (tail_ >= keep) break;
    const std::uint64_t bytesWord = ring_->load(tail_ + 8);
    const std::uint64_t bytes = static_cast<std::uint32_t>(bytesWord) & ~kFiller;
    const bool sound = ring_->load(tail_) == tail_ && bytes >= sizeof(RecordHeader) && bytes % 8 == 0 &&
                       bytes <= head_ - tail_;
    tail_ = sound ? tail_ + bytes : head_;  // somebody else wrote into the file: give up what is left
  }
  ring_->tailIs(tail_);
}

}  // namespace Skein
