// What of the state machine and its parts can be seen and called by name.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

using Kiv::Value;
using ::testing::Contains;
using ::testing::ElementsAre;

std::vector<std::string> attributeNames(const Kiv::Type& type) {
  std::vector<std::string> names;
  for (const Kiv::Type::Attribute* each : type.attributes()) names.push_back(each->name);
  return names;
}

class ReflectionTest : public ::testing::Test, public FamilyWorld<Pavo::Traits::IPv4> {
 protected:
  Value of(std::string_view name) const { return Kiv::attribute(*sm, name); }
};

TEST_F(ReflectionTest, EveryOutputHasItsReconciliationState) {
  for (std::uint32_t n = 1; n <= 3; ++n) leaveStatus(key(n));
  start(kTasks);
  for (const OutputId id : kReadyChain) {
    const std::string prefix(nameOf(id));
    const bool reconciles = prefix == "hoFlowStatusHoIpFlowStatusOutput";
    EXPECT_EQ(of(prefix + "Seen"), Value(0U)) << prefix;
    EXPECT_EQ(of(prefix + "UseBookmark"), Value(false)) << prefix;
    EXPECT_EQ(of(prefix + "Reconciling"), Value(reconciles)) << prefix;
    EXPECT_EQ(of(prefix + "ReconciliationTask"), Value("SftPexaFtHOCSM-" + prefix + "Task")) << prefix;
    EXPECT_THAT(of(prefix + "Bookmark").text(), ::testing::HasSubstr("'k0Valid': false")) << prefix;
    EXPECT_EQ(Kiv::attribute(*sm->outputState(), prefix + "Ready"), Value(false)) << prefix;
  }
  while (!sm->initialScanDone()) ASSERT_TRUE(runSlice());
  const auto left = keysOf(statuses());
  EXPECT_EQ(of("hoFlowStatusHoIpFlowStatusOutputUseBookmark"), Value(true));
  EXPECT_EQ(of("hoFlowStatusHoIpFlowStatusOutputBookmark"),
            Value("Value('SampledFlowTracker::SftPexaFtHOCSM::HoFlowStatusHoIpFlowStatusOutputKeyType', ** "
                  "{'k0': " +
                  left[0].str() + ", 'k0Valid': true})"));
  runAll();
  EXPECT_EQ(of("hoFlowStatusHoIpFlowStatusOutputReconciliationTask"), Value(""));
  EXPECT_EQ(Kiv::attribute(*sm->outputState(), "hoFlowStatusHoIpFlowStatusOutputReady"), Value(true));
}

TEST_F(ReflectionTest, TheFrameCanBeReadByName) {
  start(kTasks);
  EXPECT_EQ(of("initialized"), Value(true));
  EXPECT_EQ(of("initialScanDone"), Value(false));
  EXPECT_EQ(of("synchronous"), Value(false));
  EXPECT_EQ(of("ready"), Value(false));
  EXPECT_EQ(of("idle"), Value(false));
  runAll();
  EXPECT_EQ(of("initialScanDone"), Value(true));
  EXPECT_EQ(of("ready"), Value(true));
  EXPECT_EQ(of("idle"), Value(true));
  EXPECT_EQ(of("storesFailed"), Value(0U));
  EXPECT_EQ(of("task"), Value("test"));
  for (const char* name : {"hoFlowConfig", "hoFlowStatus", "hoFlowCounter", "hosStateCounter", "localCounter",
                           "helper", "inputSmScanState", "outputState", "hoIpFlowConfigSm0",
                           "hoIp6FlowConfigSm1", "copyLocalCountersTask", "copyLocalIp6CountersTask"}) {
    EXPECT_FALSE(of(name) == Value(Kiv::Ptr<const Kiv::PtrInterface>())) << name;
  }
}

TEST_F(ReflectionTest, TheNamesThatEveryStateMachineHasAreThere) {
  auto names = attributeNames(SftPexaFtHOCSM::kivType());
  const auto ofInputs = attributeNames(HoIpFlowConfigSm0::kivType());
  names.insert(names.end(), ofInputs.begin(), ofInputs.end());
  for (const char* name : {"codefEnabled", "defaultSynchronous", "version", "validate", "unused",
                           "newHosEntries", "inputScanBookmark", "parent", "root", "task"}) {
    EXPECT_THAT(names, Contains(name));
  }
}

