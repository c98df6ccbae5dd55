// A shared table's file, changed under a reader that has it open, before one that opens it, and before the
// next writer: nothing stops a process, nothing wrong is delivered, records that were not touched are found,
// and behind the writer's repair the table is in order.
//
//   byte 0   bit 0 the file is cut, too, where the next two bytes say
//   then changes, by the first byte modulo 5:
//        0   a byte of the header   1  of the index   2  of the overflow buckets   3  of the records: place ·
//        what is flipped 4   a lie that fits its check: what of it · place · value
#include <spdlog/spdlog.h>

#include <functional>
#include <optional>
#include <set>

#include "FuzzInput.h"
#include "QuellThings.h"
#include "TableUnderChange.h"

namespace {

using namespace QuellTest;
using FuzzSupport::TableUnderChange;

// What one reader meets. Damage may be met anywhere; what is delivered is right.
class Look {
 public:
  explicit Look(const Things::Map& map) : map_(map) {}

  // The ids that are found.
  std::set<std::uint32_t> findAll() {
    std::set<std::uint32_t> found;
    for (const std::uint32_t id : TableUnderChange::ids()) {
      guarded([&] {
        Thing out;
        if (!map_.find(keyOf(id), out)) return;
        FUZZ_REQUIRE(out == TableUnderChange::thingOf(id));
        found.insert(id);
      });
    }
    guarded([&] { FUZZ_REQUIRE(!map_.has(keyOf(987654))); });
    guarded([&] { (void)map_.size(); });
    return found;
  }
  std::size_t walk() {
    std::set<std::uint32_t> met;
    Thing each;
    bool more = step([&] { return map_.first(each); }, each);
    while (more) {
      FUZZ_REQUIRE(each == TableUnderChange::thingOf(each.key.id));
      FUZZ_REQUIRE(met.insert(each.key.id).second);
      more = step([&, from = each.key] { return map_.after(from, each); }, each);
    }
    return met.size();
  }
  bool damaged() const { return damaged_; }

 private:
  void guarded(const std::function<void()>& look) {
    try {
      look();
    } catch (const Fenn::CorruptionDetectedException& damage) {
      FUZZ_REQUIRE(*damage.what() != '\0');
      damaged_ = true;
    }
  }
  bool step(const std::function<bool()>& next, Thing& each) {
    std::optional<Quell::WalkDamage> stopped;
    bool more = false;
    const auto attempt = [&](const std::function<bool()>& go) {
      stopped.reset();
      more = false;
      guarded([&] {
        try {
          more = go();
        } catch (const Quell::WalkDamage& damage) {
          stopped = damage;
          throw;
        }
      });
    };
    attempt(next);
    while (stopped) {
      const Quell::WalkDamage damage = *stopped;
      attempt([&] { return map_.behind(damage, each); });
    }
    return more;
  }

  const Things::Map& map_;
  bool damaged_ = false;
};

void changeTable(FuzzInput& input, TableUnderChange& table) {
  for (unsigned changes = 0; !input.empty() && changes < 64; ++changes) {
    const auto kind = input.take<std::uint8_t>() % 5;
    if (kind < 4) {
      table.flip(static_cast<TableUnderChange::Region>(kind), input.take<std::uint16_t>(),
                 input.take<std::uint8_t>());
    } else {
      table.lie(input.take<std::uint8_t>(), input.take<std::uint16_t>(), input.take<std::uint64_t>());
    }
  }
}

void checkWriter(TableUnderChange& table, const std::set<std::uint32_t>& found) {
  const auto writer = table.open();
  if (!writer) return;
  try {
    writer->red().insert(TableUnderChange::thingOf(TableUnderChange::kNewId));
  } catch (const Quell::TableError& refused) {
    FUZZ_REQUIRE(*refused.what() != '\0');
    return;
  }
  Look repaired(writer->red());
  const auto kept = repaired.findAll();
  FUZZ_REQUIRE(!repaired.damaged());
  if (table.recordsOnly()) {
    // Whoever was found before is found behind the repair, too.
    for (const std::uint32_t id : found) FUZZ_REQUIRE(kept.contains(id));
  }
  FUZZ_REQUIRE(writer->red().has(keyOf(TableUnderChange::kNewId)));
  FUZZ_REQUIRE(repaired.walk() == writer->red().size());
  for (const std::uint32_t id : TableUnderChange::ids()) writer->red().insert(TableUnderChange::thingOf(id));
  Look whole(writer->red());
  FUZZ_REQUIRE(whole.findAll().size() == TableUnderChange::ids().size());
  FUZZ_REQUIRE(whole.walk() == TableUnderChange::ids().size() + 1 && !whole.damaged());
}

void check(TableUnderChange& table) {
  Look before(table.reader().red());
  const auto found = before.findAll();
  before.walk();
  if (table.recordsOnly()) {
    for (const std::uint32_t id : TableUnderChange::ids())
      FUZZ_REQUIRE(found.contains(id) || table.touched(id));
  }
  if (const auto fresh = table.open()) {
    Look after(fresh->red());
    const auto again = after.findAll();
    FUZZ_REQUIRE(!table.recordsOnly() || again == found);
    after.walk();
  }
  checkWriter(table, found);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  spdlog::set_level(spdlog::level::off);  // damage and repairs are logged, and here they are no news
  FuzzInput input(data, size);
  TableUnderChange table;
  const bool cuts = input.flag();
  const std::uint16_t cut = cuts ? input.take<std::uint16_t>() : std::uint16_t{0};
  changeTable(input, table);
  if (cuts) {
    table.cutTo(cut);
    if (const auto reader = table.open()) {
      Look look(reader->red());
      look.findAll();
      look.walk();
    }
    checkWriter(table, {});
  } else {
    check(table);
  }
  return 0;
}
