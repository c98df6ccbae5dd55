#include "capture/SocketFrame.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include <cstring>

namespace Capture {
namespace {

constexpr std::uint32_t kBeforeTag = 12;  // a tag stands behind them

}  // namespace

FrameOffload offloadOf(const OffloadHeader& header) {
  using Cut = FrameOffload::Cut;
  FrameOffload offload;
  offload.checksumMissing = (header.flags & OffloadHeader::kNeedsChecksum) != 0;
  offload.checksumStart = header.checksumStart;
  offload.checksumOffset = header.checksumOffset;
  offload.cutBytes = header.cutBytes;
  switch (header.kind & ~OffloadHeader::kEcn) {
    case OffloadHeader::kNone:
      offload.cut = Cut::none;
      break;
    case OffloadHeader::kTcpOverIpv4:
      offload.cut = Cut::tcpOverIpv4;
      break;
    case OffloadHeader::kTcpOverIpv6:
      offload.cut = Cut::tcpOverIpv6;
      break;
    case OffloadHeader::kUdp:
      offload.cut = Cut::udp;
      break;
    default:
      offload.cut = Cut::unknown;
  }
  return offload;
}

void putBack(const TakenTag& tag, SocketFrame& frame) {
  if ((tag.status & TP_STATUS_VLAN_VALID) == 0) return;
  const std::uint16_t kind = (tag.status & TP_STATUS_VLAN_TPID_VALID) != 0 ? tag.kind : ETH_P_8021Q;
  std::memmove(frame.bytes - kTagBytes, frame.bytes, kBeforeTag);
  frame.bytes -= kTagBytes;
  frame.length += kTagBytes;
  frame.offload.checksumStart += kTagBytes;
  std::uint8_t* at = frame.bytes + kBeforeTag;
  at[0] = static_cast<std::uint8_t>(kind >> 8);
  at[1] = static_cast<std::uint8_t>(kind);
  at[2] = static_cast<std::uint8_t>(tag.contents >> 8);
  at[3] = static_cast<std::uint8_t>(tag.contents);
}

}  // namespace Capture
