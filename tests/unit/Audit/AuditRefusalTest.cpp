// What cannot be audited, and what ends an audit before its time.
#include "AuditFixture.h"
#include "TempDir.h"
#include "quell/TableFile.h"
#include "quell/TablePlace.h"

namespace SampledFlowTracker {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

template <class Call>
std::string refusal(const Call& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

class AuditRefusal : public AuditTest<Pavo::Traits::IPv4> {
 protected:
  Olt::Task* auditTask() const {
    const auto& tasks = world.scheduler->tasks();
    return *std::find_if(tasks.begin(), tasks.end(),
                         [](const Olt::Task* task) { return task->name() == SftPexaAudit::kName; });
  }
};

TEST_F(AuditRefusal, OfASecondRunAtATime) {
  startReady();
  world.audit->start(false);
  EXPECT_EQ(refusal([this] { world.audit->start(true); }),
            "an audit is under way already (run 1), expected to wait for its end");
  finishRun(1000);
  EXPECT_EQ(world.audit->start(true), 2U);
}

TEST_F(AuditRefusal, OfATrackerThatIsNotReady) {
  world.mountAudit();
  world.activate();
  EXPECT_THAT(refusal([this] { world.audit->start(false); }), HasSubstr("still reconciles its tables"));
  world.runDue();
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), "");
}

TEST_F(AuditRefusal, InStandby) {
  world.mountAudit();
  world.audit->standbyInit(Pexa::PexaMode::standby);
  EXPECT_THAT(refusal([this] { world.audit->start(false); }), HasSubstr("standby"));
}

TEST_F(AuditRefusal, OfATrackerInStandby) {
  world.mountAudit();
  world.audit->activeInit(Pexa::PexaMode::active);
  EXPECT_THAT(refusal([this] { world.audit->start(false); }), HasSubstr("state machine does not run"));
}

TEST(AuditAlone, RefusesWithoutATracker) {
  AuditedAgent world(false);
  world.mountAudit();
  world.audit->activeInit(Pexa::PexaMode::active);
  world.runDue();
  EXPECT_THAT(refusal([&] { world.audit->start(false); }), HasSubstr("libPexaSampledFlowTracker.so"));
}

TEST_F(AuditRefusal, OfTablesThatAreNotMounted) {
  startReady();
  world.agent.tables->tables.erase(HoFlowCounter::mountPath(featureType(), kCounterName));
  EXPECT_EQ(
      refusal([this] { world.audit->start(false); }),
      "flowtracking/sampled/hwOffload/counter/hfc is not mounted, expected the agent to hold the tracker's "
      "tables");
  EXPECT_FALSE(world.audit->running());
}

TEST_F(AuditRefusal, OfAnAgentWithoutSharedTables) {
  startReady();
  const auto none = "the agent holds no shared tables, expected those of the tracker";
  world.agent.manager->agent = Kiv::makePtr<Pexa::PexaAgent>("agent", nullptr);
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), none);
  world.agent.manager->agent = nullptr;
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), none);
  world.agent.manager->agent = world.agent.agent;
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), "");
}

TEST_F(AuditRefusal, OfATrackerWithoutItsHelperOrItsLocalCounters) {
  startReady();
  const auto none = "the tracker has no overflow entries or no local counters, expected it to be active";
  const auto helper = world.tracker->drovaHelperDel();
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), none);
  world.tracker->drovaHelperIs(Kiv::Ptr<HosStateCounter>(&world.stateCounter()));
  world.tracker->localHoCountersDel();
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), none);
}

// What it would repair, somebody else writes.
TEST_F(AuditRefusal, OfStatusesThatAnotherProcessWrites) {
  startReady();
  TestSupport::TempDir dir;
  auto& map = world.status().map<Pavo::Traits::IPv4>();
  const auto open = [&] {
    Quell::TableFile::Creation creation;
    creation.type = &map.type();
    creation.containerType = map.owner().fwkType().name();
    return std::make_shared<Quell::Table>(Quell::TableFile::openOrCreate(
        {dir.path(), "statuses", map.name()}, creation, Quell::TableFile::Access::read));
  };
  const auto former = map.table();
  const auto other = open();
  map.tableIs(open());
  other->writingIs();
  EXPECT_THAT(refusal([this] { world.audit->start(false); }), HasSubstr("statuses"));
  EXPECT_FALSE(world.audit->running());
  other->writingDel();
  EXPECT_EQ(refusal([this] { world.audit->start(false); }), "");
  finishRun(1000);
  map.tableIs(former);
}

