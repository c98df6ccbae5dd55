// The agent's mounted shared tables: the real KivSharedMem::EntityManager.
//
// The agent calls deliver() when descriptor() is readable, and flush() at the end of each slice of its loop,
// so that those who watch the tables it writes are woken once a slice.
//
// Kinds: a `written` table is created and put in order when it is mounted, which fails (TableBusy) while
// another process writes it; this process becomes its writer with its first change, not before, so that an
// operator's tool may still write it. A `published` one is read
// and watched; it is created, empty, when it is absent. Collections without a setting start with room for 64
// entries.
//
// Threading: the agent's event thread.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "KivSharedMem.h"
#include "quell/TableWatcher.h"

namespace Quell {

class SharedTables final : public KivSharedMem::EntityManager {
 public:
  // Throws TableError when the system cannot watch files.
  SharedTables(Kiv::String name, std::string runDir);

  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  Kiv::Ptr<Container> doMount(const Kiv::String& path, const Kiv::String& typeName,
                              const KivQuell::MountInfo& info) override;
  Kiv::Ptr<Container> getEntity(std::string_view path) const override;

  // The mounted tables, by path.
  std::vector<Kiv::Ptr<Container>> mounted() const;
  // How often this process was too far behind the changes of a collection; see TableWatcher.
  std::uint64_t overruns(const MapBase& map) const { return watcher_.overruns(map); }

  // Wakes those who watch what this process changed.
  void flush();
  // Readable when deliver() may have something to do.
  int descriptor() const { return watcher_.descriptor(); }
  // Tells reactors of at most so many changes by other processes. True when there is more to tell.
  bool deliver(std::size_t limit) { return watcher_.deliver(limit); }

 private:
  void mountCollection(const Kiv::Ptr<Container>& container, MapBase& map, const Kiv::String& typeName,
                       const KivQuell::MountInfo& info);

  std::string runDir_;
  std::map<Kiv::String, Kiv::Ptr<Container>, std::less<>> tables_;
  TableWatcher watcher_;
};

// A container of a registered entity type. Throws Kiv::TypeError when the type is unknown or is no container.
Kiv::Ptr<Container> containerOfType(const Kiv::String& typeName, const Kiv::String& path);

}  // namespace Quell
