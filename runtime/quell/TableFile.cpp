#include "quell/TableFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Quell {

namespace {

[[noreturn]] void refuse(const TablePlace& place, const std::string& why) {
  throw TableError(fmt::format("{}: {}", place.fileName(), why));
}

template <std::size_t N>
void setText(const TablePlace& place, std::array<char, N>& field, std::string_view text,
             std::string_view what) {
  if (text.size() >= N) refuse(place, fmt::format("{} \"{}\" is longer than {} bytes", what, text, N - 1));
  std::copy(text.begin(), text.end(), field.begin());
}

template <std::size_t N>
std::string_view textOf(const std::array<char, N>& field) {
  return {field.data(), ::strnlen(field.data(), N)};
}

std::uint64_t identityCheck(const Layout::Identity& identity) {
  return XXH3_64bits(&identity, offsetof(Layout::Identity, identityCheck));
}

void writeAt(int fd, const TablePlace& place, const void* bytes, std::size_t size, std::uint64_t offset) {
  if (::pwrite(fd, bytes, size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size)) {
    refuse(place, fmt::format("cannot be written: {}", std::strerror(errno)));
  }
}

int reserveIn(int fd, std::uint64_t offset, std::uint64_t bytes) {
  int error = 0;
  do {
    error = ::posix_fallocate(fd, static_cast<off_t>(offset), static_cast<off_t>(bytes));
  } while (error == EINTR);
  return error;
}

Layout::Identity identityFor(const TablePlace& place, const TableFile::Creation& creation) {
  const RecordType& type = *creation.type;
  if (type.recordBytes == 0 || type.recordBytes > Layout::kMostRecordBytes || type.keyBytes == 0 ||
      type.keyBytes > type.recordBytes) {
    refuse(place, fmt::format("record type {} has a key of {} and records of {} bytes; expected at most {}",
                              type.name, type.keyBytes, type.recordBytes, Layout::kMostRecordBytes));
  }
  Layout::Identity identity{};
  identity.magic = Layout::kMagic;
  identity.version = Layout::kVersion;
  identity.identityBytes = sizeof identity;
  identity.recordBytes = type.recordBytes;
  identity.keyBytes = type.keyBytes;
  identity.recordsOffset = Layout::recordsOffset(type.keyBytes);
  setText(place, identity.recordType, type.name, "record type");
  setText(place, identity.containerType, creation.containerType, "container type");
  setText(place, identity.path, place.path, "table path");
  setText(place, identity.collection, place.collection, "collection");
  identity.identityCheck = identityCheck(identity);
  return identity;
}

}  // namespace

TableFile::TableFile(TablePlace place, Descriptor descriptor, Access access)
    : place_(std::move(place)),
      name_(place_.path + " " + place_.collection),
      descriptor_(std::move(descriptor)),
      access_(access) {
  judge();
  map();
}

TableFile::~TableFile() {
  ::munmap(reserved_, mapped_);
}

void TableFile::initialise(int fd, const TablePlace& place, const Creation& creation) {
  const Layout::Identity identity = identityFor(place, creation);
  const std::uint64_t capacity =
      std::clamp<std::uint64_t>(creation.capacity, 1, Layout::kMostSlots - Layout::kSpareSlots);
  const std::uint64_t buckets =
      std::min(Layout::kMostBuckets, (capacity + Layout::kLoadPerBucket - 1) / Layout::kLoadPerBucket);
  const std::uint64_t recordBytes = Layout::roundUp(
      (capacity + Layout::kSpareSlots) * Layout::slotBytes(identity.recordBytes), Layout::kPage);
  for (const auto& [offset, bytes] : {std::pair{std::uint64_t{0}, Layout::kPage},
                                      std::pair{Layout::kIndexOffset, buckets * sizeof(Layout::Bucket)},
                                      std::pair{identity.recordsOffset, recordBytes}}) {
    if (const int error = reserveIn(fd, offset, Layout::roundUp(bytes, Layout::kPage)); error != 0) {
      refuse(place,
             fmt::format("cannot be created with room for {} entries: {}", capacity, std::strerror(error)));
    }
  }
  writeAt(fd, place, &identity, sizeof identity, 0);
  const std::uint64_t state = Layout::stateWord(buckets, 0);
  const std::uint64_t entries = Layout::countWord(0);
  writeAt(fd, place, &state, sizeof state, offsetof(Layout::Header, state));
  writeAt(fd, place, &state, sizeof state, offsetof(Layout::Header, stateCopy));
  writeAt(fd, place, &entries, sizeof entries, offsetof(Layout::Header, entries));
  writeAt(fd, place, &entries, sizeof entries, offsetof(Layout::Header, overflow));
}