TEST_F(AuditRefusal, OfARunThatIsNoMore) {
  startReady();
  EXPECT_EQ(refusal([this] { world.audit->findings(0, 1); }), "run 0 is no more, expected the latest one, 0");
  auditOf(false);
  auditOf(false);
  EXPECT_EQ(refusal([this] { world.audit->findings(1, 1); }), "run 1 is no more, expected the latest one, 2");
}

TEST_F(AuditRefusal, TheStateMachineThatGoesStopsTheRun) {
  startReady();
  drift();
  const std::uint64_t run = world.audit->start(true);
  ASSERT_TRUE(world.runOne(1));
  ASSERT_TRUE(auditTask()->scheduled());
  world.tracker->hocSmDel();
  EXPECT_FALSE(world.audit->running());
  EXPECT_FALSE(auditTask()->scheduled());
  EXPECT_EQ(world.audit->findings(run, 1).stopped, "the tracker's state machine went");
  const Kiv::Value shown = Kiv::invoke(*world.audit, "findings", {{"run", run}, {"most", 1U}});
  EXPECT_EQ(*shown.member("stopped"), Kiv::Value("the tracker's state machine went"));
  EXPECT_THAT(world.audit->lastResult(), HasSubstr("stopped: the tracker's state machine went"));
  EXPECT_EQ(stateCount(HoFlowState::inHardware), 7U) << "not yet come to";
  world.runDue();
  EXPECT_THAT(refusal([this] { world.audit->start(false); }), HasSubstr("state machine does not run"));
}

TEST_F(AuditRefusal, ARunBehindOneThatWasStoppedIsNotStopped) {
  startReady();
  world.audit->start(false);
  world.tracker->hocSmDel();
  ASSERT_TRUE(world.audit->findings(1, 1).stopped);
  world.tracker->activeInit(Pexa::PexaMode::active);
  world.runDue();
  EXPECT_EQ(world.audit->findings(world.audit->start(false), 1).stopped, std::nullopt);
}

TEST(AuditStopped, LetsGoOfTheTablesAtAnyPoint) {
  for (unsigned slices = 0; slices < 40; ++slices) {
    AuditedFamily<Pavo::Traits::IPv4> one;
    one.startReady();
    one.drift();
    one.world.audit->start(true);
    for (unsigned i = 0; i < slices; ++i) one.world.runOne(1);
    one.world.tracker->hocSmDel();
    EXPECT_TRUE(one.world.status().notifieeList()->empty()) << slices;
  }
}

TEST_F(AuditRefusal, ASliceThatComesWithoutARunDoesNothing) {
  startReady();
  auditTask()->scheduleTask();
  world.runDue();
  EXPECT_EQ(world.audit->run(), 0U);
  EXPECT_EQ(world.audit->lastResult(), "");
}

TEST_F(AuditRefusal, WithoutItsConfigurationNoneComesByItself) {
  world.activate();
  world.runDue();
  ASSERT_TRUE(world.tracker->hocSm()->ready());
  EXPECT_EQ(world.audit->run(), 0U);
}

TEST_F(AuditRefusal, HoldsNothingOfTheTrackerWhenItIsOver) {
  startReady();
  drift();
  const auto status = Kiv::Ptr<HoFlowStatus>(&world.status());
  const auto before = status->references();
  const auto stateMachine = world.tracker->hocSm()->references();
  auditOf(true);
  EXPECT_EQ(status->references(), before);
  EXPECT_EQ(world.tracker->hocSm()->references(), stateMachine);
}

TEST_F(AuditRefusal, AnAuditThatIsDroppedAmidARunHoldsNothing) {
  startReady();
  drift();
  const auto status = Kiv::Ptr<HoFlowStatus>(&world.status());
  const auto before = status->references();
  const auto helper = world.tracker->drovaHelper()->references();
  world.audit->start(true);
  ASSERT_TRUE(world.runOne(1));
  EXPECT_GT(status->references(), before);
  world.agent.manager->pluginDelAll();
  world.audit.reset();
  EXPECT_EQ(status->references(), before);
  EXPECT_EQ(world.tracker->drovaHelper()->references(), helper);
  EXPECT_TRUE(world.tracker->notifieeList()->empty());
  world.runDue();
  want(2);  // nobody watches any more
}

}  // namespace
}  // namespace SampledFlowTracker
