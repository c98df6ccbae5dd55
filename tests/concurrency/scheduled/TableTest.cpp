// The whole table under the scheduler: stores, growth, a writer that dies and the one after it.
#include <gtest/gtest.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <map>

#include "World.h"
#include "quell/Journal.h"

using namespace Scheduled;

namespace {

// Seven keys fill a bucket, the eighth stands in an overflow bucket; with the ninth, four of them move on
// into a new bucket, and the eighth moves forward.
struct Keys {
  std::vector<std::uint64_t> stay = keysEndingIn(0, 3, 4);
  std::vector<std::uint64_t> move = keysEndingIn(2, 3, 4);
  std::vector<std::uint64_t> odd = keysEndingIn(1, 1, 2);
  std::vector<std::uint64_t> all() const {
    std::vector<std::uint64_t> keys = move;
    keys.insert(keys.end(), stay.begin(), stay.end());
    return keys;
  }
};
const Keys& keys() {
  static const Keys keys;
  return keys;
}

// A table with the eight keys in one chain, a writer that has more to do, and a reader.
struct Grown {
  explicit Grown(bool warm) {
    spdlog::set_level(spdlog::level::off);
    auto first = world.table();
    for (const std::uint64_t key : keys().all()) put(*first, key, 0);
    first->writingDel();
    reading = world.table();
    Record record;
    const std::uint64_t key = keys().stay[0];
    if (warm) reading->find<sizeof key, sizeof record>(&key, hashOf(key), &record);
  }
  World world;
  std::unique_ptr<Quell::Table> reading;
};

// Lets the writer do its work; when it dies in it, another one takes over. The table is in order after it.
void workAndSucceed(Machine& machine, const World& world, const std::function<void(Quell::Table&)>& work) {
  {
    const auto table = world.table();
    work(*table);
  }
  if (!machine.died()) return;
  machine.succeed();
  world.table()->writingIs();
}

void expectEach(Machine& machine, const std::vector<std::uint64_t>& met) {
  for (const std::uint64_t key : keys().all()) {
    const auto times = std::count(met.begin(), met.end(), key);
    machine.expect(times != 0, "a walk passes by an entry that stays");
    machine.expect(times <= 1, "a walk meets an entry twice");
  }
}

enum class Reads { finds, walks };

// The ninth key comes, and with it a split and a compaction.
Scenario growth(Reads reads, bool warm) {
  return [=](Machine& machine) {
    Grown grown(warm);
    machine.writer([&] {
      workAndSucceed(machine, grown.world, [&](Quell::Table& table) { put(table, keys().odd[0], 0); });
    });
    machine.reader([&] {
      if (reads == Reads::walks) {
        expectEach(machine, walk(machine, *grown.reading));
      } else {
        for (const std::uint64_t key : {keys().stay[3], keys().move[0]}) {
          machine.expect(look(machine, *grown.reading, key).found, "an entry that stays is absent");
        }
      }
    });
    machine.run();
    expectEach(machine, walk(machine, *grown.world.table()));
  };
}

// Nothing moves into the new bucket, but the entry in the overflow bucket moves forward. The reader begins
// with the size that the index has then.
Scenario compaction(Reads reads) {
  return [=](Machine& machine) {
    spdlog::set_level(spdlog::level::off);
    const World world;
    const std::vector<std::uint64_t> chain = keysEndingIn(0, 3, 8);
    {
      const auto table = world.table();
      for (const std::uint64_t key : chain) put(*table, key, 0);
      table->erase(&chain[0]);
      put(*table, keys().odd[0], 0);
    }
    const auto reading = world.table();
    machine.writer(
        [&] { workAndSucceed(machine, world, [&](Quell::Table& table) { put(table, keys().odd[1], 0); }); });
    const auto split = [&] {
      return Quell::Layout::stateBuckets(Machine::newest(world.file()->header().state)) == 3;
    };
    machine.calmUntil(split);
    machine.reader([&] {
      machine.awaits(split);
      if (reads == Reads::finds) {
        machine.expect(look(machine, *reading, chain[7]).found, "an entry that stays is absent");
      } else {
        const auto met = walk(machine, *reading);
        machine.expect(std::count(met.begin(), met.end(), chain[7]) == 1,
                       "a walk does not meet once what stays");
      }
    });
    machine.run();
  };
}

// One key is overwritten, one erased, another inserted; whoever was told of it finds it so.
Scenario changes() {
  return [](Machine& machine) {
    Grown grown(true);
    const std::uint64_t over = keys().stay[0];
    const std::uint64_t gone = keys().move[1];
    std::uint64_t stamp = 0;
    bool erased = false;
    std::uint64_t told = 0;
    machine.writer([&] {
      workAndSucceed(machine, grown.world, [&](Quell::Table& table) {
        put(table, over, 1);
        if (!machine.died()) {
          stamp = 1;
          told = machine.now();
        }
        table.erase(&gone);
        if (!machine.died()) {
          erased = true;
          told = machine.now();
        }
      });
    });
    const auto check = [&](const Quell::Table& table, bool goneAsTold, std::uint64_t least) {
      const Look first = look(machine, table, over);
      machine.expect(first.found, "a record that is overwritten is absent");
      machine.expect(first.stamp >= least, "an acknowledged store is lost");
      machine.expect(!goneAsTold || !look(machine, table, gone).found, "an erased record is back");
      machine.expect(look(machine, table, keys().stay[3]).found, "an entry that stays is absent");
    };
    machine.reader([&] {
      const bool goneAsTold = erased;
      const std::uint64_t least = stamp;
      machine.knows(told);
      check(*grown.reading, goneAsTold, least);
    });
    machine.run();
    check(*grown.world.table(), erased, stamp);
  };
}

// A follower of the journal holds what a fresh reader finds.
Scenario followed() {
  return [](Machine& machine) {
    Grown grown(true);
    const auto& watched = keys().stay;
    std::map<std::uint64_t, Look> copy;
    Quell::JournalReader journal(*grown.world.file());
    for (const std::uint64_t key : watched) copy[key] = look(machine, *grown.reading, key);
    const auto follow = [&] {
      std::uint64_t key = 0;
      for (auto news = journal.next(&key); news != Quell::JournalReader::News::none;
           news = journal.next(&key)) {
        for (auto& [each, known] : copy) {
          if (news == Quell::JournalReader::News::everything || key == each)
            known = look(machine, *grown.reading, each);
        }
      }
    };
    machine.writer([&] {
      workAndSucceed(machine, grown.world, [&](Quell::Table& table) {
        put(table, watched[0], 1);
        table.erase(&watched[1]);
      });
    });
    machine.reader(follow);
    machine.run();
    follow();
    const auto fresh = grown.world.table();
    for (const auto& [key, known] : copy) {
      const Look now = look(machine, *fresh, key);
      machine.expect(now.found == known.found && now.stamp == known.stamp, "a follower was not told");
    }
  };
}

void expectClean(const Bounds& bounds, const Scenario& scenario, std::uint64_t limit) {
  const Explored explored = explore(bounds, scenario, limit);
  EXPECT_EQ(explored.failure, "");
  EXPECT_GT(explored.runs, 1U);
}

constexpr Bounds kInterrupted{2, 0, 0, false};
constexpr Bounds kDies{0, 0, 1, false};
constexpr Bounds kDiesInterrupted{1, 0, 1, false};
constexpr Bounds kDiesLazy{0, 2, 1, true};
constexpr Bounds kLazy{0, 3, 0, true};
constexpr Bounds kFree{4, 8, 1, false};
constexpr Bounds kFreeAndLazy{4, 8, 1, true};
constexpr std::uint64_t kMostRuns = 1000;

}  // namespace

