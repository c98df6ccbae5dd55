// What an output does with a write beside the write itself: it notes the key exactly while it reconciles, and
// traces.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;

constexpr Place kPlace = SFT_PLACE("table[ key ]");

template <class Domain>
class OutputWritesTest : public StateMachineTest<Domain> {
 protected:
  // Two entries of an earlier run in each table, so that no output is done within the handshake.
  void startReconciling() {
    for (std::uint32_t n = 11; n <= 12; ++n) {
      this->leaveStatus(this->key(n));
      this->leaveCounter(this->flow(n));
      this->waiting().insert(this->key(n));
    }
    this->start(StateMachineWorld::kTasks);
    ASSERT_TRUE(this->outputs().status.reconciling());
    ASSERT_TRUE(this->outputs().counter.reconciling());
    ASSERT_TRUE(this->outputs().overflow.reconciling());
  }
  void insertStatus(const FlowTracking::HoFlowKey<Domain>& key) {
    FlowTracking::HoFlowStatusRecord<Domain> status;
    status.key = key;
    this->outputs().status.insert("handler", kPlace, key, status);
  }
  void refreshCounter(const FlowTracking::FlowKey<Domain>& flow) {
    FlowTracking::HoFlowCounterRecord<Domain> counter;
    counter.key = flow;
    this->outputs().counter.refresh("handler", kPlace, flow, counter, counter);
  }
  template <class Output, class Key>
  static bool noted(const Output& output, const Key& key) {
    return output.seenHas(typename Output::KeyType(key));
  }
  void writeInEachWay() {
    auto& outputs = this->outputs();
    this->insertStatus(this->key(1));
    outputs.status.erase("handler", kPlace, this->key(2));
    this->refreshCounter(this->flow(3));
    outputs.overflow.insert("handler", kPlace, this->key(4));
    outputs.overflow.erase("handler", kPlace, this->key(5));
  }
};
TYPED_TEST_SUITE(OutputWritesTest, Families);

TYPED_TEST(OutputWritesTest, EveryKindOfWriteNotesItsKeyWhileTheOutputReconciles) {
  this->startReconciling();
  this->writeInEachWay();
  auto& outputs = this->outputs();
  EXPECT_TRUE(this->noted(outputs.status, this->key(1)));
  EXPECT_TRUE(this->noted(outputs.status, this->key(2)));
  EXPECT_TRUE(this->noted(outputs.counter, this->flow(3)));
  EXPECT_TRUE(this->noted(outputs.overflow, this->key(4)));
  EXPECT_TRUE(this->noted(outputs.overflow, this->key(5)));
  EXPECT_FALSE(this->noted(outputs.status, this->key(11)));
  EXPECT_EQ(outputs.status.seenCount(), 2U);
  EXPECT_EQ(outputs.counter.seenCount(), 1U);
  EXPECT_EQ(outputs.overflow.seenCount(), 2U);
}

TYPED_TEST(OutputWritesTest, NoWriteNotesItsKeyOnceTheOutputIsReady) {
  this->startAndRun();
  this->writeInEachWay();
  auto& outputs = this->outputs();
  EXPECT_EQ(outputs.status.seenCount(), 0U);
  EXPECT_EQ(outputs.counter.seenCount(), 0U);
  EXPECT_EQ(outputs.overflow.seenCount(), 0U);
}

TYPED_TEST(OutputWritesTest, AWaitingFlowThatIsHeldBackAgainIsKept) {
  this->budgetIs(0);
  this->waiting().insert(this->key(1));
  this->waiting().insert(this->key(2));
  this->want(this->key(1));
  this->startAndRun();
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(1)));
}

TYPED_TEST(OutputWritesTest, ARecordThatDidNotChangeIsTracedAsWritten) {
  this->startAndRun();
  typename TestFixture::Counter counter;
  counter.key = this->flow(3);
  TraceLines trace(7);
  this->refreshCounter(this->flow(3));
  EXPECT_THAT(trace.lines,
              ElementsAre(TraceLine{7, "handler",
                                    "into( table[ key ] ): inserting k1=" + drovaText(counter.key) +
                                        ", value=" + drovaText(counter)}));
  EXPECT_FALSE(this->counterOf(this->flow(3))) << "and left alone";
}

TYPED_TEST(OutputWritesTest, WhatReconciliationLooksAtAndDeletesIsCounted) {
  for (std::uint32_t n = 1; n <= 5; ++n) this->leaveStatus(this->key(n));
  this->wantMany(1, 2);
  this->start();
  EXPECT_EQ(this->outputs().status.reconciled(), 5U);
  EXPECT_EQ(this->outputs().status.reconciliationDeletions(), 3U);
  EXPECT_EQ(this->outputs().counter.reconciled(), 0U);
}

}  // namespace
}  // namespace SampledFlowTracker
