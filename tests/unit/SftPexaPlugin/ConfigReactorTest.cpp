#include "SftPexaPlugin/ConfigReactor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace SampledFlowTracker {
namespace {

using FlowTracking::HoStatus;
using HwFlowTracking::Config;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StatusWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttribute(Kiv::AttributeId attribute) override { seen.push_back(attribute); }
  std::vector<Kiv::AttributeId> seen;
};

// v4, egress v4, v6, egress v6.
std::vector<bool> enables(const HoStatus& status) {
  return {status.v4enabled(), status.egressV4Enabled(), status.v6enabled(), status.egressV6Enabled()};
}

class ConfigReactorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    watcher->notifierIs(status);
    watcher->hasNotificationActiveIs(true);
  }
  Kiv::Ptr<SftPexaFtHoConfigReactor> activeReactor() {
    auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, status);
    reactor->hasNotificationActiveIs(true);
    watcher->seen.clear();
    return reactor;
  }
  void allEnablesAre(bool value) {
    status->v4enabledIs(value);
    status->egressV4EnabledIs(value);
    status->v6enabledIs(value);
    status->egressV6EnabledIs(value);
  }

  Kiv::Ptr<Config> config = Kiv::makePtr<Config>("config");
  Kiv::Ptr<HoStatus> status = Kiv::makePtr<HoStatus>("status");
  Kiv::Ptr<StatusWatcher> watcher = Kiv::makePtr<StatusWatcher>();
};

TEST_F(ConfigReactorTest, MirrorsTheConfigurationBeforeAnyNotification) {
  config->hwOffloadIpv4Is(true);
  SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, status);
  EXPECT_THAT(enables(*status), ElementsAre(true, true, false, false));
}

TEST_F(ConfigReactorTest, WritesTheIngressFieldFirst) {
  config->hwOffloadIpv4Is(true);
  config->hwOffloadIpv6Is(true);
  SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, status);
  EXPECT_THAT(watcher->seen, ElementsAre(HoStatus::v4enabledAttr, HoStatus::egressV4EnabledAttr,
                                         HoStatus::v6enabledAttr, HoStatus::egressV6EnabledAttr));
}

TEST_F(ConfigReactorTest, SwitchedToWhatItIsItGoesOnWatching) {
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, status);
  ASSERT_FALSE(reactor->hasNotificationActive());
  reactor->hasNotificationActiveIs(false);
  config->hwOffloadIpv4Is(true);
  EXPECT_THAT(enables(*status), ElementsAre(true, true, false, false));
}

TEST_F(ConfigReactorTest, WatchesAConfigurationThatComesLaterWhileItIsActive) {
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(nullptr, status);
  reactor->hasNotificationActiveIs(true);
  reactor->sftHwTrackingConfigIs(config);
  config->hwOffloadIpv6Is(true);
  EXPECT_THAT(enables(*status), ElementsAre(false, false, true, true));
}

TEST_F(ConfigReactorTest, FollowsOneFamilyAndLeavesTheOtherAlone) {
  config->hwOffloadIpv4Is(true);
  const auto reactor = activeReactor();
  config->hwOffloadIpv6Is(true);
  EXPECT_THAT(watcher->seen, ElementsAre(HoStatus::v6enabledAttr, HoStatus::egressV6EnabledAttr));
  EXPECT_THAT(enables(*status), ElementsAre(true, true, true, true));
  watcher->seen.clear();
  config->hwOffloadIpv4Is(false);
  EXPECT_THAT(watcher->seen, ElementsAre(HoStatus::v4enabledAttr, HoStatus::egressV4EnabledAttr));
  EXPECT_THAT(enables(*status), ElementsAre(false, false, true, true));
}

TEST_F(ConfigReactorTest, RewritesOnlyTheFamilyThatChanged) {
  const auto reactor = activeReactor();
  status->v4enabledIs(true);  // by somebody else: a handler that ran would turn it off
  config->hwOffloadIpv6Is(true);
  EXPECT_TRUE(status->v4enabled());
}

