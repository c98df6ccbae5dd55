#include "quell/SharedTables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "QuellFiles.h"
#include "quell/TableStore.h"

using namespace QuellTest;
using KivQuell::KivQuellType;
using testing::HasSubstr;

namespace {

class Listener : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttribute(Kiv::AttributeId) override { ++everything; }
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    keys.emplace_back(attribute, key.as<ThingKey>().id);
  }
  unsigned everything = 0;
  std::vector<std::pair<Kiv::AttributeId, std::uint32_t>> keys;
};

class SharedTables : public testing::Test {
 protected:
  Kiv::Ptr<Things> mount(Quell::SharedTables& tables, KivQuellType kind) {
    return Kiv::ptrCast<Things>(
        tables.doMount("test/things", "QuellTest::Things", KivQuell::MountInfo(kind)));
  }
  static bool readable(const Quell::SharedTables& tables) {
    pollfd waiting{tables.descriptor(), POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 1;
  }

  Kiv::Module module_{"QuellTest", {&Things::kivType()}};
  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Quell::SharedTables> agent_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Kiv::Ptr<Quell::SharedTables> other_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
};

}  // namespace

TEST_F(SharedTables, MountingCreatesTheFilesAndGivesTheContainer) {
  KivQuell::MountInfo info(KivQuellType::written);
  info.collectionInfoIs({"red", 2000, false});
  info.collectionInfoIs({"blue", 4, false});
  const auto mounted = agent_->doMount("test/things", "QuellTest::Things", info);
  ASSERT_TRUE(mounted);
  EXPECT_EQ(mounted->name(), "test/things");
  EXPECT_EQ(agent_->getEntity("test/things"), mounted);
  EXPECT_EQ(agent_->doMount("test/things", "QuellTest::Things", info), mounted);
  EXPECT_EQ(agent_->mounted().size(), 1U);
  EXPECT_FALSE(agent_->getEntity("test/other"));
  EXPECT_GT(std::filesystem::file_size(files_.fileName("red")),
            std::filesystem::file_size(files_.fileName("blue")));
  EXPECT_TRUE(mounted->collection("blue")->empty());
}

TEST_F(SharedTables, AnUnknownTypeOrCollectionIsRefused) {
  const KivQuell::MountInfo info(KivQuellType::written);
  EXPECT_THROW(agent_->doMount("a", "QuellTest::Unknown", info), Kiv::TypeError);
  KivQuell::MountInfo named(KivQuellType::written);
  named.collectionInfoIs({"green", 4, false});
  EXPECT_THAT(tableError([&] { agent_->doMount("a", "QuellTest::Things", named); }),
              HasSubstr("table a: QuellTest::Things has no collection \"green\""));
  EXPECT_FALSE(agent_->getEntity("a"));
}

TEST_F(SharedTables, AFileThatCannotBeUsedFailsTheMountAndStaysAsItIs) {
  mount(*other_, KivQuellType::written);
  setByte(files_.fileName("blue"), offsetof(Quell::Layout::Identity, version), 9);
  EXPECT_THAT(tableError([&] { mount(*agent_, KivQuellType::written); }),
              HasSubstr("layout version 9 is newer"));
  EXPECT_FALSE(agent_->getEntity("test/things"));
  EXPECT_EQ(byteAt(files_.fileName("blue"), offsetof(Quell::Layout::Identity, version)), 9);
}

TEST_F(SharedTables, ATableThatAnotherWritesIsNotMountedForWriting) {
  const auto writing = mount(*other_, KivQuellType::written);
  writing->red().insert(thing(1));
  EXPECT_THROW(mount(*agent_, KivQuellType::written), Quell::TableBusy);
  EXPECT_FALSE(agent_->getEntity("test/things"));
  EXPECT_EQ(writing->red().get(keyOf(1)), thing(1));
  writing->red().table()->writingDel();
  EXPECT_EQ(mount(*agent_, KivQuellType::written)->red().get(keyOf(1)), thing(1)) << "once it has let go";
}

TEST_F(SharedTables, ATableThatAnotherBeginsToWriteAfterTheMountIsBusyToThis) {
  const auto writing = mount(*other_, KivQuellType::written);
  const auto things = mount(*agent_, KivQuellType::written);
  writing->red().insert(thing(1));
  EXPECT_THROW(things->red().insert(thing(2)), Quell::TableBusy);
  EXPECT_NO_THROW(things->blue().insert(thing(2)));
}

