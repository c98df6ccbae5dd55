#include "capture/FrameOffload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "PacketBuilder.h"

namespace {

using Capture::completeChecksum;
using Capture::FrameCutter;
using Capture::FrameOffload;
using TestSupport::Packet;
using TestSupport::PacketBuilder;
using Bytes = std::vector<std::uint8_t>;
using Cut = FrameOffload::Cut;

constexpr std::uint8_t kFin = 0x01, kPush = 0x08, kAck = 0x10, kCwr = 0x80;

Bytes payload(std::size_t bytes) {
  Bytes result(bytes);
  std::iota(result.begin(), result.end(), std::uint8_t{1});
  return result;
}

std::uint32_t lengthOf(const Bytes& bytes) {
  return static_cast<std::uint32_t>(bytes.size());
}

// All packets that a frame is cut into; none when it cannot be.
std::vector<Bytes> cut(const Bytes& frame, const FrameOffload& offload) {
  std::vector<Bytes> packets;
  FrameCutter cutter;
  if (!cutter.frameIs(frame.data(), lengthOf(frame), offload)) return packets;
  while (cutter.more()) {
    packets.emplace_back(cutter.nextLength());
    cutter.next(packets.back().data());
  }
  return packets;
}

Bytes part(const Bytes& all, std::size_t from, std::size_t bytes) {
  const auto begin = all.begin() + static_cast<std::ptrdiff_t>(from);
  return {begin, begin + static_cast<std::ptrdiff_t>(std::min(bytes, all.size() - from))};
}

void store16(Bytes& bytes, std::size_t at, std::size_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

PacketBuilder ipv4() {
  return PacketBuilder().ipv4("10.0.0.1", "10.0.0.2");
}
PacketBuilder ipv6() {
  return PacketBuilder().ipv6("2001:db8::1", "2001:db8::2");
}

FrameOffload offload(Cut cut, std::uint32_t bytes) {
  FrameOffload result;
  result.cut = cut;
  result.cutBytes = bytes;
  return result;
}

// The same headers over the whole payload, and over each part of it, as the packet builder makes them.
template <typename Build>
void expectCutAsBuilt(Cut kind, std::size_t payloadBytes, std::uint32_t cutBytes, const Build& build) {
  const Bytes data = payload(payloadBytes);
  const std::vector<Bytes> packets = cut(build(data, 0, true).bytes, offload(kind, cutBytes));
  ASSERT_EQ(packets.size(), (payloadBytes + cutBytes - 1) / cutBytes);
  for (std::size_t i = 0; i < packets.size(); ++i) {
    const Bytes expected = build(part(data, i * cutBytes, cutBytes), i, i + 1 == packets.size()).bytes;
    EXPECT_EQ(packets[i], expected) << "packet " << i;
  }
}

// What the builder has no operation for: identification and sequence number of packet `number`, checksums
// made anew.
Packet numbered(Packet packet, std::size_t ip, bool v6, std::size_t tcp, std::size_t bytesBefore,
                std::size_t number) {
  Bytes& bytes = packet.bytes;
  if (!v6) {
    store16(bytes, ip + 4, 1 + number);
    store16(bytes, ip + 10, 0);
    Capture::InternetChecksum().add(bytes.data() + ip, 20).store(bytes.data() + ip + 10);
  }
  if (tcp != 0) {
    store16(bytes, tcp + 6, 1 + bytesBefore);
    store16(bytes, tcp + 16, 0);
    Capture::InternetChecksum sum;
    sum.add(bytes.data() + ip + (v6 ? 8 : 12), v6 ? 32 : 8);
    sum.addNumber(lengthOf(bytes) - static_cast<std::uint32_t>(tcp)).addNumber(6);
    sum.add(bytes.data() + tcp, bytes.size() - tcp).store(bytes.data() + tcp + 16);
  }
  return packet;
}

TEST(FrameOffload, AMissingChecksumIsWritten) {
  for (const Packet& whole :
       {ipv4().udp(1, 2).payload(payload(61)).build(), ipv6().tcp(1, 2).payload(payload(60)).build()}) {
    const bool v6 = whole.bytes[12] == 0x86;
    const std::size_t start = v6 ? 54 : 34;
    const std::size_t field = start + (v6 ? 16 : 6);
    Bytes frame = whole.bytes;
    // What the sending kernel leaves in the field: the folded sum of the pseudo header.
    Bytes pseudo(2);
    Capture::InternetChecksum sum;
    sum.add(frame.data() + (v6 ? 22 : 26), v6 ? 32 : 8)
        .addNumber(lengthOf(frame) - static_cast<std::uint32_t>(start));
    sum.addNumber(v6 ? 6 : 17).store(pseudo.data());
    frame[field] = static_cast<std::uint8_t>(~pseudo[0]);
    frame[field + 1] = static_cast<std::uint8_t>(~pseudo[1]);
    FrameOffload undone;
    undone.checksumMissing = true;
    undone.checksumStart = static_cast<std::uint32_t>(start);
    undone.checksumOffset = static_cast<std::uint32_t>(field - start);
    ASSERT_TRUE(completeChecksum(frame.data(), lengthOf(frame), undone));
    EXPECT_EQ(frame, whole.bytes);
  }
}

TEST(FrameOffload, AChecksumOutsideTheFrameOrOfSctpIsRefusedAndNothingIsWritten) {
  const Bytes whole = ipv4().udp(1, 2).payload(20).build().bytes;
  for (const auto& [start, offset] : {std::pair{62U, 0U}, {61U, 0U}, {34U, 27U}, {1000U, 6U}, {34U, 8U}}) {
    Bytes frame = whole;
    FrameOffload undone;
    undone.checksumMissing = true;
    undone.checksumStart = start;
    undone.checksumOffset = offset;
    EXPECT_FALSE(completeChecksum(frame.data(), lengthOf(frame), undone)) << start << " " << offset;
    EXPECT_EQ(frame, whole);
  }
}

TEST(FrameOffload, TcpIsCutIntoPacketsWithSequenceNumbersAndFlagsOfTheirOwn) {
  for (const bool v6 : {false, true}) {
    const std::size_t ip = 14, tcp = v6 ? 54 : 34;
    expectCutAsBuilt(
        v6 ? Cut::tcpOverIpv6 : Cut::tcpOverIpv4, 3001, 1000,
        [&](const Bytes& data, std::size_t number, bool last) {
          const auto flags =
              static_cast<std::uint8_t>(kAck | (last ? kFin | kPush : 0) | (number == 0 ? kCwr : 0));
          const Packet packet = (v6 ? ipv6() : ipv4()).tcp(5000, 80, flags).payload(data).build();
          return numbered(packet, ip, v6, tcp, number * 1000, number);
        });
  }
}

TEST(FrameOffload, UdpIsCutIntoDatagrams) {
  for (const bool v6 : {false, true}) {
    expectCutAsBuilt(Cut::udp, 2500, 1001, [&](const Bytes& data, std::size_t number, bool) {
      return numbered((v6 ? ipv6() : ipv4()).udp(5000, 53).payload(data).build(), 14, v6, 0, 0, number);
    });
  }
}

TEST(FrameOffload, TagsIpv4OptionsAndExtensionHeadersStayInEachPacket) {
  expectCutAsBuilt(Cut::udp, 100, 40, [](const Bytes& data, std::size_t, bool) {
    return PacketBuilder()
        .vlan(100, 0x88a8)
        .vlan(20)
        .ipv6("2001:db8::1", "2001:db8::2")
        .ipv6Extension(0, 8)
        .ipv6Extension(60)
        .udp(1, 2)
        .payload(data)
        .build();
  });
  const Bytes data = payload(100);
  const Bytes frame = ipv4().ipv4Options({1, 1, 1, 1}).udp(1, 2).payload(data).build().bytes;
  const std::vector<Bytes> packets = cut(frame, offload(Cut::udp, 50));
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_EQ(packets[0], ipv4().ipv4Options({1, 1, 1, 1}).udp(1, 2).payload(part(data, 0, 50)).build().bytes);
}

TEST(FrameOffload, WhatCannotBeCutIsRefused) {
  const Bytes tcp = ipv4().tcp(1, 2).payload(3000).build().bytes;
  FrameOffload inTunnel = offload(Cut::tcpOverIpv4, 1000);
  inTunnel.checksumMissing = true;
  inTunnel.checksumStart = 84;
  const Bytes routed = ipv6().ipv6Extension(43).tcp(1, 2).payload(3000).build().bytes;
  EXPECT_TRUE(cut(tcp, inTunnel).empty());
  EXPECT_TRUE(cut(tcp, offload(Cut::tcpOverIpv4, 0)).empty());
  EXPECT_TRUE(cut(tcp, offload(Cut::unknown, 1000)).empty());
  EXPECT_TRUE(cut(tcp, offload(Cut::udp, 1000)).empty());
  EXPECT_TRUE(cut(tcp, offload(Cut::tcpOverIpv6, 1000)).empty());
  EXPECT_TRUE(cut(routed, offload(Cut::tcpOverIpv6, 1000)).empty());
  EXPECT_TRUE(
      cut(PacketBuilder().etherType(0x0806).payload(100).build().bytes, offload(Cut::udp, 10)).empty());
}

// Whatever arrives, nothing is read outside the frame (a sanitizer looks on), and packets are no longer than
// it.
TEST(FrameOffload, FramesCutShortAnywhereAreRefusedOrCut) {
  for (const Bytes& whole : {ipv6().ipv6Extension(0).tcp(1, 2).payload(9).build().bytes,
                             ipv4().ipv4Options({1, 1, 1, 1}).udp(1, 2).payload(9).build().bytes}) {
    const bool v6 = whole[12] == 0x86;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      const Bytes frame = part(whole, 0, length);
      for (const Bytes& packet : cut(frame, offload(v6 ? Cut::tcpOverIpv6 : Cut::udp, 4))) {
        EXPECT_LE(packet.size(), frame.size());
      }
    }
  }
}

}  // namespace
