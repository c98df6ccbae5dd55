// Shared tables: maps of fixed-size records in files that outlive their writer.
//
// A table is named by a path ("flowtracking/sampled/hwOffload/status") and holds collections; each collection
// is one file in the run directory. One writer at a time, any number of readers in any number of processes;
// readers never wait and never write. docs/shared-memory.md has the layout and the protocol.
//
// Neighbours: QuellMap.h has the map itself; KivSharedMem.h mounts containers of maps by path and type name.
// Threading: a Map is used on one thread. Readers elsewhere open the file for themselves.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Kiv.h"

namespace Quell {

// A table cannot be opened, created or written: absent, foreign, newer, of another record type, written by
// another process, out of space. The text says which file and why, with the process id where one is in the
// way.
class TableError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Another process (or another user of the file in this one) writes the table. The text names the process.
class TableBusy : public TableError {
 public:
  using TableError::TableError;
};

// What a table needs to know of its records, and what shows them to people.
struct RecordType {
  std::string name;  // "FlowTracking::HoIpFlowStatus"; stands in the file and must match
  std::uint32_t recordBytes = 0;
  std::uint32_t keyBytes = 0;  // the key is the first member of the record
  Kiv::Value (*toValue)(const void* record) = nullptr;
  void (*fromValue)(const Kiv::Value&, void* record) = nullptr;  // throws Kiv::ValueError
  Kiv::Value (*keyToValue)(const void* key) = nullptr;
  void (*keyFromValue)(const Kiv::Value&, void* key) = nullptr;  // throws Kiv::ValueError
};

class MapBase;  // QuellMap.h

// An entity that holds collections: the type of a table. Concrete containers list their maps in the order of
// their declaration and are registered as entity types, so that a table can be built from its type name.
class Container : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  // The maps, first the one of IPv4.
  virtual std::vector<MapBase*> collections() = 0;
  // The map of a name, or null.
  MapBase* collection(std::string_view name);
  // Tells this entity's reactors that a collection's member changed, or, without a key, that any may have.
  void collectionChanged(const MapBase& map, const void* key);

 protected:
  // The attribute under which a collection's changes are announced.
  virtual Kiv::AttributeId collectionAttribute(const MapBase& map) const = 0;
};

}  // namespace Quell
