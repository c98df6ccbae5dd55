// One record of a shared table, or none.
#pragma once

#include <optional>

#include "Fenn.h"
#include "QuellMap.h"

namespace FlowTracking {

// The record under a key. Absent when there is none, and when it is damaged: then the damage has been
// reported to the map's corruption handler.
template <class Key, class Record>
std::optional<Record> lookUp(const Quell::Map<Key, Record>& map, const Key& key) {
  try {
    Record record;
    if (map.find(key, record)) return record;
  } catch (const Fenn::CorruptionDetectedException& damage) {
    map.doCorruptionDetected(damage.what());
  }
  return std::nullopt;
}

}  // namespace FlowTracking
