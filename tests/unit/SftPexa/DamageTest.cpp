// Damaged records: reported, treated as absent, and nothing else is lost.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

template <class Domain>
class DamageTest : public StateMachineTest<Domain> {};
TYPED_TEST_SUITE(DamageTest, Families);

TYPED_TEST(DamageTest, ADamagedStatusCountsAsNoneAndIsWrittenAnew) {
  this->start();
  this->want(this->key(1));
  this->want(this->key(2));
  damageRecord(this->statuses(), this->key(1));
  DamageReports reports(this->statuses());
  this->clock.advance(5);
  this->want(this->key(1), 1);
  EXPECT_THAT(reports.texts, SizeIs(1));
  EXPECT_EQ(this->statusOf(this->key(1))->creationTime, this->clock.now());
  EXPECT_EQ(this->counterOf(this->flow(1))->hosEntries, 2U) << "a new status refers to the counter";
  EXPECT_TRUE(this->statusOf(this->key(2)));
}

TYPED_TEST(DamageTest, ADamagedStatusCanBeWithdrawn) {
  this->start();
  this->want(this->key(1));
  damageRecord(this->statuses(), this->key(1));
  DamageReports reports(this->statuses());
  this->unwant(this->key(1));
  EXPECT_GE(reports.texts.size(), 1U);
  EXPECT_FALSE(this->counterOf(this->flow(1)));
}

TYPED_TEST(DamageTest, ADamagedCounterCountsAsNoneAndIsWrittenAnew) {
  this->start();
  this->want(this->key(1));
  damageRecord(this->counters(), this->flow(1));
  DamageReports reports(this->counters());
  this->want(this->key(1, "Ethernet2"));
  EXPECT_THAT(reports.texts, SizeIs(1));
  const auto counter = this->counterOf(this->flow(1));
  ASSERT_TRUE(counter);
  EXPECT_EQ(counter->hosEntries, 1U);
  EXPECT_EQ(counter->packets, 0U);
}

TYPED_TEST(DamageTest, ADamagedConfigCountsAsNotWanted) {
  this->start();
  this->wantMany(1, 2);
  damageRecord(this->configs(), this->key(1));
  DamageReports reports(this->configs());
  const auto tell = [&](const auto& key) { this->hoFlowConfig->collectionChanged(this->configs(), &key); };
  tell(this->key(2));
  EXPECT_THAT(reports.texts, IsEmpty()) << "of another key";
  tell(this->key(1));
  EXPECT_THAT(reports.texts, SizeIs(1));
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(this->key(2)));
}

TYPED_TEST(DamageTest, ADamagedCountCountsAsNoneAndIsWrittenAnew) {
  this->budgetIs(2);
  this->start();
  this->wantMany(1, 2);
  damageRecord(this->counts(), kInHardware);
  DamageReports reports(this->counts());
  this->want(this->key(3));
  EXPECT_EQ(this->stateOf(this->key(3)), kInHardware) << "the count that is full cannot be read";
  EXPECT_EQ(this->count(kInHardware), 1U);
  EXPECT_THAT(reports.texts, SizeIs(2)) << "once for the budget's question, once for the count itself";
}

TYPED_TEST(DamageTest, AScanThatMeetsDamageIsReportedAndEndsThere) {
  this->wantMany(1, 3);
  damageRecord(this->configs(), this->key(2));
  DamageReports reports(this->configs());
  this->start(TestFixture::kTasks);
  this->runAllInSlices();
  EXPECT_THAT(reports.texts, SizeIs(2)) << "once in each of the two scans";
  EXPECT_TRUE(this->sm->ready());
  EXPECT_EQ(this->inputSm().scanState(), Zun::InputScanState::complete);
  EXPECT_FALSE(this->statusOf(this->key(2)));
  // Changes are delivered as ever, and a store heals.
  this->want(this->key(2), 1);
  EXPECT_TRUE(this->statusOf(this->key(2)));
}

TYPED_TEST(DamageTest, InlineAScanThatMeetsDamageEndsToo) {
  this->wantMany(1, 3);
  damageRecord(this->configs(), this->key(2));
  DamageReports reports(this->configs());
  this->start();
  EXPECT_THAT(reports.texts, SizeIs(2));
  EXPECT_TRUE(this->sm->ready());
}

TYPED_TEST(DamageTest, ASweepThatMeetsDamageIsReportedAndEndsThere) {
  this->start();
  this->wantMany(1, 2);
  damageRecord(this->statuses(), this->key(1));
  this->tellMissed();  // the scan heals it
  damageRecord(this->statuses(), this->key(1));
  this->unwantUntold(this->key(1));
  DamageReports reports(this->statuses());
  this->tellMissed();
  EXPECT_THAT(reports.texts, SizeIs(1));
  EXPECT_TRUE(this->statusOf(this->key(2)));
  EXPECT_EQ(this->inputSm().scanState(), Zun::InputScanState::complete);
}

