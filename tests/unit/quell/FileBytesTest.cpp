// The bytes of a table's file, as docs/shared-memory.md draws them: other processes, older and newer, read
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstring>

#include "QuellFiles.h"
#include "SystemCalls.h"
#include "quell/BucketEdit.h"

using namespace QuellTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
namespace Layout = Quell::Layout;

namespace {

constexpr std::uint64_t kMost32 = 0xffffffffU;
// Of the words 0, 1, 2 and 7.
constexpr std::uint64_t kFactor0 = 0xe220a8397b1dcdafU;
constexpr std::uint64_t kFactor1 = 0x6e789e6aa1b965f5U;
constexpr std::uint64_t kFactor2 = 0x06c45d188009454fU;
constexpr std::uint64_t kFactor7 = 0xc584133ac916ab3dU;

class FileBytes : public testing::Test {
 protected:
  std::uint64_t word(std::uint64_t offset) const {
    std::ifstream in(files_.fileName(), std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::uint64_t word = 0;
    in.read(reinterpret_cast<char*>(&word), sizeof word);
    return word;
  }
  std::string text(std::uint64_t offset, std::size_t bytes) const {
    std::ifstream in(files_.fileName(), std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::string text(bytes, '\0');
    in.read(text.data(), static_cast<std::streamsize>(bytes));
    return text;
  }
  // Changes the identity of the file, whose check is made to fit.
  void identityIs(const std::function<void(Layout::Identity&)>& change) const {
    const std::string bytes = text(0, sizeof(Layout::Identity));
    Layout::Identity identity;
    std::memcpy(&identity, bytes.data(), sizeof identity);
    change(identity);
    identity.identityCheck = XXH3_64bits(&identity, 544);
    setText(files_.fileName(), 0, {reinterpret_cast<const char*>(&identity), sizeof identity});
  }
  std::string openError() const {
    return tableError([&] { Quell::TableFile::open(files_.place(), Quell::TableFile::Access::read); });
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
};

std::uint64_t countWordOf(std::uint64_t count) {
  return (((count + 1) * kFactor1) & ~kMost32) | count;
}
std::uint64_t stateWordOf(std::uint64_t buckets, std::uint64_t compactions) {
  const std::uint64_t low = buckets + (compactions << 24);
  return low + ((low * kFactor0) >> 40 << 40);
}

}  // namespace

TEST_F(FileBytes, ANewFilesHeaderTellsWhatItHolds) {
  files_.open(100);
  EXPECT_EQ(text(0, 8), "QUELLTBL");
  EXPECT_EQ(word(8), 1 | std::uint64_t{552} << 32);
  EXPECT_EQ(word(16), 56 | std::uint64_t{12} << 32);
  EXPECT_EQ(word(24), (std::uint64_t{258} << 20) + (std::uint64_t{2} << 20));
  EXPECT_EQ(text(32, 96), "QuellTest::Thing" + std::string(80, '\0'));
  EXPECT_EQ(text(128, 96), "QuellTest::Things" + std::string(79, '\0'));
  EXPECT_EQ(text(224, 256), "test/things" + std::string(245, '\0'));
  EXPECT_EQ(text(480, 64), "red" + std::string(61, '\0'));
  const std::string identity = text(0, 544);
  EXPECT_EQ(word(544), XXH3_64bits(identity.data(), identity.size()));
  EXPECT_EQ(word(1024), stateWordOf(25, 0));
  EXPECT_EQ(word(1152), stateWordOf(25, 0));
  EXPECT_EQ(word(1160), countWordOf(0));
  EXPECT_EQ(word(1168), 0U);
  EXPECT_EQ(word(1176), countWordOf(0));
  EXPECT_EQ(word(1280), 0U);
  EXPECT_EQ(word(1288), 0U);
}

TEST_F(FileBytes, ARecordStandsInItsSlotItsBucketAndTheCounts) {
  const auto things = files_.open(4);
  const Thing stored = thing(7, 70);
  things->red().insert(stored);
  const std::uint64_t hash = XXH3_64bits(&stored.key, sizeof stored.key);
  const std::uint64_t records = word(24);

  std::array<std::uint64_t, 7> words;
  std::memcpy(words.data(), &stored, sizeof stored);
  std::uint64_t sum = hash;
  for (std::size_t i = 1; i < words.size(); ++i) sum += words[i] * Layout::factor(i);
  EXPECT_EQ(word(records), 2 | (sum & ~kMost32));
  for (std::size_t i = 0; i < words.size(); ++i) EXPECT_EQ(word(records + 8 + 8 * i), words[i]);

  const std::uint64_t entry = (hash & ~kMost32) | 1;
  EXPECT_EQ(word(2 << 20), 2 | (entry * kFactor0) >> 40 << 40);
  EXPECT_EQ(word((2 << 20) + 8), entry);
  EXPECT_EQ(word(1160), countWordOf(1));
  EXPECT_EQ(word(1168), 1U);
  EXPECT_EQ(word(1280), static_cast<std::uint64_t>(::getpid()));
  EXPECT_EQ(word(1288), 1U);
  things->red().insert(stored);
  EXPECT_EQ(word(records + 64), 2 | (sum & ~kMost32)) << "in the next slot";
  EXPECT_EQ(word(2 << 20), 4 | ((entry + 1) * kFactor0) >> 40 << 40);
  things->red().table()->flush();
  EXPECT_EQ(text(2048, 1), "\x02");
  things->red().table()->writingDel();
  EXPECT_EQ(word(1280), 0U);
  things->red().table()->writingIs();
  EXPECT_EQ(word(1288), 2U);
}

TEST_F(FileBytes, ASlotThatIsFilledAgainHasTheNextEvenSequence) {
  files_.open(4);
  const auto file = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  const Thing record = thing(1);
  for (std::uint64_t times = 1; times < 5; ++times) {
    Quell::fillSlot(*file, 3, &record, Quell::keyHash(&record, sizeof record.key));
    EXPECT_EQ(file->slot(3)[0].load() & kMost32, 2 * times);
    EXPECT_TRUE(Quell::lookAtSlot(*file, 3).whole);
    EXPECT_EQ(Quell::lookAtSlot(*file, 3).hash, Quell::keyHash(&record, sizeof record.key));
  }
  file->slot(3)[0].store(file->slot(3)[0].load() | 1U);
  EXPECT_FALSE(Quell::lookAtSlot(*file, 3).whole);
}

TEST_F(FileBytes, ABucketIsOddWhileItIsChangedAndHasTheNextEvenSequenceBehindIt) {
  files_.open(4);
  const auto file = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
  Layout::Bucket& bucket = file->bucket(0);
  const auto sequence = [&] { return bucket.meta.load() & 0xffffU; };
  for (unsigned i = 0; i < 7; ++i) {
    {
      Quell::BucketEdit edit(bucket);
      EXPECT_EQ(sequence(), 2 * i + 1);
      edit.entryIs(i, 100 + i);
      EXPECT_FALSE(Quell::bucketWhole(bucket));
    }
    EXPECT_EQ(sequence(), 2 * i + 2);
    EXPECT_EQ(bucket.entries[i].load(), 100 + i);
    EXPECT_TRUE(Quell::bucketWhole(bucket));
  }
  std::uint64_t sum = 5 * kFactor7;
  for (unsigned i = 0; i < 7; ++i) sum += (100 + i) * Layout::factor(i);
  Quell::BucketEdit(bucket).linkIs(5);
  EXPECT_EQ(bucket.meta.load(), 16U | 5U << 16 | sum >> 40 << 40);
  Quell::BucketEdit(bucket).clear();
  EXPECT_EQ(bucket.meta.load(), 18U);
  for (const auto& entry : bucket.entries) EXPECT_EQ(entry.load(), 0U);
  bucket.meta.store(Layout::metaWord(0xfffe, 0, 0));
  Quell::BucketEdit(bucket).clear();
  EXPECT_EQ(bucket.meta.load(), 0U) << "it comes round";
}

TEST_F(FileBytes, ARecordWhoseLastWordIsNotFullIsFilledUpWithZeroes) {
  static const Quell::RecordType type{"Odd", 12, 3, nullptr, nullptr, nullptr, nullptr};
  const auto file = Quell::TableFile::anonymous({"", "odd", "odd"}, {&type, "Odd", 4});
  const std::array<std::uint8_t, 16> bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0xff, 0xff, 0xff, 0xff};
  file->slot(0)[2].store(~std::uint64_t{0});
  const std::uint64_t hash = Quell::keyHash(bytes.data(), 3);
  soilStack();
  Quell::fillSlot(*file, 0, bytes.data(), hash);
  EXPECT_EQ(file->slot(0)[1].load(), 0x0807060504030201U);
  EXPECT_EQ(file->slot(0)[2].load(), 0x0c0b0a09U);
  const std::uint64_t sum =
      XXH3_64bits(bytes.data(), 3) + 0x0807060504030201U * kFactor0 + 0x0c0b0a09U * kFactor1;
  EXPECT_EQ(file->slot(0)[0].load(), 2 | (sum & ~kMost32));
}

TEST_F(FileBytes, CreationReservesTheHeaderTheIndexAndTheRecords) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> reserved;
  {
    const SystemCalls calls([&](const SystemCall& call) {
      if (call.name == "posix_fallocate") reserved.emplace_back(call.offset, call.bytes);
      return 0;
    });
    files_.open(1000);
  }
  using Range = std::pair<std::uint64_t, std::uint64_t>;
  EXPECT_THAT(reserved,
              ElementsAre(Range(0, 4096), Range(2 << 20, 16384), Range(std::uint64_t{260} << 20, 69632)));
}

TEST_F(FileBytes, TheCapacityIsAtLeastOneAndAtMostWhatATableHolds) {
  const SystemCalls calls("posix_fallocate", ENOSPC);
  EXPECT_THAT(tableError([&] { files_.open(0); }), HasSubstr("with room for 1 entries"));
  EXPECT_THAT(tableError([&] { files_.open(std::uint64_t{1} << 40); }),
              HasSubstr("with room for 8388544 entries"));
}

TEST_F(FileBytes, AHeaderThatFitsItsCheckAndSaysWhatCannotBeIsDamaged) {
  files_.open();
  identityIs([](Layout::Identity&) {});
  ASSERT_EQ(openError(), "");
  const std::vector<std::function<void(Layout::Identity&)>> changes{
      [](auto& it) { it.version = 0; },        [](auto& it) { it.identityBytes = 551; },
      [](auto& it) { it.keyBytes = 0; },       [](auto& it) { it.keyBytes = it.recordBytes + 1; },
      [](auto& it) { it.recordBytes = 2049; }, [](auto& it) { it.recordsOffset += 4096; },
  };
  const std::string whole = text(0, sizeof(Layout::Identity));
  for (std::size_t i = 0; i < changes.size(); ++i) {
    identityIs(changes[i]);
    EXPECT_THAT(openError(), HasSubstr("damaged: the header does not match its check")) << i;
    setText(files_.fileName(), 0, whole);
  }
  identityIs([](auto& it) { it.keyBytes = 16; });
  EXPECT_EQ(openError(), "") << "another key of the same size in the file is another type";
  identityIs([](auto& it) { it.recordBytes = 2048; });
  EXPECT_EQ(openError(), "");
  identityIs([](auto& it) {
    it.keyBytes = 2048;
    it.recordsOffset = Layout::recordsOffset(2048);
  });
  EXPECT_THAT(openError(), HasSubstr("truncated")) << "a key may be all of the record";
}

TEST_F(FileBytes, AFileOfExactlyWhatIsNeededIsRead) {
  files_.open();
  const std::uint64_t records = word(24);
  std::filesystem::resize_file(files_.fileName(), records);
  EXPECT_EQ(openError(), "");
  EXPECT_EQ(Quell::TableFile::open(files_.place(), Quell::TableFile::Access::read)->slotsInFile(), 0U);
  std::filesystem::resize_file(files_.fileName(), records - 1);
  EXPECT_THAT(openError(), HasSubstr("truncated: 272629759 bytes; the records begin at 272629760"));
  std::filesystem::resize_file(files_.fileName(), 552);
  EXPECT_THAT(openError(), HasSubstr("truncated: 552 bytes"));
  std::filesystem::resize_file(files_.fileName(), 551);
  EXPECT_THAT(openError(), HasSubstr("no shared table: 551 bytes, shorter than a header"));
}

TEST_F(FileBytes, SlotsAreCountedByTheSizeOfTheFileUpToTheMostThereMayBe) {
  files_.open();
  const auto file = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::read);
  const std::uint64_t records = word(24);
  const auto slotsWith = [&](std::uint64_t bytes) {
    std::filesystem::resize_file(files_.fileName(), bytes);
    return file->slotsInFile();
  };
  EXPECT_EQ(slotsWith(records + 64), 1U);
  EXPECT_EQ(slotsWith(records + 127), 1U);
  EXPECT_EQ(slotsWith(records + 128), 2U);
  EXPECT_EQ(slotsWith(records - 64), 0U);
  EXPECT_EQ(slotsWith(records + (Layout::kMostSlots - 1) * 64), Layout::kMostSlots - 1);
  EXPECT_EQ(slotsWith(records + (Layout::kMostSlots + 5) * 64), Layout::kMostSlots);
  std::filesystem::resize_file(files_.fileName(), records);
}

