// The naive state machine against cases computed by hand.
#include <gtest/gtest.h>

#include "NaiveTwin.h"

using namespace Naive;

namespace {

constexpr std::uint8_t kTasks = 0;
constexpr std::uint8_t kSynchronous = 1;
constexpr std::uint8_t kSameCounters = 4;

template <class Domain>
class NaiveMachine : public testing::Test {
 protected:
  void start(std::uint8_t how = kTasks) { twin.construct(Start(how)); }
  void settle() {
    while (twin.works() != 0) twin.work(1000);
  }
  void want(unsigned key) {
    typename Tables<Domain>::Config config;
    config.key = keyOf<Domain>(key);
    twin.configIs<Domain>(config);
  }
  void drop(unsigned key) { twin.configDel<Domain>(keyOf<Domain>(key)); }
  void leaveStatus(unsigned key, HoFlowState state) {
    typename Tables<Domain>::Status status;
    status.key = keyOf<Domain>(key);
    status.state = state;
    tables().status.put(status.key, status);
  }

  Tables<Domain>& tables() { return twin.world.tables<Domain>(); }
  HoFlowState state(unsigned key) {
    const auto status = tables().status.get(keyOf<Domain>(key));
    return status ? status->state : HoFlowState::none;
  }
  // -1 when there is no record.
  std::int64_t count(HoFlowState of) {
    const auto entry = tables().states.get(of);
    return entry ? std::int64_t{entry->count} : -1;
  }
  std::int64_t references(unsigned flow) {
    const auto counter = tables().counter.get(flowOf<Domain>(flow));
    return counter ? std::int64_t{counter->hosEntries} : -1;
  }
  bool waits(unsigned key) { return tables().overflow.whole(keyOf<Domain>(key)); }
  bool counted(unsigned flow) { return tables().local.whole(flowOf<Domain>(flow)); }
  bool outputReady(Output output) { return twin.machine()->outputReady(output); }

  Twin twin;
};

using Families = testing::Types<V4, V6>;
TYPED_TEST_SUITE(NaiveMachine, Families);

constexpr auto kNone = HoFlowState::none;
constexpr auto kHardware = HoFlowState::inHardware;
constexpr auto kOverflow = HoFlowState::overflow;

}  // namespace

TYPED_TEST(NaiveMachine, AdmitsUpToTheBudgetAndHoldsTheRestBack) {
  this->twin.budgetIs(2);
  this->start(kSynchronous);
  for (unsigned key : {0U, 4U, 8U}) this->want(key);
  EXPECT_EQ(this->state(0), kHardware);
  EXPECT_EQ(this->state(4), kHardware);
  EXPECT_EQ(this->state(8), kOverflow);
  EXPECT_TRUE(this->waits(8));
  EXPECT_FALSE(this->waits(0));
  EXPECT_EQ(this->count(kHardware), 2);
  EXPECT_EQ(this->count(kOverflow), 1);
  EXPECT_EQ(this->references(0), 1);
  EXPECT_EQ(this->references(2), -1);
}

TYPED_TEST(NaiveMachine, PromotesAWaitingFlowInPlaceOfOneThatGoes) {
  this->twin.budgetIs(1);
  this->start(kSynchronous);
  this->want(0);
  this->want(4);
  this->twin.nowIs(50);
  this->drop(0);
  EXPECT_EQ(this->state(0), kNone);
  EXPECT_EQ(this->state(4), kHardware);
  EXPECT_EQ(this->tables().status.get(keyOf<TypeParam>(4))->creationTime, 50);
  EXPECT_FALSE(this->waits(4));
  EXPECT_EQ(this->count(kHardware), 1);
  EXPECT_EQ(this->count(kOverflow), 0);
  EXPECT_EQ(this->references(0), -1);
  EXPECT_EQ(this->references(1), 1);
}

TYPED_TEST(NaiveMachine, AChangeOfAConfigPromotesNobody) {
  this->twin.budgetIs(0);
  this->start(kSynchronous);
  this->want(0);
  this->want(4);
  this->twin.budgetIs(2);
  this->want(0);
  EXPECT_EQ(this->state(0), kHardware);
  EXPECT_TRUE(this->waits(0));  // only a config that goes takes its flow out
  EXPECT_EQ(this->state(4), kOverflow);
}

TYPED_TEST(NaiveMachine, CountsReferencesOfTheKeysThatShareAFlow) {
  this->twin.budgetIs(5);
  this->start(kSynchronous);
  this->want(0);
  this->want(1);
  this->twin.template countPacket<TypeParam>(flowOf<TypeParam>(0), interfaceOf(0), 100);
  EXPECT_EQ(this->references(0), 2);
  this->drop(0);
  EXPECT_EQ(this->references(0), 1);
  EXPECT_TRUE(this->counted(0));
  this->drop(1);
  EXPECT_EQ(this->references(0), -1);
  EXPECT_FALSE(this->counted(0));
}