TEST_F(ConfigReactorTest, IgnoresOtherAttributesOfTheConfiguration) {
  const auto reactor = activeReactor();
  allEnablesAre(true);
  config->sampleRateIs(10);
  EXPECT_THAT(enables(*status), ElementsAre(true, true, true, true));
}

TEST_F(ConfigReactorTest, TurnsEverythingOffWithoutAConfiguration) {
  allEnablesAre(true);
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(nullptr, status);
  EXPECT_THAT(enables(*status), ElementsAre(false, false, false, false));
  EXPECT_FALSE(reactor->sftHwTrackingConfig());
}

TEST_F(ConfigReactorTest, DoesNothingWithoutAStatus) {
  config->hwOffloadIpv4Is(true);
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, nullptr);
  reactor->hasNotificationActiveIs(true);
  config->hwOffloadIpv6Is(true);
  EXPECT_FALSE(reactor->hoStatus());
  EXPECT_THAT(enables(*status), ElementsAre(false, false, false, false));
}

TEST_F(ConfigReactorTest, StopsWhenTheStatusIsTakenAwayBetweenTheTwoWrites) {
  class Taker : public Kiv::PtrInterface::NotifieeConst {
   public:
    void onAttribute(Kiv::AttributeId) override { reactor->hoStatusIs(nullptr); }
    SftPexaFtHoConfigReactor* reactor = nullptr;
  };
  const auto reactor = activeReactor();
  const auto taker = Kiv::makePtr<Taker>();
  taker->reactor = reactor.get();
  taker->notifierIs(status);
  taker->hasNotificationActiveIs(true);
  config->hwOffloadIpv4Is(true);
  EXPECT_THAT(enables(*status), ElementsAre(true, false, false, false));
}

TEST_F(ConfigReactorTest, IgnoresTheConfigurationOnceItIsInactive) {
  const auto reactor = activeReactor();
  reactor->hasNotificationActiveIs(false);
  config->hwOffloadIpv4Is(true);
  EXPECT_THAT(watcher->seen, IsEmpty());
  reactor->hasNotificationActiveIs(true);
  config->hwOffloadIpv6Is(true);
  EXPECT_THAT(enables(*status), ElementsAre(false, false, true, true))
      << "active again, it hears of new changes";
}

TEST_F(ConfigReactorTest, WatchesFromItsConstructionOn) {
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, status);
  EXPECT_FALSE(reactor->hasNotificationActive());
  config->hwOffloadIpv4Is(true);
  EXPECT_TRUE(status->v4enabled());
}

TEST_F(ConfigReactorTest, IgnoresTheConfigurationWhileFlaggedForDeletion) {
  const auto reactor = activeReactor();
  reactor->kivDoZombieReactors(true);
  config->hwOffloadIpv4Is(true);
  EXPECT_THAT(watcher->seen, IsEmpty());
  reactor->kivDoZombieReactors(false);
  config->hwOffloadIpv6Is(true);
  EXPECT_TRUE(status->v6enabled());
}

TEST_F(ConfigReactorTest, MirrorsAnotherConfigurationAtOnceAndThenFollowsIt) {
  const auto reactor = activeReactor();
  const auto other = Kiv::makePtr<Config>("other");
  other->hwOffloadIpv4Is(true);
  reactor->sftHwTrackingConfigIs(other);
  EXPECT_EQ(reactor->sftHwTrackingConfig(), other);
  EXPECT_THAT(enables(*status), ElementsAre(true, true, false, false));
  config->hwOffloadIpv6Is(true);
  EXPECT_FALSE(status->v6enabled()) << "the former configuration is no longer watched";
  other->hwOffloadIpv6Is(true);
  EXPECT_TRUE(status->v6enabled());
}

TEST_F(ConfigReactorTest, TheSameConfigurationAgainIsNoReasonToWrite) {
  const auto reactor = activeReactor();
  allEnablesAre(true);
  reactor->sftHwTrackingConfigIs(config);
  EXPECT_THAT(enables(*status), ElementsAre(true, true, true, true));
}

