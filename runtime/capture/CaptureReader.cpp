#include "capture/CaptureReader.h"

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "capture/CaptureError.h"

namespace Capture {
namespace {

// Which link type it is, for a person: "113 (LINUX_SLL)".
std::string linkTypeText(int linkType) {
  const char* name = ::pcap_datalink_val_to_name(linkType);
  return fmt::format("{} ({})", linkType, name != nullptr ? name : "unknown");
}

std::int64_t nanoseconds(
    const timeval& time) {  // of a handle with nanosecond precision: tv_usec holds nanoseconds
  constexpr std::int64_t kSecond = 1'000'000'000;
  constexpr std::int64_t kMostSeconds = INT64_MAX / kSecond - 5;
  if (time.tv_sec > kMostSeconds || time.tv_sec < -kMostSeconds)
    return time.tv_sec > 0 ? INT64_MAX : INT64_MIN;
  return time.tv_sec * kSecond + time.tv_usec;
}

}  // namespace

CaptureReader::CaptureReader(std::string path) : path_(std::move(path)) {
  std::FILE* file = std::fopen(path_.c_str(), "rbe");
  if (file == nullptr) throw CaptureError(fmt::format("capture {}: {}", path_, std::strerror(errno)));
  std::setvbuf(file, nullptr, _IOFBF, 256 * 1024);
  char why[PCAP_ERRBUF_SIZE] = "";
  handle_ = ::pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, why);
  if (handle_ == nullptr) {
    std::fclose(file);
    throw CaptureError(fmt::format("capture {}: not a readable pcap or pcapng file: {}", path_, why));
  }
  if (const int linkType = ::pcap_datalink(handle_); linkType != DLT_EN10MB) {
    ::pcap_close(handle_);
    throw CaptureError(
        fmt::format("capture {}: link type {}, but ports are Ethernet (1)", path_, linkTypeText(linkType)));
  }
  const auto snapshot = static_cast<std::uint32_t>(std::max(::pcap_snapshot(handle_), 0));
  window_ = RecordWindow::of(file, std::min(snapshot, PacketBuffer::kMostPacket));
}

CaptureReader::~CaptureReader() {
  ::pcap_close(handle_);
}

CaptureReader::Result CaptureReader::next(ReceivedPacket& packet) {
  if (leftWindow_) window_.reset();
  if (window_) window_->release();
  copies_.clear();
  copied_ = 0;
  return nextBeside(packet);
}

CaptureReader::Result CaptureReader::nextBeside(ReceivedPacket& packet) {
  if (last_ != Result::packet) return last_;
  if (window_ && !leftWindow_) {
    switch (window_->next(packet)) {
      case RecordWindow::Result::packet:
        ++packets_;
        return Result::packet;
      case RecordWindow::Result::full:
        return Result::full;
      case RecordWindow::Result::unusual:
        leaveWindow();
    }
  }
  return read(packet);
}

std::size_t CaptureReader::ready(std::span<ReceivedPacket> room) {
  if (!window_ || leftWindow_) return 0;
  const std::size_t packets = window_->ready(room);
  packets_ += packets;
  return packets;
}

// From here on libpcap reads. The packets of this burst that lie in the window stay.
void CaptureReader::leaveWindow() {
  std::fseek(::pcap_file(handle_), static_cast<long>(window_->offset()), SEEK_SET);
  leftWindow_ = true;
}

CaptureReader::Result CaptureReader::read(ReceivedPacket& packet) {
  if (copied_ == PortDevice::kMostBurst) return Result::full;
  pcap_pkthdr* header = nullptr;
  const unsigned char* bytes = nullptr;
  switch (::pcap_next_ex(handle_, &header, &bytes)) {
    case 1:
      ++packets_;
      ++copied_;
      packet.pkt = copies_.copy({bytes, header->caplen, header->len});
      packet.timeNs = nanoseconds(header->ts);
      return Result::packet;
    case PCAP_ERROR_BREAK:
      return last_ = Result::end;
    default:
      return last_ = damaged();
  }
}

double CaptureReader::read() const {
  std::FILE* file = ::pcap_file(handle_);
  struct stat status {};
  if (::fstat(::fileno(file), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) return 0;
  const auto place = window_ && !leftWindow_ ? static_cast<double>(window_->offset())
                                             : static_cast<double>(std::ftell(file));
  return std::clamp(place / static_cast<double>(status.st_size), 0.0, 1.0);
}

CaptureReader::Result CaptureReader::damaged() {
  error_ = fmt::format("capture {}: damaged after packet {}, at byte {}: {}", path_, packets_,
                       std::ftell(::pcap_file(handle_)), ::pcap_geterr(handle_));
  return Result::damaged;
}

}  // namespace Capture
