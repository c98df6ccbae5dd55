// Writes packets to a capture file: pcap, Ethernet, microseconds, in this machine's byte order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Pavo.h"

struct pcap;
struct pcap_dumper;

namespace Capture {

class CaptureWriter {
 public:
  // Creates the file, or empties it. Throws CaptureError when it cannot be written.
  explicit CaptureWriter(std::string path);
  ~CaptureWriter();
  CaptureWriter(const CaptureWriter&) = delete;
  CaptureWriter& operator=(const CaptureWriter&) = delete;

  // Appends a packet with a time in UTC seconds. False when the file cannot take it (a full disk); error()
  // tells, and nothing more is written then.
  bool write(const Pavo::Pkt& pkt, double time);
  // Hands what is buffered to the file. False as for write().
  bool flush();

  const std::string& path() const { return path_; }
  const std::string& error() const { return error_; }

 private:
  bool failed();

  std::string path_;
  std::string error_;
  std::vector<char> buffer_;  // the stream's
  bool toNowhere_ = false;    // /dev/null: a record of it need not be formed
  pcap* handle_ = nullptr;
  pcap_dumper* dumper_ = nullptr;
};

}  // namespace Capture
