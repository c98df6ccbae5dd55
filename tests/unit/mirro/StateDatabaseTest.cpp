#include "mirro/StateDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HwFlowTracking.h"
#include "HwFlowWatcher.h"
#include "RecordingMounter.h"

namespace Mirro {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kConfig = "HwFlowTracking::Config";

class StateDatabaseTest : public ::testing::Test {
 protected:
  Kiv::Ptr<StateDatabase> database = Kiv::makePtr<StateDatabase>("state");
  Kiv::Ptr<RecordingMounter> mounter = Kiv::makePtr<RecordingMounter>("mounter");

  void mount(const Kiv::String& path, const Kiv::String& flags, const Kiv::String& type = kConfig) {
    mounter->mount(*database, path, type, flags);
  }
};

TEST_F(StateDatabaseTest, ReportsNothingBeforeTheAgentAsksForCompletion) {
  mount("p", "rc");
  EXPECT_THAT(mounter->events, IsEmpty());
  EXPECT_FALSE(database->getEntity("p"));
  EXPECT_TRUE(database->completeMounts());
  EXPECT_THAT(mounter->events, ElementsAre("status", "complete"));
  EXPECT_TRUE(Kiv::ptrCast<HwFlowTracking::Config>(database->getEntity("p")));
}

TEST_F(StateDatabaseTest, CompletesAGroupOnce) {
  mount("p", "rc");
  EXPECT_TRUE(database->completeMounts());
  EXPECT_FALSE(database->completeMounts());
  EXPECT_THAT(mounter->events, ElementsAre("status", "complete"));
}

TEST_F(StateDatabaseTest, CompletesNoGroupThatIsStillOpen) {
  const auto group = database->getMountGroup(mounter.get());
  group->doMount(Mount("p", kConfig, "rc"));
  EXPECT_FALSE(database->completeMounts());
  EXPECT_FALSE(database->getEntity("p"));
  group->doClose(false, "", 0);
  EXPECT_TRUE(database->completeMounts());
  EXPECT_TRUE(database->getEntity("p"));
}

TEST_F(StateDatabaseTest, GivesAMounterItsOpenGroupUntilItIsClosed) {
  const auto group = database->getMountGroup(mounter.get());
  EXPECT_EQ(database->getMountGroup(mounter.get()), group);
  const auto other = Kiv::makePtr<RecordingMounter>("other");
  EXPECT_FALSE(database->getMountGroup(other.get()) == group);
  group->doClose(false, "", 0);
  EXPECT_FALSE(database->getMountGroup(mounter.get()) == group);
}

TEST_F(StateDatabaseTest, CreatesWhatIsAbsentForBothCreatingFlags) {
  mount("read", "rc");
  mount("written", "wc");
  database->completeMounts();
  EXPECT_THAT(database->paths(), ElementsAre("read", "written"));
  EXPECT_THAT(mounter->failures, IsEmpty());
  EXPECT_EQ(database->getEntity("written")->name(), "written");
}

TEST_F(StateDatabaseTest, LeavesAnAbsentEntityThatIsOnlyReadAbsent) {
  mount("p", "r");
  database->completeMounts();
  EXPECT_THAT(mounter->failures, IsEmpty());
  EXPECT_THAT(mounter->events, ElementsAre("status", "complete"));
  EXPECT_FALSE(database->getEntity("p"));
}

TEST_F(StateDatabaseTest, FailsToMountAnAbsentEntityForWriting) {
  mount("p", "w");
  database->completeMounts();
  ASSERT_EQ(mounter->failures.size(), 1U);
  EXPECT_EQ(mounter->failures[0].mount, Mount("p", kConfig, "w"));
  EXPECT_THAT(mounter->failures[0].reason, HasSubstr("no entity"));
  EXPECT_THAT(mounter->events, ElementsAre("status", "complete")) << "completion follows failure";
  ASSERT_EQ(database->failedMounts().size(), 1U);
  EXPECT_EQ(database->failedMounts()[0].mount, Mount("p", kConfig, "w"));
  EXPECT_FALSE(database->getEntity("p"));
}

TEST_F(StateDatabaseTest, MountsTheEntityThatIsThere) {
  const auto owned = database->entityIs("p", kConfig);
  for (const char* flags : {"r", "w", "rc", "wc"}) {
    mount("p", flags);
    database->completeMounts();
    EXPECT_THAT(mounter->failures, IsEmpty()) << flags;
    EXPECT_EQ(database->getEntity("p"), owned) << flags;
  }
}

TEST_F(StateDatabaseTest, FailsOnAnEntityOfAnotherTypeWhateverTheFlags) {
  const auto owned = database->entityIs("p", "HwFlowWatcher::Capabilities");
  for (const char* flags : {"r", "w", "rc", "wc"}) {
    mount("p", flags);
    database->completeMounts();
    ASSERT_EQ(mounter->failures.size(), 1U) << flags;
    EXPECT_THAT(mounter->failures[0].reason, HasSubstr("HwFlowWatcher::Capabilities")) << flags;
    EXPECT_EQ(database->getEntity("p"), owned) << flags;
  }
}

TEST_F(StateDatabaseTest, RefusesOtherFlags) {
  const auto group = database->getMountGroup(mounter.get());
  for (const char* flags : {"", "c", "cr", "rw", "rwc", "R", "r ", "wcc"}) {
    try {
      group->doMount(Mount("some/path", kConfig, flags));
      FAIL() << "took flags \"" << flags << '"';
    } catch (const Kiv::TypeError& error) {
      EXPECT_THAT(error.what(), HasSubstr("some/path"));
      EXPECT_THAT(error.what(), HasSubstr("\"" + std::string(flags) + "\""));
    }
  }
  group->doClose(false, "", 0);
  database->completeMounts();
  EXPECT_THAT(database->paths(), IsEmpty());
}

TEST_F(StateDatabaseTest, ReportsATypeThatNobodyRegisteredOnceAndGoesOn) {
  const auto group = database->getMountGroup(mounter.get());
  group->doMount(Mount("p", "No::SuchType", "wc"));
  group->doMount(Mount("q", kConfig, "rc"));
  group->doClose(false, "", 0);
  database->completeMounts();
  ASSERT_EQ(mounter->failures.size(), 1U);
  EXPECT_EQ(mounter->failures[0].mount.path(), "p");
  EXPECT_THAT(mounter->failures[0].reason, HasSubstr("No::SuchType"));
  EXPECT_TRUE(database->getEntity("q"));
}

TEST_F(StateDatabaseTest, ReportsATypeThatCannotBeBuiltFromAPath) {
  mount("p", "wc", "Mirro::StateDatabase");
  database->completeMounts();
  ASSERT_EQ(mounter->failures.size(), 1U);
  EXPECT_THAT(mounter->failures[0].reason, HasSubstr("Mirro::StateDatabase"));
}

TEST_F(StateDatabaseTest, OneGroupFindsWhatALaterOneCreates) {
  mounter->mount(*database, "p", kConfig, "w");
  const auto creator = Kiv::makePtr<RecordingMounter>("creator");
  creator->mount(*database, "p", kConfig, "wc");
  database->completeMounts();
  EXPECT_THAT(mounter->failures, IsEmpty());
  EXPECT_TRUE(database->getEntity("p"));
}

TEST_F(StateDatabaseTest, TellsEveryGroupInOrderStatusFirst) {
  std::vector<std::string> log;
  const auto other = Kiv::makePtr<RecordingMounter>("other");
  mounter->log = &log;
  other->log = &log;
  mounter->mount(*database, "p", kConfig, "rc");
  other->mount(*database, "q", kConfig, "rc");
  database->completeMounts();
  EXPECT_THAT(log, ElementsAre("mounter status", "mounter complete", "other status", "other complete"));
}

TEST_F(StateDatabaseTest, AGroupThatIsClosedDuringCompletionWaitsForTheNext) {
  mounter->whenComplete = [&](EntityManager& manager) {
    mounter->whenComplete = nullptr;
    mounter->mount(manager, "second", kConfig, "rc");
  };
  mount("first", "rc");
  EXPECT_TRUE(database->completeMounts());
  EXPECT_THAT(database->paths(), ElementsAre("first"));
  EXPECT_TRUE(database->completeMounts());
  EXPECT_THAT(database->paths(), ElementsAre("first", "second"));
  EXPECT_FALSE(database->completeMounts());
}

TEST_F(StateDatabaseTest, KeepsAMounterOnlyUntilItsGroupHasCompleted) {
  mount("p", "rc");
  EXPECT_EQ(mounter->references(), 2U);
  database->completeMounts();
  EXPECT_EQ(mounter->references(), 1U);
}

TEST_F(StateDatabaseTest, ClearDropsEverythingAndSoDoesItsDestruction) {
  mount("p", "rc");
  database->completeMounts();
  const auto entity = database->getEntity("p");
  mount("q", "rc");
  database->clear();
  EXPECT_EQ(entity->references(), 1U);
  EXPECT_EQ(mounter->references(), 1U);
  EXPECT_THAT(database->paths(), IsEmpty());
  EXPECT_FALSE(database->completeMounts());

  database->entityIs("p", entity);
  database.reset();
  EXPECT_EQ(entity->references(), 1U);
}

using StateDatabaseDeathTest = StateDatabaseTest;

TEST_F(StateDatabaseDeathTest, StopsOnAMountIntoAClosedGroup) {
  const auto group = database->getMountGroup(mounter.get());
  group->doClose(false, "", 0);
  EXPECT_DEBUG_DEATH(group->doMount(Mount("p", kConfig, "r")), "closed group");
}

TEST_F(StateDatabaseDeathTest, StopsOnASecondEntityAtOnePath) {
  database->entityIs("p", kConfig);
  EXPECT_DEBUG_DEATH(database->entityIs("p", kConfig), "there is an entity at the path");
}

}  // namespace
}  // namespace Mirro
