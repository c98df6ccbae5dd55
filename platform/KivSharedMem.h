// Mounting shared tables: KivQuell::MountInfo says how, KivSharedMem::EntityManager does it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Kiv.h"
#include "Quell.h"

namespace KivQuell {

// Table kinds.
enum class KivQuellType : std::uint8_t {
  written = 0,    // created when absent, and written by who mounts it
  published = 3,  // attached as another process publishes it; created empty when absent; watched for changes
};

// A named collection: the capacity to start with, and a boolean that every user leaves false.
struct CollectionInfo {
  Kiv::String name;
  std::uint32_t size = 0;
  bool flag = false;
  bool operator==(const CollectionInfo&) const = default;
};

class MountInfo {
 public:
  explicit MountInfo(KivQuellType kind) : kind_(kind) {}
  KivQuellType kind() const { return kind_; }
  // Settings in the order in which they were given.
  void collectionInfoIs(CollectionInfo info) { collections_.push_back(std::move(info)); }
  const std::vector<CollectionInfo>& collectionInfo() const { return collections_; }

 private:
  KivQuellType kind_;
  std::vector<CollectionInfo> collections_;
};

}  // namespace KivQuell

namespace KivSharedMem {

// The agent's holder of mounted tables. Abstract, so that a test can record what is mounted; the real one is
// in runtime/quell.
class EntityManager : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  // Mounts the table of a type name at a path. The container is built from its registered entity type; each
  // of its collections is attached to its file, with the settings of the collection's name or the defaults.
  // Mounting a path again gives the container that is there.
  // Throws Quell::TableError (a file that cannot be used) or Kiv::TypeError (unknown type).
  virtual Kiv::Ptr<Quell::Container> doMount(const Kiv::String& path, const Kiv::String& typeName,
                                             const KivQuell::MountInfo& info) = 0;
  // The mounted container at a path, or empty.
  virtual Kiv::Ptr<Quell::Container> getEntity(std::string_view path) const = 0;
};

}  // namespace KivSharedMem
