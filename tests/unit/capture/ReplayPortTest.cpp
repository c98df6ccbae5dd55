#include "capture/ReplayPort.h"

#include <gtest/gtest.h>

#include <array>

#include "CaptureFile.h"
#include "TempDir.h"
#include "capture/CaptureError.h"

namespace {

using Capture::Pace;
using Capture::PortDevice;
using Capture::ReceivedPacket;
using Capture::ReplayPort;
using Capture::ReplayState;
using TestSupport::Packet;
using TestSupport::PacketBuilder;
using TestSupport::PcapText;

constexpr double kNow = 1000.0;

// A packet that can be told from others by its payload.
Packet numbered(std::size_t number) {
  return PacketBuilder().payload(1, static_cast<std::uint8_t>(number)).build();
}

class Replay : public testing::Test {
 protected:
  // One packet for each capture time, in seconds and microseconds.
  ReplayPort open(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& times, Pace pace) {
    PcapText text;
    for (std::size_t i = 0; i < times.size(); ++i) text.packet(numbered(i), times[i].first, times[i].second);
    text.writeTo(path_);
    return ReplayPort(path_, pace);
  }
  std::size_t receive(ReplayPort& port, double now) { return port.receive(room_, now); }

  TestSupport::TempDir folder_;
  std::string path_ = folder_.path() + "/replay.pcap";
  std::array<ReceivedPacket, PortDevice::kMostBurst> room_;
};

TEST_F(Replay, FastGivesFullBurstsAtOnce) {
  ReplayPort port = open(std::vector<std::pair<std::uint32_t, std::uint32_t>>(70, {1, 0}), Pace::fast);
  EXPECT_EQ(port.nextReceive(), 0.0);
  EXPECT_EQ(receive(port, kNow), 32U);
  EXPECT_EQ(receive(port, kNow), 32U);
  EXPECT_EQ(port.replayState(), ReplayState::running);
  EXPECT_EQ(receive(port, kNow), 6U);
  EXPECT_EQ(port.replayState(), ReplayState::finished);
  EXPECT_EQ(receive(port, kNow), 0U);
  EXPECT_EQ(port.nextReceive(), PortDevice::kNever);
  EXPECT_EQ(port.counts().packetsIn, 70U);
  EXPECT_EQ(port.counts().bytesIn, 70U * 15);
  EXPECT_EQ(port.error(), "");
}

TEST_F(Replay, AClockThatIsSetBackByHoursHoldsUpNoRecordedReplay) {
  ReplayPort port = open({{10, 0}, {11, 0}, {12, 0}}, Pace::recorded);
  EXPECT_EQ(receive(port, kNow), 1U);
  const double back = kNow - 7200;
  EXPECT_EQ(receive(port, back), 0U);
  EXPECT_LE(port.nextReceive(), back + ReplayPort::kLongestSilence);
  EXPECT_EQ(receive(port, back + ReplayPort::kLongestSilence), 1U);
  EXPECT_EQ(receive(port, back + ReplayPort::kLongestSilence + 1), 1U);
  EXPECT_EQ(port.counts().packetsIn, 3U);
}

TEST_F(Replay, AClockThatIsSetForwardByHoursLosesNoPacket) {
  ReplayPort port = open({{10, 0}, {11, 0}, {12, 0}}, Pace::recorded);
  EXPECT_EQ(receive(port, kNow), 1U);
  EXPECT_EQ(receive(port, kNow + 7200), 2U);
}

TEST_F(Replay, HeldItGivesNothingAndItsPaceCountsFromItsFirstPacket) {
  ReplayPort port = open({{1, 0}, {3, 0}}, Pace::recorded);
  port.replayHeldIs(true);
  EXPECT_EQ(receive(port, kNow), 0U);
  EXPECT_EQ(port.nextReceive(), PortDevice::kNever);
  EXPECT_EQ(port.replayState(), ReplayState::running);
  port.replayHeldIs(false);
  EXPECT_EQ(receive(port, kNow + 100), 1U);
  EXPECT_EQ(port.nextReceive(), kNow + 102);
}

TEST_F(Replay, AllPacketsOfABurstAreValidTogether) {
  ReplayPort port = open({{1, 0}, {1, 0}, {1, 0}}, Pace::fast);
  ASSERT_EQ(receive(port, kNow), 3U);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(room_[i].pkt.offsetFront(14, 1)[0], i);
}

TEST_F(Replay, NoMorePacketsThanThereIsRoomFor) {
  ReplayPort port = open({{1, 0}, {1, 0}, {1, 0}}, Pace::fast);
  EXPECT_EQ(port.receive(std::span(room_).first(2), kNow), 2U);
  EXPECT_EQ(port.receive(std::span(room_).first(0), kNow), 0U);
  EXPECT_EQ(port.receive(std::span(room_).first(2), kNow), 1U);
  EXPECT_EQ(room_[0].pkt.offsetFront(14, 1)[0], 2);
}

TEST_F(Replay, RecordedKeepsTheDistances) {
  ReplayPort port = open({{100, 0}, {100, 500'000}, {102, 0}}, Pace::recorded);
  EXPECT_EQ(port.nextReceive(), 0.0);
  EXPECT_EQ(receive(port, kNow), 1U);
  EXPECT_DOUBLE_EQ(port.nextReceive(), kNow + 0.5);
  EXPECT_EQ(receive(port, kNow + 0.4), 0U);
  EXPECT_EQ(receive(port, kNow + 0.6), 1U);
  EXPECT_EQ(room_[0].timeNs, 100'500'000'000);
  EXPECT_DOUBLE_EQ(port.nextReceive(), kNow + 2.0);
  EXPECT_EQ(port.replayState(), ReplayState::running);
  EXPECT_EQ(receive(port, kNow + 2.0), 1U);
  EXPECT_EQ(port.replayState(), ReplayState::finished);
  EXPECT_EQ(port.nextReceive(), PortDevice::kNever);
}

TEST_F(Replay, RecordedDeliversWhatBecameDueTogether) {
  ReplayPort port = open({{100, 0}, {101, 0}, {102, 0}, {200, 0}}, Pace::recorded);
  EXPECT_EQ(receive(port, kNow), 1U);
  EXPECT_EQ(receive(port, kNow + 2.5), 2U);
}

TEST_F(Replay, RecordedTimeThatRunsBackwardsIsDueAtOnce) {
  ReplayPort port = open({{100, 0}, {90, 0}, {91, 0}}, Pace::recorded);
  EXPECT_EQ(receive(port, kNow), 2U);
  EXPECT_DOUBLE_EQ(port.nextReceive(), kNow + 1.0);
}

TEST_F(Replay, RecordedSilencesOfYearsAreShortened) {
  ReplayPort port = open({{100, 0}, {2'000'000'000, 0}}, Pace::recorded);
  EXPECT_EQ(receive(port, kNow), 1U);
  EXPECT_DOUBLE_EQ(port.nextReceive(), kNow + ReplayPort::kLongestSilence);
}

TEST_F(Replay, DamagedCaptureIsReplayedUpToTheDamage) {
  PcapText().packet(numbered(0)).record(1, 0, 0x80000000, 0x80000000, {1}).writeTo(path_);
  ReplayPort port(path_, Pace::fast);
  EXPECT_EQ(receive(port, kNow), 1U);
  EXPECT_EQ(port.replayState(), ReplayState::damaged);
  EXPECT_NE(port.error().find("damaged after packet 1"), std::string::npos) << port.error();
  EXPECT_EQ(port.nextReceive(), PortDevice::kNever);
  EXPECT_EQ(receive(port, kNow), 0U);
}

TEST_F(Replay, ABurstOfTheLargestPacketsIsHeldWhole) {
  PcapText text;
  const Packet large =
      PacketBuilder().payload(Capture::PacketBuffer::kMostPacket - 14, 7).wireLength(300'014).build();
  for (std::size_t i = 0; i < PortDevice::kMostBurst; ++i) text.packet(large);
  text.writeTo(path_);
  ReplayPort port(path_, Pace::fast);
  ASSERT_EQ(receive(port, kNow), PortDevice::kMostBurst) << port.error();
  for (const ReceivedPacket& packet : room_) {
    EXPECT_EQ(packet.pkt.capturedLength(), Capture::PacketBuffer::kMostPacket);
    EXPECT_EQ(packet.pkt.wireLength(), 300'014U);
    EXPECT_EQ(*packet.pkt.offsetFront(packet.pkt.capturedLength() - 1, 1), 7);
  }
}

TEST_F(Replay, WhatIsSentToItIsDropped) {
  ReplayPort port = open({{1, 0}}, Pace::fast);
  port.transmit(numbered(0).pkt(), kNow);
  EXPECT_EQ(port.counts().dropsOut, 1U);
  EXPECT_EQ(port.counts().packetsOut, 0U);
  EXPECT_EQ(port.kind(), Capture::PortKind::capture);
  EXPECT_TRUE(port.up());
}

TEST_F(Replay, AnAbsentCaptureIsRefused) {
  EXPECT_THROW(ReplayPort(folder_.path() + "/absent.pcap", Pace::fast), Capture::CaptureError);
}

TEST(PortDevice, NamesItsKindsAndStates) {
  EXPECT_EQ(Capture::stringValue(Capture::PortKind::capture), "capture");
  EXPECT_EQ(Capture::stringValue(Capture::PortKind::device), "device");
  EXPECT_EQ(Capture::stringValue(Capture::PortKind::write), "write");
  EXPECT_EQ(Capture::stringValue(ReplayState::none), "");
  EXPECT_EQ(Capture::stringValue(ReplayState::running), "running");
  EXPECT_EQ(Capture::stringValue(ReplayState::finished), "finished");
  EXPECT_EQ(Capture::stringValue(ReplayState::damaged), "damaged");
}

}  // namespace