TEST_F(FileBytes, TheMappingBeginsAtALargePageAndReachesToTheLayoutsEnd) {
  files_.open();
  SystemCall reserved;
  SystemCall mapped;
  std::shared_ptr<Quell::TableFile> file;
  {
    const SystemCalls calls([&](const SystemCall& call) {
      if (call.name == "mmap") (call.descriptor < 0 ? reserved : mapped) = call;
      return 0;
    });
    file = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::read);
  }
  const std::uint64_t bytes = (std::uint64_t{260} << 20) + (std::uint64_t{64} << 23);
  EXPECT_EQ(mapped.bytes, bytes);
  EXPECT_EQ(reserved.bytes, bytes + (std::uint64_t{2} << 20));
  EXPECT_EQ(mapped.offset % (std::uint64_t{2} << 20), 0U);
  EXPECT_EQ(mapped.offset, reinterpret_cast<std::uintptr_t>(&file->header()));
}

TEST_F(FileBytes, AFileIsItsOwnersAsTheMaskSaysAndNotHandedToOtherPrograms) {
  const mode_t before = ::umask(0);
  const auto file = Quell::TableFile::openOrCreate(files_.place(), {&thingType(), "QuellTest::Things", 4},
                                                   Quell::TableFile::Access::read);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(files_.fileName().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0666U);
  ASSERT_EQ(::stat((dir_.path() + "/tables/test").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0777U);
  EXPECT_EQ(::fcntl(file->descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(::fcntl(file->descriptor(), F_GETFL) & O_ACCMODE, O_RDONLY);
  const auto writable = Quell::TableFile::writable(file);
  EXPECT_EQ(::fcntl(writable->descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(::fcntl(writable->descriptor(), F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST_F(FileBytes, ASymbolicLinkInAFilesPlaceIsRefused) {
  files_.open();
  std::filesystem::rename(files_.fileName(), dir_.path() + "/aside");
  std::filesystem::create_symlink(dir_.path() + "/aside", files_.fileName());
  EXPECT_THAT(openError(), HasSubstr("red: expected a file, found a symbolic link"));
  std::filesystem::remove(files_.fileName());
  const std::string folder = dir_.path() + "/tables/test/things";
  std::filesystem::rename(folder, dir_.path() + "/other");
  std::filesystem::create_symlink(dir_.path() + "/other", folder);
  EXPECT_THAT(openError(), HasSubstr("expected a folder, found something else (no links here)"));
}

TEST_F(FileBytes, ATableOfTheMostRecordsHasTheMostBuckets) {
  std::vector<std::uint64_t> ends;
  const SystemCalls calls([&](const SystemCall& call) -> int {
    if (call.name != "posix_fallocate") return 0;
    ends.push_back(call.offset + call.bytes);
    return SystemCalls::kDone;
  });
  EXPECT_THAT(tableError([&] { files_.open(std::uint64_t{1} << 40); }), HasSubstr("truncated"))
      << "nothing was reserved in fact";
  ASSERT_EQ(ends.size(), 3U);
  EXPECT_EQ(ends[1], (std::uint64_t{130} << 20)) << "sixteen buckets less, in whole pages";
  EXPECT_EQ(ends[2], (std::uint64_t{260} << 20) + Layout::kMostSlots * 64);
}

// --- Descriptors and names

TEST(Descriptors, AreClosedWhenAnotherTakesTheirPlaceAndWhenTheyGo) {
  const auto isOpen = [](int fd) { return ::fcntl(fd, F_GETFD) != -1; };
  const int first = ::open("/dev/null", O_RDONLY);
  const int second = ::open("/dev/null", O_RDONLY);
  {
    Quell::Descriptor descriptor(first);
    Quell::Descriptor other(second);
    descriptor = std::move(other);
    EXPECT_FALSE(isOpen(first));
    EXPECT_TRUE(isOpen(second));
    EXPECT_EQ(descriptor.get(), second);
    Quell::Descriptor& same = descriptor;
    descriptor = std::move(same);
    EXPECT_TRUE(isOpen(second));
    EXPECT_EQ(descriptor.get(), second);
  }
  EXPECT_FALSE(isOpen(second));
  EXPECT_FALSE(Quell::Descriptor().valid());
}

namespace {
[[noreturn]] void useTheFirstDescriptor() {
  const auto isOpen = [] { return ::fcntl(0, F_GETFD) != -1; };
  const auto open = [] {
    ::close(0);
    return Quell::Descriptor(::open("/dev/null", O_RDONLY));
  };
  bool good = true;
  {
    const Quell::Descriptor descriptor = open();
    good = good && descriptor.get() == 0 && descriptor.valid() && isOpen();
  }
  good = good && !isOpen();
  Quell::Descriptor descriptor = open();
  descriptor = Quell::Descriptor();
  good = good && !isOpen() && !descriptor.valid();
  std::_Exit(good ? 0 : 1);
}
}  // namespace

TEST(DescriptorsDeathTest, ZeroIsOneLikeOthers) {
  EXPECT_EXIT(useTheFirstDescriptor(), testing::ExitedWithCode(0), "");
}

TEST(Places, APathsPartsAreItsFolders) {
  const Quell::TablePlace place{"/run", "a/bc/def", "red"};
  EXPECT_THAT(place.folders(), ElementsAre("a", "bc", "def"));
  EXPECT_EQ(place.fileName(), "/run/tables/a/bc/def/red");
  EXPECT_THAT((Quell::TablePlace{"/run", "a", "red"}.folders()), ElementsAre("a"));
}
