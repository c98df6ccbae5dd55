#include "PexaSftHoCounter.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Keys.h"
#include "ManualClock.h"

namespace {

using LocalCountersTest::flow;
using Pavo::IntfId;
using Pexa::Counter::PexaSftHoCounter;
using Pexa::Counter::PexaSftHoIp6Counter;
using Pexa::Counter::SftHoCounter;

template <class Domain>
class HoCounterTest : public testing::Test {};
TYPED_TEST_SUITE(HoCounterTest, LocalCountersTest::Families);

TYPED_TEST(HoCounterTest, StartsWithNothingCounted) {
  const SftHoCounter<TypeParam> counter(flow<TypeParam>(1));
  EXPECT_EQ(counter.flowKey(), flow<TypeParam>(1));
  EXPECT_EQ(counter.packets(), 0U);
  EXPECT_EQ(counter.bytes(), 0U);
  EXPECT_EQ(counter.intfId(), IntfId());
  EXPECT_EQ(counter.updateTime(), 0);
}

TYPED_TEST(HoCounterTest, CountsAPacketWithItsInterfaceAndTime) {
  TestSupport::ManualClock clock(100.5);
  SftHoCounter<TypeParam> counter(flow<TypeParam>(1));
  counter.hoCount(IntfId("Ethernet1"), 60);
  clock.advance(2);
  counter.hoCount(IntfId("Ethernet2"), 65575);
  EXPECT_EQ(counter.packets(), 2U);
  EXPECT_EQ(counter.bytes(), 65635U);
  EXPECT_EQ(counter.intfId(), IntfId("Ethernet2"));
  EXPECT_EQ(counter.updateTime(), 102.5);
}

TYPED_TEST(HoCounterTest, BytesGoBeyond32Bits) {
  SftHoCounter<TypeParam> counter(flow<TypeParam>(1));
  counter.hoCount(IntfId("Ethernet1"), 0xffffffffU);
  counter.hoCount(IntfId("Ethernet1"), 0xffffffffU);
  EXPECT_EQ(counter.bytes(), 0x1fffffffeU);
}

TEST(HoCounterName, OfIpv4IsForPeople) {
  EXPECT_EQ(PexaSftHoCounter(flow<Pavo::Traits::IPv4>(1234)).name(),
            "vrf:16777215/vlan:10/10.0.0.1:1234->10.0.0.2:80/tcp");
}

TEST(HoCounterName, OfAProtocolWithoutANameHasItsNumber) {
  auto key = flow<Pavo::Traits::IPv4>(1234);
  key.ipProto = 17;
  EXPECT_TRUE(PexaSftHoCounter(key).name().ends_with(":80/udp"));
  key.ipProto = 253;
  EXPECT_TRUE(PexaSftHoCounter(key).name().ends_with(":80/253")) << PexaSftHoCounter(key).name();
}

TEST(HoCounterName, OfIpv6IsTheKeysOwnText) {
  const auto key = flow<Pavo::Traits::IPv6>(1234);
  EXPECT_EQ(PexaSftHoIp6Counter(key).name(), key.str());
  EXPECT_EQ(PexaSftHoIp6Counter(key).name(), "16777215/10/2001:db8::1/2001:db8::2/6/1234/80");
}

TEST(HoCounterText, ShowsTheMembersInOrder) {
  TestSupport::ManualClock clock(100.5);
  PexaSftHoCounter counter(flow<Pavo::Traits::IPv4>(1234));
  counter.hoCount(IntfId("Ethernet1"), 60);
  std::ostringstream out;
  out << counter;
  EXPECT_EQ(out.str(), "PexaSftHoCounter( " + counter.name() + ", Ethernet1, 1, 60, 100.500000 )");
}

TEST(HoCounterType, HasTheFrameworksName) {
  EXPECT_EQ(PexaSftHoCounter::kivType().name(), "Pexa::Counter::PexaSftHoCounter");
  EXPECT_EQ(PexaSftHoIp6Counter::kivType().name(), "Pexa::Counter::PexaSftHoIp6Counter");
  EXPECT_EQ(&PexaSftHoCounter(flow<Pavo::Traits::IPv4>(1)).fwkType(), &PexaSftHoCounter::kivType());
  EXPECT_EQ(&PexaSftHoIp6Counter(flow<Pavo::Traits::IPv6>(1)).fwkType(), &PexaSftHoIp6Counter::kivType());
}

}  // namespace
