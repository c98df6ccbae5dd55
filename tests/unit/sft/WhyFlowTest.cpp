#include "WhyFlow.h"

#include <gmock/gmock.h>

#include "FlowKey.h"

namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using Sft::AgentFacts;
using Sft::Standing;
using Sft::SystemFacts;
using Sft::WhyFlow;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr double kNow = 1'000'000;

// An agent that offloads all there is, a tracker, and an IPv4 flow of which only its parts are known.
class WhyFlowTest : public testing::Test {
 protected:
  WhyFlowTest() {
    system_.agent.standing = Standing::answers;
    system_.agent.plugin = AgentFacts::Plugin::active;
    system_.agent.offloaded = system_.agent.announced = {true, true};
    system_.agent.sampleRate = 100;
    system_.agent.budget = 10;
    system_.agent.ready = true;
    system_.agent.ports = system_.agent.ingress = {"Ethernet1"};
    system_.tracker.standing = Standing::answers;
    system_.tracker.samplesToLearn = 3;
    system_.tracker.maxFlows = 5;
    system_.tracker.interfaces = {"Ethernet1"};
    flow_.family = {true, false};
    flow_.protocol = 17U;
    flow_.vrf = FlowTracking::kDefaultVrfId;
    flow_.direction = AllowedTrafficDirection::ingress;
    flow_.interface = "Ethernet1";
  }
  std::vector<std::string> verdicts() const {
    std::vector<std::string> words;
    for (const auto& each : Sft::whyFlow(flow_, system_, kNow)) words.emplace_back(each.verdict);
    return words;
  }
  std::string why() const { return Sft::whyFlow(flow_, system_, kNow).front().why; }
  void admit() {
    flow_.wantedSince = kNow - 200;
    flow_.state = HoFlowState::inHardware;
    flow_.stateSince = kNow - 100;
    flow_.counted = true;
  }
  void holdBack() {
    admit();
    flow_.state = HoFlowState::overflow;
    system_.inHardware = {10, 0};
    system_.waiting = {4, 0};
  }

  SystemFacts system_;
  WhyFlow flow_;
};

TEST_F(WhyFlowTest, InHardwareTellsSinceWhenAndWhatWasCounted) {
  admit();
  flow_.packets = 1;
  flow_.bytes = 60;
  flow_.lastCounted = kNow - 3;
  EXPECT_THAT(verdicts(), ElementsAre("in-hardware"));
  EXPECT_THAT(why(), HasSubstr("100 s ago. 1 packet and 60 bytes were counted, the last one"));
  EXPECT_THAT(why(), HasSubstr("3 s ago."));
  flow_.packets = 0;
  EXPECT_THAT(why(), HasSubstr("None of its packets was counted yet."));
}

TEST_F(WhyFlowTest, WithoutACounterRecordNobodyPublishesWhatIsCounted) {
  admit();
  flow_.counted = false;
  EXPECT_THAT(verdicts(), ElementsAre("in-hardware-unpublished"));
}

TEST_F(WhyFlowTest, AStatusThatIsNotWantedAnyMore) {
  admit();
  flow_.wantedSince.reset();
  EXPECT_THAT(verdicts(), ElementsAre("not-wanted-any-more"));
  flow_.state = HoFlowState::overflow;
  EXPECT_THAT(verdicts(), ElementsAre("not-wanted-any-more"));
}

TEST_F(WhyFlowTest, WaitingTellsHowManyAreInAndWait) {
  holdBack();
  EXPECT_THAT(verdicts(), ElementsAre("waiting-for-room"));
  EXPECT_THAT(why(), HasSubstr("10 of at most 10 IPv4 flows are in hardware, 4 wait. Room is made when"));
}

TEST_F(WhyFlowTest, RoomThatAppearedIsNotGivenAway) {
  holdBack();
  system_.inHardware = {9, 0};
  EXPECT_THAT(why(), HasSubstr("There is room, but what appears is not given away by itself"));
}

TEST_F(WhyFlowTest, ABudgetOfNothingIsNamed) {
  holdBack();
  system_.agent.budget = 0;
  EXPECT_THAT(why(), HasSubstr("With a budget of 0 nothing comes in"));
}

TEST_F(WhyFlowTest, OtherStatesAreNamed) {
  admit();
  flow_.state = HoFlowState{7};
  EXPECT_THAT(verdicts(), ElementsAre("other-state"));
  EXPECT_THAT(why(), HasSubstr("state 7"));
}

TEST_F(WhyFlowTest, WantedWithoutAStatusWaitsForTheAgent) {
  flow_.wantedSince = kNow - 1;
  EXPECT_THAT(verdicts(), ElementsAre("waiting-for-agent"));
  EXPECT_THAT(why(), HasSubstr("sft doctor"));
  system_.agent.ready = false;
  EXPECT_THAT(why(), HasSubstr("still reconciles"));
}

TEST_F(WhyFlowTest, ACandidateTellsHowManySamplesItHas) {
  flow_.samples = 2;
  flow_.lastSampled = kNow - 5;
  EXPECT_THAT(verdicts(), ElementsAre("candidate"));
  EXPECT_THAT(why(), HasSubstr("2 times, last"));
  EXPECT_THAT(why(), HasSubstr("5 s ago; 3 samples make it wanted"));
}

