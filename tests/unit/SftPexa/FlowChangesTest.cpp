// How often flows came into a state, and left it.
#include "SftPexa/FlowChanges.h"

#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

template <class Domain>
class FlowChangesTest : public StateMachineTest<Domain> {
 protected:
  using Counts = std::array<std::uint64_t, 4>;
  // Admissions, promotions, overflows, withdrawals.
  Counts counts() const { return of(this->sm->template flowChanges<Domain>()); }
  Counts otherFamilysCounts() const {
    using Other = std::conditional_t<this->kV4, Pavo::Traits::IPv6, Pavo::Traits::IPv4>;
    return of(this->sm->template flowChanges<Other>());
  }

 private:
  static Counts of(const FlowChanges& changes) {
    return {changes.admissions, changes.promotions, changes.overflows, changes.withdrawals};
  }
};
TYPED_TEST_SUITE(FlowChangesTest, Families);
using Counts = std::array<std::uint64_t, 4>;

TYPED_TEST(FlowChangesTest, AFlowIsAdmittedOnceHoweverOftenItIsAskedFor) {
  this->start();
  this->want(this->key(1));
  this->want(this->key(1), 5);
  EXPECT_EQ(this->counts(), (Counts{1, 0, 0, 0}));
  EXPECT_EQ(this->otherFamilysCounts(), Counts{});
}

TYPED_TEST(FlowChangesTest, WhatFindsNoRoomOverflows) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 3);
  EXPECT_EQ(this->counts(), (Counts{1, 0, 2, 0}));
}

TYPED_TEST(FlowChangesTest, AWithdrawalThatMakesRoomPromotesAFlow) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 2);
  this->unwant(this->key(1));
  EXPECT_EQ(this->counts(), (Counts{2, 1, 1, 1}));
}

TYPED_TEST(FlowChangesTest, AWaitingFlowThatIsWithdrawnIsAWithdrawalToo) {
  this->budgetIs(0);
  this->start();
  this->want(this->key(1));
  this->unwant(this->key(1));
  this->unwant(this->key(2));
  EXPECT_EQ(this->counts(), (Counts{0, 0, 1, 1}));
}

TYPED_TEST(FlowChangesTest, AFlowThatWaitedAndFindsRoomWhenItIsWantedAnewIsPromotedToo) {
  this->start();
  this->want(this->key(1));
  this->budgetIs(1);
  this->want(this->key(1), 1);  // full: by itself
  EXPECT_EQ(this->counts(), (Counts{1, 0, 1, 0}));
  this->want(this->key(1), 2);  // its own place is free now
  EXPECT_EQ(this->counts(), (Counts{2, 1, 1, 0}));
}

TYPED_TEST(FlowChangesTest, WhatStoodBeforeARestartIsNoChange) {
  this->start();
  this->wantMany(1, 2);
  this->stop();
  this->start();
  EXPECT_EQ(this->counts(), Counts{});
}

TEST(FlowChangesCount, AStateThatIsNeitherCountsNothing) {
  FlowChanges changes;
  changes.count(HoFlowState::inHardware, HoFlowState::pending);
  changes.count(std::nullopt, HoFlowState::none);
  EXPECT_EQ(changes.admissions + changes.promotions + changes.overflows + changes.withdrawals, 0U);
  changes.count(HoFlowState::pending, std::nullopt);
  EXPECT_EQ(changes.withdrawals, 1U);
}

}  // namespace
}  // namespace SampledFlowTracker
