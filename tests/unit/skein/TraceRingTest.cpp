#include "skein/TraceRing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "RingThings.h"

namespace Skein {
namespace {

using namespace TestSupport;
using testing::ElementsAre;

class Ring : public testing::Test, protected RingThings {
 protected:
  // Writes "record 1" to "record N".
  static void writeMany(TraceRing& ring, int last, int first = 1) {
    for (int i = first; i <= last; ++i) ring.write(kEvent, "record " + std::to_string(i));
  }
  // Runs in a process of its own; its status, negative when a signal ended it.
  template <class F>
  static int inAnotherProcess(F&& body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
};

TEST_F(Ring, KeepsAllOfARecord) {
  TraceRing ring(file());
  ring.write(kPacket, "Sft Pkt7: No flow status", "web");
  TraceReader reader(file());
  TraceRecord record;
  ASSERT_TRUE(reader.next(record));
  EXPECT_EQ(record.serial, 1U);
  EXPECT_EQ(record.time, 1'700'000'000.25);
  EXPECT_EQ(record.category, "Sft");
  EXPECT_EQ(record.volume, Volume::packet);
  EXPECT_EQ(record.file, "OffloadDecision.cpp");
  EXPECT_EQ(record.line, 12);
  EXPECT_EQ(record.function, "maybeOffloadCommon");
  EXPECT_EQ(record.filter, "web");
  EXPECT_EQ(record.text, "Sft Pkt7: No flow status");
  EXPECT_FALSE(reader.next(record));
}

TEST_F(Ring, HasTheSizeItWasGivenFromTheStart) {
  TraceRing ring(file());
  EXPECT_EQ(std::filesystem::file_size(file()), 1U << 20);
  writeMany(ring, 100);
  EXPECT_EQ(std::filesystem::file_size(file()), 1U << 20);
}

TEST_F(Ring, CutsTextsBetweenCharacters) {
  TraceRing ring(file());
  ring.write(kEvent, std::string(511, 'a') + "\u00e9\u00e9");
  ring.write(kEvent, std::string(2000, 'b'), std::string(100, 'f'));
  ring.write(kEvent, "");
  EXPECT_THAT(texts(), ElementsAre(std::string(511, 'a'), std::string(512, 'b'), ""));
}

TEST_F(Ring, OverwritesTheOldest) {
  TraceRing ring(file(), TraceRing::kLeastBytes);
  writeMany(ring, 10'000);
  const auto kept = texts();
  ASSERT_GT(kept.size(), 100U);
  ASSERT_LT(kept.size(), 1000U);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    ASSERT_EQ(kept[i], "record " + std::to_string(10'000 - kept.size() + 1 + i));
  }
}

// Records of every length, so that the ring's end falls at every place of a record.
TEST_F(Ring, GoesAroundAtAnyLength) {
  TraceRing ring(file(), TraceRing::kLeastBytes);
  TraceReader reader(file());
  for (std::size_t i = 0; i < 5000; ++i) {
    const std::string text(i * 37 % 513, static_cast<char>('a' + i % 26));
    ring.write(kEvent, text);
    TraceRecord record;
    ASSERT_TRUE(reader.next(record)) << i;
    ASSERT_EQ(record.text, text);
    ASSERT_EQ(record.serial, i + 1);
  }
  EXPECT_EQ(reader.lost(), 0U);
  EXPECT_EQ(reader.damaged(), 0U);
}

TEST_F(Ring, AReaderFollows) {
  TraceRing ring(file());
  writeMany(ring, 2);
  TraceReader reader(file());
  EXPECT_THAT(rest(reader), ElementsAre("record 1", "record 2"));
  EXPECT_TRUE(rest(reader).empty());
  writeMany(ring, 3, 3);
  EXPECT_THAT(rest(reader), ElementsAre("record 3"));
}

TEST_F(Ring, AReaderThatFellBehindKnowsHowMuchItMissed) {
  TraceRing ring(file(), TraceRing::kLeastBytes);
  writeMany(ring, 10);
  TraceReader reader(file());
  TraceRecord record;
  ASSERT_TRUE(reader.next(record));
  writeMany(ring, 5000, 11);
  const auto kept = rest(reader);
  EXPECT_EQ(kept.back(), "record 5000");
  EXPECT_EQ(1 + reader.lost() + kept.size(), 5000U);
  EXPECT_EQ(reader.damaged(), 0U);
}

TEST_F(Ring, GoesOnWhereTheWriterBeforeStopped) {
  { writeMany(*std::make_unique<TraceRing>(file()), 2); }
  EXPECT_THAT(texts(), ElementsAre("record 1", "record 2"));
  TraceRing ring(file());
  writeMany(ring, 3, 3);
  TraceReader reader(file());
  TraceRecord record;
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.serial, static_cast<std::uint64_t>(i));
  }
}

TEST_F(Ring, OutlivesAWriterThatWasKilled) {
  EXPECT_EQ(inAnotherProcess([this] {
              TraceRing ring(file(), TraceRing::kLeastBytes);
              writeMany(ring, 1000);
              ::kill(::getpid(), SIGKILL);
              return 0;
            }),
            -SIGKILL);
  EXPECT_EQ(texts().back(), "record 1000");
  TraceRing ring(file(), TraceRing::kLeastBytes);  // the lock died with its holder
  writeMany(ring, 1001, 1001);
  EXPECT_EQ(texts().back(), "record 1001");
}

TEST_F(Ring, IsReadByAnotherProcess) {
  TraceRing ring(file());
  writeMany(ring, 3);
  EXPECT_EQ(inAnotherProcess([this] { return static_cast<int>(texts().size()); }), 3);
}

TEST_F(Ring, HasOneWriter) {
  TraceRing ring(file());
  const auto openAgain = [this] {
    try {
      TraceRing other(file());
      return 1;
    } catch (const RingError& error) {
      return std::string(error.what()) == "trace file " + file().string() + ": process " +
                                              std::to_string(::getppid()) + " is writing it already"
                 ? 0
                 : 2;
    }
  };
  EXPECT_EQ(inAnotherProcess(openAgain), 0);
  writeMany(ring, 1);
  EXPECT_THAT(texts(), ElementsAre("record 1"));
}

TEST_F(Ring, IsMadeAnewInAnotherSizeAndReadersFollow) {
  auto ring = std::make_unique<TraceRing>(file(), TraceRing::kLeastBytes);
  writeMany(*ring, 2);
  TraceReader reader(file());
  ring.reset();
  ring = std::make_unique<TraceRing>(file(), 2 * TraceRing::kLeastBytes);
  ring->write(kEvent, "new");
  EXPECT_THAT(rest(reader), ElementsAre("record 1", "record 2", "new"));
  EXPECT_EQ(reader.lost(), 0U);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST_F(Ring, IsReadAfterItsNameIsGone) {
  TraceRing ring(file());
  TraceReader reader(file());
  std::filesystem::remove(file());
  writeMany(ring, 1);
  EXPECT_THAT(rest(reader), ElementsAre("record 1"));
}

// A reader at full speed beside a writer at full speed: every record it gets is whole and in order.
TEST_F(Ring, AReaderNeverSeesATornRecord) {
  TraceRing ring(file(), TraceRing::kLeastBytes);
  constexpr std::uint64_t kRecords = 200'000;
  std::thread writer([&ring] {
    for (std::uint64_t i = 1; i <= kRecords; ++i) {
      ring.write(kEvent, std::string(i % 300, static_cast<char>('a' + i % 26)));
    }
  });
  TraceReader reader(file());
  std::uint64_t last = 0;
  std::uint64_t got = 0;
  std::uint64_t before = 0;
  for (TraceRecord record; last < kRecords;) {
    if (!reader.next(record)) continue;
    if (got++ == 0) before = record.serial - 1;
    ASSERT_GT(record.serial, last);
    last = record.serial;
    ASSERT_EQ(record.text, std::string(last % 300, static_cast<char>('a' + last % 26)));
  }
  writer.join();
  EXPECT_EQ(before + got + reader.lost(), kRecords);
  EXPECT_EQ(reader.damaged(), 0U);
}

TEST_F(Ring, WritesEventsFromTheStartAndPacketsWhenAsked) {
  TraceRing ring(file());
  EXPECT_TRUE(ring.enabled(kEvent));
  EXPECT_FALSE(ring.enabled(kPacket));
  ring.categoryLevelIs("Sft", 1);
  EXPECT_TRUE(ring.enabled(kPacket));
  ring.categoryLevelIs("Sft", -1);
  EXPECT_FALSE(ring.enabled(kEvent));
  ring.categoryLevelIs("Sft", 0);
  EXPECT_TRUE(ring.enabled(kEvent));
  EXPECT_FALSE(ring.enabled(kPacket));
}

TEST_F(Ring, WritesPacketsThatMatchAFilterUnlessTheCategoryIsOff) {
  TraceRing ring(file());
  EXPECT_TRUE(ring.enabled(kPacket, "web"));
  EXPECT_FALSE(ring.enabled(kPacket, ""));
  ring.categoryLevelIs("Sft", -1);
  EXPECT_FALSE(ring.enabled(kPacket, "web"));
}

TEST_F(Ring, KeepsCategoriesApart) {
  constexpr CallSite kOther("Agent", "Agent.cpp", 1, "run", Volume::packet);
  TraceRing ring(file());
  ring.categoryLevelIs("Sft", 1);
  EXPECT_TRUE(ring.enabled(kPacket));
  EXPECT_FALSE(ring.enabled(kOther));
  ring.defaultLevelIs(1);
  ring.categoryLevelIs("Sft", 0);
  EXPECT_FALSE(ring.enabled(kPacket));
  EXPECT_TRUE(ring.enabled(kOther));
  ring.defaultLevelIs(-1);
  EXPECT_FALSE(ring.enabled(kOther));
  EXPECT_TRUE(ring.enabled(kEvent));
}

TEST_F(Ring, ListsTheCategoriesThatTracedOrWereSet) {
  TraceRing ring(file());
  EXPECT_TRUE(ring.categoryLevels().empty());
  ring.defaultLevelIs(1);
  EXPECT_TRUE(ring.enabled(kPacket));
  ring.categoryLevelIs("Agent", 0);
  const auto levels = ring.categoryLevels();
  ASSERT_EQ(levels.size(), 2U);
  EXPECT_EQ(levels[0].category, "Agent");
  EXPECT_EQ(levels[0].level, 0);
  EXPECT_EQ(levels[1].category, "Sft");
  EXPECT_EQ(levels[1].level, 1);
}

}  // namespace
}  // namespace Skein
