#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HwFlowTracking.h"
#include "RecordingMounter.h"
#include "mirro/StateDatabase.h"

namespace Mirro {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kConfigType = "HwFlowTracking::Config";

class StateDatabaseConfigurationTest : public ::testing::Test {
 protected:
  Kiv::Ptr<StateDatabase> database = Kiv::makePtr<StateDatabase>("state");
  Kiv::Ptr<RecordingMounter> mounter = Kiv::makePtr<RecordingMounter>("mounter");

  Kiv::Ptr<HwFlowTracking::Config> config(std::string_view path) const {
    return Kiv::ptrCast<HwFlowTracking::Config>(database->getEntity(path));
  }
  template <class Call>
  static std::string configurationErrorOf(const Call& call) {
    try {
      call();
    } catch (const ConfigurationError& error) {
      return error.what();
    }
    ADD_FAILURE() << "no ConfigurationError";
    return {};
  }
};

TEST_F(StateDatabaseConfigurationTest, AppliesTheValuesWhenTheEntityComesToBe) {
  database->configurationIs(
      "p", {{"hwOffloadIpv4", true, "agent.toml", 3}, {"sampleRate", 1000, "agent.toml", 4}});
  mounter->mount(*database, "p", kConfigType, "rc");
  EXPECT_FALSE(database->getEntity("p"));
  database->completeMounts();
  ASSERT_TRUE(config("p"));
  EXPECT_TRUE(config("p")->hwOffloadIpv4());
  EXPECT_FALSE(config("p")->hwOffloadIpv6());
  EXPECT_EQ(config("p")->sampleRate(), 1000U);
}

TEST_F(StateDatabaseConfigurationTest, AConfiguredPathComesToBeForAPlainReaderAndAPlainWriter) {
  database->configurationIs("read", {{"sampleRate", 7, "agent.toml", 1}});
  database->configurationIs("written", {});
  mounter->mount(*database, "read", kConfigType, "r");
  mounter->mount(*database, "written", kConfigType, "w");
  database->completeMounts();
  EXPECT_THAT(mounter->failures, IsEmpty());
  ASSERT_TRUE(config("read"));
  EXPECT_EQ(config("read")->sampleRate(), 7U);
  EXPECT_TRUE(config("written"));
}

TEST_F(StateDatabaseConfigurationTest, AppliesToTheEntitiesThatTheAgentOwns) {
  database->configurationIs("p", {{"sampleRate", 7, "agent.toml", 1}});
  database->entityIs("p", kConfigType);
  EXPECT_EQ(config("p")->sampleRate(), 7U);
  EXPECT_NO_THROW(database->checkConfiguration());
}

TEST_F(StateDatabaseConfigurationTest, NamesFileLinePathAndAttributeOfAWrongValue) {
  database->configurationIs("some/path",
                            {{"hwOffloadIpv4", true, "agent.toml", 3}, {"sampleRate", "x", "agent.toml", 4}});
  mounter->mount(*database, "some/path", kConfigType, "rc");
  const std::string text = configurationErrorOf([&] { database->completeMounts(); });
  EXPECT_THAT(text, StartsWith("agent.toml:4: state \"some/path\": HwFlowTracking::Config.sampleRate: "));
  EXPECT_THAT(text, HasSubstr("\"x\""));
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST_F(StateDatabaseConfigurationTest, NamesTheAttributesThatThereAreWhenOneIsUnknown) {
  database->configurationIs("p", {{"sampelRate", 1, "agent.toml", 9}});
  mounter->mount(*database, "p", kConfigType, "r");
  const std::string text = configurationErrorOf([&] { database->completeMounts(); });
  EXPECT_THAT(text, StartsWith("agent.toml:9: state \"p\": "));
  EXPECT_THAT(text, HasSubstr("sampelRate"));
  EXPECT_THAT(text, HasSubstr("hwOffloadIpv4, hwOffloadIpv6, sampleRate"));
}

TEST_F(StateDatabaseConfigurationTest, OneWrongValueKeepsTheEntityAwayAndEveryMounterUntold) {
  database->configurationIs("p", {{"sampleRate", 5, "agent.toml", 1}, {"hwOffloadIpv4", 1, "agent.toml", 2}});
  const auto other = Kiv::makePtr<RecordingMounter>("other");
  other->mount(*database, "q", kConfigType, "rc");
  mounter->mount(*database, "p", kConfigType, "rc");
  configurationErrorOf([&] { database->completeMounts(); });
  EXPECT_FALSE(database->getEntity("p"));
  EXPECT_THAT(mounter->events, IsEmpty());
  EXPECT_THAT(other->events, IsEmpty());
}

TEST_F(StateDatabaseConfigurationTest, AnEntityThatDoesNotTakeItsValuesIsNotPutIn) {
  database->configurationIs("p", {{"sampleRate", -1, "agent.toml", 1}});
  configurationErrorOf([&] { database->entityIs("p", Kiv::makePtr<HwFlowTracking::Config>("p")); });
  EXPECT_FALSE(database->getEntity("p"));
}

TEST_F(StateDatabaseConfigurationTest, ListsTheKnownPathsWhenAConfiguredOneIsMountedByNobody) {
  database->configurationIs("hardware/flowtraking", {{"sampleRate", 5, "agent.toml", 12}}, "agent.toml", 11);
  mounter->mount(*database, "hardware/flowtracking", kConfigType, "rc");
  mounter->mount(*database, "other", kConfigType, "rc");
  database->completeMounts();
  const std::string text = configurationErrorOf([&] { database->checkConfiguration(); });
  EXPECT_EQ(text,
            "agent.toml:11: state \"hardware/flowtraking\": no plugin mounts this path; known paths: "
            "hardware/flowtracking, other");
}

TEST_F(StateDatabaseConfigurationTest, IsContentWhenEveryConfiguredPathIsMounted) {
  database->configurationIs("p", {});
  mounter->mount(*database, "p", kConfigType, "r");
  database->completeMounts();
  EXPECT_NO_THROW(database->checkConfiguration());
}

TEST_F(StateDatabaseConfigurationTest, APathWhoseTypeIsUnknownIsStillUnused) {
  database->configurationIs("p", {}, "agent.toml", 1);
  mounter->mount(*database, "p", "No::SuchType", "r");
  database->completeMounts();
  ASSERT_EQ(mounter->failures.size(), 1U);
  configurationErrorOf([&] { database->checkConfiguration(); });
}

using StateDatabaseConfigurationDeathTest = StateDatabaseConfigurationTest;

TEST_F(StateDatabaseConfigurationDeathTest, StopsOnASecondConfigurationOfOnePath) {
  database->configurationIs("p", {});
  EXPECT_DEBUG_DEATH(database->configurationIs("p", {}), "configured twice");
}

TEST_F(StateDatabaseConfigurationDeathTest, StopsOnConfigurationThatComesTooLate) {
  database->entityIs("p", kConfigType);
  EXPECT_DEBUG_DEATH(database->configurationIs("p", {}), "after its entity came to be");
}

}  // namespace
}  // namespace Mirro
