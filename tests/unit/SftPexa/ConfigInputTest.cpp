// The input state machine of a family: its scans, and the changes it is told of.
#include <set>

#include "StateMachineFixture.h"
#include "TraceLines.h"
#include "quell/TableFile.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

template <class Domain>
class ConfigInputTest : public StateMachineTest<Domain> {
 protected:
  using Key = FlowTracking::HoFlowKey<Domain>;

  // With tasks, up to the end of the initial scans: the scan with events is about to begin.
  void startUpToEvents() {
    this->start(StateMachineWorld::kTasks);
    while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  }
  static std::vector<std::string> delivered(const TraceLines& trace) {
    std::vector<std::string> keys;
    for (const std::string& text : trace.starting("k: ")) keys.push_back(text.substr(3));
    return keys;
  }
  static std::vector<std::string> texts(const std::vector<Key>& keys) {
    std::vector<std::string> result;
    for (const Key& key : keys) result.push_back(key.str());
    return result;
  }
  // One slice of this family's scan that delivers something.
  void sliceThatDelivers(const TraceLines& trace) {
    const auto before = delivered(trace).size();
    while (delivered(trace).size() == before) ASSERT_TRUE(this->runSlice());
  }
  void containerGoes() { this->hoFlowConfig->notifieeList()->notifyZeroReferences(); }
};
TYPED_TEST_SUITE(ConfigInputTest, Families);

TYPED_TEST(ConfigInputTest, TablesOfManyAreMadeReadyInSlicesBeforeTheFirstEvent) {
  constexpr std::uint32_t kMany = 140000;  // more than are made ready at once
  constexpr std::uint32_t kBudget = 1000;
  const auto buckets = [](const auto& map) {
    return Quell::Layout::stateBuckets(map.table()->file()->header().state.load());
  };
  this->budgetIs(kBudget);
  this->wantMany(1, kMany);
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice(kMany));
  std::set<std::uint64_t> sizes;
  while (this->statuses().empty()) {
    sizes.insert(buckets(this->statuses()));
    EXPECT_EQ(this->inputSm().inputScanTask()->workCount(), 0U) << "no entry was handled yet";
    ASSERT_TRUE(this->runSlice());
  }
  EXPECT_GE(sizes.size(), 2U);
  EXPECT_EQ(buckets(this->statuses()), kMany / Quell::Layout::kLoadPerBucket);
  EXPECT_EQ(buckets(this->counters()), kBudget / Quell::Layout::kLoadPerBucket);
  EXPECT_EQ(this->statuses().size(), 1U);
}

TYPED_TEST(ConfigInputTest, AnEmptyTableIsScannedInOneSlice) {
  this->start(TestFixture::kTasks);
  const auto& input = this->inputSm();
  EXPECT_EQ(input.scanState(), Zun::InputScanState::notStarted);
  ASSERT_TRUE(this->runSlice());
  if (TestFixture::kV4) {
    ASSERT_TRUE(this->runSlice());  // the other family's comes first
  } else {
    EXPECT_EQ(input.scanState(), Zun::InputScanState::initialScanComplete);
    EXPECT_FALSE(input.inputScanTask());
    EXPECT_TRUE(this->sm->inputSmScanState()->input6StreamScan());
    ASSERT_TRUE(this->runSlice());
  }
  EXPECT_TRUE(this->sm->initialScanDone());
  ASSERT_TRUE(this->runSlice());
  ASSERT_TRUE(this->runSlice());
  EXPECT_EQ(input.scanState(), Zun::InputScanState::complete);
  EXPECT_TRUE(this->sm->inputSmScanState()->template scan<TypeParam>());
  EXPECT_FALSE(input.inputScanTask());
}

TYPED_TEST(ConfigInputTest, TheInitialScanReadsEveryKeyAndDeliversNothing) {
  this->wantMany(1, 5);
  TraceLines trace(8);
  this->startUpToEvents();
  EXPECT_THAT(this->delivered(trace), ElementsAreArray(this->texts(this->keysOf(this->configs()))));
  EXPECT_THAT(trace.starting(TestFixture::kV4 ? "inputStream" : "input6Stream"), IsEmpty());
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
}