TYPED_TEST(DamageTest, WhenTheWantedOffloadsGoDamageAmongThemIsReported) {
  this->start();
  this->want(this->key(1));
  damageRecord(this->configs(), this->key(1));
  DamageReports reports(this->configs());
  this->hoFlowConfig->notifieeList()->notifyZeroReferences();
  EXPECT_THAT(reports.texts, SizeIs(1));
}

TYPED_TEST(DamageTest, APollThatMeetsADamagedRecordLeavesItAndGoesOn) {
  this->startAndRun();
  this->wantMany(1, 3);
  for (std::uint32_t n = 1; n <= 3; ++n) this->countPacket(this->flow(n));
  damageRecord(this->counters(), this->flow(2));
  DamageReports reports(this->counters());
  this->second();
  EXPECT_THAT(reports.texts, SizeIs(1));
  EXPECT_EQ(this->counterOf(this->flow(1))->packets, 1U);
  EXPECT_EQ(this->counterOf(this->flow(3))->packets, 1U);
  EXPECT_EQ(this->copyTask()->due(), this->clock.now() + 1.0);
}

// A walk over each of the tables that are reconciled.
TYPED_TEST(DamageTest, AReconciliationThatMeetsDamageIsReportedAndIsDone) {
  for (const auto choice : {TestFixture::kSynchronous, TestFixture::kTasks}) {
    this->leaveStatus(this->key(1));
    this->leaveCounter(this->flow(1));
    this->leaveCount(HoFlowState::pending, 1);
    damageRecord(this->statuses(), this->key(1));
    damageRecord(this->counters(), this->flow(1));
    damageRecord(this->counts(), HoFlowState::pending);
    {
      DamageReports statuses(this->statuses());
      DamageReports counters(this->counters());
      DamageReports counts(this->counts());
      this->start(choice);
      this->runAllInSlices();
      EXPECT_THAT(statuses.texts, SizeIs(1));
      EXPECT_THAT(counters.texts, SizeIs(1));
      EXPECT_THAT(counts.texts, SizeIs(1));
    }
    EXPECT_TRUE(this->sm->ready());
    for (std::size_t i = 0; i < kOutputs; ++i) {
      const OutputBase& output = this->sm->output(static_cast<OutputId>(i));
      EXPECT_FALSE(output.reconciling()) << i;
      EXPECT_FALSE(output.useBookmark()) << i;
      EXPECT_EQ(output.seenCount(), 0U) << i;
    }
    EXPECT_FALSE(this->outputs().status.reconciliationTask());
    this->sm.reset();
  }
}

TYPED_TEST(DamageTest, AReconciliationInSlicesThatMeetsDamageIsDone) {
  for (std::uint32_t n = 1; n <= 40; ++n) this->leaveStatus(this->key(n));
  const auto order = this->keysOf(this->statuses());
  damageRecord(this->statuses(), order[20]);
  DamageReports reports(this->statuses());
  this->start(TestFixture::kTasks);
  this->runAllInSlices();
  EXPECT_THAT(reports.texts, SizeIs(1));
  EXPECT_TRUE(this->sm->ready());
  EXPECT_FALSE(this->statuses().has(order[0]));
  EXPECT_TRUE(this->statuses().has(order[39])) << "behind the damage nothing is looked at";
}

// Neither the number of entries nor the index can be read.
template <class Map>
void damageHeader(const Map& map) {
  auto& header = map.table()->file()->header();
  header.state.store(header.state.load() ^ 0x100000000000U);
  header.entries.store(header.entries.load() ^ 0x100000000000U);
}

TYPED_TEST(DamageTest, ATableThatCannotBeCountedIsReportedAndHealedByTheNextStore) {
  this->leaveStatus(this->key(1));
  this->leaveStatus(this->key(2));
  this->statuses().table()->writingDel();
  damageHeader(this->statuses());
  // As the next process has it.
  this->statuses().tableIs(std::make_shared<Quell::Table>(this->statuses().table()->file()));
  DamageReports reports(this->statuses());
  EXPECT_NO_THROW(this->start());
  EXPECT_GE(reports.texts.size(), 2U) << "counting it, and walking it";
  EXPECT_TRUE(this->sm->ready());
  this->want(this->key(3));
  EXPECT_EQ(this->stateOf(this->key(3)), kInHardware);
  EXPECT_TRUE(this->statusOf(this->key(1))) << "not reconciled: its output is ready";
}

TYPED_TEST(DamageTest, AWithdrawalFromATableThatCannotBeCountedIsReported) {
  this->start();
  this->want(this->key(1));
  damageHeader(this->statuses());
  DamageReports reports(this->statuses());
  EXPECT_NO_THROW(this->unwant(this->key(1)));
  EXPECT_GE(reports.texts.size(), 1U);
  EXPECT_FALSE(this->counterOf(this->flow(1))) << "the rest of the event went on";
}

}  // namespace
}  // namespace SampledFlowTracker
