// What becomes of a wanted offload: admitted or held back, and promoted when there is room.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

template <class Domain>
class AdmissionTest : public StateMachineTest<Domain> {};
TYPED_TEST_SUITE(AdmissionTest, Families);

TYPED_TEST(AdmissionTest, AWantedOffloadIsAdmittedWhileThereIsRoom) {
  this->start();
  this->want(this->key(1));
  const auto status = this->statusOf(this->key(1));
  ASSERT_TRUE(status);
  EXPECT_EQ(status->key, this->key(1));
  EXPECT_EQ(status->state, kInHardware);
  EXPECT_EQ(status->creationTime, this->clock.now());
  EXPECT_EQ(status->lastUpdateTime, this->clock.now());
  EXPECT_TRUE(this->waiting().empty());
}

TYPED_TEST(AdmissionTest, AWantedOffloadWithoutRoomIsHeldBackAndWaits) {
  this->budgetIs(0);
  this->start();
  this->want(this->key(1));
  EXPECT_EQ(this->stateOf(this->key(1)), kOverflow);
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(1)));
}

TYPED_TEST(AdmissionTest, TheBudgetIsFilledToTheLastPlaceAndNotBeyond) {
  this->budgetIs(3);
  this->start();
  this->wantMany(1, 5);
  for (std::uint32_t n = 1; n <= 3; ++n) EXPECT_EQ(this->stateOf(this->key(n)), kInHardware) << n;
  for (std::uint32_t n = 4; n <= 5; ++n) EXPECT_EQ(this->stateOf(this->key(n)), kOverflow) << n;
  EXPECT_THAT(this->waitingKeys(), UnorderedElementsAre(this->key(4), this->key(5)));
}

TYPED_TEST(AdmissionTest, AnUpdateThatKeepsTheStateKeepsTheTimes) {
  this->start();
  this->want(this->key(1));
  const auto first = this->statusOf(this->key(1));
  this->clock.advance(10);
  this->want(this->key(1), 7);
  EXPECT_EQ(this->statusOf(this->key(1)), first);
}

TYPED_TEST(AdmissionTest, AnUpdateThatChangesTheStateSetsBothTimes) {
  this->start();
  this->want(this->key(1));
  this->clock.advance(10);
  this->budgetIs(1);
  this->want(this->key(1), 1);  // full: by itself
  auto status = this->statusOf(this->key(1));
  EXPECT_EQ(status->state, kOverflow);
  EXPECT_EQ(status->creationTime, this->clock.now());
  EXPECT_EQ(status->lastUpdateTime, this->clock.now());
  this->clock.advance(10);
  this->want(this->key(1), 2);  // its own place is free now
  status = this->statusOf(this->key(1));
  EXPECT_EQ(status->state, kInHardware);
  EXPECT_EQ(status->creationTime, this->clock.now());
  EXPECT_EQ(status->lastUpdateTime, this->clock.now());
}

// The creation time is what the status before had, not what it was first created with.
TYPED_TEST(AdmissionTest, AStatusOfAnotherStateBeforeGivesNoTime) {
  this->leaveStatus(this->key(1), HoFlowState::pending, 5);
  this->want(this->key(1));
  this->start();
  EXPECT_EQ(this->statusOf(this->key(1))->creationTime, this->clock.now());
}

TYPED_TEST(AdmissionTest, TheLastTimeOfAStatusFollowsItsFirst) {
  typename TestFixture::Status left;
  left.key = this->key(1);
  left.state = kInHardware;
  left.creationTime = 5;
  left.lastUpdateTime = 9;
  this->statuses().insert(left);
  this->want(this->key(1));
  this->start();
  EXPECT_EQ(this->statusOf(this->key(1))->creationTime, 5);
  EXPECT_EQ(this->statusOf(this->key(1))->lastUpdateTime, 5);
}

TYPED_TEST(AdmissionTest, AWithdrawnOffloadLeavesNothing) {
  this->start();
  this->want(this->key(1));
  this->unwant(this->key(1));
  EXPECT_FALSE(this->statusOf(this->key(1)));
  EXPECT_FALSE(this->counterOf(this->flow(1)));
  EXPECT_TRUE(this->waiting().empty());
}

TYPED_TEST(AdmissionTest, AWithdrawnOffloadThatWaitedWaitsNoMore) {
  this->budgetIs(0);
  this->start();
  this->want(this->key(1));
  this->want(this->key(2));
  this->unwant(this->key(1));
  EXPECT_FALSE(this->statusOf(this->key(1)));
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(2)));
}

