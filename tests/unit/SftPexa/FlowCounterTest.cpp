// The counter record of a flow identity: its references, and when it and the local counter go.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

constexpr std::uint32_t kWrapped = 4294967295U;

template <class Domain>
class FlowCounterTest : public StateMachineTest<Domain> {
 protected:
  // References of flow 1's counter record; absent without a record.
  std::optional<std::uint32_t> references() const {
    const auto record = this->counterOf(this->flow(1));
    return record ? std::optional(record->hosEntries) : std::nullopt;
  }
};
TYPED_TEST_SUITE(FlowCounterTest, Families);

TYPED_TEST(FlowCounterTest, AnAdmittedFlowGetsARecordWithOneReferenceAndNothingCounted) {
  this->start();
  this->want(this->key(1, "Ethernet7"));
  const auto record = this->counterOf(this->flow(1));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->key, this->flow(1));
  EXPECT_EQ(record->intfId, Pavo::IntfId("Ethernet7"));
  EXPECT_EQ(record->packets, 0U);
  EXPECT_EQ(record->bytes, 0U);
  EXPECT_EQ(record->creationTime, this->clock.now());
  EXPECT_EQ(record->lastUpdateTime, this->clock.now());
  EXPECT_EQ(record->hosEntries, 1U);
}

TYPED_TEST(FlowCounterTest, ASecondOffloadOfTheSameFlowAddsAReferenceAndItsInterface) {
  this->start();
  this->want(this->key(1));
  auto counted = *this->counterOf(this->flow(1));
  counted.packets = 5;
  counted.bytes = 500;
  this->counters().insert(counted);
  this->clock.advance(10);
  this->want(this->key(1, "Ethernet2"));
  const auto record = this->counterOf(this->flow(1));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->hosEntries, 2U);
  EXPECT_EQ(record->intfId, Pavo::IntfId("Ethernet2"));
  EXPECT_EQ(record->packets, 5U);
  EXPECT_EQ(record->bytes, 500U);
  EXPECT_EQ(record->creationTime, counted.creationTime);
  EXPECT_EQ(record->lastUpdateTime, counted.lastUpdateTime);
}

TYPED_TEST(FlowCounterTest, WithdrawingOneOfTwoTakesAReferenceAndKeepsTheLocalCounter) {
  this->start();
  this->want(this->key(1));
  this->want(this->key(1, "Ethernet2"));
  this->countPacket(this->flow(1));
  this->unwant(this->key(1));
  EXPECT_EQ(this->references(), 1U);
  EXPECT_TRUE(this->hasLocal(this->flow(1)));
}

TYPED_TEST(FlowCounterTest, WithdrawingTheLastDeletesTheRecordAndTheLocalCounter) {
  this->start();
  this->want(this->key(1));
  this->want(this->key(1, "Ethernet2"));
  this->countPacket(this->flow(1));
  this->countPacket(this->flow(2));
  this->unwant(this->key(1));
  this->unwant(this->key(1, "Ethernet2"));
  EXPECT_FALSE(this->references());
  EXPECT_FALSE(this->hasLocal(this->flow(1)));
  EXPECT_TRUE(this->hasLocal(this->flow(2))) << "another flow's";
}

TYPED_TEST(FlowCounterTest, AnUpdateThatKeepsTheStateKeepsTheReferences) {
  this->start();
  this->want(this->key(1));
  this->want(this->key(1), 1);
  this->want(this->key(1), 2);
  EXPECT_EQ(this->references(), 1U);
}

TYPED_TEST(FlowCounterTest, AFlowThatWasOnlyHeldBackHasNoRecord) {
  this->budgetIs(0);
  this->start();
  this->want(this->key(1));
  EXPECT_FALSE(this->references());
  this->want(this->key(1), 1);
  EXPECT_FALSE(this->references());
  this->unwant(this->key(1));
  EXPECT_FALSE(this->references());
}

// Without a record, taking a reference away wraps: that is not zero, so the local counter stays.
TYPED_TEST(FlowCounterTest, WithdrawingAFlowThatWasHeldBackLeavesTheLocalCounter) {
  this->budgetIs(0);
  this->start();
  this->want(this->key(1));
  this->countPacket(this->flow(1));
  this->unwant(this->key(1));
  EXPECT_FALSE(this->references());
  EXPECT_TRUE(this->hasLocal(this->flow(1)));
}

TYPED_TEST(FlowCounterTest, WithdrawingAnAdmittedFlowWhoseRecordIsGoneStoresAWrappedCount) {
  this->start();
  this->want(this->key(1));
  this->countPacket(this->flow(1));
  this->counters().erase(this->flow(1));
  this->unwant(this->key(1));
  EXPECT_EQ(this->references(), kWrapped);
  EXPECT_TRUE(this->hasLocal(this->flow(1)));
}

TYPED_TEST(FlowCounterTest, AReferenceMoreThanFitsIsNone) {
  this->leaveCounter(this->flow(1), kWrapped);
  this->start();
  this->leaveCounter(this->flow(1), kWrapped);
  this->countPacket(this->flow(1));
  this->want(this->key(1));
  EXPECT_FALSE(this->references());
  EXPECT_FALSE(this->hasLocal(this->flow(1)));
}

// The state stays, and there is no record to count from: no reference, so nothing is kept.
TYPED_TEST(FlowCounterTest, AnUpdateOfAnAdmittedFlowWhoseRecordIsGoneDropsTheLocalCounter) {
  this->start();
  this->want(this->key(1));
  this->countPacket(this->flow(1));
  this->counters().erase(this->flow(1));
  this->want(this->key(1), 1);
  EXPECT_FALSE(this->references());
  EXPECT_FALSE(this->hasLocal(this->flow(1)));
}

TYPED_TEST(FlowCounterTest, ARecordThatGoesForWantOfHardwareStateLeavesTheLocalCounter) {
  this->start();
  this->want(this->key(1));
  this->countPacket(this->flow(1));
  this->budgetIs(0);
  this->want(this->key(1), 1);  // in hardware before: kept
  EXPECT_EQ(this->references(), 2U);
  this->want(this->key(1), 2);  // neither before nor now
  EXPECT_FALSE(this->references());
  EXPECT_TRUE(this->hasLocal(this->flow(1)));
}

TYPED_TEST(FlowCounterTest, APromotedFlowGetsItsRecord) {
  this->budgetIs(1);
  this->start();
  this->want(this->key(2));
  this->want(this->key(1));
  ASSERT_FALSE(this->references());
  this->unwant(this->key(2));
  EXPECT_EQ(this->references(), 1U);
}

TYPED_TEST(FlowCounterTest, LocalCountersAreNeverCreatedHere) {
  this->start();
  this->want(this->key(1));
  EXPECT_FALSE(this->hasLocal(this->flow(1)));
}

}  // namespace
}  // namespace SampledFlowTracker
