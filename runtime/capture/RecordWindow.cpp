#include "capture/RecordWindow.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace Capture {
namespace {

struct FileHeader {
  std::uint32_t magic;
  std::uint16_t major;
  std::uint16_t minor;
  std::uint32_t unused[4];
};
static_assert(sizeof(FileHeader) == 24);

struct Record {
  std::int32_t seconds;
  std::uint32_t fraction;
  std::uint32_t captured;
  std::uint32_t wire;
};
static_assert(sizeof(Record) == 16);

constexpr std::uint32_t kMicroseconds = 0xa1b2c3d4;
constexpr std::uint32_t kNanoseconds = 0xa1b23c4d;
constexpr std::uint32_t kSecondNs = 1'000'000'000;

}  // namespace

std::unique_ptr<RecordWindow> RecordWindow::of(std::FILE* file, std::uint32_t mostCaptured) {
  const int descriptor = ::fileno(file);
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  FileHeader header{};
  if (::pread(descriptor, &header, sizeof header, 0) != sizeof header) return nullptr;
  if (header.major != 2 || header.minor != 4) return nullptr;
  if (header.magic != kMicroseconds && header.magic != kNanoseconds) return nullptr;
  const std::uint32_t fractionNs = header.magic == kMicroseconds ? 1000 : 1;
  return std::unique_ptr<RecordWindow>(new RecordWindow(descriptor, mostCaptured, fractionNs));
}

RecordWindow::RecordWindow(int descriptor, std::uint32_t mostCaptured, std::uint32_t fractionNs)
    : descriptor_(descriptor),
      mostCaptured_(mostCaptured),
      fractionNs_(fractionNs),
      start_(sizeof(FileHeader)),
      bytes_(new std::uint8_t[kBytes]) {}

RecordWindow::Result RecordWindow::next(ReceivedPacket& packet) {
  if (!whole()) {
    if (!held_) moveOn();
    fill();
    if (!whole()) return held_ && filled_ == kBytes ? Result::full : Result::unusual;
  }
  const std::uint8_t* at = &bytes_[at_];
  Record record;
  std::memcpy(&record, at, sizeof record);
  if (record.captured > mostCaptured_ || record.fraction >= kSecondNs / fractionNs_) return Result::unusual;
  packet.pkt = {at + sizeof record, record.captured, record.wire};
  packet.timeNs = std::int64_t{record.seconds} * kSecondNs + std::int64_t{record.fraction} * fractionNs_;
  at_ += sizeof record + record.captured;
  held_ = true;
  return Result::packet;
}

// Whether the next record lies in the window, with all of its packet.
bool RecordWindow::whole() const {
  const std::size_t left = filled_ - at_;
  Record record;
  if (left < sizeof record) return false;
  std::memcpy(&record, &bytes_[at_], sizeof record);
  return left - sizeof record >= record.captured;
}

// Moves the window on to the next record.
void RecordWindow::moveOn() {
  std::memmove(&bytes_[0], &bytes_[at_], filled_ - at_);
  filled_ -= at_;
  start_ += at_;
  at_ = 0;
}

// Reads what the window has room for; packets in it stay where they are.
void RecordWindow::fill() {
  const auto from = static_cast<off_t>(start_ + filled_);
  const ssize_t got = ::pread(descriptor_, &bytes_[filled_], kBytes - filled_, from);
  if (got > 0) filled_ += static_cast<std::size_t>(got);
}

}  // namespace Capture
