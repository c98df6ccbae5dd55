// What a watcher hears of, and what an operator's tool sees, besides the plain way.
#include "quell/TableWatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QuellFiles.h"
#include "quell/SharedTables.h"
#include "quell/SlotAccess.h"
#include "quell/TableStore.h"

using namespace QuellTest;
using KivQuell::KivQuellType;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class OtherThings : public Things {
 public:
  using Things::Things;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<OtherThings>("QuellTest::OtherThings")
                                      .constructor(&Kiv::makePtr<OtherThings, const Kiv::String&>, "name")
                                      .build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
};

class NoTable : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<NoTable>("QuellTest::NoTable")
                                      .constructor(&Kiv::makePtr<NoTable, const Kiv::String&>, "name")
                                      .build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
};

class News : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit News(const Kiv::Ptr<Things>& things) {
    hasNotificationActiveIs(true);
    notifierIs(things);
  }
  void onAttribute(Kiv::AttributeId) override { ++everything; }
  void onAttributeKey(Kiv::AttributeId, Kiv::KeyRef key) override { ids.push_back(key.as<ThingKey>().id); }
  unsigned everything = 0;
  std::vector<std::uint32_t> ids;
};

class Watchers : public testing::Test {
 protected:
  Watchers() {
    watched_ = mount(*watcher_, KivQuellType::published);
    writing_ = mount(*writer_, KivQuellType::written);
    news_ = Kiv::makePtr<News>(watched_);
  }
  ~Watchers() override { news_->notifierIs(nullptr); }
  static Kiv::Ptr<Things> mount(Quell::SharedTables& tables, KivQuellType kind,
                                const Kiv::String& path = "test/things") {
    return Kiv::ptrCast<Things>(tables.doMount(path, "QuellTest::Things", KivQuell::MountInfo(kind)));
  }
  std::shared_ptr<Quell::TableFile> writableFile() const {
    return Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  }
  // What is told now; the ids, and 0 for everything.
  std::vector<std::uint32_t> told() {
    news_->ids.clear();
    news_->everything = 0;
    while (watcher_->deliver(1000)) continue;
    std::vector<std::uint32_t> all = news_->ids;
    all.insert(all.end(), news_->everything, 0);
    return all;
  }

  Kiv::Module module_{"QuellTest", {&Things::kivType(), &OtherThings::kivType(), &NoTable::kivType()}};
  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Quell::SharedTables> watcher_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Kiv::Ptr<Quell::SharedTables> writer_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Kiv::Ptr<Things> watched_;
  Kiv::Ptr<Things> writing_;
  Kiv::Ptr<News> news_;
};

}  // namespace

TEST_F(Watchers, AWriterThatLeavesInOrderIsNotTakenForADeadOne) {
  writing_->blue().insert(thing(2));
  writer_->flush();
  EXPECT_THAT(told(), ElementsAre(2));
  writing_->red().insert(thing(1));
  writing_->red().table()->writingDel();
  EXPECT_THAT(told(), ElementsAre(1)) << "nor the other collection's, which goes on";
  { const auto opened = writableFile(); }
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Watchers, WhoClosesTheFileWhileAWritersNumberStandsInItMayHaveDiedInAStore) {
  {
    const auto dead = writableFile();
    dead->header().writer.store(12345);
  }
  EXPECT_THAT(told(), ElementsAre(0));
  EXPECT_EQ(watcher_->overruns(watched_->red()), 0U) << "nobody was too far behind";
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Watchers, WhatThisProcessWritesItselfIsToldOnceAndByItself) {
  watched_->red().insert(thing(5));
  EXPECT_THAT(news_->ids, ElementsAre(5));
  { const auto closed = writableFile(); }
  watcher_->flush();
  EXPECT_THAT(told(), IsEmpty());
  watched_->red().table()->writingDel();
  EXPECT_THAT(told(), IsEmpty());
  writing_->red().insert(thing(6));
  writer_->flush();
  EXPECT_THAT(told(), ElementsAre(6));
}

TEST_F(Watchers, WhatADeadWriterMayHaveLeftIsNoNewsToWhoWroteSince) {
  {
    const auto dead = writableFile();
    dead->header().writer.store(12345);
  }
  EXPECT_TRUE(watcher_->deliver(0)) << "noticed by now, and not told";
  watched_->red().insert(thing(5));
  EXPECT_THAT(told(), IsEmpty());
  watched_->red().table()->writingDel();
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Watchers, ChangesAreDeliveredInSlicesOverAllCollections) {
  for (std::uint32_t id = 1; id <= 3; ++id) {
    writing_->red().insert(thing(id));
    writing_->blue().insert(thing(10 + id));
  }
  writer_->flush();
  EXPECT_TRUE(watcher_->deliver(0));
  EXPECT_THAT(news_->ids, IsEmpty());
  EXPECT_TRUE(watcher_->deliver(4));
  EXPECT_THAT(news_->ids, ElementsAre(1, 2, 3, 11));
  EXPECT_FALSE(watcher_->deliver(4));
  EXPECT_THAT(news_->ids, ElementsAre(1, 2, 3, 11, 12, 13));
}