Descriptor TableFile::openNamed(const TablePlace& place, Access access) {
  const Descriptor folder = openFolder(place, false);
  if (!folder.valid()) return {};
  const int flags = (access == Access::write ? O_RDWR : O_RDONLY) | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  Descriptor file(::openat(folder.get(), place.collection.c_str(), flags));
  if (!file.valid() && errno != ENOENT) {
    refuse(place, errno == ELOOP ? "expected a file, found a symbolic link"
                                 : fmt::format("cannot be opened: {}", std::strerror(errno)));
  }
  return file;
}

std::shared_ptr<TableFile> TableFile::open(const TablePlace& place, Access access) {
  Descriptor file = openNamed(place, access);
  if (!file.valid()) refuse(place, "there is no such table");
  return std::shared_ptr<TableFile>(new TableFile(place, std::move(file), access));
}

std::shared_ptr<TableFile> TableFile::openOrCreate(const TablePlace& place, const Creation& creation,
                                                   Access access) {
  if (Descriptor file = openNamed(place, access); file.valid()) {
    return std::shared_ptr<TableFile>(new TableFile(place, std::move(file), access));
  }
  const Descriptor folder = openFolder(place, true);
  const std::string draft = fmt::format(".{}.{}.new", place.collection, ::getpid());
  ::unlinkat(folder.get(), draft.c_str(), 0);
  {
    const Descriptor file(
        ::openat(folder.get(), draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!file.valid()) refuse(place, fmt::format("cannot be created: {}", std::strerror(errno)));
    try {
      initialise(file.get(), place, creation);
    } catch (...) {
      ::unlinkat(folder.get(), draft.c_str(), 0);
      throw;
    }
  }
  const int linked = ::linkat(folder.get(), draft.c_str(), folder.get(), place.collection.c_str(), 0);
  const int error = errno;
  ::unlinkat(folder.get(), draft.c_str(), 0);
  if (linked != 0 && error != EEXIST)
    refuse(place, fmt::format("cannot be created: {}", std::strerror(error)));
  return open(place, access);  // what another process created meanwhile is as good
}

std::shared_ptr<TableFile> TableFile::anonymous(const TablePlace& place, const Creation& creation) {
  Descriptor file(::memfd_create(place.collection.c_str(), MFD_CLOEXEC));
  if (!file.valid()) refuse(place, fmt::format("cannot be created in memory: {}", std::strerror(errno)));
  initialise(file.get(), place, creation);
  return std::shared_ptr<TableFile>(new TableFile(place, std::move(file), Access::write));
}

std::shared_ptr<TableFile> TableFile::writable(const std::shared_ptr<TableFile>& file) {
  if (file->access_ == Access::write) return file;
  std::shared_ptr<TableFile> opened = open(file->place_, Access::write);
  struct stat before {};
  struct stat now {};
  if (::fstat(file->descriptor(), &before) != 0 || ::fstat(opened->descriptor(), &now) != 0 ||
      before.st_dev != now.st_dev || before.st_ino != now.st_ino) {
    refuse(file->place_, "another file stands here than the one that was mounted");
  }
  return opened;
}

void TableFile::judge() {
  struct stat status {};
  if (::fstat(descriptor(), &status) != 0) refuse(place_, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) refuse(place_, "expected a file, found something else");
  if (::pread(descriptor(), &identity_, sizeof identity_, 0) != static_cast<ssize_t>(sizeof identity_)) {
    refuse(place_, fmt::format("no shared table: {} bytes, shorter than a header", status.st_size));
  }
  if (identity_.magic != Layout::kMagic)
    refuse(place_, "no shared table: it begins with other bytes than one");
  if (identity_.version > Layout::kVersion) {
    refuse(place_, fmt::format("layout version {} is newer than the newest known here, {}", identity_.version,
                               Layout::kVersion));
  }
  if (identity_.version != Layout::kVersion || identity_.identityBytes != sizeof identity_ ||
      identity_.identityCheck != identityCheck(identity_) || identity_.keyBytes == 0 ||
      identity_.keyBytes > identity_.recordBytes || identity_.recordBytes > Layout::kMostRecordBytes ||
      identity_.recordsOffset != Layout::recordsOffset(identity_.keyBytes)) {
    refuse(place_, "damaged: the header does not match its check");
  }
  if (static_cast<std::uint64_t>(status.st_size) < identity_.recordsOffset) {
    refuse(place_, fmt::format("truncated: {} bytes; the records begin at {}", status.st_size,
                               identity_.recordsOffset));
  }
  slotBytes_ = Layout::slotBytes(identity_.recordBytes);
  journalEntryBytes_ = Layout::journalEntryBytes(identity_.keyBytes);
}

void TableFile::map() {
  const std::uint64_t bytes = Layout::mappedBytes(identity_.keyBytes, identity_.recordBytes);
  // Regions begin at multiples of a large page; the mapping has to as well, for the kernel to use such pages.
  mapped_ = bytes + Layout::kRegionAlignment;
  reserved_ = ::mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (reserved_ == MAP_FAILED) refuse(place_, fmt::format("cannot be mapped: {}", std::strerror(errno)));
  const std::uint64_t start =
      Layout::roundUp(reinterpret_cast<std::uintptr_t>(reserved_), Layout::kRegionAlignment);
  base_ = static_cast<std::byte*>(reserved_) + (start - reinterpret_cast<std::uintptr_t>(reserved_));
  const int protection = access_ == Access::write ? PROT_READ | PROT_WRITE : PROT_READ;
  if (::mmap(base_, bytes, protection, MAP_SHARED | MAP_FIXED | MAP_NORESERVE, descriptor(), 0) ==
      MAP_FAILED) {
    const int error = errno;
    ::munmap(reserved_, mapped_);
    refuse(place_, fmt::format("cannot be mapped: {}", std::strerror(error)));
  }
}

void TableFile::gatherLargePage(std::uint64_t offset) const {
  constexpr int kCollapse = 25;  // MADV_COLLAPSE, younger than the C library's headers
  ::madvise(base_ + offset, Layout::kRegionAlignment, kCollapse);
}

void TableFile::requireType(const RecordType& type) const {
  if (textOf(identity_.recordType) != type.name) {
    refuse(place_,
           fmt::format("holds records of type {}, expected {}", textOf(identity_.recordType), type.name));
  }
  if (identity_.recordBytes != type.recordBytes || identity_.keyBytes != type.keyBytes) {
    refuse(place_, fmt::format("holds records of {} bytes with keys of {}, expected {} with {}",
                               identity_.recordBytes, identity_.keyBytes, type.recordBytes, type.keyBytes));
  }
}

std::uint64_t TableFile::slotsInFile() const {
  struct stat status {};
  if (::fstat(descriptor(), &status) != 0) refuse(place_, std::strerror(errno));
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size < identity_.recordsOffset) return 0;
  return std::min(Layout::kMostSlots, (size - identity_.recordsOffset) / slotBytes_);
}

