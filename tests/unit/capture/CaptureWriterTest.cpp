#include "capture/CaptureWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "CaptureFile.h"
#include "TempDir.h"
#include "capture/CaptureError.h"
#include "capture/CaptureReader.h"
#include "capture/WritePort.h"

namespace {

using Capture::CaptureReader;
using Capture::CaptureWriter;
using Capture::ReceivedPacket;
using testing::HasSubstr;
using TestSupport::Packet;
using TestSupport::PacketBuilder;

class CaptureWriting : public testing::Test {
 protected:
  TestSupport::TempDir folder_;
  std::string path_ = folder_.path() + "/out.pcap";
};

TEST_F(CaptureWriting, WhatWasWrittenIsReadBack) {
  const Packet whole = PacketBuilder().vlan(5).ipv4("10.0.0.1", "10.0.0.2").tcp(1, 2).payload(100).build();
  const Packet cut = PacketBuilder().payload(2000).cutTo(96).build();
  {
    CaptureWriter writer(path_);
    EXPECT_TRUE(writer.write(whole.pkt(), 1'700'000'000.25));
    EXPECT_TRUE(writer.write(cut.pkt(), 1'700'000'001.0));
  }
  CaptureReader reader(path_);
  ReceivedPacket packet;
  ASSERT_EQ(reader.next(packet), CaptureReader::Result::packet);
  EXPECT_EQ(packet.timeNs, 1'700'000'000'250'000'000);
  EXPECT_EQ(std::vector<std::uint8_t>(packet.pkt.front(), packet.pkt.front() + packet.pkt.capturedLength()),
            whole.bytes);
  ASSERT_EQ(reader.next(packet), CaptureReader::Result::packet);
  EXPECT_EQ(packet.pkt.capturedLength(), 96U);
  EXPECT_EQ(packet.pkt.wireLength(), 2014U);
  EXPECT_EQ(reader.next(packet), CaptureReader::Result::end);
}

TEST_F(CaptureWriting, AnEmptyCaptureCanBeReadAtOnce) {
  const CaptureWriter writer(path_);
  CaptureReader reader(path_);
  ReceivedPacket packet;
  EXPECT_EQ(reader.next(packet), CaptureReader::Result::end);
}

TEST_F(CaptureWriting, FlushedPacketsAreInTheFile) {
  const Packet packet = PacketBuilder().payload(40).build();
  CaptureWriter writer(path_);
  writer.write(packet.pkt(), 1.0);
  EXPECT_EQ(std::filesystem::file_size(path_), 24U);
  EXPECT_TRUE(writer.flush());
  EXPECT_EQ(std::filesystem::file_size(path_), 24U + 16 + 54);
}

TEST_F(CaptureWriting, AFileThatCannotBeCreatedIsRefused) {
  const std::string path = folder_.path() + "/absent/out.pcap";
  try {
    const CaptureWriter writer(path);
    FAIL();
  } catch (const Capture::CaptureError& error) {
    EXPECT_THAT(error.what(), HasSubstr(path));
    EXPECT_THAT(error.what(), HasSubstr("No such file"));
  }
  EXPECT_THROW(CaptureWriter(folder_.path()), Capture::CaptureError);
}

TEST_F(CaptureWriting, AFullDiskIsReportedAndNothingMoreIsWritten) {
  EXPECT_THROW(CaptureWriter("/dev/full"), Capture::CaptureError);
}

TEST_F(CaptureWriting, APortWritesAndCountsWhatItTransmits) {
  const Packet packet = PacketBuilder().payload(1000).cutTo(64).build();
  Capture::WritePort port(path_);
  port.transmit(packet.pkt(), 5.0);
  port.transmit(packet.pkt(), 6.0);
  port.flush();
  EXPECT_EQ(port.kind(), Capture::PortKind::write);
  EXPECT_EQ(port.counts().packetsOut, 2U);
  EXPECT_EQ(port.counts().bytesOut, 2U * 1014);
  EXPECT_EQ(port.counts().dropsOut, 0U);
  EXPECT_EQ(port.error(), "");
  EXPECT_TRUE(port.up());
  std::vector<ReceivedPacket> room(4);
  EXPECT_EQ(port.receive(room, 7.0), 0U);
  EXPECT_EQ(port.nextReceive(), Capture::PortDevice::kNever);
  EXPECT_EQ(port.descriptor(), -1);
  EXPECT_EQ(port.replayState(), Capture::ReplayState::none);
  CaptureReader reader(path_);
  ReceivedPacket read;
  EXPECT_EQ(reader.next(read), CaptureReader::Result::packet);
  EXPECT_EQ(read.timeNs, 5'000'000'000);
}

TEST_F(CaptureWriting, APortThatCannotWriteCountsDropsAndSaysWhy) {
  // A pipe whose reader has gone takes no more bytes, as a full disk does.
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  const int reader = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_NE(reader, -1);
  ::signal(SIGPIPE, SIG_IGN);
  Capture::WritePort port(path_);
  ::close(reader);
  const Packet packet = PacketBuilder().payload(100).build();
  port.transmit(packet.pkt(), 1.0);
  port.flush();
  EXPECT_THAT(port.error(), HasSubstr(path_));
  EXPECT_FALSE(port.up());
  port.transmit(packet.pkt(), 2.0);
  EXPECT_EQ(port.counts().dropsOut, 1U);
}

}  // namespace
