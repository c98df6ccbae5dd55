#include "Records.h"

#include <gtest/gtest.h>

namespace {

using namespace FlowTracking;

template <class Domain>
class NewRecords : public testing::Test {};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(NewRecords, Families);

TYPED_TEST(NewRecords, SayNothingButTheDefaultVrf) {
  const FlowKey<TypeParam> key;
  EXPECT_EQ(key.vrfId, kDefaultVrfId);
  EXPECT_EQ(key.vlan, 0U);
  EXPECT_EQ(key.reserved, 0U);
  EXPECT_EQ(key.ipProto, 0U);
  EXPECT_EQ(key.srcPort, 0U);
  EXPECT_EQ(key.dstPort, 0U);
  const HoFlowCounterRecord<TypeParam> counter;
  EXPECT_TRUE(counter.key == key);
  EXPECT_EQ(counter.reserved, 0U);
  EXPECT_EQ(counter.packets, 0U);
  EXPECT_EQ(counter.bytes, 0U);
  EXPECT_EQ(counter.creationTime, 0.0);
  EXPECT_EQ(counter.lastUpdateTime, 0.0);
  EXPECT_EQ(counter.hosEntries, 0U);
  EXPECT_EQ(counter.reserved2, 0U);
}

TEST(NewStateCounter, CountsNothing) {
  EXPECT_EQ(HosStateCounterEntry().count, 0U);
}

}  // namespace
