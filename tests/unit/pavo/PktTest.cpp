#include <gtest/gtest.h>

#include "PacketBuilder.h"
#include "Pavo.h"

namespace {

using TestSupport::PacketBuilder;

TEST(Pkt, GivesBytesWithinWhatWasCaptured) {
  const auto packet = PacketBuilder().payload(6).build();
  const Pavo::Pkt pkt = packet.pkt();
  EXPECT_EQ(pkt.offsetFront(0, 20), pkt.front());
  EXPECT_EQ(pkt.offsetFront(14, 6), pkt.front() + 14);
  EXPECT_EQ(pkt.offsetFront(20, 0), pkt.front() + 20);
}

TEST(PktDeath, StopsWhenBytesWereNotCaptured) {
  const auto packet = PacketBuilder().payload(6).build();
  const Pavo::Pkt pkt = packet.pkt();
  EXPECT_DEATH(pkt.offsetFront(0, 21), "offset 0 \\+ length 21 <= captured length 20");
  EXPECT_DEATH(pkt.offsetFront(21, 0), "captured length 20");
  EXPECT_DEATH(pkt.offsetFront(4294967295U, 2), "captured length 20");
  EXPECT_DEATH(pkt.offsetFront(2, 4294967295U), "captured length 20");
}

TEST(PktDeath, BoundsAreThoseOfTheCaptureNotOfTheWire) {
  const auto packet = PacketBuilder().payload(6).wireLength(1500).build();
  EXPECT_DEATH(packet.pkt().offsetFront(20, 1), "captured length 20");
}

TEST(IpHdr, ReadsItsFields) {
  const auto packet = PacketBuilder().ipv4("10.1.2.3", "192.168.0.9").udp(53, 1024).payload(100).build();
  const Pavo::IpHdr header(packet.pkt().offsetFront(14, Pavo::IpHdr::kBytes));
  EXPECT_EQ(Pavo::stringValue(header.src()), "10.1.2.3");
  EXPECT_EQ(Pavo::stringValue(header.dst()), "192.168.0.9");
  EXPECT_EQ(header.protocolNum(), 17U);
  EXPECT_EQ(header.packetBytes(), 128U);
  const Pavo::L4Ports ports(packet.pkt().offsetFront(34, Pavo::L4Ports::kBytes));
  EXPECT_EQ(ports.srcPort(), 53);
  EXPECT_EQ(ports.dstPort(), 1024);
}

TEST(Ip6Hdr, ReadsItsFields) {
  const auto packet = PacketBuilder().ipv6("2001:db8::1", "2001:db8::2").tcp(443, 50000).payload(10).build();
  const Pavo::Ip6Hdr header(packet.pkt().offsetFront(14, Pavo::Ip6Hdr::kBytes));
  EXPECT_EQ(Pavo::stringValue(header.src()), "2001:db8::1");
  EXPECT_EQ(Pavo::stringValue(header.dst()), "2001:db8::2");
  EXPECT_EQ(header.protocolNum(), 6U);
  EXPECT_EQ(header.packetBytes(), 70U);
}

TEST(Ip6Hdr, AFullPayloadAndTheHeaderNeedMoreThan16Bits) {
  const auto packet = PacketBuilder().ipv6("::1", "::2").udp(1, 2).lengthField(65535).build();
  EXPECT_EQ(Pavo::Ip6Hdr(packet.pkt().offsetFront(14, 40)).packetBytes(), 65575U);
}

TEST(Ip6Hdr, AnEmptyPayloadCountsTheHeader) {
  const auto packet = PacketBuilder().ipv6("::1", "::2").udp(1, 2).lengthField(0).build();
  EXPECT_EQ(Pavo::Ip6Hdr(packet.pkt().offsetFront(14, 40)).packetBytes(), 40U);
}

}  // namespace
