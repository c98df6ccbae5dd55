// A writer that is killed in the middle of its stores, again and again.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <random>

#include "Forked.h"
#include "QuellFiles.h"

using namespace QuellTest;

namespace {

std::uint32_t draw(std::mt19937& random) {
  return static_cast<std::uint32_t>(random());
}

constexpr std::uint32_t kIds = 3000;

// What the writer is about to do and has done, id by id: a stamp, 0 for erased.
struct Progress {
  std::array<std::atomic<std::uint32_t>, kIds> begun{};
  std::array<std::atomic<std::uint32_t>, kIds> done{};
  std::atomic<std::uint64_t> operations{0};
};

int writeForEver(const Files& files, Progress& progress, unsigned seed) {
  const auto things = files.open(4);
  std::mt19937 random(seed + 1);
  for (std::uint32_t stamp = seed * 1000000U + 1;; ++stamp) {
    const std::uint32_t id = draw(random) % kIds;
    const bool erases = draw(random) % 4 == 0;
    progress.begun[id] = erases ? 0 : stamp;
    if (erases) {
      things->red().erase(keyOf(id));
    } else {
      things->red().insert(thing(id, stamp));
    }
    progress.done[id] = erases ? 0 : stamp;
    ++progress.operations;
  }
}

// Every id is as it was last written, but for the one store that was under way.
void check(const Things::Map& map, Progress& progress, unsigned round) {
  unsigned underWay = 0;
  std::size_t present = 0;
  for (std::uint32_t id = 0; id < kIds; ++id) {
    Thing found;
    const bool there = map.find(keyOf(id), found);
    present += there ? 1 : 0;
    const std::uint32_t stamp = there ? found.stamp : 0;
    if (there) {
      ASSERT_TRUE(whole(found)) << round;
    }
    const std::uint32_t done = progress.done[id];
    const std::uint32_t begun = progress.begun[id];
    underWay += begun != done ? 1 : 0;
    ASSERT_TRUE(stamp == done || stamp == begun) << "round " << round << " id " << id;
    progress.done[id] = progress.begun[id] = stamp;
  }
  ASSERT_LE(underWay, 1U);
  std::size_t met = 0;
  Thing each;
  for (bool more = map.first(each); more; more = map.after(each.key, each)) ++met;
  ASSERT_EQ(met, present) << round;
}

}  // namespace

TEST(KilledWriter, LosesAtMostTheStoreUnderWayAThousandTimes) {
  const TestSupport::TempDir dir;
  const Files files(dir.path());
  std::mt19937 random(3 + 1);
  const TestSupport::SharedWithForked<Progress> progress;
  for (unsigned round = 0; round < 1000; ++round) {
    if (round % 25 == 0) {  // from the start again, so that growth is interrupted too
      std::filesystem::remove_all(dir.path() + "/tables");
      for (std::uint32_t id = 0; id < kIds; ++id) progress->begun[id] = progress->done[id] = 0;
    }
    const std::uint64_t until = progress->operations + 1 + draw(random) % 1500;
    TestSupport::Forked writer([&] { return writeForEver(files, *progress.operator->(), round + 1); });
    while (progress->operations < until) {
    }
    writer.kill();
    const auto reader = files.open();  // before any repair
    check(reader->red(), *progress.operator->(), round);
    if (HasFatalFailure()) return;
  }
  const auto writer = files.open();
  writer->red().insert(thing(kIds, 1));
  std::size_t present = 1;
  for (std::uint32_t id = 0; id < kIds; ++id) present += progress->done[id] != 0 ? 1 : 0;
  EXPECT_EQ(writer->red().size(), present);
}
