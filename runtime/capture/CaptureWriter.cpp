#include "capture/CaptureWriter.h"

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "capture/CaptureError.h"

namespace Capture {
namespace {

constexpr int kSnapLength = 256 * 1024;
constexpr std::size_t kBuffered = 256 * 1024;

timeval timeOf(double seconds) {
  const double whole = std::floor(seconds);
  timeval time{};
  time.tv_sec = static_cast<time_t>(whole);
  time.tv_usec = static_cast<suseconds_t>((seconds - whole) * 1e6);
  return time;
}

bool isNowhere(int descriptor) {
  struct stat file {};
  return ::fstat(descriptor, &file) == 0 && S_ISCHR(file.st_mode) && file.st_rdev == makedev(1, 3);
}

}  // namespace

CaptureWriter::CaptureWriter(std::string path) : path_(std::move(path)), buffer_(kBuffered) {
  std::FILE* file = std::fopen(path_.c_str(), "wbe");
  if (file == nullptr) throw CaptureError(fmt::format("capture {}: {}", path_, std::strerror(errno)));
  std::setvbuf(file, buffer_.data(), _IOFBF, buffer_.size());
  handle_ = ::pcap_open_dead(DLT_EN10MB, kSnapLength);
  dumper_ = handle_ != nullptr ? ::pcap_dump_fopen(handle_, file) : nullptr;
  if (dumper_ != nullptr && flush()) {
    toNowhere_ = isNowhere(::fileno(file));
    return;
  }
  const std::string why = dumper_ != nullptr ? error_ : fmt::format("capture {}: cannot be begun", path_);
  if (dumper_ != nullptr) {
    ::pcap_dump_close(dumper_);
  } else {
    std::fclose(file);
  }
  if (handle_ != nullptr) ::pcap_close(handle_);
  throw CaptureError(why);
}

CaptureWriter::~CaptureWriter() {
  ::pcap_dump_close(dumper_);
  ::pcap_close(handle_);
}

bool CaptureWriter::write(const Pavo::Pkt& pkt, double time) {
  if (!error_.empty()) return false;
  if (toNowhere_) return true;
  pcap_pkthdr header{};
  header.ts = timeOf(time);
  header.caplen = pkt.capturedLength();
  header.len = pkt.wireLength();
  ::pcap_dump(reinterpret_cast<unsigned char*>(dumper_), &header, pkt.front());
  return std::ferror(::pcap_dump_file(dumper_)) == 0 || failed();
}

bool CaptureWriter::flush() {
  if (!error_.empty()) return false;
  return ::pcap_dump_flush(dumper_) == 0 || failed();
}

// What became of the stream's last write stands in errno.
bool CaptureWriter::failed() {
  error_ = fmt::format("capture {}: cannot be written: {}", path_, std::strerror(errno));
  return false;
}

}  // namespace Capture
