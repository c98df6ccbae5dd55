// A state machine may go at any moment; it leaves the tables as they are and nobody who refers to it.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::IsEmpty;

template <class Domain>
class TeardownTest : public StateMachineTest<Domain> {
 protected:
  void goAndLookAround() {
    const auto statuses = this->keysOf(this->statuses());
    const auto counters = this->keysOf(this->counters());
    const auto counts = this->keysOf(this->counts());
    const auto waiting = this->waitingKeys();
    this->sm.reset();
    EXPECT_THAT(this->scheduler->tasks(), IsEmpty());
    EXPECT_FALSE(this->runSlice());
    this->clock.advance(10);
    EXPECT_FALSE(this->runSlice());
    EXPECT_EQ(this->hoFlowConfig->references(), 1U);
    EXPECT_EQ(this->hoFlowStatus->references(), 1U);
    EXPECT_EQ(this->hoFlowCounter->references(), 1U);
    EXPECT_EQ(this->hosStateCounter->references(), 2U) << "this test's and the helper's";
    EXPECT_EQ(this->localCounters->references(), 1U);
    EXPECT_EQ(this->helper->references(), 1U);
    EXPECT_TRUE(this->hoFlowConfig->notifieeList()->empty());
    this->want(this->key(99));
    EXPECT_EQ(this->keysOf(this->statuses()), statuses);
    EXPECT_EQ(this->keysOf(this->counters()), counters);
    EXPECT_EQ(this->keysOf(this->counts()), counts);
    EXPECT_EQ(this->waitingKeys(), waiting);
  }
};
TYPED_TEST_SUITE(TeardownTest, Families);