TEST_F(SharedTables, AWrittenTableBeyondRepairFailsTheMount) {
  mount(*other_, KivQuellType::written);
  setByte(files_.fileName(), offsetof(Quell::Layout::Header, state), 0x77);
  setByte(files_.fileName(), offsetof(Quell::Layout::Header, stateCopy), 0x77);
  EXPECT_THAT(tableError([&] { mount(*agent_, KivQuellType::written); }), HasSubstr("damaged beyond repair"));
}

TEST_F(SharedTables, APublishedTableIsCreatedEmptyAndWatched) {
  const auto things = mount(*agent_, KivQuellType::published);
  Listener listener;
  listener.hasNotificationActiveIs(true);
  listener.notifierIs(things);
  EXPECT_TRUE(things->red().empty());
  EXPECT_FALSE(readable(*agent_));

  const auto published = mount(*other_, KivQuellType::written);
  published->red().insert(thing(8));
  published->blue().insert(thing(9));
  other_->flush();
  agent_->deliver(100);
  listener.keys.clear();

  published->red().insert(thing(1));
  published->blue().insert(thing(2));
  published->red().erase(keyOf(1));
  EXPECT_FALSE(readable(*agent_)) << "woken before the batch is done";
  other_->flush();
  ASSERT_TRUE(readable(*agent_));
  EXPECT_FALSE(agent_->deliver(100));
  const std::vector<std::pair<Kiv::AttributeId, std::uint32_t>> expected{
      {Things::redAttr, 1}, {Things::redAttr, 1}, {Things::blueAttr, 2}};
  EXPECT_EQ(listener.keys, expected);
  EXPECT_EQ(listener.everything, 0U);
  EXPECT_FALSE(readable(*agent_));
  other_->flush();
  EXPECT_FALSE(readable(*agent_)) << "rung without news";
  listener.notifierIs(nullptr);
}

TEST_F(SharedTables, WhoeverIsRefusedToWriteIsNotTakenForAWriterThatDied) {
  const auto things = mount(*agent_, KivQuellType::published);
  const auto published = mount(*other_, KivQuellType::written);
  published->red().insert(thing(1));
  other_->flush();
  agent_->deliver(100);
  Listener listener;
  listener.hasNotificationActiveIs(true);
  listener.notifierIs(things);
  {
    Quell::OpenCollection tool(dir_.path(), "test/things", "red");
    EXPECT_THROW(tool.put(Kiv::Value(Kiv::Value::Object{{"id", Kiv::Value(2)}})), Quell::TableBusy);
  }
  agent_->deliver(100);
  EXPECT_EQ(listener.everything, 0U);
  EXPECT_TRUE(listener.keys.empty());
  listener.notifierIs(nullptr);
}

TEST_F(SharedTables, DeliveryStopsAtItsLimitAndGoesOn) {
  const auto things = mount(*agent_, KivQuellType::published);
  Listener listener;
  listener.hasNotificationActiveIs(true);
  listener.notifierIs(things);
  const auto published = mount(*other_, KivQuellType::written);
  for (std::uint32_t id = 0; id < 10; ++id) published->red().insert(thing(id));
  other_->flush();
  EXPECT_TRUE(agent_->deliver(4));
  EXPECT_EQ(listener.keys.size(), 4U);
  EXPECT_TRUE(agent_->deliver(4));
  EXPECT_FALSE(agent_->deliver(4));
  EXPECT_EQ(listener.keys.size(), 10U);
  listener.notifierIs(nullptr);
}

TEST_F(SharedTables, AWatcherThatFellTooFarBehindIsToldToLookAtEverything) {
  const auto things = mount(*agent_, KivQuellType::published);
  Listener listener;
  listener.hasNotificationActiveIs(true);
  listener.notifierIs(things);
  const auto published = mount(*other_, KivQuellType::written);
  for (std::uint32_t i = 0; i <= Quell::Layout::kJournalEntries; ++i)
    published->red().insert(thing(i % 50, i));
  other_->flush();
  EXPECT_FALSE(agent_->deliver(100));
  EXPECT_EQ(listener.everything, 1U);
  EXPECT_TRUE(listener.keys.empty());
  published->red().insert(thing(7));
  other_->flush();
  EXPECT_FALSE(agent_->deliver(100));
  EXPECT_EQ(listener.everything, 1U);
  EXPECT_EQ(listener.keys.size(), 1U);
  listener.notifierIs(nullptr);
}

