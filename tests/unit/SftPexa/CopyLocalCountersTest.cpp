// The poll that publishes what the packet path counted.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

template <class Domain>
class CopyLocalCountersTest : public StateMachineTest<Domain> {
 protected:
  using FlowKey = FlowTracking::FlowKey<Domain>;

  // Flows in hardware with one packet each, and the state machine at rest.
  void startWithFlows(std::uint32_t flows) {
    this->startAndRun();
    this->wantMany(1, flows);
    for (std::uint32_t n = 1; n <= flows; ++n) this->countPacket(this->flow(n));
  }
  std::vector<FlowKey> localOrder() const {
    std::vector<FlowKey> keys;
    const auto& map = this->localCounters->template counters<Domain>();
    for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry)) {
      keys.push_back(entry->key());
    }
    return keys;
  }
  std::uint64_t packets(const FlowKey& flow) const { return this->counterOf(flow)->packets; }
  std::uint64_t generation() const { return this->sm->inputSmScanState()->template generation<Domain>(); }
  std::uint64_t doneGen() const { return this->sm->inputSmScanState()->template doneGen<Domain>(); }
  bool copyIdle() const { return this->sm->inputSmScanState()->template copyIdle<Domain>(); }
};
TYPED_TEST_SUITE(CopyLocalCountersTest, Families);

// Which keys of the counter records were stored, in order.
template <class Domain>
class StoreWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit StoreWatcher(const FamilyWorld<Domain>& world) {
    notifierIs(world.hoFlowCounter);
    hasNotificationActiveIs(true);
  }
  void onAttributeKey(Kiv::AttributeId, Kiv::KeyRef key) override {
    stored.push_back(key.as<FlowTracking::FlowKey<Domain>>());
  }
  std::vector<FlowTracking::FlowKey<Domain>> stored;
};

TYPED_TEST(CopyLocalCountersTest, TotalsInterfaceAndTimeArePublishedAndTheRestStays) {
  this->startAndRun();
  this->want(this->key(1));
  const auto before = *this->counterOf(this->flow(1));
  this->clock.advance(0.25);
  this->countPacket(this->flow(1), 100, "Ethernet8");
  this->countPacket(this->flow(1), 60, "Ethernet9");
  this->clock.advance(0.75);
  this->runAll();
  auto expected = before;
  expected.intfId = Pavo::IntfId("Ethernet9");
  expected.packets = 2;
  expected.bytes = 160;
  expected.lastUpdateTime = before.creationTime + 0.25;
  EXPECT_EQ(this->counterOf(this->flow(1)), expected);
}

TYPED_TEST(CopyLocalCountersTest, APassFollowsTheOtherASecondAfterItsEnd) {
  this->startWithFlows(1);
  EXPECT_EQ(this->copyTask()->due(), this->clock.now() + 1.0);
  this->clock.advance(0.999);
  EXPECT_EQ(this->runAll(), 0U);
  EXPECT_EQ(this->packets(this->flow(1)), 0U);
  this->clock.advance(0.001);
  EXPECT_EQ(this->runAll(), 2U) << "one of each family";
  EXPECT_EQ(this->packets(this->flow(1)), 1U);
  EXPECT_EQ(this->copyTask()->due(), this->clock.now() + 1.0);
}

TYPED_TEST(CopyLocalCountersTest, ALocalCounterWithoutARecordIsLeftAlone) {
  this->startAndRun();
  this->countPacket(this->flow(1));
  this->second();
  EXPECT_THAT(this->keysOf(this->counters()), IsEmpty());
  ASSERT_TRUE(this->hasLocal(this->flow(1)));
  EXPECT_EQ(this->localCounters->template counters<TypeParam>().find(this->flow(1))->value->packets(), 1U);
}

TYPED_TEST(CopyLocalCountersTest, ARecordWithoutALocalCounterIsLeftAlone) {
  this->startAndRun();
  this->want(this->key(1));
  const auto before = this->counterOf(this->flow(1));
  this->second();
  EXPECT_EQ(this->counterOf(this->flow(1)), before);
}

TYPED_TEST(CopyLocalCountersTest, OnlyFlowsThatHadPacketsAreStoredAgain) {
  this->startWithFlows(3);
  this->second();
  const auto watcher = Kiv::makePtr<StoreWatcher<TypeParam>>(*this);
  this->countPacket(this->flow(2));
  this->second();
  EXPECT_THAT(watcher->stored, ElementsAre(this->flow(2)));
}

TYPED_TEST(CopyLocalCountersTest, APassGoesThroughTheCollectionInItsOrder) {
  this->startWithFlows(20);
  const auto watcher = Kiv::makePtr<StoreWatcher<TypeParam>>(*this);
  this->second();
  EXPECT_THAT(watcher->stored, ElementsAreArray(this->localOrder()));
}

