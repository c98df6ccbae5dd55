#include "capture/RecordWindow.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "KivPrefetch.h"

namespace Capture {
namespace {

struct FileHeader {
  std::uint32_t magic;
  std::uint16_t major;
  std::uint16_t minor;
  std::uint32_t unused[4];
};
static_assert(sizeof(FileHeader) == RecordBlock::kFileHeader);

constexpr std::uint32_t kMicroseconds = 0xa1b2c3d4;
constexpr std::uint32_t kNanoseconds = 0xa1b23c4d;

// Another processor read the file: headers come from its cache, and are asked for a burst before they are
// looked at. A record's own, tagged Ethernet's, IPv6's and the ports are 78 bytes.
constexpr std::size_t kAsked = PortDevice::kMostBurst;
constexpr std::size_t kHeaders = 78;

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
  return std::unique_ptr<RecordWindow>(new RecordWindow({descriptor, mostCaptured, fractionNs}));
}

RecordWindow::Result RecordWindow::next(ReceivedPacket& packet) {
  while (block_ == nullptr || at_ == block_->records()) {
    if (block_ != nullptr && block_->last()) return Result::unusual;
    if (held_) return Result::full;
    block_ = &ahead_.next();
    at_ = 0;
  }
  give(at_++, packet);
  held_ = true;
  return Result::packet;
}

std::size_t RecordWindow::ready(std::span<ReceivedPacket> room) {
  if (block_ == nullptr) return 0;
  const std::size_t packets = std::min(room.size(), block_->records() - at_);
  for (std::size_t i = 0; i < packets; ++i) give(at_ + i, room[i]);
  at_ += packets;
  if (packets != 0) held_ = true;
  return packets;
}

void RecordWindow::give(std::size_t number, ReceivedPacket& packet) const {
  if (number + kAsked < block_->records()) Kiv::prefetch(block_->record(number + kAsked), kHeaders);
  const std::uint8_t* at = block_->record(number);
  RecordHeader record;
  std::memcpy(&record, at, sizeof record);
  packet.pkt = {at + sizeof record, record.captured, record.wire};
  packet.timeNs = std::int64_t{record.seconds} * kSecondNs + std::int64_t{record.fraction} * fractionNs_;
}

}  // namespace Capture
