#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "QuellFiles.h"

using namespace QuellTest;
using testing::HasSubstr;

namespace {

class TableCreation : public testing::Test {
 protected:
  std::shared_ptr<Quell::TableFile> created(const Quell::RecordType& type, std::uint64_t capacity = 64) {
    Quell::TableFile::Creation creation;
    creation.type = &type;
    creation.containerType = "QuellTest::Things";
    creation.capacity = capacity;
    return Quell::TableFile::openOrCreate(files_.place(), creation, Quell::TableFile::Access::read);
  }
  std::string refusal(const Quell::RecordType& type) {
    return tableError([&] { created(type); });
  }
  static Quell::RecordType sized(std::uint32_t recordBytes, std::uint32_t keyBytes) {
    Quell::RecordType type = thingType();
    type.recordBytes = recordBytes;
    type.keyBytes = keyBytes;
    return type;
  }
  std::size_t filesInFolder() const {
    std::size_t files = 0;
    for (const auto& each : std::filesystem::recursive_directory_iterator(dir_.path()))
      files += each.is_directory() ? 0U : 1U;
    return files;
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
};

}  // namespace

TEST_F(TableCreation, SizesThatDoNotFitAreRefusedAndLeaveNoFile) {
  constexpr std::uint32_t kMost = Quell::Layout::kMostRecordBytes;
  for (const auto& type : {sized(0, 0), sized(8, 0), sized(8, 9), sized(kMost + 1, 8)}) {
    EXPECT_THAT(refusal(type), HasSubstr("expected at most 2048"))
        << type.recordBytes << ' ' << type.keyBytes;
  }
  EXPECT_EQ(filesInFolder(), 0U);
}

TEST_F(TableCreation, TheLargestRecordAndAKeyThatIsAllOfItAreTaken) {
  EXPECT_EQ(refusal(sized(Quell::Layout::kMostRecordBytes, Quell::Layout::kMostRecordBytes)), "");
  EXPECT_EQ(created(sized(Quell::Layout::kMostRecordBytes, Quell::Layout::kMostRecordBytes))->keyBytes(),
            Quell::Layout::kMostRecordBytes);
}

TEST_F(TableCreation, ANameThatDoesNotFitTheHeaderIsRefused) {
  Quell::RecordType type = thingType();
  const std::string longest(95, 'T');
  const std::string longer(96, 'T');
  type.name = longer.c_str();
  EXPECT_THAT(refusal(type), HasSubstr("record type \"" + longer + "\" is longer than 95 bytes"));
  EXPECT_EQ(filesInFolder(), 0U);
  type.name = longest.c_str();
  EXPECT_NO_THROW(created(type)->requireType(type));
}

TEST_F(TableCreation, WithoutRoomNothingIsLeft) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit limited = before;
  limited.rlim_cur = Quell::Layout::kIndexOffset;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  const auto old = ::signal(SIGXFSZ, SIG_IGN);
  const std::string error = tableError([&] { created(thingType(), 100); });
  ::signal(SIGXFSZ, old);
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_THAT(error, HasSubstr("cannot be created with room for 100 entries: File too large"));
  EXPECT_EQ(filesInFolder(), 0U);
}

TEST_F(TableCreation, ANewTableIsEmptyWithABucketForEachLoadOfItsCapacity) {
  using namespace Quell::Layout;
  const std::vector<std::pair<std::uint64_t, std::uint64_t>> sizes{
      {0, 1}, {1, 1}, {4, 1}, {5, 2}, {400, 100}};
  for (const auto& [capacity, buckets] : sizes) {
    const auto file = created(thingType(), capacity);
    const Header& header = file->header();
    EXPECT_EQ(stateBuckets(header.state.load()), buckets) << capacity;
    EXPECT_EQ(header.stateCopy.load(), header.state.load());
    EXPECT_EQ(header.entries.load(), countWord(0));
    EXPECT_EQ(header.overflow.load(), countWord(0));
    EXPECT_GE(file->slotsInFile(), capacity + kSpareSlots);
    EXPECT_LT(file->slotsInFile(), capacity + kSpareSlots + kPage / file->slotBytes() + 1);
    std::filesystem::remove(files_.fileName());
  }
}

TEST_F(TableCreation, AFileThatTookTheMountedOnesPlaceIsNotWritten) {
  const auto mounted = created(thingType());
  std::filesystem::rename(files_.fileName(), dir_.path() + "/aside");
  const auto other = created(thingType());
  EXPECT_THAT(tableError([&] { Quell::TableFile::writable(mounted); }),
              HasSubstr("another file stands here than the one that was mounted"));
  EXPECT_NO_THROW(Quell::TableFile::writable(other));
}

TEST_F(TableCreation, AFileThatIsOpenForWritingIsItsOwnWritable) {
  const auto file = Quell::TableFile::writable(created(thingType()));
  EXPECT_EQ(Quell::TableFile::writable(file), file);
}

TEST_F(TableCreation, ALockIsHeldOnceWithinAProcessAndBetweenOpenings) {
  const auto first = Quell::TableFile::writable(created(thingType()));
  const auto second = Quell::TableFile::writable(created(thingType()));
  EXPECT_TRUE(first->lock());
  EXPECT_FALSE(first->lock());
  EXPECT_FALSE(second->lock());
  first->unlock();
  EXPECT_TRUE(second->lock());
  EXPECT_FALSE(first->lock());
  second->unlock();
  EXPECT_TRUE(first->lock());
}
