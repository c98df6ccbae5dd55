// A trace file in memory: opened and checked, or made anew. Everything in it is reached by whole words, each
// read and written atomically, since a process at the other side may be at the same words.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "skein/RingFormat.h"

namespace Skein {

class RingMapping {
 public:
  enum class Access : std::uint8_t { read, write };

  // Throws RingError when there is no such file or it is no trace file.
  static std::unique_ptr<RingMapping> open(const std::filesystem::path& file, Access access);
  // Makes a file of this size, all of it there (a full disk is an error now, not a fault later), and gives it
  // the name, in place of what has it. Locked for this process before others can see it.
  static std::unique_ptr<RingMapping> create(const std::filesystem::path& file, std::uint64_t bytes);
  ~RingMapping();
  RingMapping(const RingMapping&) = delete;
  RingMapping& operator=(const RingMapping&) = delete;

  std::uint64_t dataBytes() const { return dataBytes_; }
  std::uint64_t tail() const { return word(offsetof(RingHeader, tail)).load(std::memory_order_acquire); }
  std::uint64_t head() const { return word(offsetof(RingHeader, head)).load(std::memory_order_acquire); }
  std::uint64_t writer() const { return word(offsetof(RingHeader, writer)).load(std::memory_order_relaxed); }
  void tailIs(std::uint64_t position) {
    word(offsetof(RingHeader, tail)).store(position, std::memory_order_relaxed);
  }
  void headIs(std::uint64_t position) {
    word(offsetof(RingHeader, head)).store(position, std::memory_order_release);
  }
  void writerIs(std::uint64_t process) {
    word(offsetof(RingHeader, writer)).store(process, std::memory_order_relaxed);
  }

  // The word at a position. Acquire and release, so that who sees a new word sees the tail that went before
  // it.
  std::uint64_t load(std::uint64_t position) const {
    return ringWord(position).load(std::memory_order_acquire);
  }
  void store(std::uint64_t position, std::uint64_t value) {
    ringWord(position).store(value, std::memory_order_release);
  }
  // Bytes from a position to the ring's end.
  std::uint64_t bytesToEnd(std::uint64_t position) const { return dataBytes_ - position % dataBytes_; }
  // The first position at or behind this one at which a record can stand.
  std::uint64_t recordPosition(std::uint64_t position) const {
    return bytesToEnd(position) < sizeof(RecordHeader) ? position + bytesToEnd(position) : position;
  }

  // Copies the record at a position; 0 when none can stand there. Whether it is one, valid() tells. Its size.
  std::uint64_t copy(std::uint64_t position, RecordWords& words) const;

  // Whether head and tail can be those of a ring of this size.
  bool positionsSound() const;
  // Takes the lock that a writer holds as long as it lives; false when another process has it.
  bool lock();
  // Whether the name belongs to another file now, or to none.
  bool replaced(const std::filesystem::path& file) const;

 private:
  RingMapping(int descriptor, std::byte* memory, std::uint64_t dataBytes)
      : descriptor_(descriptor), memory_(memory), dataBytes_(dataBytes) {}
  std::atomic_ref<std::uint64_t> word(std::uint64_t offset) const {
    return std::atomic_ref<std::uint64_t>(*reinterpret_cast<std::uint64_t*>(memory_ + offset));
  }
  std::atomic_ref<std::uint64_t> ringWord(std::uint64_t position) const {
    return word(sizeof(RingHeader) + position % dataBytes_);
  }

  int descriptor_;
  std::byte* memory_;
  std::uint64_t dataBytes_;
};

// The checksum that belongs into a record.
std::uint32_t recordChecksum(const RecordWords& words);
// Whether a copied record is one, and stood at this position.
bool valid(const RecordWords& words, std::uint64_t position);
bool isFiller(const RecordWords& words);
RecordHeader headerOf(const RecordWords& words);

}  // namespace Skein
