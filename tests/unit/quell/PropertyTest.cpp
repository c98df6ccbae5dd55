#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <map>
#include <optional>

#include "QuellFiles.h"
#include "quell/SlotAccess.h"
#include "quell/TableRepair.h"

using namespace QuellTest;

namespace {

std::uint64_t orderOf(std::uint32_t id) {
  return Quell::reverseBits(Things::Map::hash(keyOf(id)));
}

struct Model {
  std::map<std::uint32_t, std::uint32_t> stamps;

  // What a walk has to give: ids in table order.
  std::vector<std::uint32_t> order() const {
    std::vector<std::uint32_t> ids;
    for (const auto& [id, stamp] : stamps) ids.push_back(id);
    std::sort(ids.begin(), ids.end(), [](auto a, auto b) { return orderOf(a) < orderOf(b); });
    return ids;
  }
};

void checkAll(const Things::Map& map, const Model& model, std::uint32_t ids) {
  RC_ASSERT(map.size() == model.stamps.size());
  for (std::uint32_t id = 0; id < ids; ++id) {
    const auto expected = model.stamps.find(id);
    Thing found;
    RC_ASSERT(map.find(keyOf(id), found) == (expected != model.stamps.end()));
    if (expected != model.stamps.end()) RC_ASSERT(found == thing(id, expected->second));
  }
  std::vector<std::uint32_t> walked;
  Thing each;
  for (bool more = map.first(each); more; more = map.after(each.key, each)) walked.push_back(each.key.id);
  RC_ASSERT(walked == model.order());
}

// Runs random operations against the table and the model.
void operate(Things::Map& map, Model& model, std::uint32_t ids, unsigned operations) {
  for (unsigned i = 0; i < operations; ++i) {
    const auto id = *rc::gen::inRange<std::uint32_t>(0, ids);
    switch (*rc::gen::inRange(0, 4)) {
      case 1:
        if (i % 8 == 0) RC_ASSERT(map.expect(id));
        [[fallthrough]];
      case 0:
        RC_ASSERT(map.erase(keyOf(id)) == (model.stamps.erase(id) == 1));
        break;
      default: {
        const auto stamp = *rc::gen::inRange<std::uint32_t>(0, 1000);
        map.insert(thing(id, stamp));
        model.stamps[id] = stamp;
      }
    }
  }
}

void property(const char* text, const std::function<void()>& body) {
  EXPECT_TRUE(rc::check(text, body));
}

}  // namespace

TEST(TableProperties, BehavesAsAMap) {
  property("any operations", [] {
    auto things = Kiv::makePtr<Things>("things");
    Quell::attachAnonymous(things->red(), *rc::gen::inRange<std::size_t>(1, 200));
    Model model;
    const auto ids = *rc::gen::inRange<std::uint32_t>(1, 2000);
    operate(things->red(), model, ids, 400);
    checkAll(things->red(), model, ids);
  });
}

TEST(TableProperties, AReaderOfTheFileSeesWhatTheWriterDoes) {
  property("any operations, another mapping, and again after reopening", [] {
    const TestSupport::TempDir dir;
    const Files files(dir.path());
    Model model;
    constexpr std::uint32_t kIds = 300;
    for (int round = 0; round < 3; ++round) {
      auto writer = files.open(4);
      auto reader = files.open();
      operate(writer->red(), model, kIds, 60);
      checkAll(reader->red(), model, kIds);
    }
  });
}

TEST(TableProperties, AWalkResumesFromAnyKey) {
  property("any table, any key", [] {
    auto things = Kiv::makePtr<Things>("things");
    Quell::attachAnonymous(things->red(), 4);
    Model model;
    operate(things->red(), model, 500, 200);
    const std::vector<std::uint32_t> order = model.order();
    const auto from = *rc::gen::inRange<std::uint32_t>(0, 1000);
    const auto next =
        std::find_if(order.begin(), order.end(), [&](auto id) { return orderOf(id) > orderOf(from); });
    Thing found;
    RC_ASSERT(things->red().after(keyOf(from), found) == (next != order.end()));
    if (next != order.end()) RC_ASSERT(found.key.id == *next);
    const auto here =
        std::find_if(order.begin(), order.end(), [&](auto id) { return orderOf(id) >= orderOf(from); });
    RC_ASSERT(things->red().atOrAfter(keyOf(from), found) == (here != order.end()));
    if (here != order.end()) RC_ASSERT(found.key.id == *here);
  });
}

TEST(TableProperties, AStepOfAWalkGivesWhatIsNextAtThatMomentWhateverHappenedSinceTheLast) {
  property("two walks that take turns, over a table that changes between their steps", [] {
    const TestSupport::TempDir dir;
    const Files files(dir.path());
    auto writer = files.open(4);
    auto reader = files.open();
    const bool other = *rc::gen::arbitrary<bool>();  // the writer's own walk, or another process's
    const Things::Map& walked = other ? reader->red() : writer->red();
    Model model;
    constexpr std::uint32_t kIds = 120;  // some 30 buckets, a few of them with a chain
    operate(writer->red(), model, kIds, 100);
    std::array<std::optional<std::uint32_t>, 2> places;
    for (int step = 0; step < 150; ++step) {
      auto& place = places[*rc::gen::inRange<std::size_t>(0, 2)];
      operate(writer->red(), model, kIds, *rc::gen::element(0U, 0U, 0U, 1U, 3U));
      const std::vector<std::uint32_t> order = model.order();
      const auto next = std::find_if(order.begin(), order.end(),
                                     [&](auto id) { return !place || orderOf(id) > orderOf(*place); });
      Thing found;
      RC_ASSERT((place ? walked.after(keyOf(*place), found) : walked.first(found)) == (next != order.end()));
      place.reset();  // at the end: from the beginning
      if (next == order.end()) continue;
      RC_ASSERT(found == thing(*next, model.stamps[*next]));
      place = *next;
    }
  });
}

TEST(TableProperties, ManyKeysInOneChainBehaveAsAMap) {
  // Keys whose hashes agree in their low bits, as somebody who picks his flows can have them.
  std::vector<std::uint32_t> colliding;
  for (std::uint32_t id = 0; colliding.size() < 60; ++id) {
    if ((Things::Map::hash(keyOf(id)) & 0x3ffU) == 5) colliding.push_back(id);
  }
  property("any operations on colliding keys", [&] {
    auto things = Kiv::makePtr<Things>("things");
    Quell::attachAnonymous(things->red(), 4);
    Model model;
    for (unsigned i = 0; i < 300; ++i) {
      const std::uint32_t id = colliding[*rc::gen::inRange<std::size_t>(0, colliding.size())];
      if (*rc::gen::inRange(0, 3) == 0) {
        RC_ASSERT(things->red().erase(keyOf(id)) == (model.stamps.erase(id) == 1));
      } else {
        things->red().insert(thing(id, i));
        model.stamps[id] = i;
      }
      if (i % 50 == 0) {  // others come, so that the chain is split and compacted
        for (std::uint32_t other = 0; other < 40; ++other) {
          const std::uint32_t extra = 10000000 + i * 100 + other;
          things->red().insert(thing(extra, 1));
          model.stamps[extra] = 1;
        }
      }
    }
    checkAll(things->red(), model, 0);
    for (const std::uint32_t id : colliding) {
      const auto expected = model.stamps.find(id);
      Thing found;
      RC_ASSERT(things->red().find(keyOf(id), found) == (expected != model.stamps.end()));
      if (expected != model.stamps.end()) RC_ASSERT(found == thing(id, expected->second));
    }
    RC_ASSERT(!Quell::repair(*things->red().table()->file()).anything());
  });
}