TYPED_TEST(NaiveMachine, AddsAReferenceWithEachChangeOfTheState) {
  this->twin.budgetIs(1);
  this->start(kSynchronous);
  this->want(0);
  this->twin.budgetIs(0);
  this->want(0);
  EXPECT_EQ(this->state(0), kOverflow);
  EXPECT_EQ(this->references(0), 2);
  this->want(0);  // overflow before and after: the record goes, for all its references
  EXPECT_EQ(this->references(0), -1);
}

TYPED_TEST(NaiveMachine, AHeldBackFlowThatGoesLeavesItsLocalCounter) {
  this->start(kSynchronous);
  this->want(0);
  this->twin.template countPacket<TypeParam>(flowOf<TypeParam>(0), interfaceOf(0), 100);
  this->drop(0);
  EXPECT_TRUE(this->counted(0));
  EXPECT_EQ(this->count(kOverflow), 0);
}

TYPED_TEST(NaiveMachine, SynchronousHasFinishedWhenItIsBuilt) {
  this->twin.budgetIs(5);
  this->want(0);
  this->leaveStatus(4, kHardware);
  this->start(kSynchronous);
  EXPECT_TRUE(this->twin.machine()->ready());
  EXPECT_TRUE(this->twin.machine()->idle());
  EXPECT_EQ(this->twin.works(), 0);
  EXPECT_EQ(this->state(0), kHardware);
  EXPECT_EQ(this->state(4), kNone);
}

TYPED_TEST(NaiveMachine, TasksDeliverNothingBeforeBothInitialScansHaveEnded) {
  this->twin.budgetIs(5);
  this->want(0);
  this->start();
  EXPECT_EQ(this->twin.works(), 2);
  this->twin.work(1);
  this->want(4);
  EXPECT_FALSE(this->twin.machine()->initialScanDone());
  EXPECT_EQ(this->tables().status.size(), 0);
  this->settle();
  EXPECT_TRUE(this->twin.machine()->idle());
  EXPECT_EQ(this->state(0), kHardware);
  EXPECT_EQ(this->state(4), kHardware);
}

TYPED_TEST(NaiveMachine, OneStaleEntryGoesAtOnceAndTheRestInTurn) {
  for (unsigned key = 0; key < 4; ++key) this->leaveStatus(key, kHardware);
  this->start();
  this->twin.work(1);
  this->twin.work(1);  // both initial scans have ended
  EXPECT_EQ(this->tables().status.size(), 3);
  EXPECT_TRUE(this->outputReady(Output::local4));
  EXPECT_FALSE(this->outputReady(OutputsOf<TypeParam>::kStatus));
  EXPECT_EQ(this->twin.works(), 5);  // two scans, the reconciliation, two copies
  this->twin.work(1);
  this->twin.work(1);
  this->twin.work(2);
  EXPECT_EQ(this->tables().status.size(), 1);
  this->twin.work(2);
  EXPECT_EQ(this->tables().status.size(), 0);
  EXPECT_TRUE(this->twin.machine()->ready());
}

TYPED_TEST(NaiveMachine, WhatTheScansWriteAgainOutlivesTheReconciliation) {
  this->twin.budgetIs(9);
  for (unsigned key = 0; key < 4; ++key) {
    this->leaveStatus(key, kHardware);
    if (key != 2) this->want(key);
  }
  this->start();
  this->settle();
  EXPECT_EQ(this->state(0), kHardware);
  EXPECT_EQ(this->state(1), kHardware);
  EXPECT_EQ(this->state(2), kNone);
  EXPECT_EQ(this->state(3), kHardware);
}

TYPED_TEST(NaiveMachine, CopiesLocalCountersASecondAfterEachPass) {
  this->twin.budgetIs(1);
  this->want(0);
  this->start();
  this->settle();
  this->twin.template countPacket<TypeParam>(flowOf<TypeParam>(0), interfaceOf(1), 100);
  this->twin.nowIs(0.75);
  EXPECT_EQ(this->twin.works(), 0);
  this->twin.nowIs(1.0);
  EXPECT_EQ(this->twin.works(), 2);
  this->settle();
  const auto counter = this->tables().counter.get(flowOf<TypeParam>(0));
  ASSERT_TRUE(counter);
  EXPECT_EQ(counter->packets, 1);
  EXPECT_EQ(counter->bytes, 100);
  EXPECT_EQ(counter->intfId, interfaceOf(1));
}

TYPED_TEST(NaiveMachine, LocalCountersThatWereThereBeforeGo) {
  this->twin.template countPacket<TypeParam>(flowOf<TypeParam>(0), interfaceOf(0), 100);
  this->start(kSynchronous | kSameCounters);
  EXPECT_FALSE(this->counted(0));
}
