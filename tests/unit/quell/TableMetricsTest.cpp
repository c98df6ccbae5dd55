// What the mounted tables tell of themselves.
#include "quell/TableMetrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QuellFiles.h"

using namespace QuellTest;
using KivQuell::KivQuellType;

namespace {

class TableMetrics : public testing::Test {
 protected:
  Kiv::Ptr<Things> mount(Quell::SharedTables& tables, KivQuellType kind) {
    return Kiv::ptrCast<Things>(
        tables.doMount("test/things", "QuellTest::Things", KivQuell::MountInfo(kind)));
  }
  // The number of a collection of the table; none when it has none.
  std::optional<double> number(const Quell::SharedTables& tables, const std::string& name,
                               const std::string& collection = "red") const {
    Metrics::Snapshot snapshot;
    Quell::metricsInto(tables, snapshot);
    const auto& numbers = snapshot.families().at(name).numbers();
    const auto found = numbers.find({{"table", "test/things"}, {"collection", collection}});
    return found == numbers.end() ? std::nullopt : std::optional(found->second);
  }

  Kiv::Module module_{"QuellTest", {&Things::kivType()}};
  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Quell::SharedTables> writer_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Kiv::Ptr<Quell::SharedTables> watcher_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
};

}  // namespace

TEST_F(TableMetrics, ACollectionTellsItsRecordsAndTheMemoryOfItsFile) {
  const auto things = mount(*writer_, KivQuellType::written);
  const double empty = *number(*writer_, "pexa_table_bytes");
  EXPECT_GT(empty, 0);
  for (std::uint32_t id = 0; id < 10000; ++id) things->red().insert(thing(id));
  EXPECT_EQ(number(*writer_, "pexa_table_records"), 10000);
  EXPECT_EQ(number(*writer_, "pexa_table_records", "blue"), 0);
  EXPECT_GE(*number(*writer_, "pexa_table_bytes") - empty, 10000 * sizeof(Thing));
  EXPECT_LT(*number(*writer_, "pexa_table_bytes"), std::filesystem::file_size(files_.fileName()))
      << "most of the file is holes";
}

TEST_F(TableMetrics, ReadsOfDamageAreCounted) {
  const auto things = mount(*writer_, KivQuellType::written);
  things->red().insert(thing(1));
  EXPECT_EQ(number(*writer_, "pexa_table_corrupt_reads_total"), 0);
  const std::uint64_t records = things->red().table()->file()->identity().recordsOffset;
  setByte(files_.fileName(), records + 8 + sizeof(ThingKey),
          static_cast<unsigned char>(byteAt(files_.fileName(), records + 8 + sizeof(ThingKey)) ^ 1U));
  EXPECT_THROW(things->red().has(keyOf(1)), Fenn::CorruptionDetectedException);
  EXPECT_EQ(number(*writer_, "pexa_table_corrupt_reads_total"), 1);
}

TEST_F(TableMetrics, LooksThatWereTakenAgainAreToldOfTheirCollection) {
  const auto things = mount(*writer_, KivQuellType::written);
  EXPECT_EQ(number(*writer_, "pexa_table_torn_reads_total"), 0);
  things->red().table()->file()->tornReadsInc();
  EXPECT_EQ(number(*writer_, "pexa_table_torn_reads_total"), 1);
  EXPECT_EQ(number(*writer_, "pexa_table_torn_reads_total", "blue"), 0);
  EXPECT_EQ(number(*writer_, "pexa_table_corrupt_reads_total"), 0);
}

TEST_F(TableMetrics, AWatcherThatFellTooFarBehindIsCounted) {
  mount(*watcher_, KivQuellType::published);
  const auto things = mount(*writer_, KivQuellType::written);
  things->red().insert(thing(1));
  writer_->flush();
  watcher_->deliver(100);
  EXPECT_EQ(number(*watcher_, "pexa_table_overruns_total"), 0);
  for (std::uint32_t i = 0; i <= Quell::Layout::kJournalEntries; ++i) things->red().insert(thing(1, i));
  writer_->flush();
  watcher_->deliver(100);
  EXPECT_EQ(number(*watcher_, "pexa_table_overruns_total"), 1);
  EXPECT_EQ(number(*watcher_, "pexa_table_overruns_total", "blue"), 0);
  EXPECT_EQ(number(*writer_, "pexa_table_overruns_total"), 0) << "nobody watches what it writes";
}

TEST_F(TableMetrics, ACollectionThatCannotBeCountedHasNoNumberOfRecords) {
  const auto things = mount(*writer_, KivQuellType::written);
  things->red().insert(thing(1));
  const auto header = [&](std::size_t offset) {
    setByte(files_.fileName(), offset, static_cast<unsigned char>(byteAt(files_.fileName(), offset) ^ 1U));
  };
  header(offsetof(Quell::Layout::Header, entries));
  EXPECT_EQ(number(*writer_, "pexa_table_records"), 1) << "the entries themselves are counted then";
  header(offsetof(Quell::Layout::Header, state));
  EXPECT_EQ(number(*writer_, "pexa_table_records"), std::nullopt);
  EXPECT_EQ(number(*writer_, "pexa_table_records", "blue"), 0);
}