TYPED_TEST(TeardownTest, AtRest) {
  this->startAndRun();
  this->wantMany(1, 3);
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, Inline) {
  this->start();
  this->wantMany(1, 3);
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, BeforeAnythingRan) {
  this->wantMany(1, 3);
  this->start(TestFixture::kTasks);
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, InTheMiddleOfTheInitialScan) {
  this->wantMany(1, 3);
  this->start(TestFixture::kTasks);
  while (this->inputSm().scanState() != Zun::InputScanState::resumed) ASSERT_TRUE(this->runSlice());
  ASSERT_FALSE(this->sm->initialScanDone());
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, InTheMiddleOfTheScanWithEvents) {
  this->wantMany(1, 3);
  this->start(TestFixture::kTasks);
  while (this->statuses().empty()) ASSERT_TRUE(this->runSlice());
  ASSERT_EQ(this->inputSm().scanState(), Zun::InputScanState::resumed);
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, InTheMiddleOfAReconciliation) {
  for (std::uint32_t n = 1; n <= 5; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (this->statuses().size() > 3) ASSERT_TRUE(this->runSlice());
  ASSERT_TRUE(this->outputs().status.useBookmark());
  this->goAndLookAround();
  EXPECT_EQ(this->statuses().size(), 3U);
}

TYPED_TEST(TeardownTest, InTheMiddleOfAPoll) {
  this->startAndRun();
  this->wantMany(1, 3);
  for (std::uint32_t n = 1; n <= 3; ++n) this->countPacket(this->flow(n));
  this->clock.advance(1.0);
  while (this->copyTask()->workCount() == 0) ASSERT_TRUE(this->runSlice());
  ASSERT_FALSE(this->sm->idle());
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, InTheMiddleOfASweep) {
  this->startAndRun();
  this->wantMany(1, 3);
  for (std::uint32_t n = 1; n <= 3; ++n) this->unwantUntold(this->key(n));
  this->tellMissed();
  while (this->statuses().size() == 3) ASSERT_TRUE(this->runSlice());
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, WhileSwitchedOffWithWorkLeft) {
  this->wantMany(1, 3);
  this->start(TestFixture::kTasks);
  this->runSlice();
  this->sm->hasNotificationActiveIs(false);
  this->runAll();
  this->goAndLookAround();
}

TYPED_TEST(TeardownTest, ItsPartsMayOutliveIt) {
  this->startAndRun();
  const auto scanState = this->sm->inputSmScanState();
  const auto outputState = this->sm->outputState();
  const auto task = this->copyTask();
  const auto reconciliation = this->outputs().status.reconciliationTask().ptr();
  this->sm.reset();
  scanState->template scanIs<TypeParam>(false);
  outputState->handleReady();
  task->scheduleTask();
  reconciliation->scheduleTask();
  EXPECT_EQ(this->runAll(), 2U) << "they are run, and do nothing";
  EXPECT_TRUE(this->statuses().empty());
}

TYPED_TEST(TeardownTest, ItsTasksGoBeforeItLetsGoOfItsTables) {
  class LookingStatus : public FlowTracking::HoFlowStatus {
   public:
    using HoFlowStatus::HoFlowStatus;
    ~LookingStatus() override { *tasksLeft = scheduler->tasks().size(); }
    Kiv::Ptr<Olt::TaskScheduler> scheduler;
    std::size_t* tasksLeft = nullptr;
  };
  std::size_t tasksLeft = 99;
  {
    auto looking = Kiv::makePtr<LookingStatus>("status");
    looking->scheduler = this->scheduler;
    looking->tasksLeft = &tasksLeft;
    this->hoFlowStatus = looking;
  }
  this->start(TestFixture::kTasks);
  this->hoFlowStatus.reset();
  ASSERT_EQ(this->scheduler->tasks().size(), 14U);
  this->sm.reset();
  EXPECT_EQ(tasksLeft, 0U);
}

// Drops the state machine as soon as it writes to a table.
class Dropper : public Kiv::PtrInterface::NotifieeConst {
 public:
  Dropper(StateMachineWorld& world, const Kiv::Ptr<const Kiv::PtrInterface>& table) : world_(world) {
    notifierIs(table);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId) override { world_.sm.reset(); }

 private:
  StateMachineWorld& world_;
};

TYPED_TEST(TeardownTest, WithinAnEventTheEventIsCompletedAndNothingFollows) {
  this->start();
  const auto dropper = Kiv::makePtr<Dropper>(*this, this->hoFlowStatus);
  this->want(this->key(1));
  EXPECT_FALSE(this->sm);
  EXPECT_EQ(this->stateOf(this->key(1)), HoFlowState::inHardware);
  EXPECT_TRUE(this->counterOf(this->flow(1)));
  EXPECT_EQ(this->count(HoFlowState::inHardware), 1U);
  this->want(this->key(2));
  EXPECT_FALSE(this->statusOf(this->key(2)));
  EXPECT_THAT(this->scheduler->tasks(), IsEmpty());
  EXPECT_EQ(this->hoFlowConfig->references(), 1U);
}

TYPED_TEST(TeardownTest, WithinARunOfTheScan) {
  this->wantMany(1, 5);
  this->start(TestFixture::kTasks);
  const auto dropper = Kiv::makePtr<Dropper>(*this, this->hoFlowStatus);
  this->runAll();
  EXPECT_FALSE(this->sm);
  EXPECT_GE(this->statuses().size(), 1U);
  EXPECT_THAT(this->scheduler->tasks(), IsEmpty());
  EXPECT_EQ(this->hoFlowConfig->references(), 1U);
}

TYPED_TEST(TeardownTest, WithinARunOfAReconciliation) {
  for (std::uint32_t n = 1; n <= 5; ++n) this->leaveStatus(this->key(n));
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  const auto dropper = Kiv::makePtr<Dropper>(*this, this->hoFlowStatus);
  this->runAllInSlices();
  EXPECT_FALSE(this->sm);
  EXPECT_EQ(this->statuses().size(), 3U) << "one before, one in the run that ended it";
  EXPECT_THAT(this->scheduler->tasks(), IsEmpty());
}

TYPED_TEST(TeardownTest, WithinARunOfThePoll) {
  this->startAndRun();
  this->wantMany(1, 3);
  for (std::uint32_t n = 1; n <= 3; ++n) this->countPacket(this->flow(n));
  const auto dropper = Kiv::makePtr<Dropper>(*this, this->hoFlowCounter);
  this->second();
  EXPECT_FALSE(this->sm);
  EXPECT_THAT(this->scheduler->tasks(), IsEmpty());
  EXPECT_EQ(this->localCounters->references(), 1U);
}

TYPED_TEST(TeardownTest, WhileTheWantedOffloadsGo) {
  this->start();
  this->wantMany(1, 3);
  const auto dropper = Kiv::makePtr<Dropper>(*this, this->hoFlowStatus);
  this->hoFlowConfig->notifieeList()->notifyZeroReferences();
  EXPECT_FALSE(this->sm);
  EXPECT_TRUE(this->statuses().empty());
}

TYPED_TEST(TeardownTest, TheNextOneGoesOnFromTheTables) {
  this->wantMany(1, 5);
  for (std::uint32_t n = 11; n <= 15; ++n) this->leaveStatus(this->key(n));
  // Interrupted again and again, one run later each time.
  for (unsigned runs = 1;; ++runs) {
    this->start(TestFixture::kTasks);
    bool due = true;
    for (unsigned i = 0; i < runs && due; ++i) due = this->runSlice();
    if (!due) break;
    this->stop();
  }
  EXPECT_TRUE(this->sm->ready());
  std::vector<typename TestFixture::Key> wanted = this->keysOf(this->configs());
  EXPECT_THAT(this->keysOf(this->statuses()), ::testing::UnorderedElementsAreArray(wanted));
}

}  // namespace
}  // namespace SampledFlowTracker