TEST_F(WhyFlowTest, ACandidateWithSamplesEnoughFoundNoRoomInTheTracker) {
  flow_.samples = 3;
  EXPECT_THAT(verdicts(), ElementsAre("tracker-full"));
  EXPECT_THAT(why(), HasSubstr("at most 5 flows"));
}

TEST_F(WhyFlowTest, WhatNobodyWantsIsExplainedByWhoCouldHaveLearnedIt) {
  EXPECT_THAT(verdicts(), ElementsAre("not-seen"));
  system_.tracker.interfaces.clear();
  EXPECT_THAT(verdicts(), ElementsAre("interface-unmapped"));
  system_.tracker.standing = Standing::absent;
  EXPECT_THAT(verdicts(), ElementsAre("not-wanted"));
  EXPECT_THAT(why(), HasSubstr("no flow tracker runs"));
  system_.tracker.standing = Standing::silent;
  EXPECT_THAT(why(), HasSubstr("the flow tracker could not be asked"));
  system_.agent.sampleRate = 0;
  EXPECT_THAT(verdicts(), ElementsAre("sampling-off"));
}

TEST_F(WhyFlowTest, OnlyTcpAndUdpOfTheDefaultVrfPass) {
  admit();
  flow_.protocol = 47U;
  flow_.vrf = 7U;
  EXPECT_THAT(verdicts(), ElementsAre("not-tcp-udp", "not-default-vrf", "in-hardware"));
  EXPECT_THAT(why(), HasSubstr("protocol 47"));
  flow_.protocol = 6U;
  EXPECT_THAT(verdicts(), ElementsAre("not-default-vrf", "in-hardware"));
}

TEST_F(WhyFlowTest, AFamilyThatIsOffComesBeforeTheStatus) {
  admit();
  system_.agent.offloaded = {false, true};
  EXPECT_THAT(verdicts(), ElementsAre("family-disabled", "in-hardware"));
  EXPECT_THAT(why(), HasSubstr("The offload of IPv4 is off"));
  EXPECT_THAT(why(), Not(HasSubstr("toggle")));
  system_.agent.announced = {false, true};
  EXPECT_THAT(why(), HasSubstr("toggle"));
  flow_.family = {true, true};
  EXPECT_THAT(verdicts(), ElementsAre("in-hardware"));
  system_.agent.offloaded = {false, false};
  EXPECT_THAT(why(), HasSubstr("both families is off"));
}

TEST_F(WhyFlowTest, AnInterfaceTakesPartInADirection) {
  admit();
  flow_.direction = AllowedTrafficDirection::egress;
  EXPECT_THAT(verdicts(), ElementsAre("interface-not-enabled", "in-hardware"));
  EXPECT_THAT(why(), HasSubstr("Ethernet1 takes no part in flow tracking in egress (egressInterfaces"));
  flow_.direction.reset();
  EXPECT_THAT(verdicts(), ElementsAre("in-hardware"));
  system_.agent.ingress.clear();
  EXPECT_THAT(why(), HasSubstr("in either direction"));
}

TEST_F(WhyFlowTest, AnInterfaceThatIsNoPort) {
  flow_.interface = "Ethernet9";
  EXPECT_THAT(verdicts(), ElementsAre("interface-unknown", "interface-unmapped"));
}

TEST_F(WhyFlowTest, RegularSflowTakesEveryInterface) {
  admit();
  system_.agent.regularSflow = true;
  EXPECT_THAT(verdicts(), ElementsAre("interface-not-enabled", "in-hardware"));
  EXPECT_THAT(why(), HasSubstr("Regular sFlow is on"));
}

TEST_F(WhyFlowTest, WithoutAnAgentNothingIsInHardware) {
  holdBack();
  system_.agent = {};
  EXPECT_THAT(verdicts(), ElementsAre("agent-not-running", "waiting-for-room"));
  EXPECT_THAT(Sft::whyFlow(flow_, system_, kNow)[1].why,
              HasSubstr("10 IPv4 flows were in hardware, 4 waited."));
  system_.agent.standing = Standing::silent;
  system_.agent.problem = "it sleeps";
  EXPECT_THAT(verdicts(), ElementsAre("agent-not-asked", "waiting-for-room"));
  EXPECT_THAT(why(), HasSubstr("it sleeps"));
}

TEST_F(WhyFlowTest, AnAgentWithoutTheActivePluginOffloadsNothing) {
  admit();
  system_.agent.plugin = AgentFacts::Plugin::standby;
  EXPECT_THAT(verdicts(), ElementsAre("agent-in-standby", "in-hardware"));
  system_.agent.plugin = AgentFacts::Plugin::absent;
  EXPECT_THAT(verdicts(), ElementsAre("no-plugin", "in-hardware"));
}

TEST_F(WhyFlowTest, OfAnOpenPatternWhatIsKnownIsSaid) {
  flow_ = {};
  EXPECT_THAT(verdicts(), ElementsAre("not-seen"));
  flow_.protocol = 1U;
  EXPECT_THAT(verdicts(), ElementsAre("not-tcp-udp", "not-seen"));
}

}  // namespace
