#include "quell/SharedTables.h"

#include <fmt/format.h>

#include <algorithm>

#include "quell/TableFile.h"

namespace Quell {

SharedTables::SharedTables(Kiv::String name, std::string runDir)
    : EntityManager(std::move(name)), runDir_(std::move(runDir)) {}

const Kiv::Type& SharedTables::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<SharedTables>("Quell::SharedTables").build();
  return type;
}

Kiv::Ptr<Container> containerOfType(const Kiv::String& typeName, const Kiv::String& path) {
  const Kiv::Type* type = Kiv::typeByName(typeName);
  if (type == nullptr) {
    throw Kiv::TypeError(fmt::format("table {}: no entity type {} is registered", path, typeName));
  }
  Kiv::Ptr<Container> container = Kiv::ptrCast<Container>(type->construct({Kiv::Value(path)}));
  if (!container)
    throw Kiv::TypeError(fmt::format("table {}: entity type {} holds no collections", path, typeName));
  return container;
}

Kiv::Ptr<Container> SharedTables::doMount(const Kiv::String& path, const Kiv::String& typeName,
                                          const KivQuell::MountInfo& info) {
  if (Kiv::Ptr<Container> there = getEntity(path)) {
    if (there->fwkType().name() == typeName) return there;
    throw Kiv::TypeError(fmt::format("table {}: mounted as {}, cannot be mounted as {}", path,
                                     there->fwkType().name(), typeName));
  }
  Kiv::Ptr<Container> container = containerOfType(typeName, path);
  for (const KivQuell::CollectionInfo& each : info.collectionInfo()) {
    if (container->collection(each.name) == nullptr) {
      throw TableError(fmt::format("table {}: {} has no collection \"{}\"", path, typeName, each.name));
    }
  }
  for (MapBase* map : container->collections()) mountCollection(container, *map, typeName, info);
  if (info.kind() == KivQuell::KivQuellType::published) {  // once all of them could be mounted
    for (MapBase* map : container->collections()) watcher_.watch(container, *map);
  }
  tables_.emplace(path, container);
  return container;
}

void SharedTables::mountCollection(const Kiv::Ptr<Container>& container, MapBase& map,
                                   const Kiv::String& typeName, const KivQuell::MountInfo& info) {
  TableFile::Creation creation;
  creation.type = &map.type();
  creation.containerType = typeName;
  const auto& settings = info.collectionInfo();
  const auto setting = std::find_if(settings.begin(), settings.end(),
                                    [&](const auto& each) { return each.name == map.name(); });
  if (setting != settings.end()) creation.capacity = setting->size;

  const TablePlace place{runDir_, container->name(), map.name()};
  auto file = TableFile::openOrCreate(place, creation, TableFile::Access::read);
  file->requireType(map.type());
  auto table = std::make_shared<Table>(std::move(file));
  if (info.kind() == KivQuell::KivQuellType::written) {
    try {
      table->writingIs();  // repairs what a writer that died left
      table->writingDel();
    } catch (const TableBusy& error) {
      throw TableBusy(fmt::format("{}, expected nobody to write it but who mounts it", error.what()));
    }
  }
  map.tableIs(std::move(table));
}

Kiv::Ptr<Container> SharedTables::getEntity(std::string_view path) const {
  const auto found = tables_.find(path);
  return found == tables_.end() ? nullptr : found->second;
}

std::vector<Kiv::Ptr<Container>> SharedTables::mounted() const {
  std::vector<Kiv::Ptr<Container>> all;
  for (const auto& [path, container] : tables_) all.push_back(container);
  return all;
}

void SharedTables::flush() {
  for (const auto& [path, container] : tables_) {
    for (MapBase* map : container->collections()) {
      if (map->table()->writing()) map->table()->flush();
    }
  }
}

}  // namespace Quell
