// Histories that random ones seldom come to.
#include <gtest/gtest.h>

#include "NaiveSideBySide.h"

using namespace Naive;

namespace {

using Kind = Operation::Kind;

template <class Domain>
class TwinCases : public testing::Test {
 protected:
  // Both sides do it, and agree.
  void happen(Kind kind, unsigned key = 0, unsigned value = 0) {
    constexpr unsigned kFamily = FlowTracking::IpFamily<Domain>::kIndex;
    sides.apply({kind, static_cast<std::uint8_t>(key << 1 | kFamily), static_cast<std::uint8_t>(value)});
    EXPECT_EQ(sides.difference(), "");
  }
  // A flow in hardware, with one reference, and counted.
  void leaveInHardware(unsigned key) {
    constexpr unsigned kInHardware = 4;
    constexpr unsigned kOneReference = 12;
    happen(Kind::leftBehind, key, 0 + kInHardware);
    happen(Kind::leftBehind, key, 1 + kOneReference);
    happen(Kind::configIs, key);
    happen(Kind::countPacket, key);
  }

  SideBySide sides;
};

constexpr unsigned kTasksSameCounters = 4;
constexpr unsigned kFirstKeyOfAFlow = 4;

using Families = testing::Types<V4, V6>;
TYPED_TEST_SUITE(TwinCases, Families);

}  // namespace

// A local counter that goes with its flow while its output is reconciled, and is counted again, is not a
// stale one.
TYPED_TEST(TwinCases, ALocalCounterCountedAgainWhileReconcilingStays) {
  for (unsigned flow = 0; flow < kFlows; ++flow) {
    SCOPED_TRACE(flow);
    for (unsigned each = 0; each < kFlows; ++each) this->leaveInHardware(each * kFirstKeyOfAFlow);
    this->happen(Kind::budgetIs, 0, 5);
    this->happen(Kind::construct, 0, kTasksSameCounters);
    for (unsigned i = 0; i < 6 && !this->sides.subject().machine()->initialScanDone(); ++i)
      this->happen(Kind::work);
    ASSERT_TRUE(this->sides.subject().machine()->initialScanDone());
    this->happen(Kind::configDel, flow * kFirstKeyOfAFlow);
    this->happen(Kind::countPacket, flow * kFirstKeyOfAFlow);
    this->happen(Kind::settle);
    const auto& counters = this->sides.subject().counters().template counters<TypeParam>();
    EXPECT_TRUE(counters.has(flowOf<TypeParam>(flow)));
    EXPECT_EQ(counters.size(), 1);
    this->happen(Kind::teardown);
  }
}