TYPED_TEST(ConfigInputTest, TheScanWithEventsDeliversEveryKeyOnceInTableOrder) {
  this->wantMany(1, 9);
  this->startUpToEvents();
  TraceLines trace(8);
  this->runAllInSlices();
  EXPECT_THAT(this->delivered(trace), ElementsAreArray(this->texts(this->keysOf(this->configs()))));
  EXPECT_EQ(this->statuses().size(), 9U);
}

TYPED_TEST(ConfigInputTest, AnInterruptedScanGoesOnBehindTheLastKeyDelivered) {
  this->wantMany(1, 6);
  this->startUpToEvents();
  const auto order = this->keysOf(this->configs());
  TraceLines trace(8);
  this->sliceThatDelivers(trace);
  this->sliceThatDelivers(trace);
  EXPECT_EQ(this->inputSm().scanState(), Zun::InputScanState::resumed);
  EXPECT_EQ(this->inputSm().resumeKey(), order[1]);
  // The key it stands at goes, one before and one behind it too, and others come.
  this->unwantUntold(order[0]);
  this->unwantUntold(order[1]);
  this->unwantUntold(order[3]);
  for (std::uint32_t n = 20; n < 40; ++n) this->wantUntold(this->key(n));
  std::vector<typename TestFixture::Key> behind;
  typename TestFixture::Config record;
  for (bool more = this->configs().after(order[1], record); more;
       more = this->configs().after(record.key, record)) {
    behind.push_back(record.key);
  }
  ASSERT_GE(behind.size(), 4U);
  ASSERT_LT(behind.size(), this->configs().size()) << "some came before";
  trace.take();
  this->runAllInSlices();
  EXPECT_THAT(this->delivered(trace), ElementsAreArray(this->texts(behind)));
}

TYPED_TEST(ConfigInputTest, ASliceIsBoundedByTheSchedulersQuestions) {
  if (this->yieldsAlways()) GTEST_SKIP() << "each slice has one entry here";
  this->wantMany(1, 7);
  this->startUpToEvents();
  TraceLines trace(8);
  while (trace.lines.empty()) ASSERT_TRUE(this->runSlice(3));
  EXPECT_EQ(this->delivered(trace).size(), 3U);
  this->runSlice(4);
  EXPECT_EQ(this->delivered(trace).size(), 7U);
  EXPECT_EQ(this->inputSm().scanState(), Zun::InputScanState::complete) << "no yield behind the last entry";
}

TYPED_TEST(ConfigInputTest, AYieldTellsTheTaskWhatWasDoneAndWhatIsLeft) {
  this->wantMany(1, 4);
  this->startUpToEvents();
  TraceLines trace;
  this->sliceThatDelivers(trace);
  const auto task = this->inputSm().inputScanTask();
  ASSERT_TRUE(task);
  EXPECT_EQ(task->name(), TestFixture::kScanTask);
  EXPECT_EQ(task->workCount(), 1U);
  EXPECT_EQ(task->workPending(), 3U);
  EXPECT_TRUE(task->scheduled());
  const std::string name(TestFixture::Texts::kInputSm);
  EXPECT_THAT(trace.starting(name), ElementsAre(name + " scan yielding after 1 iterations (3 remaining)"));
  this->sliceThatDelivers(trace);
  EXPECT_EQ(task->workCount(), 2U);
  EXPECT_EQ(task->workPending(), 2U);
  this->runAll();
  EXPECT_FALSE(this->inputSm().inputScanTask());
  EXPECT_EQ(task->references(), 1U) << "this test's: the task is gone";
}

