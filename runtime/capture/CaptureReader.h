// Reads the packets of a capture file, one after another: pcap or pcapng, whichever it is, in either byte
// order, with microseconds or nanoseconds.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "capture/PacketBuffer.h"
#include "capture/PortDevice.h"
#include "capture/RecordWindow.h"

struct pcap;

namespace Capture {

class CaptureReader {
 public:
  // Throws CaptureError when the file cannot be opened, is no capture, or holds another link type than
  // Ethernet.
  explicit CaptureReader(std::string path);
  ~CaptureReader();
  CaptureReader(const CaptureReader&) = delete;
  CaptureReader& operator=(const CaptureReader&) = delete;

  enum class Result : std::uint8_t { packet, full, end, damaged };
  // The next packet; its bytes are valid until the next call, and never more than PacketBuffer::kMostPacket.
  // Behind the last readable packet of a damaged file comes `damaged`, for good. Allocates only for a packet
  // larger than any before it.
  Result next(ReceivedPacket& packet);
  // The same, but packets that were given since the last next() stay valid as well. `full`: there is no room
  // beside them; next() goes on. REQUIRES: a next() before it.
  Result nextBeside(ReceivedPacket& packet);
  // As many packets as stand ready beside them, none among these: the quicker way to most of them, after
  // which nextBeside() goes on. Gives their number.
  std::size_t ready(std::span<ReceivedPacket> room);

  const std::string& path() const { return path_; }
  // Packets read so far.
  std::uint64_t packets() const { return packets_; }
  // How much of the file has been read: 0 to 1; 0 when it is no regular file.
  double read() const;
  // After `damaged`: the file, the last good packet, where in the file reading stopped, and what is wrong
  // there.
  const std::string& error() const { return error_; }

 private:
  Result read(ReceivedPacket& packet);
  void leaveWindow();
  Result damaged();

  std::string path_;
  std::string error_;
  pcap* handle_ = nullptr;
  std::unique_ptr<RecordWindow> window_;  // null when the file is not as usual
  PacketBuffer copies_;                   // of libpcap's packets, which it overwrites
  std::size_t copied_ = 0;
  std::uint64_t packets_ = 0;
  Result last_ = Result::packet;
  bool leftWindow_ = false;  // from here on the file is not as usual
};

}  // namespace Capture