TEST_F(Watchers, MoreNoticesThanTheSystemKeepsMeanThatAnyTableMayHaveNews) {
  const auto quiet = mount(*watcher_, KivQuellType::published, "test/quiet");
  const auto writingQuiet = mount(*writer_, KivQuellType::written, "test/quiet");
  const auto quietNews = Kiv::makePtr<News>(quiet);
  EXPECT_FALSE(watcher_->deliver(1000));  // what mounting it has rung
  // Two files in turns, or the system would take the notices for one.
  const auto red = Quell::TableFile::open(files_.place("red"), Quell::TableFile::Access::write);
  const auto blue = Quell::TableFile::open(files_.place("blue"), Quell::TableFile::Access::write);
  const char stroke = 1;
  for (unsigned i = 0; i < 20000; ++i) {
    for (const auto* file : {&red, &blue})
      ASSERT_EQ(::pwrite((*file)->descriptor(), &stroke, 1, offsetof(Quell::Layout::Header, doorbell)), 1);
  }
  writingQuiet->red().insert(thing(7));
  writer_->flush();
  watcher_->deliver(1000);
  EXPECT_THAT(quietNews->ids, ElementsAre(7));
  quietNews->notifierIs(nullptr);
}

TEST_F(Watchers, OnlyWatchedCollectionsHaveOverruns) {
  for (std::uint32_t i = 0; i <= Quell::Layout::kJournalEntries; ++i) writing_->red().insert(thing(1, i));
  writer_->flush();
  EXPECT_THAT(told(), ElementsAre(0));
  EXPECT_EQ(watcher_->overruns(watched_->red()), 1U);
  EXPECT_EQ(watcher_->overruns(watched_->blue()), 0U);
  EXPECT_EQ(watcher_->overruns(writing_->red()), 0U);
}

// --- Mounting

TEST_F(Watchers, APathIsOfOneType) {
  EXPECT_THAT(
      [&] {
        try {
          watcher_->doMount("test/things", "QuellTest::OtherThings",
                            KivQuell::MountInfo(KivQuellType::published));
        } catch (const Kiv::TypeError& error) {
          return std::string(error.what());
        }
        return std::string();
      }(),
      "table test/things: mounted as QuellTest::Things, cannot be mounted as QuellTest::OtherThings");
  EXPECT_EQ(watcher_->getEntity("test/things"), watched_);
}

TEST_F(Watchers, ATypeThatHoldsNoCollectionsOrIsUnknownIsRefused) {
  const auto refusal = [&](const char* type) -> std::string {
    try {
      watcher_->doMount("a", type, KivQuell::MountInfo(KivQuellType::published));
    } catch (const Kiv::TypeError& error) {
      return error.what();
    }
    return {};
  };
  EXPECT_EQ(refusal("QuellTest::NoTable"), "table a: entity type QuellTest::NoTable holds no collections");
  EXPECT_EQ(refusal("QuellTest::Nothing"), "table a: no entity type QuellTest::Nothing is registered");
}

TEST_F(Watchers, ATableThatIsWrittenElsewhereSaysThatWhoMountsItWantsToWrite) {
  writing_->red().insert(thing(1));
  const auto third = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  EXPECT_THAT(tableError([&] { mount(*third, KivQuellType::written); }),
              HasSubstr("is the table's writer, expected nobody to write it but who mounts it"));
  EXPECT_THAT(third->mounted(), IsEmpty());
}

TEST_F(Watchers, CollectionsWithoutASettingStartWithRoomForSixtyFour) {
  KivQuell::MountInfo info(KivQuellType::written);
  info.collectionInfoIs({"blue", 400, false});
  const auto mounted = Kiv::ptrCast<Things>(writer_->doMount("test/other", "QuellTest::Things", info));
  const auto buckets = [](const Things::Map& map) {
    return Quell::Layout::stateBuckets(map.table()->file()->header().state.load());
  };
  EXPECT_EQ(buckets(mounted->red()), 16U);
  EXPECT_EQ(buckets(mounted->blue()), 100U);
  EXPECT_FALSE(mounted->red().table()->writing()) << "not before it changes something";
}

