// Shared tables as an operator's tool sees them: found by their files, without a running agent.
//
// Neighbours: `sft table ...`. The record types must be registered (their library loaded), since a file names
// its container's type.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Quell.h"
#include "QuellMap.h"

namespace Quell {

// One collection's file of a run directory.
struct TableStatus {
  std::string path;
  std::string collection;
  std::string containerType;
  std::string recordType;
  std::uint64_t entries = 0;
  std::uint64_t writer = 0;  // process id, 0: none
  std::string problem;       // why it cannot be used; empty when it can
};

// Every collection below a run directory, by path and collection. Throws TableError when the folder cannot be
// read; none when it has no tables.
std::vector<TableStatus> listTables(const std::string& runDir);

// One collection, opened through the container type that its file names.
class OpenCollection {
 public:
  // Throws TableError (no such table, a file that cannot be used) or Kiv::TypeError (unknown container type).
  OpenCollection(const std::string& runDir, const std::string& path, const std::string& collection);

  MapBase& map() const { return *map_; }
  const Kiv::Ptr<Container>& container() const { return container_; }

  // Calls `each` for every record in table order. Damage is stepped over, told to `damaged`.
  void forEach(const std::function<void(const Kiv::Value&)>& each,
               const std::function<void(const std::string&)>& damaged) const;
  // Throw Kiv::ValueError (no such record or key; nothing is changed) or TableError (cannot be written).
  void put(const Kiv::Value& record);
  bool del(const Kiv::Value& key);
  // The record under a key; nothing when absent. Throws Kiv::ValueError, Fenn::CorruptionDetectedException.
  Kiv::Value get(const Kiv::Value& key) const;
  // Wakes those who watch.
  void flush() { map_->table()->flush(); }

 private:
  Kiv::Ptr<Container> container_;
  MapBase* map_ = nullptr;
};

}  // namespace Quell
