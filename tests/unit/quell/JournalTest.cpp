// The journal of changed keys, word by word.
#include "quell/Journal.h"

#include <gtest/gtest.h>

#include <bit>

#include "QuellFiles.h"
#include "SystemCalls.h"
#include "quell/SlotAccess.h"

using namespace QuellTest;
using News = Quell::JournalReader::News;
namespace Layout = Quell::Layout;

namespace {

class Journals : public testing::Test {
 protected:
  Journals() {
    files_.open();
    file_ = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::write);
    space_ = std::make_unique<Quell::TableSpace>(*file_);
    writer_ = std::make_unique<Quell::JournalWriter>(*file_, *space_);
    writer_->begin();
  }
  void append(std::uint32_t id) {
    ASSERT_TRUE(writer_->reserved());
    const ThingKey key = keyOf(id);
    soilStack();
    writer_->append(&key);
  }
  std::uint64_t head() const { return file_->header().journalHead.load(); }
  struct Both {  // the words of a key
    ThingKey key;
    std::uint32_t filling;
  };
  // The id of the next key; nothing when it is other news, which goes to `news`.
  std::optional<std::uint32_t> next(Quell::JournalReader& reader, News& news) const {
    Quell::RecordWords words;
    news = reader.next(words.words.data());
    if (news != News::key) return {};
    const ThingKey key = std::bit_cast<Both>(std::array{words.words[0], words.words[1]}).key;
    EXPECT_EQ(key, keyOf(key.id));
    return key.id;
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  std::shared_ptr<Quell::TableFile> file_;
  std::unique_ptr<Quell::TableSpace> space_;
  std::unique_ptr<Quell::JournalWriter> writer_;
};

}  // namespace

TEST_F(Journals, AnEntryHoldsItsPositionACheckOfItAndTheKeyFilledUpWithZeroes) {
  for (std::uint64_t position = 0; position < 3; ++position) {
    const auto id = static_cast<std::uint32_t>(100 + position);
    append(id);
    EXPECT_EQ(head(), position + 1);
    const ThingKey key = keyOf(id);
    const std::uint64_t first = key.id | std::uint64_t{key.zone} << 32;
    const std::uint64_t second = key.port;
    const auto* words = file_->journal(position);
    EXPECT_EQ(words[0].load(), position + 1);
    EXPECT_EQ(words[1].load(),
              (position + 1) * Layout::factor(2) + first * Layout::factor(0) + second * Layout::factor(1));
    EXPECT_EQ(words[2].load(), first);
    EXPECT_EQ(words[3].load(), second);
  }
}

TEST_F(Journals, AReaderIsToldEachKeyThatComesAfterItBegan) {
  append(1);
  Quell::JournalReader reader(*file_);
  News news = News::everything;
  EXPECT_FALSE(next(reader, news));
  EXPECT_EQ(news, News::none);
  append(2);
  append(3);
  EXPECT_EQ(next(reader, news), 2U);
  EXPECT_EQ(next(reader, news), 3U);
  EXPECT_FALSE(next(reader, news));
  EXPECT_EQ(news, News::none);
}

TEST_F(Journals, AReaderThatSkipsGoesOnWithWhatComesThen) {
  Quell::JournalReader reader(*file_);
  append(1);
  reader.skip();
  append(2);
  News news = News::none;
  EXPECT_EQ(next(reader, news), 2U);
}

TEST_F(Journals, EachWordOfAnEntryThatIsDamagedMeansEverything) {
  for (unsigned word = 0; word < 4; ++word) {
    Quell::JournalReader reader(*file_);
    append(7);
    auto& damaged = file_->journal(head() - 1)[word];
    damaged.store(damaged.load() ^ 0x100U);
    News news = News::none;
    EXPECT_FALSE(next(reader, news)) << word;
    EXPECT_EQ(news, News::everything) << word;
    append(8);
    EXPECT_EQ(next(reader, news), 8U) << "and it goes on behind it";
  }
}

TEST_F(Journals, AnEntryOfAnotherPositionMeansEverything) {
  Quell::JournalReader reader(*file_);
  append(7);
  append(7);
  for (unsigned word = 0; word < 4; ++word) file_->journal(0)[word].store(file_->journal(1)[word].load());
  News news = News::none;
  EXPECT_FALSE(next(reader, news));
  EXPECT_EQ(news, News::everything);
}

TEST_F(Journals, AHeadThatWentBackMeansEverythingOnce) {
  append(1);
  append(2);
  Quell::JournalReader reader(*file_);
  file_->header().journalHead.store(1);
  News news = News::none;
  EXPECT_FALSE(next(reader, news));
  EXPECT_EQ(news, News::everything);
  EXPECT_FALSE(next(reader, news));
  EXPECT_EQ(news, News::none);
}

TEST_F(Journals, SkippingPutsTheHeadJustBehindWhatTheRingReachesBackTo) {
  Quell::JournalReader reader(*file_);
  append(1);
  writer_->skip();
  EXPECT_EQ(head(), 1 + Layout::kJournalEntries + 1);
  News news = News::none;
  EXPECT_FALSE(next(reader, news));
  EXPECT_EQ(news, News::everything);
  append(2);
  EXPECT_EQ(next(reader, news), 2U);
}

TEST_F(Journals, TheNextWriterGoesOnBehindTheLastOnesEntries) {
  append(1);
  append(2);
  Quell::JournalReader reader(*file_);
  Quell::JournalWriter successor(*file_, *space_);
  successor.begin();
  ASSERT_TRUE(successor.reserved());
  const ThingKey key = keyOf(3);
  successor.append(&key);
  EXPECT_EQ(head(), 3U);
  News news = News::none;
  EXPECT_EQ(next(reader, news), 3U);
}

TEST_F(Journals, RingsOnceForWhatIsNewByOneByteOfTheHeader) {
  unsigned rung = 0;
  const SystemCalls calls([&](const SystemCall& call) {
    if (call.name == "pwrite" && call.descriptor == file_->descriptor()) {
      EXPECT_EQ(call.offset, offsetof(Layout::Header, doorbell));
      EXPECT_EQ(call.bytes, 1U);
      ++rung;
    }
    return 0;
  });
  writer_->ring();
  EXPECT_EQ(rung, 0U) << "nothing is new";
  append(1);
  append(2);
  writer_->ring();
  EXPECT_EQ(rung, 1U);
  writer_->ring();
  EXPECT_EQ(rung, 1U);
  append(3);
  writer_->ring();
  EXPECT_EQ(rung, 2U);
}

TEST_F(Journals, TheRingIsFilledAgainFromItsBeginning) {
  for (std::uint64_t i = 0; i < Layout::kJournalEntries; ++i) append(1);
  Quell::JournalReader reader(*file_);
  append(2);
  EXPECT_EQ(file_->journal(0)[0].load(), Layout::kJournalEntries + 1);
  EXPECT_EQ(file_->journal(1)[0].load(), 2U);
  News news = News::none;
  EXPECT_EQ(next(reader, news), 2U);
}
