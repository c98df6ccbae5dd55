#include "capture/CaptureReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "CaptureFile.h"
#include "TempDir.h"
#include "capture/CaptureError.h"

namespace {

using Capture::CaptureError;
using Capture::CaptureReader;
using Capture::ReceivedPacket;
using testing::HasSubstr;
using TestSupport::ByteText;
using TestSupport::Packet;
using TestSupport::PacketBuilder;
using TestSupport::PcapngText;
using TestSupport::PcapOptions;
using TestSupport::PcapText;
using Result = CaptureReader::Result;

Packet somePacket(std::size_t payload = 10) {
  return PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").udp(1, 2).payload(payload).build();
}

std::vector<std::uint8_t> bytesOf(const Pavo::Pkt& pkt) {
  return {pkt.front(), pkt.front() + pkt.capturedLength()};
}

class CaptureReading : public testing::Test {
 protected:
  template <class Text>
  std::string write(const Text& text, const std::string& name = "some.pcap") {
    std::string path = folder_.path() + '/' + name;
    text.writeTo(path);
    return path;
  }
  // What opening it says.
  template <class Text>
  std::string refusal(const Text& text) {
    return refusalOf(write(text));
  }
  static std::string refusalOf(const std::string& path) {
    try {
      const CaptureReader reader(path);
    } catch (const CaptureError& error) {
      return error.what();
    }
    return "";
  }
  static unsigned readAll(CaptureReader& reader, Result end) {
    unsigned packets = 0;
    ReceivedPacket packet;
    Result result = Result::packet;
    while ((result = reader.next(packet)) == Result::packet) ++packets;
    EXPECT_EQ(result, end);
    EXPECT_EQ(reader.next(packet), end) << "it stays at its end";
    return packets;
  }
  TestSupport::TempDir folder_;
};

TEST_F(CaptureReading, PcapInEitherByteOrderAndBothResolutions) {
  const Packet sent = somePacket();
  for (const bool bigEndian : {false, true}) {
    for (const bool nanoseconds : {false, true}) {
      const PcapOptions options{bigEndian, nanoseconds, 1, 65535};
      CaptureReader reader(write(PcapText(options).packet(sent, 1'700'000'000, 123'456)));
      ReceivedPacket packet;
      ASSERT_EQ(reader.next(packet), Result::packet);
      EXPECT_EQ(packet.timeNs, 1'700'000'000'000'000'000 + 123'456 * (nanoseconds ? 1 : 1000));
      EXPECT_EQ(bytesOf(packet.pkt), sent.bytes);
      EXPECT_EQ(packet.pkt.wireLength(), sent.wireLength);
      EXPECT_EQ(reader.next(packet), Result::end);
      EXPECT_EQ(reader.packets(), 1U);
      EXPECT_EQ(reader.error(), "");
    }
  }
}

TEST_F(CaptureReading, PcapngInEitherByteOrder) {
  const Packet sent = somePacket();
  for (const bool bigEndian : {false, true}) {
    CaptureReader reader(write(PcapngText(bigEndian).interface().packet(sent, 0, 1'700'000'000'123'456)));
    ReceivedPacket packet;
    ASSERT_EQ(reader.next(packet), Result::packet);
    EXPECT_EQ(packet.timeNs, 1'700'000'000'123'456'000);
    EXPECT_EQ(bytesOf(packet.pkt), sent.bytes);
    EXPECT_EQ(reader.next(packet), Result::end);
  }
}

TEST_F(CaptureReading, PcapngWithSeveralInterfacesSectionsAndUnknownBlocks) {
  PcapngText text;
  text.interface().interface().packet(somePacket(), 1).block(0xbad, ByteText().u32(1)).packet(somePacket());
  text.append(PcapngText().interface().packet(somePacket()));
  CaptureReader reader(write(text));
  EXPECT_EQ(readAll(reader, Result::end), 3U);
}

TEST_F(CaptureReading, NamesDoNotDecideWhatAFileIs) {
  const std::string path = folder_.path() + "/lying.pcap";
  PcapngText().interface().packet(somePacket()).writeTo(path);
  CaptureReader reader(path);
  EXPECT_EQ(readAll(reader, Result::end), 1U);
}

TEST_F(CaptureReading, ACaptureWithoutPacketsEndsAtOnce) {
  CaptureReader reader(write(PcapText()));
  EXPECT_EQ(readAll(reader, Result::end), 0U);
}

TEST_F(CaptureReading, CutPacketsKeepTheirWireLength) {
  CaptureReader reader(write(PcapText().packet(PacketBuilder().payload(1000).cutTo(64).build())));
  ReceivedPacket packet;
  ASSERT_EQ(reader.next(packet), Result::packet);
  EXPECT_EQ(packet.pkt.capturedLength(), 64U);
  EXPECT_EQ(packet.pkt.wireLength(), 1014U);
}

TEST_F(CaptureReading, ACapturedLengthAboveTheWireLengthIsTaken) {
  CaptureReader reader(write(PcapText().packet(PacketBuilder().payload(100).wireLength(20).build())));
  ReceivedPacket packet;
  ASSERT_EQ(reader.next(packet), Result::packet);
  EXPECT_EQ(packet.pkt.capturedLength(), 114U);
  EXPECT_EQ(packet.pkt.wireLength(), 20U);
}

TEST_F(CaptureReading, PacketsOfNoBytesAndOf80KilobytesAreTaken) {
  CaptureReader reader(write(
      PcapText().packet(PacketBuilder().cutTo(0).build()).packet(somePacket(80'000)).packet(somePacket())));
  EXPECT_EQ(readAll(reader, Result::end), 3U);
}

// Packets, each of other bytes, as many as fill a reader's buffers several times.
std::vector<Packet> manyPackets() {
  std::vector<Packet> packets;
  for (std::size_t i = 0; i < 1000; ++i) packets.push_back(somePacket(i * 7 % 1400));
  return packets;
}
using Bytes = std::vector<std::vector<std::uint8_t>>;
Bytes bytesOf(const std::vector<Packet>& packets) {
  Bytes bytes;
  for (const Packet& each : packets) bytes.push_back(each.bytes);
  return bytes;
}
// All packets, looked at when no more would fit beside them.
Bytes readInBursts(CaptureReader& reader, Result end) {
  Bytes bytes;
  std::vector<ReceivedPacket> burst;
  ReceivedPacket packet;
  Result result = Result::packet;
  while (result == Result::packet || result == Result::full) {
    result = burst.empty() ? reader.next(packet) : reader.nextBeside(packet);
    if (result == Result::packet) {
      burst.push_back(packet);
    } else {
      for (const ReceivedPacket& each : burst) bytes.push_back(bytesOf(each.pkt));
      burst.clear();
    }
  }
  EXPECT_EQ(result, end);
  return bytes;
}

TEST_F(CaptureReading, PacketsBesideEachOtherStayWhatTheyAre) {
  const std::vector<Packet> sent = manyPackets();
  PcapText pcap;
  PcapText otherOrder({true});
  PcapngText pcapng;
  pcapng.interface();
  for (const Packet& each : sent) {
    pcap.packet(each);
    otherOrder.packet(each);
    pcapng.packet(each);
  }
  for (const std::string& path : {write(pcap), write(otherOrder, "other"), write(pcapng, "ng")}) {
    CaptureReader reader(path);
    EXPECT_EQ(readInBursts(reader, Result::end), bytesOf(sent)) << path;
  }
}

TEST_F(CaptureReading, ARecordThatIsNotAsUsualIsReadWithAllBehindIt) {
  std::vector<Packet> sent = manyPackets();
  sent.push_back(somePacket(258'000));  // more than is read at a time
  PcapText text;
  for (const Packet& each : sent) text.packet(each);
  text.packet(sent[0], 1'700'000'000, 2'500'000);  // microseconds of two seconds and a half
  text.packet(sent[1]);
  sent.push_back(sent[0]);
  sent.push_back(sent[1]);
  const std::string path = write(text);
  CaptureReader reader(path);
  EXPECT_EQ(readInBursts(reader, Result::end), bytesOf(sent));
  std::filesystem::resize_file(path, text.size() - 1);
  CaptureReader cut(path);
  sent.pop_back();
  EXPECT_EQ(readInBursts(cut, Result::damaged), bytesOf(sent));
  EXPECT_THAT(cut.error(),
              HasSubstr("damaged after packet 1002, at byte " + std::to_string(text.size() - 1)));
}

TEST_F(CaptureReading, PacketsLongerThanTheFileSaysAreCutAsLibpcapDoes) {
  CaptureReader reader(
      write(PcapText({false, false, 1, 100}).packet(somePacket(20)).packet(somePacket(200))));
  ReceivedPacket packet;
  ASSERT_EQ(reader.next(packet), Result::packet);
  EXPECT_EQ(packet.pkt.capturedLength(), 62U);
  ASSERT_EQ(reader.next(packet), Result::packet);
  EXPECT_EQ(packet.pkt.capturedLength(), 100U);
  EXPECT_EQ(packet.pkt.wireLength(), 242U);
}

TEST_F(CaptureReading, TimeMayRunBackwards) {
  CaptureReader reader(write(PcapText().packet(somePacket(), 200).packet(somePacket(), 100)));
  ReceivedPacket packet;
  ASSERT_EQ(reader.next(packet), Result::packet);
  EXPECT_EQ(packet.timeNs, 200'000'000'000);
  ASSERT_EQ(reader.next(packet), Result::packet);
  EXPECT_EQ(packet.timeNs, 100'000'000'000);
}

TEST_F(CaptureReading, StopsAtACutOffRecordAndSaysWhere) {
  PcapText text;
  text.packet(somePacket()).packet(somePacket());
  const std::size_t good = text.size();
  text.packet(somePacket());
  const std::string path = write(text);
  for (const std::size_t cut : {good + 1, good + 15, good + 16, text.size() - 1}) {
    std::filesystem::resize_file(path, cut);
    CaptureReader reader(path);
    EXPECT_EQ(readAll(reader, Result::damaged), 2U);
    EXPECT_THAT(reader.error(), HasSubstr(path));
    EXPECT_THAT(reader.error(), HasSubstr("damaged after packet 2, at byte " + std::to_string(cut)));
    text.writeTo(path);
  }
}

TEST_F(CaptureReading, StopsAtARecordThatClaimsTwoGigabytes) {
  for (const std::uint32_t claimed : {0x80000000U, 0xffffffffU, 0x7fffffffU, 300'000U}) {
    CaptureReader reader(write(PcapText().packet(somePacket()).record(1, 0, claimed, claimed, {1, 2, 3})));
    EXPECT_EQ(readAll(reader, Result::damaged), 1U);
    EXPECT_THAT(reader.error(), HasSubstr("damaged after packet 1"));
  }
}

TEST_F(CaptureReading, StopsAtADamagedPcapngBlock) {
  PcapngText text;
  text.interface().packet(somePacket());
  for (const std::uint32_t length : {0U, 13U, 0x7fffffffU, 0xffffffffU}) {
    PcapngText damaged = text;
    damaged.append(PcapngText());
    ByteText bytes;
    bytes.raw(text.bytes()).u32(6).u32(length).u32(0);
    CaptureReader reader(write(bytes));
    EXPECT_EQ(readAll(reader, Result::damaged), 1U);
    EXPECT_THAT(reader.error(), HasSubstr("damaged after packet 1"));
  }
}

TEST_F(CaptureReading, StopsAtAPacketOfAnInterfaceThatIsNotDescribed) {
  CaptureReader reader(write(PcapngText().interface().packet(somePacket()).packet(somePacket(), 5)));
  EXPECT_EQ(readAll(reader, Result::damaged), 1U);
  EXPECT_THAT(reader.error(), HasSubstr("interface"));
}

TEST_F(CaptureReading, OtherLinkTypesAreRefusedByName) {
  const std::string sll = refusal(PcapText({false, false, 113, 65535}));
  EXPECT_THAT(sll, HasSubstr("some.pcap"));
  EXPECT_THAT(sll, HasSubstr("113 (LINUX_SLL)"));
  EXPECT_THAT(sll, HasSubstr("Ethernet"));
  EXPECT_THAT(refusal(PcapText({false, false, 101, 65535})), HasSubstr("(RAW)"));
  EXPECT_THAT(refusal(PcapText({true, true, 0, 65535})), HasSubstr("(NULL)"));
  EXPECT_THAT(refusal(PcapngText().interface(276).packet(somePacket())), HasSubstr("(LINUX_SLL2)"));
}

TEST_F(CaptureReading, ASecondLinkTypeInAPcapngEndsItThere) {
  CaptureReader reader(
      write(PcapngText().interface().packet(somePacket()).interface(113).packet(somePacket(), 1)));
  EXPECT_EQ(readAll(reader, Result::damaged), 1U);
  EXPECT_THAT(reader.error(), HasSubstr("type 113"));
}

TEST_F(CaptureReading, WhatIsNoCaptureIsRefused) {
  EXPECT_THAT(refusalOf(folder_.path() + "/absent.pcap"), HasSubstr("absent.pcap: No such file"));
  EXPECT_THAT(refusal(ByteText()), HasSubstr("not a readable pcap or pcapng file"));
  EXPECT_THAT(refusal(ByteText().u32(0x12345678).raw(std::vector<std::uint8_t>(60))),
              HasSubstr("not a readable pcap or pcapng file"));
  EXPECT_THAT(refusalOf(folder_.path()), HasSubstr(folder_.path()));
}

TEST_F(CaptureReading, AFileHeaderThatIsCutShortIsRefused) {
  const std::string path = write(PcapText().packet(somePacket()));
  for (std::size_t size = 0; size < 24; ++size) {
    std::filesystem::resize_file(path, size);
    EXPECT_THAT(refusalOf(path), HasSubstr("some.pcap")) << size;
    PcapText().packet(somePacket()).writeTo(path);
  }
}

}  // namespace
