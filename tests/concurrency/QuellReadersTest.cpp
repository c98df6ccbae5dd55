// One writer and several readers, in processes and in threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "Forked.h"
#include "QuellFiles.h"
#include "quell/Journal.h"
#include "quell/SlotAccess.h"

using namespace QuellTest;

namespace {

std::uint32_t draw(std::mt19937& random) {
  return static_cast<std::uint32_t>(random());
}

constexpr std::uint32_t kKept = 200;   // overwritten all the time, never erased
constexpr std::uint32_t kIds = 20000;  // the others come and go

void write(Things::Map& map, unsigned operations) {
  std::mt19937 random(5 + 1);
  for (unsigned i = 0; i < operations; ++i) {
    const std::uint32_t id = draw(random) % 3 == 0 ? draw(random) % kKept : draw(random) % kIds;
    if (id >= kKept && draw(random) % 3 == 0) {
      map.erase(keyOf(id));
    } else {
      map.insert(thing(id, i));
    }
  }
}

// 0 when all that was read was right.
int read(const Things::Map& map, const std::atomic<bool>& done, unsigned seed) {
  std::mt19937 random(seed + 1);
  do {
    for (unsigned i = 0; i < 2000; ++i) {
      const std::uint32_t id = draw(random) % (i % 2 == 0 ? kKept : kIds);
      Thing found;
      const bool there = map.find(keyOf(id), found);
      if (!there && id < kKept) return 1;
      if (there && (!whole(found) || found.key.id != id)) return 2;
    }
    std::set<std::uint32_t> met;
    Thing each;
    for (bool more = map.first(each); more; more = map.after(each.key, each)) {
      if (!whole(each)) return 3;
      if (!met.insert(each.key.id).second) return 4;
    }
    for (std::uint32_t id = 0; id < kKept; ++id) {
      if (met.count(id) == 0) return 5;
    }
  } while (!done);
  return 0;
}

}  // namespace

TEST(Readers, InOtherProcessesSeeOnlyWholeRecordsWhileTheTableGrowsAndChanges) {
  const TestSupport::TempDir dir;
  const Files files(dir.path());
  const auto things = files.open(4);
  for (std::uint32_t id = 0; id < kKept; ++id) things->red().insert(thing(id));
  const TestSupport::SharedWithForked<std::atomic<bool>> done;
  std::vector<std::unique_ptr<TestSupport::Forked>> readers;
  for (unsigned i = 0; i < 3; ++i) {
    readers.push_back(std::make_unique<TestSupport::Forked>(
        [&, i] { return read(files.open()->red(), *done.operator->(), i); }));
  }
  write(things->red(), 1000000);
  *done.operator->() = true;
  for (auto& reader : readers) EXPECT_EQ(reader->wait(), 0);
}

// All threads use one mapping, so that the thread sanitizer sees every access of each.
TEST(Readers, InThreadsSeeOnlyWholeRecords) {
  const auto writing = Kiv::makePtr<Things>("things");
  Quell::attachAnonymous(writing->red(), 4);
  for (std::uint32_t id = 0; id < kKept; ++id) writing->red().insert(thing(id));
  std::atomic<bool> done{false};
  std::vector<int> results(2, -1);
  std::vector<std::thread> readers;
  for (unsigned i = 0; i < 2; ++i) {
    auto reading = Kiv::makePtr<Things>("things");
    reading->red().tableIs(std::make_shared<Quell::Table>(writing->red().table()->file()));
    readers.emplace_back([&, i, reading] { results[i] = read(reading->red(), done, i); });
  }
  write(writing->red(), 100000);
  done = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(results, (std::vector<int>{0, 0}));
}

// The journal under the thread sanitizer, and writers that take turns: each reads the whole table through
// before it writes, while others read and follow.
TEST(Followers, InThreadsEndWithTheViewOfAFreshReader) {
  const auto writing = Kiv::makePtr<Things>("things");
  Quell::attachAnonymous(writing->red(), 4);
  const auto file = writing->red().table()->file();
  std::atomic<bool> done{false};
  std::map<ThingKey, std::uint32_t> copy;
  auto reading = Kiv::makePtr<Things>("things");
  reading->red().tableIs(std::make_shared<Quell::Table>(file));
  Quell::JournalReader journal(*file);
  const auto look = [&](const ThingKey& key) {
    Thing found;
    copy.erase(key);
    if (reading->red().find(key, found)) copy[key] = found.stamp;
  };
  std::thread follower([&] {
    for (bool last = false; !last;) {
      last = done;  // what was stored before is in the journal by now
      Quell::RecordWords words;
      for (auto news = journal.next(words.words.data()); news != Quell::JournalReader::News::none;
           news = journal.next(words.words.data())) {
        ThingKey key;
        std::memcpy(static_cast<void*>(&key), words.words.data(), sizeof key);
        if (news == Quell::JournalReader::News::key) {
          look(key);
        } else {
          for (std::uint32_t id = 0; id < kIds; ++id) look(keyOf(id));
        }
      }
    }
  });
  std::mt19937 random(11 + 1);
  for (std::uint32_t turn = 0; turn < 5; ++turn) {
    writing->red().tableIs(std::make_shared<Quell::Table>(file));
    for (std::uint32_t i = 0; i < 4000; ++i) {
      const std::uint32_t id = draw(random) % 3000;
      if (draw(random) % 3 == 0) {
        writing->red().erase(keyOf(id));
      } else {
        writing->red().insert(thing(id, turn * 4000 + i));
      }
    }
  }
  done = true;
  follower.join();
  std::map<ThingKey, std::uint32_t> fresh;
  Thing each;
  for (bool more = writing->red().first(each); more; more = writing->red().after(each.key, each)) {
    fresh[each.key] = each.stamp;
  }
  EXPECT_FALSE(fresh.empty());
  EXPECT_EQ(copy, fresh);
}
