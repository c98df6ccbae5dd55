// A table of its own for tests of shared tables: records that tell by themselves whether they are whole.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Quell.h"
#include "QuellMap.h"

namespace QuellTest {

// 12 bytes: the key ends in the middle of a word.
struct ThingKey {
  std::uint32_t id = 0;
  std::uint32_t zone = 0;
  std::uint32_t port = 0;
  bool operator==(const ThingKey&) const = default;
  auto operator<=>(const ThingKey&) const = default;
};

struct Thing {
  ThingKey key;
  std::uint32_t stamp = 0;
  std::uint64_t values[5] = {};
  bool operator==(const Thing&) const = default;
};

inline ThingKey keyOf(std::uint32_t id) {
  return {id, id * 7 + 1, id ^ 0x5a5a5a5aU};
}

// Each value follows from the key and the stamp.
inline std::uint64_t valueOf(const Thing& thing, unsigned i) {
  return (std::uint64_t{thing.key.id} << 32 | thing.stamp) * 0x9e3779b97f4a7c15U + i * 0x1234567U;
}
inline Thing thing(std::uint32_t id, std::uint32_t stamp = 1) {
  Thing made{keyOf(id), stamp, {}};
  for (unsigned i = 0; i < 5; ++i) made.values[i] = valueOf(made, i);
  return made;
}
inline bool whole(const Thing& thing) {
  if (!(thing.key == keyOf(thing.key.id))) return false;
  for (unsigned i = 0; i < 5; ++i) {
    if (thing.values[i] != valueOf(thing, i)) return false;
  }
  return true;
}

inline std::uint32_t idFrom(const Kiv::Value& value) {
  const Kiv::Value* id = value.member("id");
  if (id == nullptr) Kiv::throwValueError("an object with an id", value);
  return Kiv::ValueTraits<std::uint32_t>::fromValue(*id);
}

inline const Quell::RecordType& thingType() {
  static const Quell::RecordType type{
      "QuellTest::Thing",
      sizeof(Thing),
      sizeof(ThingKey),
      [](const void* record) {
        const auto& each = *static_cast<const Thing*>(record);
        return Kiv::Value(
            Kiv::Value::Object{{"id", Kiv::Value(each.key.id)}, {"stamp", Kiv::Value(each.stamp)}});
      },
      [](const Kiv::Value& value, void* record) {
        const Kiv::Value* stamp = value.member("stamp");
        *static_cast<Thing*>(record) =
            thing(idFrom(value), stamp ? Kiv::ValueTraits<std::uint32_t>::fromValue(*stamp) : 1);
      },
      [](const void* key) {
        return Kiv::Value(Kiv::Value::Object{{"id", Kiv::Value(static_cast<const ThingKey*>(key)->id)}});
      },
      [](const Kiv::Value& value, void* key) { *static_cast<ThingKey*>(key) = keyOf(idFrom(value)); }};
  return type;
}

// A table with two collections of things.
class Things : public Quell::Container {
 public:
  using Map = Quell::Map<ThingKey, Thing>;
  enum Attr : Kiv::AttributeId { redAttr = 1, blueAttr };
  explicit Things(Kiv::String name)
      : Container(std::move(name)), red_(*this, "red", thingType()), blue_(*this, "blue", thingType()) {}

  static const Kiv::Type& kivType() {
    static const Kiv::Type type = [] {
      return Kiv::TypeBuilder<Things>("QuellTest::Things").constructor(&thingsFactory, "name").build();
    }();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }

  Map& red() { return red_; }
  Map& blue() { return blue_; }
  std::vector<Quell::MapBase*> collections() override { return {&red_, &blue_}; }

 protected:
  Kiv::AttributeId collectionAttribute(const Quell::MapBase& map) const override {
    return &map == &red_ ? redAttr : blueAttr;
  }

 private:
  static Kiv::Ptr<Things> thingsFactory(Kiv::String name) { return Kiv::makePtr<Things>(std::move(name)); }
  Map red_;
  Map blue_;
};

}  // namespace QuellTest