TYPED_TEST(ConfigInputTest, WhenTheTableHasShrunkNothingIsToldAsLeft) {
  this->wantMany(1, 6);
  this->startUpToEvents();
  const auto order = this->keysOf(this->configs());
  TraceLines trace(8);
  for (int i = 0; i < 3; ++i) this->sliceThatDelivers(trace);
  for (int i = 0; i < 3; ++i) this->unwantUntold(order[static_cast<std::size_t>(i)]);
  this->sliceThatDelivers(trace);
  EXPECT_EQ(this->inputSm().inputScanTask()->workPending(), 0U);
}

// Switches a state machine off as soon as it writes to a table.
class SwitchesOff : public Kiv::PtrInterface::NotifieeConst {
 public:
  SwitchesOff(StateMachineWorld& world, const Kiv::Ptr<const Kiv::PtrInterface>& table) : world_(world) {
    notifierIs(table);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId) override { world_.sm->hasNotificationActiveIs(false); }

 private:
  StateMachineWorld& world_;
};

TYPED_TEST(ConfigInputTest, AnEventThatSwitchesItOffEndsTheSliceAndNotTheScan) {
  this->wantMany(1, 4);
  this->startUpToEvents();
  {
    const auto watcher = Kiv::makePtr<SwitchesOff>(*this, this->hoFlowStatus);
    this->runAll();
  }
  EXPECT_EQ(this->statuses().size(), 1U);
  EXPECT_NE(this->inputSm().scanState(), Zun::InputScanState::complete);
  this->sm->hasNotificationActiveIs(true);
  this->runAll();
  EXPECT_EQ(this->statuses().size(), 4U);
}

TYPED_TEST(ConfigInputTest, AScanThatIsCompleteDoesNothingWhenRunAgain) {
  this->want(this->key(1));
  this->startAndRun();
  TraceLines trace;
  this->inputSm().doInputScan();
  EXPECT_THAT(trace.lines,
              ElementsAre(TraceLine{9, "doInputScan", "scan complete: true resumed: false scan: true"}));
}

TYPED_TEST(ConfigInputTest, InlineNothingYields) {
  this->wantMany(1, 50);
  TraceLines trace;
  this->start();
  EXPECT_THAT(trace.of("doInputScan"), ::testing::Not(::testing::Contains(::testing::HasSubstr("yielding"))));
  EXPECT_FALSE(this->inputSm().shouldYield());
  EXPECT_FALSE(this->inputSm().inputScanTask());
  EXPECT_EQ(this->statuses().size(), 50U);
}

TYPED_TEST(ConfigInputTest, OutsideOfItsTaskNothingYields) {
  this->wantMany(1, 50);
  this->startUpToEvents();
  EXPECT_FALSE(this->inputSm().shouldYield());
  this->inputSm().doInputScan();
  EXPECT_EQ(this->inputSm().scanState(), Zun::InputScanState::complete);
  EXPECT_EQ(this->statuses().size(), 50U);
}

TYPED_TEST(ConfigInputTest, AChangeThatIsToldIsDeliveredAtOnce) {
  this->startAndRun();
  this->want(this->key(1));
  EXPECT_TRUE(this->statusOf(this->key(1)));
  EXPECT_EQ(this->inputSm().pendingNotifications(), 0U);
  this->unwant(this->key(1));
  EXPECT_FALSE(this->statusOf(this->key(1)));
}

TYPED_TEST(ConfigInputTest, AChangeBeforeEventsAreTriggeredIsFoundByTheScan) {
  this->want(this->key(1));
  this->start(TestFixture::kTasks);
  this->want(this->key(2));
  this->unwant(this->key(1));
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
  this->runAllInSlices();
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(this->key(2)));
}

TYPED_TEST(ConfigInputTest, AKeyThatIsDeliveredTwiceIsCountedOnce) {
  this->wantMany(1, 3);
  this->startUpToEvents();
  const auto order = this->keysOf(this->configs());
  this->want(order[2], 1);  // told now, and met by the scan later
  EXPECT_TRUE(this->statusOf(order[2]));
  this->runAllInSlices();
  EXPECT_EQ(this->counterOf(order[2].ipFlowKey)->hosEntries, 1U);
  EXPECT_EQ(this->count(HoFlowState::inHardware), 3U);
}