TEST_F(ReflectionTest, TheScanStateListsItsFieldsInTheirOrder) {
  EXPECT_THAT(attributeNames(InputSmScanState::kivType()),
              ElementsAre("copyLocalIp6CountersIdle", "copyLocalIp6CountersCodefGeneration",
                          "copyLocalIp6CountersCodefDoneGen", "copyLocalCountersIdle",
                          "copyLocalCountersCodefGeneration", "copyLocalCountersCodefDoneGen",
                          "inputStreamScan", "input6StreamScan", "idle"));
  EXPECT_EQ(InputSmScanState::kivType().attribute("idle")->id, InputSmScanState::idleAttr);
}

TEST_F(ReflectionTest, TheOutputStateListsItsFieldsInTheirOrder) {
  EXPECT_THAT(
      attributeNames(OutputState::kivType()),
      ElementsAre("localCounterCounterIp6CollectionOutputReady", "localCounterCounterCollectionOutputReady",
                  "hosStateCounterHosStateIp6CounterOutputReady", "hoFlowStatusHoIpFlowStatusOutputReady",
                  "hosStateCounterHosStateIpCounterOutputReady", "helperOverflowEntriesOutputReady",
                  "hoFlowCounterHoIp6FlowCounterOutputReady", "hoFlowStatusHoIp6FlowStatusOutputReady",
                  "hoFlowCounterHoIpFlowCounterOutputReady", "helperOverflow6EntriesOutputReady", "ready"));
  EXPECT_EQ(OutputState::kivType().attribute("ready")->id, OutputState::readyAttr);
}

TEST_F(ReflectionTest, TheInputMachinesShowWhereTheyAre) {
  wantMany(1, 3);
  start(kTasks);
  const Kiv::PtrInterface& input = *sm->hoIpFlowConfigSm0();
  EXPECT_EQ(Kiv::attribute(input, "inputScanBookmark"), Value(""));
  while (Kiv::attribute(input, "inputScanBookmark") == Value("")) ASSERT_TRUE(runSlice());
  EXPECT_EQ(Kiv::attribute(input, "inputScanBookmark"), Value(keysOf(configs())[0].str()));
  EXPECT_EQ(Kiv::attribute(input, "active"), Value(true));
  EXPECT_EQ(Kiv::attribute(input, "pendingNotifications"), Value(0U));
  EXPECT_EQ(sm->hoIpFlowConfigSm0()->fwkType().name(),
            "SampledFlowTracker::SftPexaFtHOCSM::HoIpFlowConfigSm0");
  EXPECT_EQ(sm->hoIp6FlowConfigSm1()->fwkType().name(),
            "SampledFlowTracker::SftPexaFtHOCSM::HoIp6FlowConfigSm1");
}

TEST_F(ReflectionTest, TheInputMachinesNameTheStateMachineAsTheirRoot) {
  start(kTasks);
  const auto held = sm->references();
  const Value root{Kiv::Ptr<const Kiv::PtrInterface>(sm)};
  EXPECT_EQ(Kiv::attribute(*sm->hoIpFlowConfigSm0(), "root"), root);
  EXPECT_EQ(Kiv::attribute(*sm->hoIp6FlowConfigSm1(), "parent"), root);
  EXPECT_EQ(sm->references(), held + 1) << "this test's";
}

TEST_F(ReflectionTest, TheReferencesOfTheFlowHandledLastCanBeRead) {
  start();
  EXPECT_EQ(of("newHosEntries"), Value(0U));
  want(key(1));
  want(key(1, "Ethernet2"));
  EXPECT_EQ(of("newHosEntries"), Value(2U));
  unwant(key(1));
  EXPECT_EQ(of("newHosEntries"), Value(1U));
}

TEST_F(ReflectionTest, HandlersCanBeCalledByName) {
  start(kTasks);
  Kiv::invoke(*sm, "handleInitialized", {});
  Kiv::invoke(*sm, "handleInitialScanDone", {});
  Kiv::invoke(*sm->hoIpFlowConfigSm0(), "doInputScan", {});
  Kiv::invoke(*sm->hoIp6FlowConfigSm1(), "doInputScan", {});
  EXPECT_TRUE(sm->initialScanDone());
  EXPECT_THROW(Kiv::invoke(*sm, "handleNothing", {}), Kiv::TypeError);
}

