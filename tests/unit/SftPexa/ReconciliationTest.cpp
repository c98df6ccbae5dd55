// What an earlier run left in the tables is brought in line after a restart.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

template <class Domain>
class ReconciliationTest : public StateMachineTest<Domain> {
 protected:
  // Everything that this family's tables hold, of flows that nobody wants.
  void leaveEverywhere() {
    for (std::uint32_t n = 1; n <= 3; ++n) {
      this->leaveStatus(this->key(n));
      this->leaveCounter(this->flow(n));
      this->countPacket(this->flow(n + 10));  // of a flow without a record
      this->waiting().insert(this->key(n));
    }
    this->leaveCount(HoFlowState::pending, 1);
    this->leaveCount(HoFlowState::none, 1);
  }
  OutputBase& statusOutput() const { return this->outputs().status; }
};
TYPED_TEST_SUITE(ReconciliationTest, Families);

TYPED_TEST(ReconciliationTest, EmptyTablesAreNotReconciled) {
  TraceLines trace;
  this->startAndRun();
  EXPECT_TRUE(this->sm->ready());
  EXPECT_THAT(trace.starting("Deletion scan"), IsEmpty());
  EXPECT_THAT(trace.starting("Yielding in"), IsEmpty());
  std::vector<std::string> expected;
  for (const OutputId id : kReadyChain) {
    expected.push_back(fmt::format("Input scans for {} complete", nameOf(id)));
  }
  EXPECT_THAT(trace.starting("Input scans for"), ElementsAreArray(expected)) << "in the order of the chain";
  EXPECT_THAT(trace.starting("Reconciling "), ::testing::Each(::testing::EndsWith(": false")));
}

TYPED_TEST(ReconciliationTest, EachOutputDecidesByItsOwnTable) {
  this->leaveStatus(this->key(1));
  TraceLines trace;
  this->start(TestFixture::kTasks);
  for (std::size_t i = 0; i < kOutputs; ++i) {
    const auto id = static_cast<OutputId>(i);
    EXPECT_EQ(this->sm->output(id).reconciling(), id == this->statusOutput().id()) << nameOf(id);
    EXPECT_THAT(trace.starting("Reconciling "),
                Contains(fmt::format("Reconciling {}: {}", nameOf(id), id == this->statusOutput().id())));
  }
  EXPECT_EQ(trace.starting("Reconciling ").size(), kOutputs);
}

TYPED_TEST(ReconciliationTest, InlineWhatWasWrittenAgainLosesNothing) {
  this->start();
  this->wantMany(1, 3);
  this->stop();
  TraceLines trace;
  this->start();
  EXPECT_EQ(this->statuses().size(), 3U);
  EXPECT_EQ(this->counters().size(), 3U);
  EXPECT_EQ(this->count(kInHardware), 3U);
  EXPECT_THAT(trace.starting("Deletion scan"), ElementsAre(doneText(3, 0), doneText(3, 0), doneText(1, 0)));
  EXPECT_THAT(trace.starting("Yielding in"), IsEmpty());
  EXPECT_TRUE(this->sm->ready());
  for (std::uint32_t n = 1; n <= 3; ++n) EXPECT_EQ(this->counterOf(this->flow(n))->hosEntries, 1U) << n;
}

TYPED_TEST(ReconciliationTest, AStaleEntryIsDeletedAndOneThatIsWrittenAgainStays) {
  this->leaveStatus(this->key(1), kInHardware, 5);
  this->leaveStatus(this->key(2), kInHardware, 5);
  this->want(this->key(2));
  this->start();
  EXPECT_THAT(this->keysOf(this->statuses()), ElementsAre(this->key(2)));
  EXPECT_EQ(this->statusOf(this->key(2))->creationTime, 5) << "it kept its state";
}

TYPED_TEST(ReconciliationTest, EveryOutputsLeftoversAreDeleted) {
  for (const auto choice : {TestFixture::kSynchronous, TestFixture::kTasks}) {
    this->leaveEverywhere();
    this->start(choice);
    this->runAll();
    EXPECT_TRUE(this->sm->ready());
    EXPECT_TRUE(this->statuses().empty());
    EXPECT_TRUE(this->counters().empty());
    EXPECT_TRUE(this->counts().empty());
    EXPECT_TRUE(this->waiting().empty());
    for (std::uint32_t n = 11; n <= 13; ++n) EXPECT_FALSE(this->hasLocal(this->flow(n))) << n;
    this->sm.reset();
  }
}

