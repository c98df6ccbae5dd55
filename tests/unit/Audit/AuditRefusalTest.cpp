// What cannot be audited, and what ends an audit before its time.
#include "AuditFixture.h"

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

class AuditRefusal : public AuditTest<Pavo::Traits::IPv4> {};

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
  world.tracker->hocSmDel();
  EXPECT_FALSE(world.audit->running());
  EXPECT_EQ(world.audit->findings(run, 1).stopped, "the tracker's state machine went");
  EXPECT_THAT(world.audit->lastResult(), HasSubstr("stopped: the tracker's state machine went"));
  EXPECT_EQ(stateCount(HoFlowState::inHardware), 7U) << "not yet come to";
  world.runDue();
  EXPECT_THAT(refusal([this] { world.audit->start(false); }), HasSubstr("state machine does not run"));
}

TEST_F(AuditRefusal, HoldsNothingOfTheTrackerWhenItIsOver) {
  startReady();
  drift();
  const auto status = Kiv::Ptr<HoFlowStatus>(&world.status());
  const auto before = status->references();
  auditOf(true);
  EXPECT_EQ(status->references(), before);
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
