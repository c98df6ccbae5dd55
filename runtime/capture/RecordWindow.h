// Reads the records of a capture in the form that almost every one has: pcap 2.4 in this machine's byte
// order, in a regular file. A piece of the file at a time, and the packets stay in place: 105 ns a packet
// of 360 bytes, nearly all of them the kernel's copy, where libpcap and a copy of its packet take 245.
//
// Whatever is not as usual, the end of the file among it, is left to libpcap, which knows what it is.
// Neighbours: CaptureReader.h has both. Threading: one thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "capture/PortDevice.h"

namespace Capture {

class RecordWindow {
 public:
  static constexpr std::size_t kBytes = 256 * 1024;  // stays in the second cache

  // Null when the file is of another form. It stays the caller's, as does its place. REQUIRES: libpcap opened
  // it, and cuts no packet of at most `mostCaptured` bytes off.
  static std::unique_ptr<RecordWindow> of(std::FILE* file, std::uint32_t mostCaptured);

  enum class Result : std::uint8_t { packet, full, unusual };
  // The next packet, which stays valid until release(). `full`: not without a release(). `unusual`, from
  // then on: from offset() on the file is not for this reader.
  Result next(ReceivedPacket& packet);
  void release() { held_ = false; }
  // Where in the file the next record begins.
  std::uint64_t offset() const { return start_ + at_; }

 private:
  RecordWindow(int descriptor, std::uint32_t mostCaptured, std::uint32_t fractionNs);
  bool whole() const;
  void moveOn();
  void fill();

  int descriptor_;
  std::uint32_t mostCaptured_;
  std::uint32_t fractionNs_;  // of one in a record's fraction of a second
  bool held_ = false;         // packets of this window have been given
  std::uint64_t start_;       // of the window in the file
  std::size_t at_ = 0;        // of the next record in the window
  std::size_t filled_ = 0;
  std::unique_ptr<std::uint8_t[]> bytes_;
};

}  // namespace Capture