class ScheduledTable : public testing::TestWithParam<Bounds> {};

TEST_P(ScheduledTable, FindsWhatStaysWhileItGrows) {
  expectClean(GetParam(), growth(Reads::finds, true), kMostRuns);
}
TEST_P(ScheduledTable, FindsWhatStaysWhileItGrowsAlsoAtFirst) {
  expectClean(GetParam(), growth(Reads::finds, false), kMostRuns);
}
TEST_P(ScheduledTable, WalksMeetWhatStaysOnceWhileItGrows) {
  expectClean(GetParam(), growth(Reads::walks, true), kMostRuns);
}
TEST_P(ScheduledTable, LosesNoStoreThatWasAcknowledged) {
  expectClean(GetParam(), changes(), kMostRuns);
}
TEST_P(ScheduledTable, TellsFollowersOfEachChange) {
  expectClean(GetParam(), followed(), kMostRuns);
}
INSTANTIATE_TEST_SUITE_P(Bounds, ScheduledTable,
                         testing::Values(kInterrupted, kDies, kDiesInterrupted, kDiesLazy, kLazy));

TEST(ScheduledTableCompaction, FindsWhatMoves) {
  expectClean({1, 0, 1, false}, compaction(Reads::finds), 20000);
}
TEST(ScheduledTableCompaction, WalksMeetWhatMoves) {
  expectClean({1, 0, 1, false}, compaction(Reads::walks), 20000);
}

TEST(ScheduledTableDrawn, HoldsInManyInterleavings) {
  std::uint64_t seed = 1;
  for (const Bounds& bounds : {kFree, kFreeAndLazy}) {
    for (const Scenario& scenario :
         {growth(Reads::finds, true), growth(Reads::walks, false), changes(), followed()}) {
      EXPECT_EQ(draw(bounds, scenario, 600, seed).failure, "");
      seed += 200000;
    }
  }
}
