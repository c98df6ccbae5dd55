#include "capture/LivePort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "PacketBuilder.h"
#include "capture/CaptureError.h"

namespace {

using Capture::CaptureError;
using Capture::LivePort;
using Capture::PortDevice;
using Capture::ReceivedPacket;
using testing::HasSubstr;
using TestSupport::Packet;
using TestSupport::PacketBuilder;

using Frames = std::vector<std::vector<std::uint8_t>>;

bool run(const std::string& command) {
  return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
}

// A cable between the interfaces "left" and "right", in a network namespace of this process's own. Nothing
// but the tests' packets crosses it: the kernel's own (neighbour discovery) are switched off with IPv6.
class Cable : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    available_ = ::unshare(CLONE_NEWNET) == 0 && run("ip link add probe type veth peer name eborp") &&
                 run("ip link del probe");
  }
  void SetUp() override {
    if (!available_) GTEST_SKIP() << "needs the right to make network namespaces and interfaces";
    connect();
  }
  void TearDown() override { run("ip link del left"); }

  static void connect() {
    ASSERT_TRUE(run("ip link add left type veth peer name right"));
    for (const std::string side : {"left", "right"}) {
      const std::string setting = "/proc/sys/net/ipv6/conf/" + side + "/disable_ipv6";
      ASSERT_TRUE(!std::filesystem::exists(setting) || run("echo 1 > " + setting));
      ASSERT_TRUE(run("ip link set " + side + " up arp off multicast off"));
    }
  }
  // Waits for packets as the agent does.
  Frames receive(LivePort& port, std::size_t wanted, int mostMs = 2000) {
    Frames packets;
    while (packets.size() < wanted) {
      pollfd waiting{port.descriptor(), POLLIN, 0};
      if (port.nextReceive() > now_ && ::poll(&waiting, 1, mostMs) <= 0) break;
      const std::size_t count = port.receive(room_, now_);
      for (std::size_t i = 0; i < count; ++i) {
        const Pavo::Pkt& pkt = room_[i].pkt;
        packets.emplace_back(pkt.front(), pkt.front() + pkt.capturedLength());
      }
    }
    return packets;
  }

  // Whether a packet gets across. A link that just came up loses what is sent until the kernel has told
  // everybody.
  bool carries(LivePort& from, LivePort& to, const Packet& packet) {
    for (int tries = 0; tries < 100; ++tries) {
      transmit(from, packet);
      if (!receive(to, 1, 100).empty()) return true;
    }
    return false;
  }

  void transmit(LivePort& port, const Packet& packet) {
    port.transmit(packet.pkt(), now_);
    port.send();
  }

  static inline bool available_ = false;
  std::array<ReceivedPacket, PortDevice::kMostBurst> room_;
  double now_ = 1000.0;
};

Packet udp(PacketBuilder builder = {}) {
  return builder.ipv4("10.0.0.1", "10.0.0.2").udp(1, 2).payload(60).build();
}

TEST_F(Cable, CarriesPacketsBothWays) {
  LivePort left("left");
  LivePort right("right");
  EXPECT_EQ(left.kind(), Capture::PortKind::device);
  EXPECT_TRUE(left.up());
  transmit(left, udp());
  EXPECT_EQ(receive(right, 1), (Frames{udp().bytes}));
  transmit(right, udp());
  EXPECT_EQ(receive(left, 1), (Frames{udp().bytes}));
  EXPECT_EQ(left.counts().packetsOut, 1U);
  EXPECT_EQ(left.counts().packetsIn, 1U);
  EXPECT_EQ(left.counts().bytesIn, udp().bytes.size());
}