TEST_F(Watchers, ARecordTypeOfAnotherNameFailsTheMount) {
  Quell::RecordType type = thingType();
  type.name = "QuellTest::Else";
  Quell::TableFile::openOrCreate({dir_.path(), "test/else", "blue"}, {&type, "QuellTest::Things", 4},
                                 Quell::TableFile::Access::read);
  EXPECT_THAT(tableError([&] { mount(*watcher_, KivQuellType::published, "test/else"); }),
              HasSubstr("holds records of type QuellTest::Else, expected QuellTest::Thing"));
}

// --- The operator's view

TEST_F(Watchers, TablesAreListedByPathAndCollectionWithoutWhatIsNoTablesName) {
  mount(*writer_, KivQuellType::written, "a/b");
  mount(*writer_, KivQuellType::written, "z");
  std::ofstream(dir_.path() + "/tables/a/.hidden") << "no table";
  std::ofstream(dir_.path() + "/tables/a/strange") << "no table";
  std::filesystem::create_directories(dir_.path() + "/tables/empty");
  std::vector<std::string> names;
  for (const auto& each : Quell::listTables(dir_.path())) names.push_back(each.path + ' ' + each.collection);
  EXPECT_THAT(names, ElementsAre("a strange", "a/b blue", "a/b red", "test/things blue", "test/things red",
                                 "z blue", "z red"));
  EXPECT_THAT(Quell::listTables(dir_.path())[0].problem, HasSubstr("no shared table: 8 bytes"));
  EXPECT_EQ(Quell::listTables(dir_.path())[0].recordType, "");
  EXPECT_EQ(Quell::listTables(dir_.path())[0].entries, 0U);
  EXPECT_EQ(Quell::listTables(dir_.path())[0].writer, 0U);
}

TEST_F(Watchers, ADeadWriterIsNotListed) {
  const auto dead = writableFile();
  dead->header().writer.store(12345);
  for (const auto& each : Quell::listTables(dir_.path())) EXPECT_EQ(each.writer, 0U);
  ASSERT_TRUE(dead->lock());
  EXPECT_EQ(Quell::listTables(dir_.path()).at(1).writer, 12345U);
}

TEST_F(Watchers, AFolderThatCannotBeReadIsTold) {
  const TestSupport::TempDir other;
  std::ofstream(other.path() + "/tables") << "no folder";
  EXPECT_THAT(tableError([&] { Quell::listTables(other.path()); }),
              StartsWith(other.path() + "/tables: cannot be read: "));
  EXPECT_THAT(tableError([&] { Quell::listTables(other.path() + "/absent"); }),
              HasSubstr("cannot be read: "));
}

TEST_F(Watchers, ACollectionThatItsTypeDoesNotHaveIsRefused) {
  Quell::TableFile::openOrCreate({dir_.path(), "test/things", "green"},
                                 {&thingType(), "QuellTest::Things", 4}, Quell::TableFile::Access::read);
  EXPECT_THAT(tableError([&] { Quell::OpenCollection(dir_.path(), "test/things", "green"); }),
              HasSubstr("green: QuellTest::Things has no collection \"green\""));
  Quell::RecordType type = thingType();
  type.name = "QuellTest::Else";
  Quell::TableFile::openOrCreate({dir_.path(), "test/else", "red"}, {&type, "QuellTest::Things", 4},
                                 Quell::TableFile::Access::read);
  EXPECT_THAT(tableError([&] { Quell::OpenCollection(dir_.path(), "test/else", "red"); }),
              HasSubstr("holds records of type QuellTest::Else"));
}

TEST_F(Watchers, AToolPutsGetsAndDeletesByValues) {
  const auto object = [](std::uint32_t id, std::uint32_t stamp) {
    return Kiv::Value(Kiv::Value::Object{{"id", Kiv::Value(id)}, {"stamp", Kiv::Value(stamp)}});
  };
  const Kiv::Value key(Kiv::Value::Object{{"id", Kiv::Value(3)}});
  {
    Quell::OpenCollection tool(dir_.path(), "test/things", "red");
    EXPECT_EQ(tool.container()->name(), "test/things");
    EXPECT_TRUE(tool.get(key).isNone());
    EXPECT_FALSE(tool.del(key));
    tool.put(object(3, 30));
    EXPECT_EQ(tool.get(key), object(3, 30));
    tool.flush();
    EXPECT_THAT(told(), ElementsAre(3));
    EXPECT_TRUE(tool.del(key));
    EXPECT_TRUE(tool.get(key).isNone());
    EXPECT_FALSE(tool.del(key));
  }
  EXPECT_THAT(told(), ElementsAre(3)) << "told as it leaves";
}