TYPED_TEST(ReconciliationTest, OutputsAreReconciledOneAfterAnotherInTheChainsOrder) {
  this->leaveEverywhere();
  this->start(TestFixture::kTasks);
  std::vector<OutputId> became;
  while (!this->sm->ready()) {
    ASSERT_TRUE(this->runSlice());
    for (const OutputId id : kReadyChain) {
      const bool known = std::find(became.begin(), became.end(), id) != became.end();
      if (this->sm->output(id).ready() && !known) became.push_back(id);
    }
    unsigned scanning = 0;
    for (const OutputId id : kReadyChain) scanning += this->sm->output(id).useBookmark() ? 1 : 0;
    EXPECT_LE(scanning, 1U);
  }
  EXPECT_THAT(became, ElementsAreArray(kReadyChain));
}

TYPED_TEST(ReconciliationTest, BeforeTheInitialScanIsDoneAHandlerOnlyAsksForIt) {
  this->leaveEverywhere();
  this->start(TestFixture::kTasks);
  TraceLines trace;
  this->statusOutput().inputReady();
  const std::string handler = std::string(textsOf(this->statusOutput().id()).handler);
  EXPECT_THAT(trace.lines, ElementsAre(TraceLine{9, handler, ""},
                                       TraceLine{9, "handleInitialScanDone", " inputStream scan is false"}));
  EXPECT_EQ(this->statuses().size(), 3U);
  EXPECT_FALSE(this->statusOutput().ready());
}

TYPED_TEST(ReconciliationTest, OnceReadyAHandlerChangesNothing) {
  this->startAndRun();
  this->leaveStatus(this->key(1));
  TraceLines trace;
  this->statusOutput().inputReady();
  const std::string handler = std::string(textsOf(this->statusOutput().id()).handler);
  EXPECT_THAT(trace.lines,
              ElementsAre(TraceLine{9, handler, ""}, TraceLine{9, handler, " .. not reconciling."}));
  EXPECT_TRUE(this->statusOf(this->key(1)));
}

TYPED_TEST(ReconciliationTest, BeforeItsTurnAHandlerReturnsWithoutAWord) {
  this->leaveEverywhere();
  this->start(TestFixture::kTasks);
  while (!this->sm->initialScanDone()) ASSERT_TRUE(this->runSlice());
  TraceLines trace;
  auto& overflow = this->outputs().overflow;
  overflow.inputReady();
  const std::string handler = std::string(textsOf(overflow.id()).handler);
  EXPECT_THAT(trace.lines, ElementsAre(TraceLine{9, handler, ""}));
  EXPECT_EQ(this->waiting().size(), 3U);
}

TEST(ReconciliationTwoFamilies, TheWaitingIpv6FlowsAreTheLastToBeReady) {
  FamilyWorld<Pavo::Traits::IPv6> world;
  for (std::uint32_t n = 1; n <= 3; ++n) world.waiting().insert(world.key(n));
  world.start(StateMachineWorld::kTasks);
  while (!world.sm->ready()) {
    for (const OutputId id : kReadyChain) {
      if (id == OutputId::helperOverflow6Entries) {
        EXPECT_FALSE(world.sm->output(id).ready());
      }
    }
    ASSERT_TRUE(world.runSlice());
  }
  EXPECT_TRUE(world.sm->output(OutputId::helperOverflow6Entries).ready());
  EXPECT_TRUE(world.waiting().empty());
}

TEST(ReconciliationTwoFamilies, TheTenHandlersAreThoseOfTheirOutputs) {
  FamilyWorld<Pavo::Traits::IPv4> world;
  world.start(StateMachineWorld::kTasks);
  SftPexaFtHOCSM& sm = *world.sm;
  using Handler = void (SftPexaFtHOCSM::*)();
  const Handler handlers[] = {&SftPexaFtHOCSM::handleLocalCounterCounterIp6CollectionOutputInputReady,
                              &SftPexaFtHOCSM::handleLocalCounterCounterCollectionOutputInputReady,
                              &SftPexaFtHOCSM::handleHosStateCounterHosStateIp6CounterOutputInputReady,
                              &SftPexaFtHOCSM::handleHoFlowStatusHoIpFlowStatusOutputInputReady,
                              &SftPexaFtHOCSM::handleHosStateCounterHosStateIpCounterOutputInputReady,
                              &SftPexaFtHOCSM::handleHelperOverflowEntriesOutputInputReady,
                              &SftPexaFtHOCSM::handleHoFlowCounterHoIp6FlowCounterOutputInputReady,
                              &SftPexaFtHOCSM::handleHoFlowStatusHoIp6FlowStatusOutputInputReady,
                              &SftPexaFtHOCSM::handleHoFlowCounterHoIpFlowCounterOutputInputReady,
                              &SftPexaFtHOCSM::handleHelperOverflow6EntriesOutputInputReady};
  for (std::size_t i = 0; i < kOutputs; ++i) {
    TraceLines trace;
    const Handler handler = handlers[i];
    (sm.*handler)();
    ASSERT_FALSE(trace.lines.empty());
    EXPECT_EQ(trace.lines[0].handler, std::string(textsOf(static_cast<OutputId>(i)).handler));
  }
}

}  // namespace
}  // namespace SampledFlowTracker
