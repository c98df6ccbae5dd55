// A port that writes what it transmits to a capture file.
#pragma once

#include <string>

#include "capture/CaptureWriter.h"
#include "capture/PortDevice.h"

namespace Capture {

class WritePort : public PortDevice {
 public:
  // Throws CaptureError when the file cannot be written.
  explicit WritePort(std::string path) : writer_(std::move(path)) {}

  PortKind kind() const override { return PortKind::write; }
  std::size_t receive(std::span<ReceivedPacket>, double) override { return 0; }
  void transmit(const Pavo::Pkt& pkt, double now) override;
  void flush() override;
  bool up() const override { return writer_.error().empty(); }

 private:
  CaptureWriter writer_;
};

}  // namespace Capture