bool TableFile::reserve(std::uint64_t offset, std::uint64_t bytes) const {
  struct stat before {};
  if (::fstat(descriptor(), &before) != 0) return false;
  if (reserveIn(descriptor(), offset, bytes) == 0) return true;
  struct stat now {};  // some file systems leave the part for which there was room
  if (::fstat(descriptor(), &now) == 0 && now.st_size > before.st_size) {
    [[maybe_unused]] const int ignored = ::ftruncate(descriptor(), before.st_size);
  }
  return false;
}

bool TableFile::reserveLargePage(std::uint64_t offset) const {
  struct stat before {};
  if (::fstat(descriptor(), &before) != 0) return false;
  // One small page at its end, so that the file reaches there and the kernel finds something to gather.
  if (!reserve(offset + Layout::kRegionAlignment - Layout::kPage, Layout::kPage)) return false;
  gatherLargePage(offset);
  if (reserve(offset, Layout::kRegionAlignment)) return true;
  struct stat now {};
  if (::fstat(descriptor(), &now) == 0 && now.st_size > before.st_size) {
    [[maybe_unused]] const int ignored = ::ftruncate(descriptor(), before.st_size);
  }
  return false;
}

bool TableFile::lock() {
  if (locked_.exchange(true)) return false;
  int result = 0;
  do {
    result = ::flock(descriptor(), LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return true;
  locked_ = false;
  if (errno == EWOULDBLOCK) return false;
  refuse(place_, fmt::format("cannot be locked: {}", std::strerror(errno)));
}

void TableFile::unlock() {
  ::flock(descriptor(), LOCK_UN);
  locked_ = false;
}

}  // namespace Quell