TEST_F(Cable, DeliversTheTagsThatWereOnTheWire) {
  LivePort left("left");
  LivePort right("right");
  const std::vector<Packet> packets = {
      udp(PacketBuilder().vlan(7, 0x8100, 3)), udp(PacketBuilder().vlan(8, 0x88a8)),
      udp(PacketBuilder().vlan(9, 0x88a8).vlan(10)), udp(PacketBuilder().vlan(0)), udp()};
  Frames sent;
  for (const Packet& packet : packets) {
    transmit(left, packet);
    sent.push_back(packet.bytes);
  }
  EXPECT_EQ(receive(right, sent.size()), sent);
}

TEST_F(Cable, DoesNotReceiveWhatItSends) {
  LivePort left("left");
  LivePort alsoLeft("left");
  LivePort right("right");
  transmit(left, udp());
  ASSERT_EQ(receive(right, 1).size(), 1U);
  EXPECT_EQ(receive(left, 1, 50).size(), 0U);
  EXPECT_EQ(receive(alsoLeft, 1, 50).size(), 0U);
}

TEST_F(Cable, ReceivesPacketsForOthers) {
  LivePort left("left");
  LivePort right("right");
  Packet packet = udp();
  packet.bytes[5] = 0x77;  // a destination that is not this interface's
  transmit(left, packet);
  EXPECT_EQ(receive(right, 1).size(), 1U);
}

TEST_F(Cable, ManyPacketsComeInFullBurstsAndNoneIsForgotten) {
  LivePort left("left");
  LivePort right("right");
  for (int i = 0; i < 100; ++i) transmit(left, udp());
  EXPECT_EQ(receive(right, 100).size(), 100U);
  EXPECT_EQ(right.receive(room_, now_), 0U);
  EXPECT_GT(right.nextReceive(), now_);
}

// A packet that can be told from others.
Packet numbered(std::size_t number, std::size_t payload = 60) {
  return PacketBuilder()
      .ipv4("10.0.0.1", "10.0.0.2")
      .udp(static_cast<std::uint16_t>(number), static_cast<std::uint16_t>(number >> 16))
      .payload(payload)
      .build();
}

TEST_F(Cable, FramesOfAllLengthsKeepTheirOrder) {
  for (const std::string side : {"left", "right"}) ASSERT_TRUE(run("ip link set " + side + " mtu 9000"));
  LivePort left("left");
  LivePort right("right");
  Frames sent;
  for (std::size_t i = 0; i < 200; ++i) {
    const std::size_t payload = i % 7 == 3 || i % 11 > 7 ? 1000 + 40 * i : i;
    const Packet packet = numbered(i, payload);
    transmit(left, packet);
    sent.push_back(packet.bytes);
  }
  EXPECT_EQ(receive(right, sent.size()), sent);
  EXPECT_EQ(right.offloads()->framesUnusable, 0U);
}

TEST_F(Cable, GoesOnInOrderForMoreFramesThanTheKernelHolds) {
  LivePort left("left");
  LivePort right("right");
  for (std::size_t i = 0; i < 45'000; i += 15) {
    Frames sent;
    for (std::size_t each = i; each < i + 15; ++each) {
      transmit(left, numbered(each));
      sent.push_back(numbered(each).bytes);
    }
    ASSERT_EQ(receive(right, sent.size()), sent) << i;
  }
}

