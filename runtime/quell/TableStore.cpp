#include "quell/TableStore.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "quell/SharedTables.h"
#include "quell/SlotAccess.h"
#include "quell/TableFile.h"

namespace Quell {

namespace {

namespace fs = std::filesystem;

template <std::size_t N>
std::string text(const std::array<char, N>& field) {
  return std::string(field.data(), ::strnlen(field.data(), N));
}

// The process that holds a file's lock, as the kernel tells; asking by trying to lock would be in the way of
// a writer that comes at that moment.
bool isLocked(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return false;
  const std::string inode = fmt::format(":{} ", status.st_ino);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("FLOCK") != std::string::npos && line.find("WRITE") != std::string::npos &&
        line.find(inode) != std::string::npos) {
      return true;
    }
  }
  return false;
}

std::uint64_t writerOf(const TableFile& file) {
  return isLocked(file.descriptor()) ? file.header().writer.load(std::memory_order_relaxed) : 0;
}

TableStatus statusOf(const TablePlace& place) {
  TableStatus status{place.path, place.collection, {}, {}, 0, 0, {}};
  try {
    const auto file = TableFile::open(place, TableFile::Access::read);
    status.containerType = text(file->identity().containerType);
    status.recordType = text(file->identity().recordType);
    status.entries = Table(file).entries();
    status.writer = writerOf(*file);
  } catch (const std::runtime_error& error) {
    status.problem = error.what();
  }
  return status;
}

// A record or key of a run-time size, aligned for any of them.
RecordBytes bytesFrom(void (*fromValue)(const Kiv::Value&, void*), const Kiv::Value& value) {
  RecordBytes bytes;
  fromValue(value, bytes.bytes.data());
  return bytes;
}

}  // namespace

std::vector<TableStatus> listTables(const std::string& runDir) {
  const fs::path root = fs::path(runDir) / kTablesFolder;
  std::vector<TableStatus> all;
  std::error_code error;
  fs::recursive_directory_iterator each(root, error);
  if (error == std::errc::no_such_file_or_directory && fs::is_directory(runDir)) return all;
  for (; !error && each != fs::recursive_directory_iterator(); each.increment(error)) {
    const fs::path& path = each->path();
    if (path.filename().string().starts_with('.') ||
        each->symlink_status().type() == fs::file_type::directory)
      continue;
    const std::string table = path.parent_path().lexically_relative(root).generic_string();
    all.push_back(statusOf({runDir, table, path.filename().string()}));
  }
  if (error) throw TableError(fmt::format("{}: cannot be read: {}", root.string(), error.message()));
  std::sort(all.begin(), all.end(), [](const TableStatus& a, const TableStatus& b) {
    return std::tie(a.path, a.collection) < std::tie(b.path, b.collection);
  });
  return all;
}

OpenCollection::OpenCollection(const std::string& runDir, const std::string& path,
                               const std::string& collection) {
  auto file = TableFile::open({runDir, path, collection}, TableFile::Access::read);
  container_ = containerOfType(text(file->identity().containerType), path);
  map_ = container_->collection(collection);
  if (map_ == nullptr) {
    throw TableError(fmt::format("{}: {} has no collection \"{}\"", file->place().fileName(),
                                 container_->fwkType().name(), collection));
  }
  file->requireType(map_->type());
  map_->tableIs(std::make_shared<Table>(std::move(file)));
}

void OpenCollection::forEach(const std::function<void(const Kiv::Value&)>& each,
                             const std::function<void(const std::string&)>& damaged) const {
  const Table& table = *map_->table();
  RecordBytes record;
  std::uint64_t from = 0;  // where to go on behind damage
  for (bool begun = false;;) {
    try {
      if (!(begun ? table.walkAfter(record.bytes.data(), record.bytes.data())
                  : table.walkFrom(from, record.bytes.data()))) {
        return;
      }
      begun = true;
    } catch (const WalkDamage& damage) {
      damaged(damage.what());
      if (damage.atEnd()) return;
      from = damage.resumeAt();
      begun = false;
      continue;
    }
    each(map_->type().toValue(record.bytes.data()));
  }
}

void OpenCollection::put(const Kiv::Value& record) {
  map_->insertBytes(bytesFrom(map_->type().fromValue, record).bytes.data());
}

bool OpenCollection::del(const Kiv::Value& key) {
  return map_->eraseBytes(bytesFrom(map_->type().keyFromValue, key).bytes.data());
}

Kiv::Value OpenCollection::get(const Kiv::Value& key) const {
  RecordBytes record;
  const RecordBytes wanted = bytesFrom(map_->type().keyFromValue, key);
  if (!map_->findBytes(wanted.bytes.data(), record.bytes.data())) return {};
  return map_->type().toValue(record.bytes.data());
}

}  // namespace Quell
