#include "quell/TablePlace.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Quell.h"

namespace Quell {

namespace {

bool plainName(std::string_view name) {
  return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos && name.size() < 200;
}

}  // namespace

std::string TablePlace::fileName() const {
  return fmt::format("{}/{}/{}/{}", runDir, kTablesFolder, path, collection);
}

std::vector<std::string> TablePlace::folders() const {
  std::vector<std::string> parts;
  std::size_t from = 0;
  for (;;) {
    const std::size_t slash = path.find('/', from);
    parts.push_back(path.substr(from, slash == std::string::npos ? slash : slash - from));
    if (slash == std::string::npos) break;
    from = slash + 1;
  }
  for (const std::string& part : parts) {
    if (!plainName(part)) {
      throw TableError(
          fmt::format("table \"{}\": expected names separated by single slashes, got \"{}\"", path, part));
    }
  }
  if (!plainName(collection)) {
    throw TableError(
        fmt::format("table \"{}\": expected the name of a collection, got \"{}\"", path, collection));
  }
  return parts;
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (fd_ >= 0 && this != &other) ::close(fd_);
  fd_ = other.release();
  return *this;
}

Descriptor::~Descriptor() {
  if (fd_ >= 0) ::close(fd_);
}

Descriptor openFolder(const TablePlace& place, bool create) {
  std::vector<std::string> folders = place.folders();
  folders.insert(folders.begin(), std::string(kTablesFolder));
  std::string walked = place.runDir;
  Descriptor folder(::open(walked.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid()) {
    if (errno == ENOENT && !create) return {};
    throw TableError(fmt::format("run directory {}: cannot be opened: {}", walked, std::strerror(errno)));
  }
  for (const std::string& name : folders) {
    walked += "/" + name;
    if (create && ::mkdirat(folder.get(), name.c_str(), 0777) != 0 && errno != EEXIST) {
      throw TableError(fmt::format("{}: cannot be created: {}", walked, std::strerror(errno)));
    }
    Descriptor next(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!next.valid()) {
      if (errno == ENOENT && !create) return {};
      const char* why = errno == ELOOP || errno == ENOTDIR
                            ? "expected a folder, found something else (no links here)"
                            : std::strerror(errno);
      throw TableError(fmt::format("{}: {}", walked, why));
    }
    folder = std::move(next);
  }
  return folder;
}

}  // namespace Quell
