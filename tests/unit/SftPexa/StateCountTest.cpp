// How many flows stand in each state.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;

constexpr auto kPending = HoFlowState::pending;

template <class Domain>
class StateCountTest : public StateMachineTest<Domain> {};
TYPED_TEST_SUITE(StateCountTest, Families);

// Writes down what is stored under a collection's keys, in the order of the stores.
template <class Domain>
class CountWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit CountWatcher(FamilyWorld<Domain>& world) : world_(world) {
    notifierIs(world.hosStateCounter);
    hasNotificationActiveIs(true);
  }
  void onAttributeKey(Kiv::AttributeId, Kiv::KeyRef key) override {
    const HoFlowState state = key.as<FlowTracking::HosStateCounterKey>().state;
    stored.emplace_back(state, *world_.count(state));
  }
  std::vector<std::pair<HoFlowState, std::uint32_t>> stored;

 private:
  FamilyWorld<Domain>& world_;
};

TYPED_TEST(StateCountTest, ANewStatusAddsOneToItsState) {
  this->budgetIs(2);
  this->start();
  this->want(this->key(1));
  EXPECT_EQ(this->count(kInHardware), 1U);
  EXPECT_FALSE(this->count(kOverflow));
  this->wantMany(2, 5);
  EXPECT_EQ(this->count(kInHardware), 2U);
  EXPECT_EQ(this->count(kOverflow), 3U);
}

TYPED_TEST(StateCountTest, AChangeMovesOneFromTheOldStateToTheNew) {
  this->start();
  this->wantMany(1, 3);
  this->budgetIs(0);
  this->want(this->key(2), 1);
  EXPECT_EQ(this->count(kInHardware), 2U);
  EXPECT_EQ(this->count(kOverflow), 1U);
}

TYPED_TEST(StateCountTest, ARewriteWithTheSameStateLeavesTheCounts) {
  this->start();
  this->wantMany(1, 3);
  this->want(this->key(2), 1);
  EXPECT_EQ(this->count(kInHardware), 3U);
  EXPECT_FALSE(this->count(kOverflow));
}

TYPED_TEST(StateCountTest, AWithdrawalTakesOneAndACountOfZeroStays) {
  this->start();
  this->want(this->key(1));
  this->unwant(this->key(1));
  EXPECT_EQ(this->count(kInHardware), 0U);
  EXPECT_EQ(this->counts().size(), 1U);
}

TYPED_TEST(StateCountTest, TheOldStateIsStoredBeforeTheCurrentOne) {
  this->start();
  this->wantMany(1, 2);
  this->budgetIs(0);
  const auto watcher = Kiv::makePtr<CountWatcher<TypeParam>>(*this);
  this->want(this->key(2), 1);
  EXPECT_THAT(watcher->stored, ElementsAre(std::pair(kInHardware, 1U), std::pair(kOverflow, 1U)));
}

TYPED_TEST(StateCountTest, AStateThatWasNeverCountedStartsWithNoneWhenItIsLeft) {
  this->leaveStatus(this->key(1), kPending);
  this->want(this->key(1));
  this->start();
  EXPECT_EQ(this->stateOf(this->key(1)), kInHardware);
  EXPECT_EQ(this->count(kPending), 0U);
  EXPECT_EQ(this->count(kInHardware), 1U);
}

// The old state's step comes first and stores its 0; the current state's then finds an entry.
TYPED_TEST(StateCountTest, AStatusWithoutACountThatKeepsItsStateIsNotCounted) {
  this->start();
  this->leaveStatus(this->key(1), kInHardware);
  this->want(this->key(1));
  EXPECT_EQ(this->count(kInHardware), 0U);
}

TYPED_TEST(StateCountTest, OneTakenFromNoneWraps) {
  this->start();
  this->leaveStatus(this->key(1), kInHardware);
  this->leaveCount(kInHardware, 0);
  this->unwant(this->key(1));
  this->inputSm().handleConfig(this->key(1));
  EXPECT_EQ(this->count(kInHardware), 4294967295U);
}

TYPED_TEST(StateCountTest, APromotionMovesOneToo) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 2);
  const auto watcher = Kiv::makePtr<CountWatcher<TypeParam>>(*this);
  this->unwant(this->key(1));
  EXPECT_THAT(watcher->stored,
              ElementsAre(std::pair(kInHardware, 0U), std::pair(kOverflow, 0U), std::pair(kInHardware, 1U)));
}

}  // namespace
}  // namespace SampledFlowTracker
