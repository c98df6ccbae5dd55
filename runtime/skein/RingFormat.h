// The trace file, in the byte order and alignment of the machine that writes it.
//
//     0  magic                 8   "SKEINRNG"
//     8  version               4   1
//    12  header bytes          4   64
//    16  data bytes            8   of the ring, a multiple of 8; the file is 64 longer
//    24  checksum              8   XXH3 of bytes 0 to 23
//    32  tail                  8   position of the oldest record
//    40  head                  8   position behind the newest record
//    48  writer                8   process id
//    56  unused                8
//    64  ring
//
// A position counts the bytes written since the file was made; position modulo data bytes is a place in the
// ring. A record is a multiple of 8 bytes and never goes across the ring's end: the rest there is a filler
// record or, when it is too short for one, nothing.
//
//     0  position              8
//     8  bytes, filler         4   of the whole record; highest bit: a filler
//    12  checksum              4   XXH3 of the rest (none for a filler), seeded with position and bytes
//    16  serial                8   counts the records, from 1
//    24  time                  8   UTC seconds, a double
//    32  line                  4
//    36  volume                1
//    37  category bytes        1
//    38  filter bytes          1
//    39  unused                1
//    40  file, function, text  2 each: bytes; 2 unused
//    48  category, filter, file, function, text, zeros up to a multiple of 8
//
// Invariant S1: between tail and head stand whole records, one behind the other. The writer moves the tail on
// before
//   it overwrites what stood there, and the head only behind a record that is complete. So a reader that
//   finds the tail still at or below a record's position after it copied the record has the record as it was
//   written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Skein {

struct RingHeader {
  std::array<char, 8> magic;
  std::uint32_t version;
  std::uint32_t headerBytes;
  std::uint64_t dataBytes;
  std::uint64_t checksum;
  std::uint64_t tail;
  std::uint64_t head;
  std::uint64_t writer;
  std::uint64_t unused;
};
static_assert(sizeof(RingHeader) == 64 && offsetof(RingHeader, checksum) == 24 &&
              offsetof(RingHeader, tail) == 32 && offsetof(RingHeader, head) == 40 &&
              offsetof(RingHeader, writer) == 48);

struct RecordHeader {
  std::uint64_t position;
  std::uint32_t bytes;
  std::uint32_t checksum;
  std::uint64_t serial;
  double time;
  std::uint32_t line;
  std::uint8_t volume;
  std::uint8_t categoryBytes;
  std::uint8_t filterBytes;
  std::uint8_t unused;
  std::uint16_t fileBytes;
  std::uint16_t functionBytes;
  std::uint16_t textBytes;
  std::uint16_t unused2;
};
static_assert(sizeof(RecordHeader) == 48 && offsetof(RecordHeader, serial) == 16 &&
              offsetof(RecordHeader, line) == 32 && offsetof(RecordHeader, fileBytes) == 40);

inline constexpr std::array<char, 8> kRingMagic = {'S', 'K', 'E', 'I', 'N', 'R', 'N', 'G'};
inline constexpr std::uint32_t kRingVersion = 1;
inline constexpr std::uint32_t kFiller = 0x80000000;  // in RecordHeader::bytes
inline constexpr std::size_t kMostShort = 64;         // bytes of a category and of a filter's name
inline constexpr std::size_t kMostName = 256;         // bytes of a file and of a function's name
inline constexpr std::size_t kMostTextBytes = 512;
inline constexpr std::size_t kMostRecordBytes =
    sizeof(RecordHeader) + 2 * kMostShort + 2 * kMostName + kMostTextBytes;
static_assert(kMostRecordBytes % 8 == 0);

// A record's words, as they are copied to and from the ring.
using RecordWords = std::array<std::uint64_t, kMostRecordBytes / 8>;

}  // namespace Skein
