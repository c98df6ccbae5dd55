#include "IpfixEncoder.h"

#include <gtest/gtest.h>

#include <limits>

#include "IpfixReader.h"
#include "ManualClock.h"
#include "PacketBuilder.h"

namespace {

using Bridging::AllowedTrafficDirection;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;
using Tracker::EndReason;

// Numbers of the standard's elements.
enum Element : std::uint16_t {
  octetDeltaCount = 1,
  packetDeltaCount = 2,
  protocolIdentifier = 4,
  sourceTransportPort = 7,
  ingressInterface = 10,
  destinationTransportPort = 11,
  egressInterface = 14,
  samplingInterval = 34,
  vlanId = 58,
  flowDirection = 61,
  flowEndReason = 136,
  flowStartMilliseconds = 152,
  flowEndMilliseconds = 153,
  samplingSize = 309,
  samplingPopulation = 310,
};

template <class Domain>
struct Expected;
template <>
struct Expected<IPv4> {
  static constexpr std::uint16_t kSource = 8;
  static constexpr std::uint16_t kDestination = 12;
  static Pavo::IpAddr address(const char last) { return {{10, 0, 0, static_cast<std::uint8_t>(last)}}; }
};
template <>
struct Expected<IPv6> {
  static constexpr std::uint16_t kSource = 27;
  static constexpr std::uint16_t kDestination = 28;
  static Pavo::Ip6Addr address(const char last) {
    Pavo::Ip6Addr address = TestSupport::address6("2001:db8::");
    address.bytes[15] = static_cast<std::uint8_t>(last);
    return address;
  }
};

template <class Domain>
class IpfixEncoderTest : public testing::Test {
 protected:
  static Tracker::FlowRecord<Domain> record() {
    Tracker::FlowRecord<Domain> record;
    auto& flow = record.key.ipFlowKey;
    flow.vlan = 33;
    flow.srcAddr = Expected<Domain>::address(1);
    flow.dstAddr = Expected<Domain>::address(2);
    flow.ipProto = 17;
    flow.srcPort = 1234;
    flow.dstPort = 53;
    record.key.direction = AllowedTrafficDirection::egress;
    record.input = 4;
    record.output = 0x01020304;
    record.counts.add(0x1122334455667788, 0x2233445566778899, 1795290930.25, 1795290931.5);
    record.reason = EndReason::idleTimeout;
    return record;
  }
  const TestSupport::IpfixReader::Record& only() {
    encoder_.flush();
    EXPECT_EQ(reader_.records.size(), 1U);
    return reader_.records.at(0);
  }
  template <class Address>
  static TestSupport::IpfixReader::Bytes bytesOf(const Address& address) {
    return {address.bytes.begin(), address.bytes.end()};
  }

