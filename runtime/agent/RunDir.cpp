#include "RunDir.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Pexa {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, std::string_view why) {
  throw std::runtime_error(fmt::format(
      "run directory {}: {}, expected a directory that this process may write", path.native(), why));
}

std::string holderOf(int lock) {
  std::array<char, 32> text{};
  const ssize_t got = ::pread(lock, text.data(), text.size() - 1, 0);
  std::string pid(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  while (!pid.empty() && pid.back() == '\n') pid.pop_back();
  return pid.empty() ? "another process" : "process " + pid;
}

}  // namespace

void groupMayWriteAsIn(const std::filesystem::path& runDir) {
  struct stat status {};
  if (::stat(runDir.c_str(), &status) != 0 || (status.st_mode & S_IWGRP) == 0) return;
  ::umask(::umask(0) & ~static_cast<mode_t>(S_IRWXG));
}

RunDir::RunDir(const std::filesystem::path& path) : path_(path), lock_(-1) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) fail(path, error.message());
  groupMayWriteAsIn(path);
  lock_ = ::open((path / "agent.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock_ < 0) fail(path, std::strerror(errno));
  if (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    const std::string holder = holderOf(lock_);
    ::close(lock_);
    throw std::runtime_error(fmt::format("run directory {}: an agent is running in it ({}), expected none",
                                         path.native(), holder));
  }
  const std::string pid = fmt::format("{}\n", ::getpid());
  if (::ftruncate(lock_, 0) != 0 ||
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
