#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HwFlowTracking.h"
#include "Interface.h"
#include "mirro/StateDatabase.h"

namespace Mirro {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Watcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttribute(Kiv::AttributeId attribute) override { seen.push_back(attribute); }
  std::vector<Kiv::AttributeId> seen;
};

class StateDatabaseAccessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    database->entityIs("config", config);
    database->entityIs("interface/status/eth/intf", "Interface::EthIntfStatusDir");
    watcher->notifierIs(config);
    watcher->hasNotificationActiveIs(true);
  }
  template <class Error, class Call>
  static std::string errorOf(const Call& call) {
    try {
      call();
    } catch (const Error& error) {
      return error.what();
    }
    ADD_FAILURE() << "no such error";
    return {};
  }

  Kiv::Ptr<StateDatabase> database = Kiv::makePtr<StateDatabase>("state");
  Kiv::Ptr<HwFlowTracking::Config> config = Kiv::makePtr<HwFlowTracking::Config>("config");
  Kiv::Ptr<Watcher> watcher = Kiv::makePtr<Watcher>();
};

TEST_F(StateDatabaseAccessTest, AChangeReachesTheReactorsBeforeItReturns) {
  database->set("config", "hwOffloadIpv6", true);
  EXPECT_THAT(watcher->seen, ElementsAre(HwFlowTracking::Config::hwOffloadIpv6Attr));
  EXPECT_TRUE(config->hwOffloadIpv6());
}

TEST_F(StateDatabaseAccessTest, TheSameValueAgainIsNoChange) {
  database->set("config", "sampleRate", 10);
  database->set("config", "sampleRate", 10);
  EXPECT_EQ(watcher->seen.size(), 1U);
}

TEST_F(StateDatabaseAccessTest, ReadsAnAttribute) {
  config->sampleRateIs(55);
  EXPECT_EQ(database->get("config", "sampleRate"), Kiv::Value(55U));
}

TEST_F(StateDatabaseAccessTest, ListsPathsAndAttributesInOrder) {
  EXPECT_THAT(database->paths(), ElementsAre("config", "interface/status/eth/intf"));
  config->hwOffloadIpv4Is(true);
  EXPECT_EQ(
      Kiv::Value(database->attributes("config")),
      Kiv::Value(Kiv::Value::Object{{"hwOffloadIpv4", true}, {"hwOffloadIpv6", false}, {"sampleRate", 0U}}));
}

TEST_F(StateDatabaseAccessTest, AnUnknownPathNamesThePathsThatThereAre) {
  const auto isClear = AllOf(HasSubstr("\"confg\""), HasSubstr("config, interface/status/eth/intf"));
  EXPECT_THAT(errorOf<Kiv::TypeError>([&] { database->set("confg", "sampleRate", 1); }), isClear);
  EXPECT_THAT(errorOf<Kiv::TypeError>([&] { database->get("confg", "sampleRate"); }), isClear);
  EXPECT_THAT(errorOf<Kiv::TypeError>([&] { database->attributes("confg"); }), isClear);
}

TEST_F(StateDatabaseAccessTest, AnUnknownAttributeNamesPathAndAttribute) {
  const auto isClear = AllOf(HasSubstr("\"config\""), HasSubstr("\"rate\""), HasSubstr("sampleRate"));
  EXPECT_THAT(errorOf<Kiv::TypeError>([&] { database->set("config", "rate", 1); }), isClear);
  EXPECT_THAT(errorOf<Kiv::TypeError>([&] { database->get("config", "rate"); }), isClear);
}

TEST_F(StateDatabaseAccessTest, AValueOfTheWrongTypeChangesNothing) {
  const std::string text = errorOf<Kiv::ValueError>([&] { database->set("config", "hwOffloadIpv4", 1); });
  EXPECT_THAT(text, AllOf(HasSubstr("\"config\""), HasSubstr("hwOffloadIpv4"), HasSubstr("true or false")));
  errorOf<Kiv::ValueError>([&] { database->set("config", "sampleRate", "7"); });
  errorOf<Kiv::ValueError>([&] { database->set("config", "sampleRate", -7); });
  errorOf<Kiv::ValueError>([&] { database->set("config", "sampleRate", std::int64_t{1} << 32); });
  EXPECT_TRUE(watcher->seen.empty());
  EXPECT_FALSE(config->hwOffloadIpv4());
  EXPECT_EQ(config->sampleRate(), 0U);
}

TEST_F(StateDatabaseAccessTest, AReadOnlyAttributeIsNotWritten) {
  const std::string text = errorOf<Kiv::TypeError>(
      [&] { database->set("interface/status/eth/intf", "interfaces", Kiv::Value::List()); });
  EXPECT_THAT(text,
              AllOf(HasSubstr("interface/status/eth/intf"), HasSubstr("interfaces"), HasSubstr("read only")));
}

}  // namespace
}  // namespace Mirro
