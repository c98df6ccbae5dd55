#undef _FORTIFY_SOURCE  // the fortified headers have functions of their own in place of some of these
#include "SystemCalls.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace QuellTest {

namespace {

// Null while nobody watches. A plain word: sanitizers call some of these before anything is initialised.
SystemCalls::Answer* callAnswer = nullptr;

// The call's result, or -1 with the answer in errno; the kernel's where that is to go on.
long answered(const SystemCall& call, bool& goesOn) {
  SystemCalls::Answer* const asked = std::exchange(callAnswer, nullptr);
  const int error = (*asked)(call);
  callAnswer = asked;
  goesOn = error == 0;
  if (error == 0 || error == SystemCalls::kDone) return 0;
  errno = error;
  return -1;
}

}  // namespace

[[gnu::noinline]] void soilStack() {
  volatile unsigned char bytes[8192];
  for (volatile unsigned char& byte : bytes) byte = 0xff;
}

SystemCalls::SystemCalls(Answer answer) {
  callAnswer = new Answer(std::move(answer));
}
SystemCalls::SystemCalls(std::string_view name, int error)
    : SystemCalls([name, error](const SystemCall& call) { return call.name == name ? error : 0; }) {}
SystemCalls::~SystemCalls() {
  delete std::exchange(callAnswer, nullptr);
}

}  // namespace QuellTest

// In place of the C library's, for the libraries of the program too. Straight to the kernel, and without what
// the thread sanitizer puts into functions: it calls some of them before it is ready for that.
#define QUELL_TEST_CALL __attribute__((no_sanitize("thread")))
#define QUELL_TEST_ANSWER(...)                                                           \
  if (QuellTest::callAnswer != nullptr) {                                                \
    bool goesOn = false;                                                                 \
    const long result = QuellTest::answered(QuellTest::SystemCall{__VA_ARGS__}, goesOn); \
    if (!goesOn) return ANSWER_AS(result);                                               \
  }
#define ANSWER_AS(result) static_cast<int>(result)

extern "C" {

QUELL_TEST_CALL int posix_fallocate(int fd, off_t offset, off_t bytes) {
  const int before = errno;
  int error = 0;
  if (QuellTest::callAnswer != nullptr) {
    bool goesOn = false;
    if (QuellTest::answered(
            {"posix_fallocate", fd, static_cast<std::uint64_t>(offset), static_cast<std::uint64_t>(bytes)},
            goesOn) != 0)
      error = errno;
    errno = before;
    if (!goesOn) return error;
  }
  if (::syscall(SYS_fallocate, fd, 0, offset, bytes) != 0) error = errno;
  errno = before;
  return error;
}

QUELL_TEST_CALL ssize_t pwrite(int fd, const void* from, std::size_t bytes, off_t offset) {
  QUELL_TEST_ANSWER("pwrite", fd, static_cast<std::uint64_t>(offset), bytes)
  return ::syscall(SYS_pwrite64, fd, from, bytes, offset);
}

QUELL_TEST_CALL int ftruncate(int fd, off_t bytes) noexcept {
  QUELL_TEST_ANSWER("ftruncate", fd, 0, static_cast<std::uint64_t>(bytes))
  return static_cast<int>(::syscall(SYS_ftruncate, fd, bytes));
}

QUELL_TEST_CALL int fstat(int fd, struct stat* status) noexcept {
  QUELL_TEST_ANSWER("fstat", fd, 0, 0)
  return static_cast<int>(::syscall(SYS_fstat, fd, status));
}

QUELL_TEST_CALL int flock(int fd, int operation) noexcept {
  QUELL_TEST_ANSWER("flock", fd, 0, 0)
  return static_cast<int>(::syscall(SYS_flock, fd, operation));
}

QUELL_TEST_CALL int memfd_create(const char* name, unsigned flags) noexcept {
  QUELL_TEST_ANSWER("memfd_create", -1, 0, 0)
  return static_cast<int>(::syscall(SYS_memfd_create, name, flags));
}

QUELL_TEST_CALL int openat(int folder, const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  QUELL_TEST_ANSWER("openat", folder, 0, 0)
  return static_cast<int>(::syscall(SYS_openat, folder, name, flags, mode));
}

QUELL_TEST_CALL int mkdirat(int folder, const char* name, mode_t mode) noexcept {
  QUELL_TEST_ANSWER("mkdirat", folder, 0, 0)
  return static_cast<int>(::syscall(SYS_mkdirat, folder, name, mode));
}

QUELL_TEST_CALL int linkat(int from, const char* name, int to, const char* newName, int flags) noexcept {
  QUELL_TEST_ANSWER("linkat", from, 0, 0)
  return static_cast<int>(::syscall(SYS_linkat, from, name, to, newName, flags));
}

QUELL_TEST_CALL int munmap(void* at, std::size_t bytes) noexcept {
  QUELL_TEST_ANSWER("munmap", -1, reinterpret_cast<std::uintptr_t>(at), bytes)
  return static_cast<int>(::syscall(SYS_munmap, at, bytes));
}

QUELL_TEST_CALL int madvise(void* at, std::size_t bytes, int advice) noexcept {
  QUELL_TEST_ANSWER("madvise", advice, reinterpret_cast<std::uintptr_t>(at), bytes)
  return static_cast<int>(::syscall(SYS_madvise, at, bytes, advice));
}

QUELL_TEST_CALL int inotify_init1(int flags) noexcept {
  QUELL_TEST_ANSWER("inotify_init1", -1, 0, 0)
  return static_cast<int>(::syscall(SYS_inotify_init1, flags));
}

QUELL_TEST_CALL int inotify_add_watch(int fd, const char* name, std::uint32_t mask) noexcept {
  QUELL_TEST_ANSWER("inotify_add_watch", fd, 0, 0)
  return static_cast<int>(::syscall(SYS_inotify_add_watch, fd, name, mask));
}

#undef ANSWER_AS
#define ANSWER_AS(result) reinterpret_cast<void*>(result)  // -1 is MAP_FAILED
QUELL_TEST_CALL void* mmap(void* at, std::size_t bytes, int protection, int flags, int fd,
                           off_t offset) noexcept {
  QUELL_TEST_ANSWER("mmap", fd, reinterpret_cast<std::uintptr_t>(at), bytes)
  return reinterpret_cast<void*>(::syscall(SYS_mmap, at, bytes, protection, flags, fd, offset));
}
}
