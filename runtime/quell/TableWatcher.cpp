#include "quell/TableWatcher.h"

#include <fmt/format.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "quell/SlotAccess.h"

namespace Quell {

namespace {

// What the system names in the notice that some were lost (IN_Q_OVERFLOW).
constexpr int kAnyWatch = -1;

}  // namespace

struct TableWatcher::Watched {
  Kiv::Ptr<Container> container;
  MapBase* map;
  std::shared_ptr<TableFile> file;
  JournalReader journal;
  int watch = -1;
  bool rung = false;        // there may be news
  bool everything = false;  // a writer left without having told all
  std::uint64_t overruns = 0;
};

TableWatcher::TableWatcher() : notices_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!notices_.valid())
    throw TableError(fmt::format("shared tables cannot be watched: {}", std::strerror(errno)));
}

TableWatcher::~TableWatcher() = default;

void TableWatcher::watch(const Kiv::Ptr<Container>& container, MapBase& map) {
  const std::shared_ptr<TableFile>& file = map.table()->file();
  // By the descriptor: the very file that is mapped, whatever stands under its name by now.
  const std::string name = fmt::format("/proc/self/fd/{}", file->descriptor());
  const int watch = ::inotify_add_watch(notices_.get(), name.c_str(), IN_MODIFY | IN_CLOSE_WRITE);
  if (watch < 0) {
    throw TableError(
        fmt::format("{}: cannot be watched: {}", file->place().fileName(), std::strerror(errno)));
  }
  watched_.push_back({container, &map, file, JournalReader(*file), watch});
}

void TableWatcher::readNotices() {
  alignas(inotify_event) char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(notices_.get(), buffer, sizeof buffer);
    if (got <= 0) return;
    for (ssize_t at = 0; at < got;) {
      inotify_event event;
      std::memcpy(&event, buffer + at, sizeof event);
      at += static_cast<ssize_t>(sizeof event + event.len);
      noticed(event.wd, (event.mask & IN_CLOSE_WRITE) != 0);
    }
  }
}

void TableWatcher::noticed(int watch, bool closed) {
  for (Watched& watched : watched_) {
    if (watch != kAnyWatch && watched.watch != watch) continue;
    watched.rung = true;
    // Who leaves in order takes its process id out of the file; who died may have died before its journal
    // entry.
    const bool died = closed && watched.file->header().writer.load(std::memory_order_relaxed) != 0;
    if (died && !watched.map->table()->writing()) watched.everything = true;
  }
}

bool TableWatcher::deliver(std::size_t limit) {
  readNotices();
  bool more = false;
  for (Watched& watched : watched_) {
    if (watched.rung) more |= deliver(watched, limit);
  }
  return more;
}

bool TableWatcher::deliver(Watched& watched, std::size_t& limit) {
  if (watched.map->table()->writing()) {  // this process's own changes were told as they were made
    watched.journal.skip();
    watched.rung = watched.everything = false;
    return false;
  }
  while (limit > 0) {
    RecordWords key;
    auto news = JournalReader::News::everything;
    if (watched.everything) {
      watched.journal.skip();
    } else {
      news = watched.journal.next(key.words.data());
      if (news == JournalReader::News::everything) ++watched.overruns;
    }
    if (news == JournalReader::News::none) {
      watched.rung = false;
      return false;
    }
    --limit;
    watched.everything = false;
    RecordBytes told;
    std::memcpy(told.bytes.data(), key.words.data(), watched.file->keyBytes());
    const bool one = news == JournalReader::News::key;
    watched.container->collectionChanged(*watched.map, one ? told.bytes.data() : nullptr);
  }
  return true;
}

std::uint64_t TableWatcher::overruns(const MapBase& map) const {
  for (const Watched& watched : watched_) {
    if (watched.map == &map) return watched.overruns;
  }
  return 0;
}

}  // namespace Quell
