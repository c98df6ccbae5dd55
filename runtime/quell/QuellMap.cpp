#include "QuellMap.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "quell/SlotAccess.h"
#include "quell/TableFile.h"

namespace Quell {

MapBase* Container::collection(std::string_view name) {
  for (MapBase* map : collections()) {
    if (map->name() == name) return map;
  }
  return nullptr;
}

void Container::collectionChanged(const MapBase& map, const void* key) {
  if (notifieeList()->empty()) return;
  const Kiv::AttributeId attribute = collectionAttribute(map);
  if (key == nullptr) {
    announce(attribute);
  } else {
    announceKey(attribute, map.keyRef(key));
  }
}

void MapBase::doCorruptionDetected(std::string_view message) const {
  ++corruptions_;
  if (message != lastCorruption_) {  // the same damage is met by each packet of a flow: once in the log
    lastCorruption_ = message;
    spdlog::error("{} {}: {}", owner_.name(), name_, message);
  }
  if (corruptionHandler_) corruptionHandler_(message);
}

Table& MapBase::writable() const {
  if (!table_) throw TableError(fmt::format("{} {}: no table is mounted", owner_.name(), name_));
  return *table_;
}

bool MapBase::findBytes(const void* key, void* out) const {
  return table_ && table_->findSlow(key, keyHash(key, type_.keyBytes), out);
}

void MapBase::insertBytes(const void* record) {
  writable().store(record);
  changed(record);
}

bool MapBase::eraseBytes(const void* key) {
  if (empty() || !writable().erase(key)) return false;
  changed(key);
  return true;
}

void attachAnonymous(MapBase& map, std::size_t capacity) {
  const TablePlace place{"(in memory)", map.owner().name(), map.name()};
  TableFile::Creation creation;
  creation.type = &map.type();
  creation.containerType = map.owner().fwkType().name();
  creation.capacity = capacity;
  map.tableIs(std::make_shared<Table>(TableFile::anonymous(place, creation)));
}

}  // namespace Quell
