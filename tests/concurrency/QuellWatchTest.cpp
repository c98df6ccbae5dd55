// A watcher in one process, a writer in another.
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <map>
#include <random>

#include "Forked.h"
#include "QuellFiles.h"
#include "quell/SharedTables.h"

using namespace QuellTest;

namespace {

std::uint32_t draw(std::mt19937& random) {
  return static_cast<std::uint32_t>(random());
}

// Keeps a copy of a table by what it is told.
class Follower : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit Follower(const Kiv::Ptr<Things>& things) : map_(things->red()) {
    hasNotificationActiveIs(true);
    notifierIs(things);
    onAttribute(Things::redAttr);
  }
  void onAttribute(Kiv::AttributeId) override {
    ++rescans;
    copy.clear();
    Thing each;
    for (bool more = map_.first(each); more; more = map_.after(each.key, each)) copy[each.key] = each.stamp;
  }
  void onAttributeKey(Kiv::AttributeId, Kiv::KeyRef key) override {
    ++told;
    Thing found;
    if (map_.find(key.as<ThingKey>(), found)) {
      copy[found.key] = found.stamp;
    } else {
      copy.erase(key.as<ThingKey>());
    }
  }
  unsigned rescans = 0;
  unsigned told = 0;
  std::map<ThingKey, std::uint32_t> copy;

 private:
  const Things::Map& map_;
};

class Watch : public testing::Test {
 protected:
  Watch() {
    things_ = Kiv::ptrCast<Things>(agent_->doMount("test/things", "QuellTest::Things",
                                                   KivQuell::MountInfo(KivQuell::KivQuellType::published)));
    follower_ = Kiv::makePtr<Follower>(things_);
  }
  ~Watch() override { follower_->notifierIs(nullptr); }

  std::map<ThingKey, std::uint32_t> fresh() const {
    const auto reader = files_.open();
    std::map<ThingKey, std::uint32_t> all;
    Thing each;
    for (bool more = reader->red().first(each); more; more = reader->red().after(each.key, each)) {
      all[each.key] = each.stamp;
    }
    return all;
  }
  // Waits as an agent does and delivers in slices, until nothing comes for the given time.
  void follow(int quietMilliseconds) {
    pollfd waiting{agent_->descriptor(), POLLIN, 0};
    while (::poll(&waiting, 1, quietMilliseconds) == 1) {
      while (agent_->deliver(64)) {
      }
    }
  }

  Kiv::Module module_{"QuellTest", {&Things::kivType()}};
  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
  Kiv::Ptr<Quell::SharedTables> agent_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Kiv::Ptr<Things> things_;
  Kiv::Ptr<Follower> follower_;
};

void flood(Things::Map& map, unsigned operations, unsigned batch) {
  std::mt19937 random(9 + 1);
  for (unsigned i = 0; i < operations; ++i) {
    const std::uint32_t id = draw(random) % 5000;
    if (draw(random) % 3 == 0) {
      map.erase(keyOf(id));
    } else {
      map.insert(thing(id, i));
    }
    if (i % batch == 0) map.table()->flush();
  }
  map.table()->flush();
}

}  // namespace

TEST_F(Watch, AFollowerThatKeepsUpEndsWithTheViewOfAFreshReader) {
  TestSupport::Forked writer([&] {
    flood(files_.open()->red(), 20000, 50);
    return 0;
  });
  follow(200);
  EXPECT_EQ(writer.wait(), 0);
  follow(0);
  EXPECT_EQ(follower_->copy, fresh());
  EXPECT_FALSE(follower_->copy.empty());
}

TEST_F(Watch, AFollowerStoppedDuringAFloodEndsWithTheViewOfAFreshReader) {
  TestSupport::Forked writer([&] {
    flood(files_.open()->red(), 2000000, 100);
    return 0;
  });
  EXPECT_EQ(writer.wait(), 0);  // nothing is delivered meanwhile: far more changes than the journal holds
  follow(0);
  EXPECT_EQ(follower_->rescans, 2U);
  EXPECT_EQ(follower_->copy, fresh());
  EXPECT_FALSE(follower_->copy.empty());
}

TEST_F(Watch, AWriterThatDiedBeforeItRangIsHeard) {
  const TestSupport::SharedWithForked<std::atomic<bool>> stored;
  TestSupport::Forked writer([&] {
    const auto things = files_.open();
    things->red().insert(thing(1, 11));
    *stored.operator->() = true;
    for (;;) ::pause();
    return 0;
  });
  while (!*stored.operator->()) {
  }
  writer.kill();
  pollfd waiting{agent_->descriptor(), POLLIN, 0};
  ASSERT_EQ(::poll(&waiting, 1, 5000), 1);
  agent_->deliver(64);
  EXPECT_EQ(follower_->copy, fresh());
  EXPECT_EQ(follower_->copy.size(), 1U);
}

TEST_F(Watch, ASecondWriterIsToldTheProcessOfTheFirst) {
  const TestSupport::SharedWithForked<std::atomic<bool>> stored;
  TestSupport::Forked writer([&] {
    const auto things = files_.open();
    things->red().insert(thing(1));
    *stored.operator->() = true;
    for (;;) ::pause();
    return 0;
  });
  while (!*stored.operator->()) {
  }
  const auto things = files_.open();
  EXPECT_NE(tableError([&] {
              things->red().insert(thing(2));
            }).find("process " + std::to_string(writer.pid()) + " is the table's writer"),
            std::string::npos);
  writer.kill();
  things->red().insert(thing(2));
  EXPECT_EQ(things->red().size(), 2U);
}