TEST_F(Watchers, AToolThatReadsOnlyRingsNothing) {
  Quell::OpenCollection tool(dir_.path(), "test/things", "red");
  tool.flush();
  EXPECT_FALSE(tool.map().table()->writing());
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Watchers, AToolReadsToTheEndAlsoWhereThatIsDamaged) {
  constexpr std::uint32_t kMany = 60;
  for (std::uint32_t id = 0; id < kMany; ++id) writing_->red().insert(thing(id));
  writing_->red().table()->writingDel();
  const auto file = writableFile();
  std::uint32_t last = 0;
  for (std::uint32_t id = 1; id < kMany; ++id) {
    const auto order = [](std::uint32_t each) { return Quell::reverseBits(Things::Map::hash(keyOf(each))); };
    if (order(id) > order(last)) last = id;
  }
  for (std::uint64_t slot = 0; slot < file->slotsInFile(); ++slot) {
    auto* words = file->slot(slot);
    if (words[0].load() != 0 && static_cast<std::uint32_t>(words[1].load()) == last)
      words[5].store(words[5].load() + 1);
  }
  const Quell::OpenCollection tool(dir_.path(), "test/things", "red");
  std::size_t read = 0;
  std::vector<std::string> damages;
  tool.forEach([&](const Kiv::Value&) { ++read; }, [&](const std::string& text) { damages.push_back(text); });
  EXPECT_EQ(read, kMany - 1);
  EXPECT_EQ(damages.size(), 1U);
}

// --- Who writes

TEST_F(Watchers, ALockWithoutAProcessIsToldAsSuch) {
  const auto file = writableFile();
  ASSERT_TRUE(file->lock());
  EXPECT_THAT(tableError([&] { writing_->red().insert(thing(1)); }),
              HasSubstr("red: process (unknown) is the table's writer"));
  file->unlock();
  EXPECT_EQ(tableError([&] { writing_->red().insert(thing(1)); }), "");
}

TEST_F(Watchers, ATableThatCannotBePutInOrderIsLetGoOf) {
  const auto file = writableFile();
  const auto writer = files_.open();  // who has not written before
  const std::uint64_t state = file->header().state.load();
  file->header().state.store(state ^ 1U);
  file->header().stateCopy.store(state ^ 1U);
  for (int times = 0; times < 2; ++times) {
    EXPECT_THAT(tableError([&] { writer->red().insert(thing(1)); }),
                HasSubstr("red: damaged beyond repair: the size of the index is lost (both copies)"));
    EXPECT_FALSE(writer->red().table()->writing());
    EXPECT_TRUE(file->lock()) << "it is nobody's";
    file->unlock();
  }
  file->header().stateCopy.store(state);
  EXPECT_EQ(tableError([&] { writer->red().insert(thing(1)); }), "");
  EXPECT_EQ(file->header().state.load(), file->header().stateCopy.load());
  EXPECT_TRUE(writer->red().has(keyOf(1)));
}

TEST_F(Watchers, WhoWritesAfterADeadWriterSendsWatchersToLookAtEverything) {
  {
    const auto dead = writableFile();
    dead->header().writer.store(12345);
  }
  EXPECT_THAT(told(), ElementsAre(0));
  writing_->red().insert(thing(1));
  writer_->flush();
  EXPECT_THAT(told(), ElementsAre(0));
  EXPECT_EQ(watcher_->overruns(watched_->red()), 1U);
  writing_->red().insert(thing(2));
  writer_->flush();
  EXPECT_THAT(told(), ElementsAre(2));
}

TEST_F(Watchers, AWriterThatKnowsTheTableFromItsLastTurnDoesNotReadItAnew) {
  writing_->red().insert(thing(1));
  writing_->red().table()->writingDel();
  const auto file = writableFile();
  // Damage that a repair would put right: of a bucket that nobody is to touch.
  const std::uint64_t buckets = Quell::Layout::stateBuckets(file->header().state.load());
  file->bucket(buckets).entries[0].store(77);
  writing_->red().table()->writingIs();
  EXPECT_EQ(file->bucket(buckets).entries[0].load(), 77U);
  writing_->red().table()->writingDel();
  const auto other = files_.open();
  other->red().table()->writingIs();
  EXPECT_EQ(file->bucket(buckets).entries[0].load(), 0U);
  other->red().table()->writingDel();
  file->bucket(buckets).entries[0].store(77);
  writing_->red().table()->writingIs();
  EXPECT_EQ(file->bucket(buckets).entries[0].load(), 0U) << "another wrote between";
}

TEST_F(Watchers, AWriterThatGoesRingsForWhatItStored) {
  {
    const auto brief = files_.open();
    brief->red().insert(thing(4));
  }
  EXPECT_THAT(told(), ElementsAre(4));
  EXPECT_EQ(writableFile()->header().writer.load(), 0U);
}
