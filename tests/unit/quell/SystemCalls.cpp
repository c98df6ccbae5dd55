// The fortified headers have functions of their own in place of some of these.
#undef _FORTIFY_SOURCE
#include "SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace QuellTest {

namespace {

SystemCalls::Answer& callAnswer() {
  static SystemCalls::Answer answer;
  return answer;
}

int answerTo(const SystemCall& call) {
  if (!callAnswer()) return 0;
  const SystemCalls::Answer answer = std::exchange(callAnswer(), nullptr);
  const int error = answer(call);
  callAnswer() = answer;
  return error;
}

template <class Function>
Function* kernels(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

// The call's own result, or -1 with the answer in errno.
template <class Function, class... Arguments>
auto answered(const SystemCall& call, Function* function, Arguments... arguments) {
  using Result = decltype(function(arguments...));
  const int error = answerTo(call);
  if (error == 0) return function(arguments...);
  if (error == SystemCalls::kDone) return Result{};
  errno = error;
  return static_cast<Result>(-1);
}

std::uint64_t addressOf(const void* at) {
  return reinterpret_cast<std::uintptr_t>(at);
}

}  // namespace

[[gnu::noinline]] void soilStack() {
  volatile unsigned char bytes[8192];
  for (volatile unsigned char& byte : bytes) byte = 0xff;
}

SystemCalls::SystemCalls(Answer answer) {
  callAnswer() = std::move(answer);
}
SystemCalls::SystemCalls(std::string_view name, int error)
    : SystemCalls([name, error](const SystemCall& call) { return call.name == name ? error : 0; }) {}
SystemCalls::~SystemCalls() {
  callAnswer() = nullptr;
}

}  // namespace QuellTest

// In place of the C library's, for the libraries of the program too.
extern "C" {

using QuellTest::addressOf;
using QuellTest::answered;
using QuellTest::answerTo;
using QuellTest::kernels;

int posix_fallocate(int fd, off_t offset, off_t bytes) {
  static auto* const real = kernels<int(int, off_t, off_t)>("posix_fallocate");
  const int error = answerTo(
      {"posix_fallocate", fd, static_cast<std::uint64_t>(offset), static_cast<std::uint64_t>(bytes)});
  if (error == 0) return real(fd, offset, bytes);
  return error == QuellTest::SystemCalls::kDone ? 0 : error;
}

ssize_t pwrite(int fd, const void* from, std::size_t bytes, off_t offset) {
  static auto* const real = kernels<ssize_t(int, const void*, std::size_t, off_t)>("pwrite");
  return answered({"pwrite", fd, static_cast<std::uint64_t>(offset), bytes}, real, fd, from, bytes, offset);
}

int ftruncate(int fd, off_t bytes) noexcept {
  static auto* const real = kernels<int(int, off_t)>("ftruncate");
  return answered({"ftruncate", fd, 0, static_cast<std::uint64_t>(bytes)}, real, fd, bytes);
}

int fstat(int fd, struct stat* status) noexcept {
  static auto* const real = kernels<int(int, struct stat*)>("fstat");
  return answered({"fstat", fd}, real, fd, status);
}

int flock(int fd, int operation) noexcept {
  static auto* const real = kernels<int(int, int)>("flock");
  return answered({"flock", fd}, real, fd, operation);
}

int memfd_create(const char* name, unsigned flags) noexcept {
  static auto* const real = kernels<int(const char*, unsigned)>("memfd_create");
  return answered({"memfd_create"}, real, name, flags);
}

int openat(int folder, const char* name, int flags, ...) {
  static auto* const real = kernels<int(int, const char*, int, ...)>("openat");
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return answered({"openat", folder}, real, folder, name, flags, mode);
}

int mkdirat(int folder, const char* name, mode_t mode) noexcept {
  static auto* const real = kernels<int(int, const char*, mode_t)>("mkdirat");
  return answered({"mkdirat", folder}, real, folder, name, mode);
}

int linkat(int from, const char* name, int to, const char* newName, int flags) noexcept {
  static auto* const real = kernels<int(int, const char*, int, const char*, int)>("linkat");
  return answered({"linkat", from}, real, from, name, to, newName, flags);
}

void* mmap(void* at, std::size_t bytes, int protection, int flags, int fd, off_t offset) noexcept {
  static auto* const real = kernels<void*(void*, std::size_t, int, int, int, off_t)>("mmap");
  if (const int error = answerTo({"mmap", fd, addressOf(at), bytes}); error != 0) {
    errno = error;
    return MAP_FAILED;
  }
  return real(at, bytes, protection, flags, fd, offset);
}

int munmap(void* at, std::size_t bytes) noexcept {
  static auto* const real = kernels<int(void*, std::size_t)>("munmap");
  return answered({"munmap", -1, addressOf(at), bytes}, real, at, bytes);
}

int madvise(void* at, std::size_t bytes, int advice) noexcept {
  static auto* const real = kernels<int(void*, std::size_t, int)>("madvise");
  return answered({"madvise", advice, addressOf(at), bytes}, real, at, bytes, advice);
}

int inotify_init1(int flags) noexcept {
  static auto* const real = kernels<int(int)>("inotify_init1");
  return answered({"inotify_init1"}, real, flags);
}

int inotify_add_watch(int fd, const char* name, std::uint32_t mask) noexcept {
  static auto* const real = kernels<int(int, const char*, std::uint32_t)>("inotify_add_watch");
  return answered({"inotify_add_watch", fd}, real, fd, name, mask);
}
}
