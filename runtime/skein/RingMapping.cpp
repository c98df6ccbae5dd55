#include "skein/RingMapping.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "skein/TraceRing.h"

namespace Skein {

namespace {

[[noreturn]] void fail(const std::filesystem::path& file, const std::string& what) {
  throw RingError("trace file " + file.string() + ": " + what);
}
[[noreturn]] void failErrno(const std::filesystem::path& file, const std::string& doing) {
  fail(file, doing + ": " + std::strerror(errno));
}

// Closes the descriptor unless it was taken.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }
  int take() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_;
};

std::uint64_t headerChecksum(const RingHeader& header) {
  return XXH3_64bits(&header, offsetof(RingHeader, checksum));
}

RingHeader newHeader(std::uint64_t bytes) {
  RingHeader header{};
  header.magic = kRingMagic;
  header.version = kRingVersion;
  header.headerBytes = sizeof(RingHeader);
  header.dataBytes = (bytes - sizeof(RingHeader)) & ~std::uint64_t{7};
  header.checksum = headerChecksum(header);
  return header;
}

void check(const std::filesystem::path& file, const RingHeader& header, std::uint64_t bytes) {
  if (header.magic != kRingMagic) fail(file, "no trace file: expected \"SKEINRNG\" at byte 0");
  if (header.version != kRingVersion) {
    fail(file, "version " + std::to_string(header.version) + ": expected " + std::to_string(kRingVersion));
  }
  if (header.checksum != headerChecksum(header)) fail(file, "damaged header: wrong checksum at byte 24");
  if (header.headerBytes != sizeof(RingHeader) || header.dataBytes + sizeof(RingHeader) != bytes) {
    fail(file, "cut off or grown: expected " + std::to_string(header.dataBytes + sizeof(RingHeader)) +
                   " bytes, got " + std::to_string(bytes));
  }
}

std::byte* map(const std::filesystem::path& file, int descriptor, std::uint64_t bytes,
               RingMapping::Access access) {
  const int protection = access == RingMapping::Access::write ? PROT_READ | PROT_WRITE : PROT_READ;
  void* memory = ::mmap(nullptr, bytes, protection, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) failErrno(file, "cannot map it");
  return static_cast<std::byte*>(memory);
}

}  // namespace

std::unique_ptr<RingMapping> RingMapping::open(const std::filesystem::path& file, Access access) {
  Descriptor descriptor(::open(
      file.c_str(), (access == Access::write ? O_RDWR | O_NOFOLLOW : O_RDONLY) | O_CLOEXEC | O_NONBLOCK));
  if (descriptor.get() < 0) failErrno(file, "cannot open it");
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0) failErrno(file, "cannot look at it");
  if (!S_ISREG(status.st_mode)) fail(file, "no regular file");
  const auto bytes = static_cast<std::uint64_t>(status.st_size);
  if (bytes < TraceRing::kLeastBytes) {
    fail(file, "too short for a trace file: " + std::to_string(bytes) + " bytes, expected at least " +
                   std::to_string(TraceRing::kLeastBytes));
  }
  std::unique_ptr<RingMapping> mapping(
      new RingMapping(-1, map(file, descriptor.get(), bytes, access), bytes - sizeof(RingHeader)));
  mapping->descriptor_ = descriptor.take();
  RingHeader header{};
  std::memcpy(static_cast<void*>(&header), mapping->memory_, offsetof(RingHeader, tail));
  check(file, header, bytes);
  return mapping;
}

std::unique_ptr<RingMapping> RingMapping::create(const std::filesystem::path& file, std::uint64_t bytes) {
  const std::filesystem::path made = file.string() + "." + std::to_string(::getpid());
  Descriptor descriptor(::open(made.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666));
  if (descriptor.get() < 0) failErrno(made, "cannot create it");
  const RingHeader header = newHeader(bytes);
  const std::uint64_t whole = header.dataBytes + sizeof(RingHeader);
  try {
    errno = ::posix_fallocate(descriptor.get(), 0, static_cast<off_t>(whole));
    if (errno != 0) failErrno(made, "cannot allocate " + std::to_string(whole) + " bytes");
    std::byte* memory = map(made, descriptor.get(), whole, Access::write);
    std::unique_ptr<RingMapping> mapping(new RingMapping(descriptor.take(), memory, header.dataBytes));
    std::memcpy(memory, &header, sizeof(header));
    if (!mapping->lock()) failErrno(made, "cannot lock it");
    if (::rename(made.c_str(), file.c_str()) != 0) failErrno(file, "cannot replace it");
    return mapping;
  } catch (...) {
    ::unlink(made.c_str());
    throw;
  }
}

RingMapping::~RingMapping() {
  ::munmap(memory_, dataBytes_ + sizeof(RingHeader));
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::uint64_t RingMapping::copy(std::uint64_t position, RecordWords& words) const {
  const std::uint64_t most = bytesToEnd(position);
  if (most < sizeof(RecordHeader)) return 0;
  words[0] = load(position);
  words[1] = load(position + 8);
  const std::uint64_t bytes = static_cast<std::uint32_t>(words[1]) & ~kFiller;
  if (bytes % 8 != 0 || bytes < sizeof(RecordHeader) || bytes > most) return 0;
  if (isFiller(words)) return bytes;
  if (bytes > kMostRecordBytes) return 0;
  for (std::uint64_t at = 16; at < bytes; at += 8) words[at / 8] = load(position + at);
  return bytes;
}

bool RingMapping::positionsSound() const {
  for (;;) {
    const std::uint64_t before = tail();
    const std::uint64_t end = head();
    if (before <= end && end - before <= dataBytes_ && before % 8 == 0 && end % 8 == 0) return true;
    if (tail() == before) return false;  // else the writer went on between the two
  }
}

bool RingMapping::lock() {
  return ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
}

bool RingMapping::replaced(const std::filesystem::path& file) const {
  struct stat here {};
  struct stat there {};
  if (::stat(file.c_str(), &there) != 0) return true;
  return ::fstat(descriptor_, &here) == 0 && (here.st_ino != there.st_ino || here.st_dev != there.st_dev);
}

RecordHeader headerOf(const RecordWords& words) {
  RecordHeader header;
  std::memcpy(static_cast<void*>(&header), words.data(), sizeof(header));
  return header;
}

bool isFiller(const RecordWords& words) {
  return (static_cast<std::uint32_t>(words[1]) & kFiller) != 0;
}

std::uint32_t recordChecksum(const RecordWords& words) {
  const auto bytesWord = static_cast<std::uint32_t>(words[1]);
  const std::uint64_t seed = words[0] ^ std::uint64_t{bytesWord} << 32;
  const std::size_t rest = isFiller(words) ? 0 : bytesWord - 16;
  return static_cast<std::uint32_t>(XXH3_64bits_withSeed(&words[2], rest, seed));
}

bool valid(const RecordWords& words, std::uint64_t position) {
  if (words[0] != position || static_cast<std::uint32_t>(words[1] >> 32) != recordChecksum(words))
    return false;
  if (isFiller(words)) return true;
  const RecordHeader header = headerOf(words);
  const std::size_t named = std::size_t{header.categoryBytes} + header.filterBytes + header.fileBytes +
                            header.functionBytes + header.textBytes;
  return sizeof(RecordHeader) + named <= header.bytes;
}

}  // namespace Skein
