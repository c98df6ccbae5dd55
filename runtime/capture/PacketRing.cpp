#include "capture/PacketRing.h"

#include <fmt/format.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "KivPrefetch.h"

namespace Capture {
namespace {

constexpr std::size_t kBytes = std::size_t{PacketRing::kBlockBytes} * PacketRing::kBlocks;
// Another processor wrote the slots: their headers and the packet's are asked for some slots ahead.
constexpr std::uint32_t kSlotsAhead = 4;
constexpr std::size_t kSlotBytesAhead = 192;

std::atomic_ref<std::uint32_t> statusOf(tpacket2_hdr& header) {
  return std::atomic_ref<std::uint32_t>(header.tp_status);
}

}  // namespace

std::string PacketRing::open(int descriptor) {
  close();
  const auto failed = [](const char* what) { return fmt::format("{}: {}", what, std::strerror(errno)); };
  const auto set = [&](int option, const auto& value) {
    return ::setsockopt(descriptor, SOL_PACKET, option, &value, sizeof value) == 0;
  };
  const int version = TPACKET_V2;
  const int copies = 1;  // what is longer than a slot goes into the queue
  const tpacket_req request{kBlockBytes, kBlocks, kSlotBytes, kSlots};
  if (!set(PACKET_VERSION, version) || !set(PACKET_COPY_THRESH, copies) || !set(PACKET_RX_RING, request))
    return failed("no receive ring");
  void* memory = ::mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    std::string text = failed("the receive ring cannot be mapped");
    set(PACKET_RX_RING, tpacket_req{});
    return text;
  }
  memory_ = static_cast<std::uint8_t*>(memory);
  next_ = taken_ = 0;
  return {};
}

void PacketRing::close() {
  if (memory_ != nullptr) ::munmap(memory_, kBytes);
  memory_ = nullptr;
}

tpacket2_hdr* PacketRing::slot(std::uint32_t number) const {
  const std::size_t block = number / kSlotsPerBlock % kBlocks;
  return reinterpret_cast<tpacket2_hdr*>(memory_ + block * kBlockBytes +
                                         std::size_t{number % kSlotsPerBlock} * kSlotBytes);
}

bool PacketRing::filled(tpacket2_hdr& header) {
  return (statusOf(header).load(std::memory_order_acquire) & TP_STATUS_USER) != 0;
}

void PacketRing::advance() {
  next_ = (next_ + 1) % kSlots;
  ++taken_;
}

PacketRing::Taken PacketRing::take(std::span<SocketFrame> room) {
  Taken result;
  while (result.frames != room.size()) {
    tpacket2_hdr& header = *slot(next_);
    if (!filled(header) || (header.tp_status & TP_STATUS_COPY) != 0) break;
    Kiv::prefetch(slot(next_ + kSlotsAhead), kSlotBytesAhead);
    if (readFrame(header, room[result.frames])) {
      ++result.frames;
    } else {
      ++result.unusable;
    }
    advance();
  }
  return result;
}

bool PacketRing::readFrame(tpacket2_hdr& header, SocketFrame& frame) const {
  if (header.tp_snaplen != header.tp_len || header.tp_len < ETH_HLEN) return false;
  std::uint8_t* bytes = reinterpret_cast<std::uint8_t*>(&header) + header.tp_mac;
  OffloadHeader offload;
  std::memcpy(&offload, bytes - sizeof offload, sizeof offload);
  frame = {bytes, header.tp_len, offloadOf(offload)};
  putBack({header.tp_status, header.tp_vlan_tpid, header.tp_vlan_tci}, frame);
  return true;
}

std::size_t PacketRing::takeQueued(std::size_t most) {
  std::size_t frames = 0;
  while (frames != most && filled(*slot(next_)) && (slot(next_)->tp_status & TP_STATUS_COPY) != 0) {
    advance();
    ++frames;
  }
  return frames;
}

void PacketRing::giveBack() {
  for (; taken_ != 0; --taken_) {
    statusOf(*slot(next_ + kSlots - taken_)).store(TP_STATUS_KERNEL, std::memory_order_release);
  }
}

}  // namespace Capture
