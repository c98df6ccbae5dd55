#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "KivValue.h"
#include "UdpReceiver.h"
#include "sflow/Collector.h"

namespace Sflow {
namespace {

using TestSupport::UdpReceiver;
using Sent = DatagramChannel::Sent;

const std::vector<std::uint8_t> kDatagram = {1, 2, 3, 4};

class UdpChannelOf : public testing::TestWithParam<int> {};

TEST_P(UdpChannelOf, Delivers) {
  UdpReceiver receiver(GetParam());
  if (!receiver.bound()) GTEST_SKIP() << "no loopback address of this family";
  const auto channel = udpChannel(receiver.name());
  EXPECT_EQ(channel->name(), receiver.name());
  EXPECT_EQ(channel->send(kDatagram), Sent::yes);
  EXPECT_EQ(receiver.take(), std::vector<std::vector<std::uint8_t>>{kDatagram});
}

TEST_P(UdpChannelOf, SaysWhenTheCollectorRefusesAndGoesOn) {
  auto receiver = std::make_unique<UdpReceiver>(GetParam());
  if (!receiver->bound()) GTEST_SKIP() << "no loopback address of this family";
  const auto channel = udpChannel(receiver->name());
  receiver.reset();
  EXPECT_EQ(channel->send(kDatagram), Sent::yes);  // nobody knows yet
  EXPECT_EQ(channel->send(kDatagram), Sent::yesNotFormer);
  EXPECT_EQ(channel->send(kDatagram), Sent::yesNotFormer);
}

INSTANTIATE_TEST_SUITE_P(Families, UdpChannelOf, testing::Values(AF_INET, AF_INET6));

TEST(UdpChannel, NeverWaitsForACollectorThatDoesNotRead) {
  UdpReceiver receiver;
  const auto channel = udpChannel(receiver.name());
  const std::vector<std::uint8_t> datagram(1400);
  for (int i = 0; i < 5000; ++i) {
    const Sent sent = channel->send(datagram);
    EXPECT_TRUE(sent == Sent::yes || sent == Sent::no);
  }
  EXPECT_LT(receiver.take().size(), 5000U);  // the receiver's buffer was full, and the sender did not mind
}

TEST(UdpChannel, SaysWhenADatagramCannotGetOut) {
  const auto channel = udpChannel("127.0.0.1:6343");
  EXPECT_EQ(channel->send(std::vector<std::uint8_t>(70'000)), Sent::no);
}

struct BadCollector {
  const char* text;
  const char* error;
};
class UdpChannelRefuses : public testing::TestWithParam<BadCollector> {};

TEST_P(UdpChannelRefuses, WithOneClearError) {
  try {
    udpChannel(GetParam().text);
    FAIL();
  } catch (const Kiv::ValueError& error) {
    EXPECT_EQ(std::string(error.what()),
              "sFlow collector \"" + std::string(GetParam().text) + "\": " + GetParam().error);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Collectors, UdpChannelRefuses,
    testing::Values(
        BadCollector{"", "expected HOST:PORT"}, BadCollector{"127.0.0.1", "expected HOST:PORT"},
        BadCollector{":6343", "expected HOST:PORT, got no host"},
        BadCollector{"127.0.0.1:", "expected a port from 1 to 65535, got \"\""},
        BadCollector{"127.0.0.1:0", "expected a port from 1 to 65535, got \"0\""},
        BadCollector{"127.0.0.1:65536", "expected a port from 1 to 65535, got \"65536\""},
        BadCollector{"127.0.0.1:63x", "expected a port from 1 to 65535, got \"63x\""},
        BadCollector{"::1:6343", "expected HOST:PORT, an IPv6 address in brackets: [ADDRESS]:PORT"},
        BadCollector{"[::1]", "expected HOST:PORT"},
        BadCollector{"[127.0.0.1]:6343", "expected an IPv6 address in the brackets, got \"127.0.0.1\""},
        BadCollector{"[]:6343", "expected HOST:PORT, got no host"}));

TEST(UdpChannel, RefusesANameThatNobodyKnows) {
  try {
    udpChannel("no.such.host.invalid:6343");
    FAIL();
  } catch (const Kiv::ValueError& error) {
    EXPECT_THAT(std::string(error.what()),
                testing::StartsWith("sFlow collector \"no.such.host.invalid:6343\": expected an address or a "
                                    "known name, got \"no.such.host.invalid\": "));
  }
}

}  // namespace
}  // namespace Sflow
