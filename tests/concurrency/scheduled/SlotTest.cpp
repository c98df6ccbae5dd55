// One record that is overwritten again and again in two slots: the slots are filled anew as soon as they can
// be.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <utility>

#include "World.h"
#include "quell/BucketEdit.h"

using namespace Scheduled;

namespace {

constexpr std::uint64_t kKey = 7;

void overwrite(const Quell::TableFile& file, std::uint64_t stamp) {
  const Record record = recordOf(kKey, stamp);
  const std::uint64_t slot = stamp % 2;
  Quell::fillSlot(file, slot, &record, hashOf(kKey));
  Quell::BucketEdit(file.bucket(0)).entryIs(0, Quell::Layout::entryWord(hashOf(kKey), slot));
}

// Told: the reader knows what was acknowledged before it looks.
Scenario overwritten(unsigned times, unsigned looks, bool told) {
  return [=](Machine& machine) {
    const World world;
    overwrite(*world.file(), 0);
    const auto table = world.table();
    look(machine, *table, kKey);  // the fast side knows the table from now on
    std::uint64_t acknowledged = 0;
    std::uint64_t acknowledgedAt = 0;
    machine.writer([&] {
      for (std::uint64_t stamp = 1; stamp <= times; ++stamp) {
        overwrite(*world.file(), stamp);
        acknowledged = stamp;
        acknowledgedAt = machine.now();
      }
    });
    machine.reader([&] {
      for (unsigned i = 0; i < looks; ++i) {
        const std::uint64_t least = told ? acknowledged : 0;
        if (told) machine.knows(acknowledgedAt);
        const Look found = look(machine, *table, kKey);
        machine.expect(found.found, "a record that is overwritten is absent");
        machine.expect(found.stamp >= least, "an acknowledged store is lost");
      }
    });
    machine.run();
  };
}

constexpr Bounds kInterrupted{2, 0, 0, false};
constexpr Bounds kStale{1, 2, 0, false};
constexpr Bounds kLazy{0, 2, 0, true};
constexpr std::array<std::pair<Bounds, bool>, 3> kExhausted{
    {{kInterrupted, true}, {kStale, true}, {kLazy, false}}};
constexpr Bounds kFree{4, 12, 0, false};
constexpr Bounds kFreeAndLazy{4, 12, 0, true};

std::string failureWith(Weakening weakening, const Bounds& bounds) {
  return explore(bounds, overwritten(3, 1, false), 30000, weakening).failure;
}

// Two keys whose hashes have the same upper half.
std::pair<std::uint64_t, std::uint64_t> keysWithOneTag() {
  std::map<std::uint64_t, std::uint64_t> keys;
  for (std::uint64_t key = 0;; ++key) {
    const auto [found, isNew] = keys.emplace(hashOf(key) >> 32, key);
    if (!isNew) return {found->second, key};
  }
}

}  // namespace

TEST(ScheduledSlots, StampsOfARecordHaveTheSameCheck) {
  const auto sum = [](const Record& record) {
    return Quell::recordSum(&record.key, sizeof record.key, sizeof record, hashOf(record.key)) >> 32;
  };
  for (std::uint64_t stamp = 1; stamp < kMostStamps; ++stamp) {
    Record mixed = recordOf(kKey, stamp);
    EXPECT_EQ(sum(mixed), sum(recordOf(kKey, 0)));
    mixed.two = recordOf(kKey, stamp - 1).two;
    EXPECT_EQ(sum(mixed), sum(recordOf(kKey, 0)));
    EXPECT_EQ(stampOf(mixed, kKey), kMostStamps);
  }
}

TEST(ScheduledSlots, AreReadWholeInEveryInterleaving) {
  for (const auto& [bounds, told] : kExhausted) {
    const Explored explored = explore(bounds, overwritten(3, 1, told), 30000);
    EXPECT_EQ(explored.failure, "");
    EXPECT_TRUE(explored.all);
  }
}

// Two keys whose tags are the same, the one's record in a slot that was the other's a moment ago.
TEST(ScheduledSlots, ARecordOfAnotherKeyWithTheSameTagHidesNothing) {
  const auto [kept, other] = keysWithOneTag();
  const Scenario scenario = [kept = kept, other = other](Machine& machine) {
    const World world;
    const auto put = [&world](std::uint64_t key, unsigned position, std::uint64_t slot) {
      const Record record = recordOf(key, 1);
      Quell::fillSlot(*world.file(), slot, &record, hashOf(key));
      Quell::BucketEdit(world.file()->bucket(0))
          .entryIs(position, Quell::Layout::entryWord(hashOf(key), slot));
    };
    put(kept, 0, 0);
    const auto table = world.table();
    machine.writer([&] {
      put(kept, 0, 1);
      put(other, 1, 0);
    });
    machine.reader(
        [&] { machine.expect(look(machine, *table, kept).found, "an entry that stays is absent"); });
    machine.run();
  };
  for (const Bounds& bounds : {kStale, kLazy}) {
    const Explored explored = explore(bounds, scenario, 30000);
    EXPECT_EQ(explored.failure, "");
    EXPECT_TRUE(explored.all);
  }
}

TEST(ScheduledSlots, AreReadWholeInManyDrawnInterleavings) {
  for (const Bounds& bounds : {kFree, kFreeAndLazy}) {
    for (const bool told : {false, true})
      EXPECT_EQ(draw(bounds, overwritten(6, 3, told), 500, 1).failure, "");
  }
}

TEST(ScheduledSlots, AStoreWithoutReleaseIsNoticed) {
  EXPECT_NE(failureWith({true, false, false}, kLazy), "");
}
TEST(ScheduledSlots, ALoadWithoutAcquireIsNoticed) {
  EXPECT_NE(failureWith({false, true, false}, kLazy), "");
}
TEST(ScheduledSlots, AMissingSecondLookIsNoticed) {
  EXPECT_NE(failureWith({false, false, true}, kInterrupted).find("mixed"), std::string::npos);
}