TYPED_TEST(CopyLocalCountersTest, AnInterruptedPassGoesOnBehindTheLastKeyHandled) {
  this->startWithFlows(4);
  const auto order = this->localOrder();
  this->clock.advance(1.0);
  while (this->copyTask()->workCount() == 0) ASSERT_TRUE(this->runSlice());
  EXPECT_EQ(this->packets(order[0]), 1U);
  EXPECT_EQ(this->packets(order[1]), 0U);
  EXPECT_TRUE(this->copyTask()->scheduled());
  // What was handled counts on without being met again; what comes and goes in between does.
  this->countPacket(order[0]);
  this->localCounters->template counterDel<TypeParam>(order[0]);
  this->localCounters->template counterDel<TypeParam>(order[2]);
  ASSERT_TRUE(this->runSlice());
  EXPECT_EQ(this->packets(order[1]), 1U);
  this->runAllInSlices();
  EXPECT_EQ(this->packets(order[0]), 1U);
  EXPECT_EQ(this->packets(order[2]), 0U);
  EXPECT_EQ(this->packets(order[3]), 1U);
}

TYPED_TEST(CopyLocalCountersTest, APassIsUnderWayFromItsStartToItsEnd) {
  this->startWithFlows(3);
  const auto passes = this->generation();
  EXPECT_EQ(passes, 1U);
  EXPECT_TRUE(this->copyIdle());
  EXPECT_TRUE(this->sm->idle());
  this->clock.advance(1.0);
  while (this->copyTask()->workCount() == 0) ASSERT_TRUE(this->runSlice());
  EXPECT_FALSE(this->copyIdle());
  EXPECT_FALSE(this->sm->idle());
  EXPECT_TRUE(this->sm->ready());
  this->clock.advance(0.5);
  this->runSlice();
  EXPECT_FALSE(this->copyIdle());
  EXPECT_EQ(this->generation(), passes);
  this->runAllInSlices();
  EXPECT_TRUE(this->copyIdle());
  EXPECT_TRUE(this->sm->idle());
  EXPECT_EQ(this->generation(), passes + 1);
  EXPECT_EQ(this->copyTask()->due(), this->clock.now() + 1.0) << "from the end of the pass";
  EXPECT_EQ(this->copyTask()->workCount(), 3U);
}

TYPED_TEST(CopyLocalCountersTest, ManySlicesMakeOnePass) {
  this->startWithFlows(10);
  const auto runs = this->copyTask()->runs();
  this->clock.advance(1.0);
  TraceLines trace;
  this->runAllInSlices();
  EXPECT_THAT(trace.starting(TestFixture::Texts::kCopyFired), ::testing::SizeIs(1)) << "told at its start";
  EXPECT_EQ(this->copyTask()->runs() - runs, 10U);
  EXPECT_EQ(this->generation(), 2U);
  for (std::uint32_t n = 1; n <= 10; ++n) EXPECT_EQ(this->packets(this->flow(n)), 1U) << n;
  for (std::uint32_t n = 1; n <= 10; ++n) this->countPacket(this->flow(n));
  this->clock.advance(1.0);
  this->runAllInSlices();
  for (std::uint32_t n = 1; n <= 10; ++n) EXPECT_EQ(this->packets(this->flow(n)), 2U) << n;
}

TYPED_TEST(CopyLocalCountersTest, APassThatHasTimeIsOneRun) {
  if (this->yieldsAlways()) GTEST_SKIP() << "each run has one entry here";
  this->startWithFlows(10);
  const auto runs = this->copyTask()->runs();
  this->second();
  EXPECT_EQ(this->copyTask()->runs() - runs, 1U);
  EXPECT_EQ(this->generation(), 2U);
}

TYPED_TEST(CopyLocalCountersTest, TheFirstPassComesWithTheEndOfTheInitialScan) {
  this->start(TestFixture::kTasks);
  EXPECT_EQ(this->generation(), 0U);
  EXPECT_EQ(this->doneGen(), 0U);
  this->runAll();
  EXPECT_EQ(this->generation(), 1U);
  EXPECT_EQ(this->doneGen(), 1U);
}

TYPED_TEST(CopyLocalCountersTest, InlineThePassesNeverYield) {
  this->want(this->key(1));
  this->want(this->key(2));
  this->start();
  EXPECT_EQ(this->generation(), 1U) << "the first within the construction";
  EXPECT_EQ(this->copyTask()->due(), this->clock.now() + 1.0);
  this->countPacket(this->flow(1));
  this->countPacket(this->flow(2));
  this->clock.advance(1.0);
  while (this->generation() == 1) ASSERT_TRUE(this->runSlice());
  EXPECT_EQ(this->packets(this->flow(1)), 1U);
  EXPECT_EQ(this->packets(this->flow(2)), 1U);
  EXPECT_EQ(this->copyTask()->due(), this->clock.now() + 1.0);
}

TYPED_TEST(CopyLocalCountersTest, AnnouncingReadyInputsAgainStartsAPassAtOnce) {
  this->startWithFlows(1);
  Kiv::invoke(*this->sm,
              TestFixture::kV4 ? "handleCopyLocalCountersCodefInputReady"
                               : "handleCopyLocalIp6CountersCodefInputReady",
              {});
  EXPECT_EQ(this->runAll(), 1U);
  EXPECT_EQ(this->packets(this->flow(1)), 1U);
}

}  // namespace
}  // namespace SampledFlowTracker
