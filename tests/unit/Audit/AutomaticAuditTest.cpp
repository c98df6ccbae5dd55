// What the audit does by itself once a started state machine is ready.
#include "AuditFixture.h"
#include "AuditTrace.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A start over what an earlier agent left: four flows were in hardware, and all but flow 1 were withdrawn
// while no agent ran.
template <class Domain>
class AutomaticAudit : public AuditTest<Domain> {
 protected:
  void restart(AfterRestart afterRestart) {
    for (const std::uint32_t number : {1U, 2U, 3U, 4U}) {
      this->statusIs(number, HoFlowState::inHardware);
      this->counterIs(number, 1);
    }
    this->stateCountIs(HoFlowState::inHardware, 4);
    this->want(1);
    this->startReady(10, afterRestart);
    for (int i = 0; i < 3 && this->world.audit->running(); ++i) {
      this->world.clock.advance(SftPexaAudit::kPause);
      this->world.runDue();
    }
    ASSERT_EQ(this->world.status().template map<Domain>().size(), 1U) << "reconciled";
  }
};
TYPED_TEST_SUITE(AutomaticAudit, Families);

TYPED_TEST(AutomaticAudit, RepairsWhatWithdrawnOffloadsLeft) {
  this->restart(AfterRestart::repair);
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 1U);
  this->expectExact();
  EXPECT_THAT(this->world.log.texts,
              ElementsAre("audit after the restart (repair): 1 statuses, 1 difference, 1 repaired (per-state "
                          "count: 1)"));
  EXPECT_EQ(this->world.audit->lastResult(), this->world.log.texts[0]);
  EXPECT_EQ(this->world.audit->run(), 1U);
  EXPECT_THAT(this->takeFindings(), IsEmpty()) << "nobody asked for them";
}

TYPED_TEST(AutomaticAudit, OnlyReports) {
  this->restart(AfterRestart::report);
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 4U);
  EXPECT_THAT(this->world.log.levels, ElementsAre(0U));
  EXPECT_THAT(this->world.log.texts,
              ElementsAre("audit after the restart (report): 1 statuses, 1 difference, 0 repaired (per-state "
                          "count: 1)"));
}

TYPED_TEST(AutomaticAudit, DoesNothingWhenOff) {
  this->restart(AfterRestart::off);
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 4U);
  EXPECT_THAT(this->world.log.texts, IsEmpty());
  EXPECT_EQ(this->world.audit->run(), 0U);
}

TYPED_TEST(AutomaticAudit, RunsOnceAndCanBeAskedForAgain) {
  this->restart(AfterRestart::report);
  this->world.runDue();
  this->want(2);
  this->world.clock.advance(10);
  this->world.runDue();
  EXPECT_EQ(this->world.audit->run(), 1U);
  EXPECT_EQ(this->auditOf(true).size(), 1U);
  EXPECT_EQ(this->world.log.texts.size(), 2U);
  EXPECT_THAT(this->world.log.texts.back(), HasSubstr("audit asked for (repair): 2 statuses, 1 difference"));
}

TYPED_TEST(AutomaticAudit, AnotherAttributeOfTheTrackerStartsNone) {
  this->restart(AfterRestart::report);
  this->world.tracker->sflowHwConfigIs(Kiv::makePtr<Sflow::HwConfig>("another"));
  this->world.runDue();
  EXPECT_EQ(this->world.audit->run(), 1U);
}

// Without configuration nothing is changed.
TYPED_TEST(AutomaticAudit, ReportsUnlessConfigured) {
  this->world.mountAudit();
  ASSERT_TRUE(this->world.audit->config());
  EXPECT_EQ(this->world.audit->config()->afterRestart(), AfterRestart::report);
  EXPECT_TRUE(this->world.audit->config()->hasNotificationActive());
  EXPECT_TRUE(this->world.audit->hasNotificationActive());
}

// The plugins may be named in any order.
TYPED_TEST(AutomaticAudit, FollowsATrackerThatIsActivatedLater) {
  this->stateCountIs(HoFlowState::inHardware, 4);
  this->world.configure(AfterRestart::repair);
  this->world.mountAudit();
  this->world.audit->activeInit(Pexa::PexaMode::active);
  this->world.runDue();
  EXPECT_EQ(this->world.audit->run(), 0U);
  this->world.tracker->activeInit(Pexa::PexaMode::active);
  this->world.runDue();
  EXPECT_EQ(this->world.audit->run(), 1U);
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 0U);
}

TYPED_TEST(AutomaticAudit, FollowsATrackerThatIsReadyAlready) {
  this->world.configure(AfterRestart::report);
  this->world.mountAudit();
  this->world.tracker->activeInit(Pexa::PexaMode::active);
  this->world.runDue();
  ASSERT_TRUE(this->world.tracker->hocSm()->ready());
  this->world.audit->activeInit(Pexa::PexaMode::active);
  EXPECT_EQ(this->world.audit->run(), 1U);
}

TYPED_TEST(AutomaticAudit, IsLessUrgentThanTheStateMachine) {
  this->restart(AfterRestart::off);
  const auto& tasks = this->world.scheduler->tasks();
  const auto own = std::find_if(tasks.begin(), tasks.end(),
                                [](const Olt::Task* task) { return task->name() == SftPexaAudit::kName; });
  ASSERT_NE(own, tasks.end());
  for (const Olt::Task* task : tasks) {
    if (task == *own) continue;
    EXPECT_LT(task->priority(), (*own)->priority()) << task->name();
  }
}

TYPED_TEST(AutomaticAudit, SaysWhyItDoesNot) {
  this->world.configure(AfterRestart::repair);
  this->world.mountAudit();
  this->world.activate();
  this->world.agent.tables->tables.erase(HoFlowCounter::mountPath(featureType(), kCounterName));
  this->world.runDue();
  EXPECT_EQ(this->world.audit->run(), 0U);
  EXPECT_THAT(this->world.log.texts, ElementsAre(HasSubstr("no audit after the restart: flowtracking/")));
}

TEST(AuditLog, WritesToTheTextAndToTheRingWhereThatIsWanted) {
  TestSupport::RecordingText text("Pexa::SftAudit", 0);
  TestSupport::RecordingRing ring;
  auditLog("one");
  ring.close();
  auditLog("two");
  EXPECT_THAT(text.texts, ElementsAre("one", "two"));
  EXPECT_THAT(ring.texts(), ElementsAre("Sft one"));
}

TEST(AuditConfigTest, TakesThreeWordsAndNothingElse) {
  const auto config = Kiv::makePtr<AuditConfig>("path");
  for (const std::string_view word : {"off", "report", "repair"}) {
    Kiv::attributeIs(*config, "afterRestart", word);
    EXPECT_EQ(Kiv::attribute(*config, "afterRestart"), Kiv::Value(word));
  }
  for (const Kiv::Value& wrong : {Kiv::Value("Repair"), Kiv::Value(true), Kiv::Value("")}) {
    try {
      Kiv::attributeIs(*config, "afterRestart", wrong);
      ADD_FAILURE() << wrong.described();
    } catch (const Kiv::ValueError& error) {
      EXPECT_THAT(error.what(),
                  HasSubstr("expected \"off\", \"report\" or \"repair\", got " + wrong.described()));
    }
  }
  EXPECT_EQ(config->afterRestart(), AfterRestart::repair);
}

}  // namespace
}  // namespace SampledFlowTracker
