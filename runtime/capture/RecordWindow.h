// Hands out the packets of a capture in the form that almost every one has: pcap 2.4 in this machine's byte
// order, in a regular file. They stay where the file was read to.
//
// Whatever is not as usual, the end of the file among it, is left to libpcap, which knows what it is.
// Neighbours: CaptureReader.h has both, ReadAhead.h reads the file. Threading: one thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

#include "capture/PortDevice.h"
#include "capture/ReadAhead.h"

namespace Capture {

class RecordWindow {
 public:
  // Null when the file is of another form. It stays the caller's, as does its place. REQUIRES: libpcap opened
  // it, and cuts no packet of at most `mostCaptured` bytes off.
  static std::unique_ptr<RecordWindow> of(std::FILE* file, std::uint32_t mostCaptured);

  enum class Result : std::uint8_t { packet, full, unusual };
  // The next packet, which stays valid until release(). `full`: not without a release(). `unusual`, from
  // then on: from offset() on the file is not for this reader.
  Result next(ReceivedPacket& packet);
  // As many as there are in memory, until release(); gives their number.
  std::size_t ready(std::span<ReceivedPacket> room);
  void release() { held_ = false; }
  // Where in the file the next record begins.
  std::uint64_t offset() const { return block_ != nullptr ? block_->offset(at_) : RecordBlock::kFileHeader; }

 private:
  explicit RecordWindow(const RecordForm& form) : fractionNs_(form.fractionNs), ahead_(form) {}
  void give(std::size_t number, ReceivedPacket& packet) const;

  const std::uint32_t fractionNs_;
  ReadAhead ahead_;
  const RecordBlock* block_ = nullptr;  // before the first packet: none
  std::size_t at_ = 0;                  // its next record
  bool held_ = false;                   // packets of it have been given
};

}  // namespace Capture