TEST_F(ConfigReactorTest, AnotherConfigurationIsNotMirroredWhileFlaggedForDeletion) {
  const auto reactor = activeReactor();
  reactor->kivDoZombieReactors(true);
  const auto other = Kiv::makePtr<Config>("other");
  other->hwOffloadIpv4Is(true);
  reactor->sftHwTrackingConfigIs(other);
  EXPECT_THAT(watcher->seen, IsEmpty());
}

TEST_F(ConfigReactorTest, TakingTheConfigurationAwayTurnsEverythingOff) {
  config->hwOffloadIpv4Is(true);
  const auto reactor = activeReactor();
  reactor->sftHwTrackingConfigIs(nullptr);
  EXPECT_THAT(enables(*status), ElementsAre(false, false, false, false));
}

TEST_F(ConfigReactorTest, AConfigurationThatComesLaterIsWatchedAsTheReactorIsActive) {
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(nullptr, status);
  reactor->sftHwTrackingConfigIs(config);
  config->hwOffloadIpv4Is(true);
  EXPECT_FALSE(status->v4enabled());
  reactor->hasNotificationActiveIs(true);
  config->hwOffloadIpv6Is(true);
  EXPECT_TRUE(status->v6enabled());
}

TEST_F(ConfigReactorTest, LeavesTheConfigurationAndTheStatusAsItGoes) {
  auto reactor = activeReactor();
  EXPECT_EQ(config->notifieeList()->size(), 1U);
  reactor.reset();
  EXPECT_TRUE(config->notifieeList()->empty());
  EXPECT_EQ(config->references(), 1U);
  EXPECT_EQ(status->references(), 2U) << "this test's and its watcher's";
}

TEST_F(ConfigReactorTest, CanGoWhileItsConfigurationIsNotifying) {
  class Dropper : public Kiv::PtrInterface::NotifieeConst {
   public:
    void onAttribute(Kiv::AttributeId) override { reactor.reset(); }
    Kiv::Ptr<SftPexaFtHoConfigReactor> reactor;
  };
  const auto dropper = Kiv::makePtr<Dropper>();
  dropper->notifierIs(config);
  dropper->hasNotificationActiveIs(true);
  dropper->reactor = activeReactor();
  config->hwOffloadIpv4Is(true);  // the dropper is told first
  EXPECT_THAT(watcher->seen, IsEmpty());
}

TEST_F(ConfigReactorTest, ItsHandlersCanBeCalledByName) {
  const auto reactor = SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(config, status);
  allEnablesAre(true);
  Kiv::invoke(*reactor, "handleHwOffloadIpv4", {});
  EXPECT_THAT(enables(*status), ElementsAre(false, false, true, true));
  Kiv::invoke(*reactor, "handleHwOffloadIpv6", {});
  EXPECT_THAT(enables(*status), ElementsAre(false, false, false, false));
  allEnablesAre(true);
  Kiv::invoke(*reactor, "handleInitialized", {});
  EXPECT_THAT(enables(*status), ElementsAre(false, false, false, false));
}

TEST_F(ConfigReactorTest, CanBeBuiltByItsTypeName) {
  const Kiv::Type* type = Kiv::typeByName("SampledFlowTracker::SftPexaFtHoConfigReactor");
  ASSERT_NE(type, nullptr);
  config->hwOffloadIpv4Is(true);
  const auto built = type->construct({Kiv::Value(Kiv::Ptr<const Kiv::PtrInterface>(config)),
                                      Kiv::Value(Kiv::Ptr<const Kiv::PtrInterface>(status))});
  EXPECT_TRUE(status->v4enabled());
  std::vector<std::string> attributes;
  for (const auto* attribute : type->attributes()) attributes.push_back(attribute->name);
  EXPECT_THAT(attributes, ElementsAre("sftHwTrackingConfig", "hoStatus"));
  EXPECT_EQ(Kiv::ValueTraits<Kiv::Ptr<HoStatus>>::fromValue(Kiv::attribute(*built, "hoStatus")), status);
}

}  // namespace
}  // namespace SampledFlowTracker