TEST_F(SharedTables, AWatcherWithTheWholeJournalToReadIsToldEachKey) {
  const auto things = mount(*agent_, KivQuellType::published);
  Listener listener;
  listener.hasNotificationActiveIs(true);
  listener.notifierIs(things);
  const auto published = mount(*other_, KivQuellType::written);
  for (std::uint32_t i = 0; i < Quell::Layout::kJournalEntries; ++i)
    published->red().insert(thing(i % 50, i));
  other_->flush();
  EXPECT_FALSE(agent_->deliver(1000000));
  EXPECT_EQ(listener.everything, 0U);
  EXPECT_EQ(listener.keys.size(), Quell::Layout::kJournalEntries);
  listener.notifierIs(nullptr);
}

TEST_F(SharedTables, ADamagedJournalTellsEverything) {
  const auto things = mount(*agent_, KivQuellType::published);
  Listener listener;
  listener.hasNotificationActiveIs(true);
  listener.notifierIs(things);
  const auto published = mount(*other_, KivQuellType::written);
  published->red().insert(thing(1));
  setByte(files_.fileName(), Quell::Layout::kJournalOffset + 17, 0x55);
  other_->flush();
  EXPECT_FALSE(agent_->deliver(100));
  EXPECT_EQ(listener.everything, 1U);
  EXPECT_TRUE(listener.keys.empty());
  listener.notifierIs(nullptr);
}

TEST_F(SharedTables, TheOperatorMayWriteATableThatTheAgentOnlyMounted) {
  const auto things = mount(*agent_, KivQuellType::written);
  {
    Quell::OpenCollection tool(dir_.path(), "test/things", "red");
    tool.put(Kiv::Value(Kiv::Value::Object{{"id", Kiv::Value(5)}, {"stamp", Kiv::Value(50)}}));
    EXPECT_THAT(tableError([&] { things->red().insert(thing(6)); }),
                HasSubstr("process " + std::to_string(::getpid()) + " is the table's writer"));
  }
  EXPECT_EQ(things->red().get(keyOf(5)), thing(5, 50));
  things->red().insert(thing(6));
  Quell::OpenCollection tool(dir_.path(), "test/things", "red");
  EXPECT_THROW(tool.put(Kiv::Value(Kiv::Value::Object{{"id", Kiv::Value(7)}})), Quell::TableError);
}

TEST_F(SharedTables, ListingTellsTypesEntriesWritersAndProblems) {
  EXPECT_TRUE(Quell::listTables(dir_.path()).empty());
  const auto things = mount(*agent_, KivQuellType::written);
  things->red().insert(thing(1));
  std::vector<Quell::TableStatus> all = Quell::listTables(dir_.path());
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].collection, "blue");
  EXPECT_EQ(all[0].writer, 0U);
  EXPECT_EQ(all[0].entries, 0U);
  EXPECT_EQ(all[1].path, "test/things");
  EXPECT_EQ(all[1].collection, "red");
  EXPECT_EQ(all[1].containerType, "QuellTest::Things");
  EXPECT_EQ(all[1].recordType, "QuellTest::Thing");
  EXPECT_EQ(all[1].entries, 1U);
  EXPECT_EQ(all[1].writer, static_cast<std::uint64_t>(::getpid()));
  EXPECT_EQ(all[1].problem, "");
  setByte(files_.fileName("blue"), 0, 'x');
  all = Quell::listTables(dir_.path());
  EXPECT_THAT(all[0].problem, HasSubstr("no shared table"));
  EXPECT_THROW(Quell::listTables(dir_.path() + "/missing"), Quell::TableError);
}

TEST_F(SharedTables, ACollectionIsOpenedByItsFileAndReadAsValues) {
  mount(*agent_, KivQuellType::written)->red().insert(thing(1, 10));
  Quell::OpenCollection tool(dir_.path(), "test/things", "red");
  std::vector<std::string> texts;
  tool.forEach([&](const Kiv::Value& value) { texts.push_back(value.member("id")->text()); },
               [](const std::string& problem) { FAIL() << problem; });
  EXPECT_EQ(texts, std::vector<std::string>{"1"});
  const Kiv::Value key(Kiv::Value::Object{{"id", Kiv::Value(1)}});
  EXPECT_EQ(tool.get(key).member("stamp")->text(), "10");
  EXPECT_TRUE(tool.get(Kiv::Value(Kiv::Value::Object{{"id", Kiv::Value(2)}})).isNone());
  EXPECT_THROW(tool.put(Kiv::Value("no object")), Kiv::ValueError);
  EXPECT_THROW(tool.del(Kiv::Value(5)), Kiv::ValueError);
}

TEST_F(SharedTables, OpeningACollectionThatIsNotThereSaysSo) {
  EXPECT_THAT(tableError([&] { Quell::OpenCollection(dir_.path(), "test/things", "red"); }),
              HasSubstr("there is no such table"));
}
