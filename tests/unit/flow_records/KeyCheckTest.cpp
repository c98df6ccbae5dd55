#include "KeyCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "Records.h"

namespace {

template <class Domain>
class KeyCheckTest : public testing::Test {};
using Families = testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(KeyCheckTest, Families);

TYPED_TEST(KeyCheckTest, ARecordUnderItsOwnKeyPasses) {
  FlowTracking::HoFlowStatusRecord<TypeParam> record;
  record.key.intfId = Pavo::IntfId("Ethernet1");
  const auto key = record.key;
  FlowTracking::assertKeyMatches("hoFlowStatus.hoIpFlowStatus[ key ]", record, key);
  EXPECT_TRUE(record.key == key);
}

TYPED_TEST(KeyCheckTest, ARecordUnderAnotherKeyStopsTheProcessAndSaysWhich) {
  FlowTracking::HoFlowCounterRecord<TypeParam> record;
  record.key.srcPort = 1;
  auto key = record.key;
  key.srcPort = 2;
  const std::string text =
      "In \"into( hoFlowCounter.hoIpFlowCounter[ key.ipFlowKey ] )\" the value inserted in the into "
      "statement has internal key: " +
      record.key.str() + ", but the key specified in the into is: " + key.str();
  EXPECT_EXIT(FlowTracking::assertKeyMatches("hoFlowCounter.hoIpFlowCounter[ key.ipFlowKey ]", record, key),
              testing::KilledBySignal(SIGABRT), testing::HasSubstr(text));
}

}  // namespace
