// Any frame with anything undone in it: its checksum is written so that it fits, or not at all; the packets
// that it is cut into hold its payload, each with checksums that fit, and none is longer than the cut allows.
//
//   byte   0     kind of cut
//          1     whether the checksum is missing
//          2, 4  checksum start, and from there to its field
//          6     bytes of a cut
//          8     the frame
#include <algorithm>
#include <memory>
#include <numeric>
#include <vector>

#include "FuzzTarget.h"
#include "Pavo.h"
#include "PexaPacket.h"
#include "capture/FrameOffload.h"

namespace {

using Capture::FrameCutter;
using Capture::FrameOffload;
using Pexa::HeaderName;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kHead = 8;

// The ones' complement sum, two bytes at a time.
std::uint32_t sumOf(const std::uint8_t* bytes, std::size_t length) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < length; ++i) sum += i % 2 == 0 ? bytes[i] * 256U : bytes[i];
  while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<std::uint32_t>(sum);
}

FrameOffload offloadOf(const std::uint8_t* head) {
  FrameOffload offload;
  offload.cut = static_cast<FrameOffload::Cut>(head[0] % 5);
  offload.checksumMissing = (head[1] & 1U) != 0;
  offload.checksumStart = Pavo::load16(head + 2);
  offload.checksumOffset = Pavo::load16(head + 4);
  offload.cutBytes = Pavo::load16(head + 6);
  return offload;
}

void checkCompletion(const Bytes& frame, const FrameOffload& offload) {
  // Exactly the bytes: a sanitizer sees any access behind them.
  const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[frame.size()]);
  std::copy(frame.begin(), frame.end(), bytes.get());
  const std::size_t field = std::size_t{offload.checksumStart} + offload.checksumOffset;
  const bool done = completeChecksum(bytes.get(), static_cast<std::uint32_t>(frame.size()), offload);
  if (!done) {
    FUZZ_REQUIRE(std::equal(frame.begin(), frame.end(), bytes.get()));
    return;
  }
  FUZZ_REQUIRE(field + 2 <= frame.size());
  if (offload.checksumOffset % 2 != 0) return;  // no checksum stands at an odd place
  std::uint32_t sum = sumOf(bytes.get() + offload.checksumStart, frame.size() - offload.checksumStart);
  sum += Pavo::load16(frame.data() + field);  // what stood in the field covers the pseudo header
  while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
  FUZZ_REQUIRE(sum == 0xffff);
}

// The IPv4 header's own checksum, and that of TCP or UDP over the pseudo header.
void checkPacket(const Bytes& packet) {
  const auto length = static_cast<std::uint32_t>(packet.size());
  Pexa::ParsedPacket parsed(Pavo::Pkt(packet.data(), length, length));
  parsed.maybeDoFullParse();
  const Pexa::PacketHeader* ip = parsed.firstHeaderIpAnyVersion();
  if (ip == nullptr) return;  // a version or length that no IP header has
  const Pexa::PacketHeader* behind = parsed.header(ip->position() + 1U);
  if (behind->name() != HeaderName::Tcp && behind->name() != HeaderName::Udp) return;
  const std::uint8_t* header = packet.data() + ip->offset();
  const bool four = header[0] >> 4 == 4;
  if (four) FUZZ_REQUIRE(sumOf(header, ip->length()) == 0xffff);
  const std::uint32_t l4Length = length - behind->offset();
  std::uint32_t sum = four ? sumOf(header + 12, 8) : sumOf(header + 8, 32);
  sum += l4Length + (behind->name() == HeaderName::Tcp ? 6 : 17);
  sum += sumOf(packet.data() + behind->offset(), l4Length);
  while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
  FUZZ_REQUIRE(sum == 0xffff);
}

void checkCut(const Bytes& frame, const FrameOffload& offload) {
  FrameCutter cutter;
  if (!cutter.frameIs(frame.data(), static_cast<std::uint32_t>(frame.size()), offload)) {
    FUZZ_REQUIRE(!cutter.more());
    return;
  }
  std::vector<Bytes> packets;
  while (cutter.more()) {
    packets.emplace_back(cutter.nextLength());
    cutter.next(packets.back().data());
    FUZZ_REQUIRE(packets.size() <= frame.size());
    checkPacket(packets.back());
  }
  FUZZ_REQUIRE(!packets.empty());
  if (packets.size() == 1) {
    FUZZ_REQUIRE(packets[0].size() == frame.size());
    return;
  }
  const std::size_t all =
      std::accumulate(packets.begin(), packets.end(), std::size_t{0},
                      [](std::size_t sum, const Bytes& each) { return sum + each.size(); });
  const std::size_t headers = (all - frame.size()) / (packets.size() - 1);
  Bytes payload;
  for (const Bytes& packet : packets) {
    FUZZ_REQUIRE(packet.size() > headers && packet.size() <= headers + offload.cutBytes);
    payload.insert(payload.end(), packet.begin() + static_cast<std::ptrdiff_t>(headers), packet.end());
  }
  FUZZ_REQUIRE(std::equal(payload.begin(), payload.end(),
                          frame.begin() + static_cast<std::ptrdiff_t>(headers), frame.end()));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return 0;
  const FrameOffload offload = offloadOf(data);
  const Bytes frame(data + kHead, data + size);
  checkCompletion(frame, offload);
  if (offload.cut != FrameOffload::Cut::none) checkCut(frame, offload);
  return 0;
}