TYPED_TEST(ConfigInputTest, SwitchedOffItKeepsCountOfWhatItIsTold) {
  this->startAndRun();
  this->inputSm().hasNotificationActiveIs(false);
  this->want(this->key(1));
  this->want(this->key(2));
  EXPECT_EQ(this->inputSm().pendingNotifications(), 2U);
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
  TraceLines trace;
  this->inputSm().doInputScan();
  EXPECT_THAT(trace.lines, IsEmpty());
  this->inputSm().hasNotificationActiveIs(true);
  this->runAll();
  EXPECT_EQ(this->inputSm().pendingNotifications(), 0U);
  EXPECT_EQ(this->statuses().size(), 2U);
}

TYPED_TEST(ConfigInputTest, WhenTheWantedOffloadsThemselvesGoEverythingIsWithdrawn) {
  this->budgetIs(3);
  this->start();
  this->wantMany(1, 8);
  for (std::uint32_t n = 1; n <= 3; ++n) this->countPacket(this->flow(n));
  this->containerGoes();
  EXPECT_THAT(this->keysOf(this->statuses()), IsEmpty());
  EXPECT_THAT(this->keysOf(this->counters()), IsEmpty());
  EXPECT_THAT(this->waitingKeys(), IsEmpty());
  EXPECT_EQ(this->count(HoFlowState::inHardware), 0U);
  EXPECT_EQ(this->count(HoFlowState::overflow), 0U);
  for (std::uint32_t n = 1; n <= 3; ++n) EXPECT_FALSE(this->hasLocal(this->flow(n))) << n;
}

TYPED_TEST(ConfigInputTest, WhenTheWantedOffloadsGoTheirKeysAreDeliveredAsAbsent) {
  this->start();
  this->wantMany(1, 2);
  TraceLines trace(9);
  this->containerGoes();
  const auto order = this->keysOf(this->configs());
  const std::string start = TestFixture::kV4
                                ? "inputStream = from( hoFlowConfig.hoIpFlowConfig[] ): hoIpKey="
                                : "input6Stream = from( hoFlowConfig.hoIp6FlowConfig[] ): hoIpKey=";
  const std::string maybe = TestFixture::kV4 ? " maybeConfig=None" : " maybe6Config=None";
  EXPECT_THAT(trace.starting(start),
              ElementsAre(start + order[0].str() + maybe, start + order[1].str() + maybe));
  EXPECT_EQ(trace.of("doDeleteAll").size(), 2U) << "one of each family";
}

template <class Domain>
using ConfigInputDeathTest = ConfigInputTest<Domain>;
TYPED_TEST_SUITE(ConfigInputDeathTest, Families);

TYPED_TEST(ConfigInputDeathTest, GoingWithUndeliveredChangesStopsTheProcess) {
  this->start();
  this->sm->hasNotificationActiveIs(false);
  this->want(this->key(1));
  EXPECT_DEATH(this->containerGoes(),
               TestFixture::kV4 ? "We missed notifications that happened to hoIpFlowConfig before the "
                                  "enclosing entity got deleted"
                                : "We missed notifications that happened to hoIp6FlowConfig before the "
                                  "enclosing entity got deleted");
}

TYPED_TEST(ConfigInputDeathTest, ScanningWithoutATableStopsTheProcess) {
  this->start();
  Statements<TypeParam> statements(nullptr, this->helper, this->outputs(), *this->sm);
  const auto inputSm =
      Kiv::makePtr<ConfigInputSm<TypeParam>>(nullptr, statements, this->outputs(), *this->sm);
  EXPECT_DEATH(inputSm->doInputScan(),
               R"(en\(\) && "Sm args can only be null if marked as Optional in the SM type declaration")");
}

}  // namespace
}  // namespace SampledFlowTracker