TEST_F(ReflectionTest, TheSeenSetsCanBeReachedByTheirOutputsNames) {
  start(kTasks);
  const auto check = [this](OutputId id, const auto& k0, auto is, auto has, auto del, auto delAll,
                            auto bookmark, auto taskOf, auto taskDel) {
    using KeyType = std::decay_t<decltype((*sm.*bookmark)())>;
    const KeyType seen(k0);
    (*sm.*is)(seen);
    EXPECT_TRUE((*sm.*has)(seen));
    EXPECT_FALSE((*sm.*has)(KeyType())) << "another key";
    EXPECT_EQ(sm->output(id).seenCount(), 1U);
    (*sm.*del)(seen);
    EXPECT_FALSE((*sm.*has)(seen));
    (*sm.*is)(seen);
    (*sm.*delAll)();
    EXPECT_EQ(sm->output(id).seenCount(), 0U);
    EXPECT_EQ((*sm.*bookmark)(), KeyType());
    ASSERT_TRUE((*sm.*taskOf)());
    EXPECT_EQ((*sm.*taskOf)()->name(), "SftPexaFtHOCSM-" + std::string(nameOf(id)) + "Task");
    (*sm.*taskDel)();
    EXPECT_FALSE((*sm.*taskOf)());
  };
  const auto key6 = FamilyWorld<Pavo::Traits::IPv6>::key(1);
  using Sm = SftPexaFtHOCSM;
#define SFT_CHECK(id, name, k0)                                                                             \
  check(OutputId::id, k0, &Sm::name##SeenIs, &Sm::name##SeenHas, &Sm::name##SeenDel, &Sm::name##SeenDelAll, \
        &Sm::name##Bookmark, &Sm::name##ReconciliationTask, &Sm::name##ReconciliationTaskDel);              \
  EXPECT_FALSE(sm->name##Reconciling());                                                                    \
  EXPECT_FALSE(sm->name##UseBookmark())
  SFT_CHECK(localCounterCounterIp6Collection, localCounterCounterIp6CollectionOutput, key6.ipFlowKey);
  SFT_CHECK(localCounterCounterCollection, localCounterCounterCollectionOutput, flow(1));
  SFT_CHECK(hosStateCounterHosStateIp6Counter, hosStateCounterHosStateIp6CounterOutput,
            FlowTracking::HosStateCounterKey(HoFlowState::overflow));
  SFT_CHECK(hoFlowStatusHoIpFlowStatus, hoFlowStatusHoIpFlowStatusOutput, key(1));
  SFT_CHECK(hosStateCounterHosStateIpCounter, hosStateCounterHosStateIpCounterOutput,
            FlowTracking::HosStateCounterKey(HoFlowState::overflow));
  SFT_CHECK(helperOverflowEntries, helperOverflowEntriesOutput, key(1));
  SFT_CHECK(hoFlowCounterHoIp6FlowCounter, hoFlowCounterHoIp6FlowCounterOutput, key6.ipFlowKey);
  SFT_CHECK(hoFlowStatusHoIp6FlowStatus, hoFlowStatusHoIp6FlowStatusOutput, key6);
  SFT_CHECK(hoFlowCounterHoIpFlowCounter, hoFlowCounterHoIpFlowCounterOutput, flow(1));
  SFT_CHECK(helperOverflow6Entries, helperOverflow6EntriesOutput, key6);
#undef SFT_CHECK
}

TEST_F(ReflectionTest, WhatStateMachinesOfEveryKindTellIsFixed) {
  start();
  EXPECT_EQ(of("codefEnabled"), Value(true));
  EXPECT_EQ(of("defaultSynchronous"), Value(false));
  EXPECT_EQ(of("version"), Value(1U));
  EXPECT_EQ(of("validate"), Value(true));
  EXPECT_EQ(of("unused"), Value(false));
}

}  // namespace
}  // namespace SampledFlowTracker