TEST_F(Cable, WhatTheKernelCannotHoldIsCounted) {
  LivePort left("left");
  LivePort right("right");
  constexpr std::size_t kSent = 30'000;
  for (std::size_t i = 0; i < kSent; ++i) transmit(left, udp());
  std::size_t got = 0;
  while (const std::size_t count = right.receive(room_, now_)) got += count;
  right.refresh();
  EXPECT_GT(got, 10'000U);
  EXPECT_LT(got, kSent);
  EXPECT_EQ(right.counts().dropsIn, kSent - got);
  transmit(left, udp());
  EXPECT_EQ(receive(right, 1).size(), 1U);
}

TEST_F(Cable, WhatWasReceivedIsDeliveredAlthoughTheInterfaceWentAwayAndCameBack) {
  LivePort right("right");
  Frames sent;
  {
    LivePort left("left");
    for (std::size_t i = 0; i < 5; ++i) {
      transmit(left, numbered(i));
      sent.push_back(numbered(i).bytes);
    }
  }
  Frames got;
  const auto take = [&] {
    if (right.receive(std::span(room_).first(1), now_) == 0) return;
    got.emplace_back(room_[0].pkt.front(), room_[0].pkt.front() + room_[0].pkt.capturedLength());
  };
  take();
  ASSERT_TRUE(run("ip link del left"));
  connect();
  for (int i = 0; i < 5; ++i) {
    now_ += LivePort::kLookSeconds;
    take();
  }
  EXPECT_EQ(got, sent);
  right.receive(room_, now_ += LivePort::kLookSeconds);
  LivePort left("left");
  transmit(left, udp());
  EXPECT_EQ(receive(right, 1), (Frames{udp().bytes}));
}

TEST_F(Cable, WaitsForAnInterfaceThatIsDown) {
  ASSERT_TRUE(run("ip link set right down"));
  LivePort right("right");
  right.refresh();
  EXPECT_FALSE(right.up());
  EXPECT_THAT(right.error(), HasSubstr("interface right"));
  EXPECT_EQ(right.receive(room_, now_), 0U);
  transmit(right, udp());
  EXPECT_EQ(right.counts().dropsOut, 1U);

  ASSERT_TRUE(run("ip link set right up"));
  now_ += LivePort::kLookSeconds;
  right.receive(room_, now_);
  right.refresh();
  EXPECT_TRUE(right.up()) << right.error();
  LivePort left("left");
  transmit(left, udp());
  EXPECT_EQ(receive(right, 1).size(), 1U);
}

TEST_F(Cable, GoesOnWhenTheInterfaceWentDownAndUp) {
  LivePort left("left");
  LivePort right("right");
  ASSERT_TRUE(run("ip link set right down"));
  right.receive(room_, now_);
  right.refresh();
  EXPECT_FALSE(right.up());
  EXPECT_THAT(right.error(), HasSubstr("interface right"));
  ASSERT_TRUE(run("ip link set right up"));
  for (int i = 0; i < 3; ++i) right.receive(room_, now_ += LivePort::kLookSeconds);
  right.refresh();
  EXPECT_TRUE(right.up()) << right.error();
  EXPECT_TRUE(carries(left, right, udp()));
}

TEST_F(Cable, ComesBackWithAnInterfaceThatWentAway) {
  LivePort right("right");
  const std::uint64_t changes = right.descriptorChanges();
  ASSERT_TRUE(run("ip link del left"));
  for (int i = 0; i < 3; ++i) right.receive(room_, now_ += LivePort::kLookSeconds);
  EXPECT_FALSE(right.up());
  EXPECT_THAT(right.error(), HasSubstr("interface right"));
  EXPECT_EQ(right.descriptor(), -1);
  EXPECT_GT(right.descriptorChanges(), changes);
  EXPECT_LE(right.nextReceive(), now_ + LivePort::kLookSeconds);

  connect();
  right.receive(room_, now_ += LivePort::kLookSeconds);
  EXPECT_TRUE(right.up()) << right.error();
  LivePort left("left");
  EXPECT_TRUE(carries(left, right, udp()));
}

TEST_F(Cable, APacketTooLongForTheInterfaceIsADrop) {
  LivePort left("left");
  transmit(left, PacketBuilder().payload(70'000).build());
  EXPECT_EQ(left.counts().dropsOut, 1U);
  EXPECT_EQ(left.counts().packetsOut, 0U);
  EXPECT_TRUE(left.up());
}

TEST(LivePort, AnInterfaceThatDoesNotExistIsRefusedByName) {
  try {
    const LivePort port("no-such-port");
    FAIL();
  } catch (const CaptureError& error) {
    EXPECT_THAT(error.what(), HasSubstr("interface no-such-port: there is no such interface"));
  }
}

}  // namespace
