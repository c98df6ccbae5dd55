// The tables of flow tracking in a run directory, opened to be read record by record.
//
// Tables are files: they are read with or without an agent. A table that nobody has made yet is empty.
// Neighbours: flow_records/ has the containers; runtime/quell/TableStore.h opens them by their files.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "Command.h"
#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HosStateCounter.h"
#include "quell/SlotAccess.h"
#include "quell/TablePlace.h"
#include "quell/TableStore.h"

namespace Sft {

// Where each container stands, for the sampled kind of flow tracking.
template <class Container>
Kiv::String tablePath();
template <>
Kiv::String tablePath<FlowTracking::HoFlowConfig>();
template <>
Kiv::String tablePath<FlowTracking::HoFlowStatus>();
template <>
Kiv::String tablePath<FlowTracking::HoFlowCounter>();
template <>
Kiv::String tablePath<FlowTracking::HosStateCounter>();

// Throws CommandError unless it is there.
void requireRunDir(const Context& context);

// Damage that was met: each told, on standard error unless to somebody else.
class Damages {
 public:
  Damages();
  explicit Damages(std::function<void(const std::string&)> tell) : tell_(std::move(tell)) {}
  void met(const std::string& what);
  // Throws CommandError when there was any.
  void requireNone() const;

 private:
  std::function<void(const std::string&)> tell_;
  std::size_t count_ = 0;
};

// One family's collection of a table.
template <class Container, class Domain>
class Published {
 public:
  using Map = typename Container::template MapOf<Domain>;
  using Key = typename Map::KeyType;
  using Record = typename Map::RecordTypeT;

  // Throws Quell::TableError when the file is there and cannot be used.
  Published(const Context& context, Damages& damages)
      : damages_(damages), container_(Kiv::makePtr<Container>(tablePath<Container>())) {
    Map& none = container_->template map<Domain>();
    if (std::filesystem::exists(
            Quell::TablePlace{context.runDir, tablePath<Container>(), none.name()}.fileName())) {
      open_.emplace(context.runDir, tablePath<Container>(), none.name());
    }
    map_ = open_ ? &dynamic_cast<Map&>(open_->map()) : &none;
  }

  // Whether there is a file, which can then be written.
  bool exists() const { return open_.has_value(); }
  Map& map() const { return *map_; }

  // The record under a key; a damaged one is told and counts as absent.
  std::optional<Record> find(const Key& key) const {
    try {
      Record record;
      if (map_->find(key, record)) return record;
    } catch (const Fenn::CorruptionDetectedException& damage) {
      damages_.met(damage.what());
    }
    return std::nullopt;
  }

  // A walk in table order, over damage.
  class Walk {
   public:
    explicit Walk(const Published& table) : table_(table) {
      step([&] { return table_.map().first(record_); });
    }
    bool atEnd() const { return atEnd_; }
    const Record& record() const { return record_; }
    void next() {
      step([&] { return table_.map().after(record_.key, record_); });
    }
    // Whether this walk is at a place before the one where the other is. All tables have the same order of
    // keys, so that two of them are walked side by side, and nobody has to hold either.
    template <class OtherWalk>
    bool isBefore(const OtherWalk& other) const {
      if (atEnd_ || other.atEnd()) return !atEnd_;
      const auto here = place();
      const auto there = other.place();
      if (here != there) return here < there;
      return std::memcmp(&record_.key, &other.record().key, sizeof(Key)) < 0;
    }
    std::uint64_t place() const { return Quell::reverseBits(Map::hash(record_.key)); }

   private:
    template <class Step>
    void step(const Step& wanted) {
      try {
        atEnd_ = !wanted();
      } catch (const Quell::WalkDamage& damage) {
        goOnBehind(damage);
      }
    }
    void goOnBehind(Quell::WalkDamage damage) {
      for (;;) {
        table_.damages_.met(damage.what());
        try {
          atEnd_ = !table_.map().behind(damage, record_);
          return;
        } catch (const Quell::WalkDamage& another) {
          damage = another;
        }
      }
    }

    const Published& table_;
    Record record_;
    bool atEnd_ = true;
  };

 private:
  Damages& damages_;
  Kiv::Ptr<Container> container_;
  std::optional<Quell::OpenCollection> open_;
  Map* map_ = nullptr;
};

}  // namespace Sft
