// Hears of the changes that other processes make to mounted collections.
//
// The writer of a collection notes each changed key in the file's journal and, at the end of a batch, writes
// one byte through the file; inotify makes descriptor() readable then, in every process that watches. A
// writer's end, orderly or not, is heard too. Nothing polls. A watcher that is further behind than the
// journal reaches tells its container's reactors once, without a key, that anything may have changed.
//
// Threading: one thread; deliver() runs reactors.
#pragma once

#include <cstddef>
#include <list>
#include <memory>

#include "Quell.h"
#include "QuellMap.h"
#include "quell/Journal.h"
#include "quell/TableFile.h"
#include "quell/TablePlace.h"

namespace Quell {

class TableWatcher {
 public:
  // Throws TableError when the system gives no inotify descriptor.
  TableWatcher();
  ~TableWatcher();

  // Watches a collection from now on: changes after this call are told. Throws TableError.
  // REQUIRES: the map has a table. The container is kept alive.
  void watch(const Kiv::Ptr<Container>& container, MapBase& map);

  // Readable when deliver() may have something to do.
  int descriptor() const { return notices_.get(); }
  // Tells reactors of at most so many keys. True when there is more to tell: call again without waiting.
  bool deliver(std::size_t limit);
  // How often the changes of a collection were not told one by one: the journal did not reach back to where
  // the watcher stood, or was damaged. 0 for one that is not watched.
  std::uint64_t overruns(const MapBase& map) const;

 private:
  struct Watched;
  void readNotices();
  void noticed(int watch, bool closed);
  // Tells of one collection; takes what it told from the limit. True when there is more.
  bool deliver(Watched& watched, std::size_t& limit);

  Descriptor notices_;
  std::list<Watched> watched_;
};

}  // namespace Quell
