#include "RunDir.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace Pexa {
namespace {

constexpr std::string_view kWritable = "a directory that this process may write";
constexpr mode_t kMode = 0750;  // of a directory that is made here

[[noreturn]] void fail(const std::filesystem::path& path, std::string_view why,
                       std::string_view expected = kWritable) {
  throw std::runtime_error(fmt::format("run directory {}: {}, expected {}", path.native(), why, expected));
}

void make(const std::filesystem::path& path, const std::optional<Guard::User>& owner) {
  std::error_code error;
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), error);
  if (error) fail(path, error.message());
  if (::mkdir(path.c_str(), kMode) != 0) {
    if (errno != EEXIST) fail(path, std::strerror(errno));
  } else if (owner && ::lchown(path.c_str(), owner->user, owner->group) != 0) {
    fail(path, fmt::format("cannot be given to {}: {}", owner->name, std::strerror(errno)));
  }
}

bool inOurGroup(gid_t group, const std::optional<Guard::User>& owner) {
  if (group == ::getegid() || (owner && group == owner->group)) return true;
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  return std::find(groups.begin(), groups.begin() + std::max(0, count), group) != groups.end();
}

// Whoever may write the directory may put anything in the place of anything.
void check(const std::filesystem::path& path, const struct stat& status,
           const std::optional<Guard::User>& owner) {
  if (!S_ISDIR(status.st_mode)) fail(path, "Not a directory");
  if ((status.st_mode & S_IWOTH) != 0) {
    fail(path, fmt::format("anybody may write it (mode {:04o})", status.st_mode & 07777),
         "one that only this user, root or a group may write");
  }
  const uid_t user = status.st_uid;
  if (user == 0 || user == ::geteuid() || (owner && user == owner->user)) return;
  if ((status.st_mode & S_IWGRP) != 0 && inOurGroup(status.st_gid, owner)) return;
  fail(path, fmt::format("belongs to user {}", user),
       "one of root's or of the user that this process runs as, or that a group of that user may write");
}

std::string holderOf(int lock) {
  std::array<char, 32> text{};
  const ssize_t got = ::pread(lock, text.data(), text.size() - 1, 0);
  std::string pid(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  while (!pid.empty() && pid.back() == '\n') pid.pop_back();
  return pid.empty() ? "another process" : "process " + pid;
}

// A link that somebody planted would have another file written over.
int openLock(const std::filesystem::path& path) {
  const std::filesystem::path name = path / "agent.lock";
  const int lock = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
  if (lock < 0 && errno != ELOOP) fail(path, std::strerror(errno));
  struct stat status {};
  if (lock >= 0 && ::fstat(lock, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1)
    return lock;
  if (lock >= 0) ::close(lock);
  throw std::runtime_error(
      fmt::format("{}: a link, or no file at all, expected a file of one name", name.native()));
}

}  // namespace

void groupMayWriteAsIn(const std::filesystem::path& runDir) {
  struct stat status {};
  if (::stat(runDir.c_str(), &status) != 0 || (status.st_mode & S_IWGRP) == 0) return;
  ::umask(::umask(0) & ~static_cast<mode_t>(S_IRWXG));
}

void runDirIs(const std::filesystem::path& path, const std::optional<Guard::User>& owner) {
  make(path, owner);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) fail(path, std::strerror(errno));
  check(path, status, owner);
  groupMayWriteAsIn(path);
}

RunDir::RunDir(const std::filesystem::path& path, const std::optional<Guard::User>& owner)
    : path_(path), lock_(-1) {
  runDirIs(path, owner);
  lock_ = openLock(path);
  if (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    const std::string holder = holderOf(lock_);
    ::close(lock_);
    throw std::runtime_error(fmt::format("run directory {}: an agent is running in it ({}), expected none",
                                         path.native(), holder));
  }
  const std::string pid = fmt::format("{}\n", ::getpid());
  if ((owner && ::fchown(lock_, owner->user, owner->group) != 0) || ::ftruncate(lock_, 0) != 0 ||
      ::pwrite(lock_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    const int reason = errno;
    ::close(lock_);
    fail(path, std::strerror(reason));
  }
}

RunDir::~RunDir() {
  ::close(lock_);
}

}  // namespace Pexa
