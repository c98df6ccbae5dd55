// A port on a Linux interface, through libpcap (AF_PACKET, promiscuous).
//
// A frame is delivered as it was on the wire: a VLAN tag that the kernel took off is put back. Packets that
// this machine sends on the interface, this port's own among them, are not received.
#pragma once

#include <cstdint>
#include <string>

#include "capture/PacketBuffer.h"
#include "capture/PortDevice.h"

struct pcap;
struct pcap_pkthdr;

namespace Capture {

class LivePort : public PortDevice {
 public:
  static constexpr double kReopenSeconds = 1.0;

  // Throws CaptureError when there is no such interface, it is not Ethernet, or this process may not use it.
  // An interface that is down is no error: the port waits for it.
  explicit LivePort(std::string interface);
  ~LivePort() override;

  PortKind kind() const override { return PortKind::device; }
  std::size_t receive(std::span<ReceivedPacket> room, double now) override;
  void transmit(const Pavo::Pkt& pkt, double now) override;
  // Changes when the interface went away and came back.
  int descriptor() const override { return descriptor_; }
  std::uint64_t descriptorChanges() const override { return descriptorChanges_; }
  double nextReceive() const override;
  void refresh() override;
  bool up() const override { return handle_ != nullptr && error_.empty(); }

  const std::string& interface() const { return interface_; }

 private:
  struct Burst;
  static void delivered(unsigned char* burst, const pcap_pkthdr* header, const unsigned char* bytes);
  enum class Opened : std::uint8_t { yes, notNow, never };
  Opened open();
  void close();
  void reopen(double now);
  void lost(const std::string& why);

  std::string interface_;
  PacketBuffer buffer_;
  pcap* handle_ = nullptr;  // null while the interface is away
  int descriptor_ = -1;
  std::uint64_t descriptorChanges_ = 0;
  double nextOpen_ = 0;            // UTC seconds
  bool more_ = false;              // the last burst was full: packets may be left that nothing announces
  std::uint64_t formerDrops_ = 0;  // of the handles before this one
};

}  // namespace Capture