  TestSupport::ManualClock clock_{1795290940.75};
  TestSupport::IpfixReader reader_;
  std::size_t largest_ = 0;
  Tracker::IpfixEncoder encoder_{77, [this](std::span<const std::uint8_t> message) {
                                   largest_ = std::max(largest_, message.size());
                                   reader_.message(message);
                                 }};
};

using Families = testing::Types<IPv4, IPv6>;
TYPED_TEST_SUITE(IpfixEncoderTest, Families);

TYPED_TEST(IpfixEncoderTest, ARecordHasItsMembersInStandardElements) {
  this->encoder_.addTemplates();
  this->encoder_.add(this->record());
  const auto& record = this->only();
  EXPECT_EQ(record.fields.at(Expected<TypeParam>::kSource), this->bytesOf(Expected<TypeParam>::address(1)));
  EXPECT_EQ(record.fields.at(Expected<TypeParam>::kDestination),
            this->bytesOf(Expected<TypeParam>::address(2)));
  EXPECT_EQ(record.number(packetDeltaCount), 0x1122334455667788U);
  EXPECT_EQ(record.number(octetDeltaCount), 0x2233445566778899U);
  EXPECT_EQ(record.number(protocolIdentifier), 17U);
  EXPECT_EQ(record.number(sourceTransportPort), 1234U);
  EXPECT_EQ(record.number(destinationTransportPort), 53U);
  EXPECT_EQ(record.number(ingressInterface), 4U);
  EXPECT_EQ(record.number(egressInterface), 0x01020304U);
  EXPECT_EQ(record.number(vlanId), 33U);
  EXPECT_EQ(record.number(flowDirection), 1U);
  EXPECT_EQ(record.number(flowEndReason), 1U);
  EXPECT_EQ(record.number(flowStartMilliseconds), 1795290930250U);
  EXPECT_EQ(record.number(flowEndMilliseconds), 1795290931500U);
  EXPECT_EQ(this->reader_.domain, 77U);
  EXPECT_EQ(this->reader_.exportTime, 1795290940U);
}

TYPED_TEST(IpfixEncoderTest, OnlyScaledCountsAreMarkedAsSuch) {
  auto scaled = this->record();
  scaled.counts = {};
  scaled.counts.addSample(100, 1000, 1);
  scaled.counts.addSample(100, 1000, 2);
  this->encoder_.addTemplates();
  this->encoder_.add(this->record());
  this->encoder_.add(scaled);
  this->encoder_.add(this->record());
  this->encoder_.flush();
  ASSERT_EQ(this->reader_.records.size(), 3U);
  for (const std::size_t exact : {0U, 2U}) {
    EXPECT_FALSE(this->reader_.records[exact].has(samplingSize));
    EXPECT_FALSE(this->reader_.records[exact].has(samplingPopulation));
  }
  const auto& marked = this->reader_.records[1];
  EXPECT_EQ(marked.number(packetDeltaCount), 2000U);
  EXPECT_EQ(marked.number(octetDeltaCount), 200000U);
  EXPECT_EQ(marked.number(samplingSize), 2U);
  EXPECT_EQ(marked.number(samplingPopulation), 2000U);
  EXPECT_FALSE(marked.has(samplingInterval));  // or collectors would scale again
}

TYPED_TEST(IpfixEncoderTest, ATimeThatNoClockTellsIsTheFirstOrTheLast) {
  auto odd = this->record();
  odd.counts.start = std::numeric_limits<double>::quiet_NaN();
  odd.counts.end = 1e300;
  this->encoder_.addTemplates();
  this->encoder_.add(odd);
  EXPECT_EQ(this->only().number(flowStartMilliseconds), 0U);
  EXPECT_EQ(this->only().number(flowEndMilliseconds), std::numeric_limits<std::uint64_t>::max());
}

TYPED_TEST(IpfixEncoderTest, IngressIsDirectionZero) {
  auto ingress = this->record();
  ingress.key.direction = AllowedTrafficDirection::ingress;
  this->encoder_.addTemplates();
  this->encoder_.add(ingress);
  EXPECT_EQ(this->only().number(flowDirection), 0U);
}

TYPED_TEST(IpfixEncoderTest, ManyRecordsTakeManyMessagesThatFitIntoAPacket) {
  this->encoder_.addTemplates();
  for (unsigned i = 0; i < 1000; ++i) this->encoder_.add(this->record());
  this->encoder_.flush();
  EXPECT_EQ(this->reader_.records.size(), 1000U);
  EXPECT_GT(this->reader_.messages, 40U);
  EXPECT_LE(this->largest_, Tracker::IpfixEncoder::kMostBytes);
  EXPECT_GT(this->largest_, Tracker::IpfixEncoder::kMostBytes - 200U);
}

TYPED_TEST(IpfixEncoderTest, TemplatesGoOutAsOftenAsAskedFor) {
  for (unsigned round = 1; round <= 3; ++round) {
    this->encoder_.addTemplates();
    EXPECT_EQ(this->reader_.templates, 4 * round);
    this->encoder_.add(this->record());
    this->encoder_.flush();
    EXPECT_EQ(this->reader_.records.size(), round);
  }
}

TYPED_TEST(IpfixEncoderTest, TemplatesDoNotOvertakeRecords) {
  this->encoder_.addTemplates();
  this->encoder_.add(this->record());
  this->encoder_.addTemplates();
  this->encoder_.add(this->record());
  this->encoder_.flush();
  EXPECT_EQ(this->reader_.records.size(), 2U);
}

TYPED_TEST(IpfixEncoderTest, WithNothingToSendThereIsNoMessage) {
  this->encoder_.flush();
  this->encoder_.flush();
  EXPECT_EQ(this->reader_.messages, 0U);
}

}  // namespace
