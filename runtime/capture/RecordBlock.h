// A piece of a capture in memory, and where in it the records lie.
//
// Neighbours: ReadAhead.h fills blocks, RecordWindow.h hands out their packets. Threading: whoever fills it,
// then whoever reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Capture {

inline constexpr std::uint32_t kSecondNs = 1'000'000'000;

// A capture of the usual form: pcap 2.4 in this machine's byte order.
struct RecordForm {
  int descriptor;              // of a regular file
  std::uint32_t mostCaptured;  // bytes of a packet
  std::uint32_t fractionNs;    // of one in a record's fraction of a second
};

// Stands before each packet.
struct RecordHeader {
  std::int32_t seconds;
  std::uint32_t fraction;
  std::uint32_t captured;
  std::uint32_t wire;
};
static_assert(sizeof(RecordHeader) == 16);

class RecordBlock {
 public:
  static constexpr std::size_t kBytes = 256 * 1024;  // stays in the second cache
  static constexpr std::uint64_t kFileHeader = 24;   // bytes before the first record

  RecordBlock();
  // Reads what stands behind the records of another block, or the file's first records.
  void fill(const RecordForm& form, const RecordBlock* before);

  std::size_t records() const { return count_; }
  // A record with all of its packet. REQUIRES: one of records().
  const std::uint8_t* record(std::size_t number) const { return &bytes_[places_[number]]; }
  // Where in the file a record begins; for records() that what follows them begins.
  std::uint64_t offset(std::size_t number) const { return start_ + places_[number]; }
  // What follows is no record of the usual form, or none that is there whole; the end of the file among it.
  bool last() const { return last_; }

 private:
  static constexpr std::size_t kMostRecords = kBytes / sizeof(RecordHeader);
  void read(int descriptor);
  void findRecords(const RecordForm& form);

  std::uint64_t start_ = kFileHeader;  // in the file
  std::size_t filled_ = 0;
  std::size_t count_ = 0;
  bool last_ = false;
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::unique_ptr<std::uint32_t[]> places_;  // of the records, and of what follows them
};

}  // namespace Capture