TYPED_TEST(AdmissionTest, AWithdrawalMakesRoomForOneThatWaits) {
  this->budgetIs(1);
  this->start();
  this->want(this->key(1));
  this->want(this->key(2));
  this->clock.advance(10);
  this->unwant(this->key(1));
  const auto status = this->statusOf(this->key(2));
  ASSERT_TRUE(status);
  EXPECT_EQ(status->state, kInHardware);
  EXPECT_EQ(status->creationTime, this->clock.now());
  EXPECT_EQ(status->lastUpdateTime, this->clock.now());
  EXPECT_TRUE(this->waiting().empty());
  EXPECT_EQ(this->count(kInHardware), 1U);
  EXPECT_EQ(this->count(kOverflow), 0U);
}

TYPED_TEST(AdmissionTest, TheFirstInTheSetsOrderIsPromotedWhateverItsAge) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 9);
  const auto waiting = this->waitingKeys();
  ASSERT_EQ(waiting.size(), 8U);
  this->unwant(this->key(1));
  for (std::size_t i = 0; i < waiting.size(); ++i) {
    EXPECT_EQ(this->stateOf(waiting[i]), i == 0 ? kInHardware : kOverflow) << i;
  }
  EXPECT_THAT(this->waitingKeys(), ::testing::ElementsAreArray(waiting.begin() + 1, waiting.end()));
}

TYPED_TEST(AdmissionTest, PromotionGoesOnWhileThereIsRoom) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 6);
  const auto waiting = this->waitingKeys();
  this->budgetIs(3);
  this->unwant(this->key(1));
  for (std::size_t i = 0; i < waiting.size(); ++i) {
    EXPECT_EQ(this->stateOf(waiting[i]), i < 3 ? kInHardware : kOverflow) << i;
  }
  EXPECT_EQ(this->count(kInHardware), 3U);
  EXPECT_EQ(this->count(kOverflow), 2U);
}

TYPED_TEST(AdmissionTest, AChangeThatIsNoWithdrawalPromotesNobody) {
  this->budgetIs(1);
  this->start();
  this->want(this->key(1));
  this->want(this->key(2));
  this->budgetIs(10);
  this->want(this->key(1), 1);
  this->want(this->key(3));
  EXPECT_EQ(this->stateOf(this->key(2)), kOverflow);
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(2)));
}

TYPED_TEST(AdmissionTest, AnAdmittedFlowStaysInTheSetItWasIn) {
  this->budgetIs(0);
  this->start();
  this->want(this->key(1));
  this->budgetIs(10);
  this->want(this->key(1), 1);
  EXPECT_EQ(this->stateOf(this->key(1)), kInHardware);
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(1))) << "the statement's filter leaves it alone";
}

TYPED_TEST(AdmissionTest, TheBudgetCanBeChangedByNameAtRunTime) {
  this->start();
  this->wantMany(1, 4);
  Kiv::attributeIs(*this->helper, "maxInHardwareFlows", Kiv::Value(4));
  this->want(this->key(5));
  EXPECT_EQ(this->stateOf(this->key(5)), kOverflow);
  Kiv::attributeIs(*this->helper, "maxInHardwareFlows", Kiv::Value(5));
  this->want(this->key(6));
  EXPECT_EQ(this->stateOf(this->key(6)), kInHardware);
  EXPECT_EQ(this->stateOf(this->key(5)), kOverflow) << "only a withdrawal promotes";
}

TYPED_TEST(AdmissionTest, FlowsStayInHardwareWhenTheBudgetShrinks) {
  this->start();
  this->wantMany(1, 4);
  this->budgetIs(2);
  this->unwant(this->key(1));
  for (std::uint32_t n = 2; n <= 4; ++n) EXPECT_EQ(this->stateOf(this->key(n)), kInHardware) << n;
}

TYPED_TEST(AdmissionTest, EachFamilyHasTheWholeBudget) {
  using Other = std::conditional_t<TestFixture::kV4, Pavo::Traits::IPv6, Pavo::Traits::IPv4>;
  this->budgetIs(2);
  this->start();
  this->wantMany(1, 2);
  FlowTracking::HoFlowConfigRecord<Other> other;
  other.key = FamilyWorld<Other>::key(1);
  this->hoFlowConfig->template map<Other>().insert(other);
  EXPECT_EQ(this->hoFlowStatus->template map<Other>().get(other.key).state, kInHardware);
  this->want(this->key(3));
  EXPECT_EQ(this->stateOf(this->key(3)), kOverflow);
}

TYPED_TEST(AdmissionTest, NothingIsStoredForAnUnknownOffloadThatIsWithdrawn) {
  this->start();
  this->inputSm().handleConfig(this->key(1));
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
  EXPECT_THAT(this->keysOf(this->counters()), IsEmpty());
  EXPECT_THAT(this->keysOf(this->counts()), IsEmpty());
}

}  // namespace
}  // namespace SampledFlowTracker
