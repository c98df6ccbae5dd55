#include "guard/SystemCallFilter.h"

#include <fmt/format.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace Guard {
namespace {

// By number, so that a call that this machine's kernel does not have cannot be misspelt.
constexpr int kAllowed[] = {
    // Files: tables, trace, captures, the kernel's word on interfaces.
    SCMP_SYS(read), SCMP_SYS(readv), SCMP_SYS(pread64), SCMP_SYS(preadv), SCMP_SYS(write), SCMP_SYS(writev),
    SCMP_SYS(pwrite64), SCMP_SYS(pwritev), SCMP_SYS(open), SCMP_SYS(openat), SCMP_SYS(close),
    SCMP_SYS(close_range), SCMP_SYS(stat), SCMP_SYS(fstat), SCMP_SYS(lstat), SCMP_SYS(newfstatat),
    SCMP_SYS(statx), SCMP_SYS(statfs), SCMP_SYS(fstatfs), SCMP_SYS(lseek), SCMP_SYS(access),
    SCMP_SYS(faccessat), SCMP_SYS(faccessat2), SCMP_SYS(readlink), SCMP_SYS(readlinkat), SCMP_SYS(getcwd),
    SCMP_SYS(getdents64), SCMP_SYS(mkdir), SCMP_SYS(mkdirat), SCMP_SYS(unlink), SCMP_SYS(unlinkat),
    SCMP_SYS(rename), SCMP_SYS(renameat), SCMP_SYS(renameat2), SCMP_SYS(link), SCMP_SYS(linkat),
    SCMP_SYS(ftruncate), SCMP_SYS(fallocate), SCMP_SYS(fsync), SCMP_SYS(fdatasync), SCMP_SYS(flock),
    SCMP_SYS(fcntl), SCMP_SYS(ioctl), SCMP_SYS(dup), SCMP_SYS(dup2), SCMP_SYS(dup3), SCMP_SYS(umask),
    SCMP_SYS(fadvise64), SCMP_SYS(sendfile),
    // Memory that is no code: mmap and mprotect stand below.
    SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise), SCMP_SYS(msync), SCMP_SYS(brk),
    // Sockets that are there already; socket() stands below.
    SCMP_SYS(bind), SCMP_SYS(connect), SCMP_SYS(listen), SCMP_SYS(accept), SCMP_SYS(accept4),
    SCMP_SYS(shutdown), SCMP_SYS(getsockname), SCMP_SYS(getpeername), SCMP_SYS(getsockopt),
    SCMP_SYS(setsockopt), SCMP_SYS(sendto), SCMP_SYS(recvfrom), SCMP_SYS(sendmsg), SCMP_SYS(recvmsg),
    SCMP_SYS(sendmmsg), SCMP_SYS(recvmmsg),
    // Waiting.
    SCMP_SYS(poll), SCMP_SYS(ppoll), SCMP_SYS(select), SCMP_SYS(pselect6), SCMP_SYS(epoll_create1),
    SCMP_SYS(epoll_ctl), SCMP_SYS(epoll_wait), SCMP_SYS(epoll_pwait), SCMP_SYS(epoll_pwait2),
    SCMP_SYS(eventfd2), SCMP_SYS(pipe2), SCMP_SYS(timerfd_create), SCMP_SYS(timerfd_settime),
    SCMP_SYS(timerfd_gettime), SCMP_SYS(inotify_init1), SCMP_SYS(inotify_add_watch),
    SCMP_SYS(inotify_rm_watch), SCMP_SYS(nanosleep), SCMP_SYS(clock_nanosleep), SCMP_SYS(restart_syscall),
    // Time, where it does not come without a call.
    SCMP_SYS(clock_gettime), SCMP_SYS(clock_getres), SCMP_SYS(gettimeofday), SCMP_SYS(time),
    // Threads and signals of this process.
    SCMP_SYS(futex), SCMP_SYS(set_robust_list), SCMP_SYS(rseq), SCMP_SYS(sched_yield),
    SCMP_SYS(sched_getaffinity), SCMP_SYS(getcpu), SCMP_SYS(rt_sigaction), SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn), SCMP_SYS(rt_sigtimedwait), SCMP_SYS(sigaltstack), SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    // Who one is, and what one has.
    SCMP_SYS(getpid), SCMP_SYS(getppid), SCMP_SYS(gettid), SCMP_SYS(getuid), SCMP_SYS(geteuid),
    SCMP_SYS(getgid), SCMP_SYS(getegid), SCMP_SYS(getrusage), SCMP_SYS(getrandom), SCMP_SYS(uname),
    SCMP_SYS(sysinfo)};

class Filter {
 public:
  Filter() : context_(::seccomp_init(SCMP_ACT_ERRNO(EPERM)), ::seccomp_release) {
    if (!context_) throw Failure{ENOMEM};
    set(SCMP_FLTATR_CTL_TSYNC, 1);
    set(SCMP_FLTATR_CTL_SSB, 1);       // packets are to cost what they did: nobody else's code runs here
    set(SCMP_FLTATR_CTL_OPTIMIZE, 2);  // a tree, not a list
    set(SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS);
  }

  struct Failure {
    int error;
  };

  void allow(int call, std::initializer_list<scmp_arg_cmp> when = {}) { add(SCMP_ACT_ALLOW, call, when); }
  void absent(int call) { add(SCMP_ACT_ERRNO(ENOSYS), call, {}); }
  void load() { require(::seccomp_load(context_.get())); }

 private:
  static void require(int result) {
    if (result < 0) throw Failure{-result};
  }
  void set(scmp_filter_attr attribute, std::uint32_t value) {
    require(::seccomp_attr_set(context_.get(), attribute, value));
  }
  void add(std::uint32_t action, int call, std::initializer_list<scmp_arg_cmp> when) {
    if (call == __NR_SCMP_ERROR) return;
    require(::seccomp_rule_add_array(context_.get(), action, call, static_cast<unsigned>(when.size()),
                                     when.begin()));
  }

  std::unique_ptr<void, void (*)(scmp_filter_ctx)> context_;
};

// The macros of the library leave members out that are not looked at.
constexpr scmp_arg_cmp argumentIs(unsigned argument, std::uint64_t value) {
  return {argument, SCMP_CMP_EQ, value, 0};
}
constexpr scmp_arg_cmp bitsAre(unsigned argument, std::uint64_t bits, std::uint64_t value) {
  return {argument, SCMP_CMP_MASKED_EQ, bits, value};
}

void allowSteadyState(Filter& filter, Sockets sockets) {
  for (const int call : kAllowed) filter.allow(call);
  filter.allow(SCMP_SYS(mmap), {bitsAre(2, PROT_EXEC, 0)});
  filter.allow(SCMP_SYS(mprotect), {bitsAre(2, PROT_EXEC, 0)});
  std::vector<int> families{AF_UNIX, AF_INET, AF_INET6};
  if (sockets == Sockets::localAndPackets) families.push_back(AF_PACKET);
  for (const int family : families) {
    filter.allow(SCMP_SYS(socket), {argumentIs(0, static_cast<std::uint64_t>(family))});
  }
  filter.allow(SCMP_SYS(socketpair), {argumentIs(0, AF_UNIX)});
  // Threads, not processes. The C library asks by the older call when it is told that there is no newer one,
  // whose arguments a filter cannot see.
  filter.allow(SCMP_SYS(clone), {bitsAre(0, CLONE_THREAD, CLONE_THREAD)});
  filter.absent(SCMP_SYS(clone3));
  const auto self = static_cast<std::uint64_t>(::getpid());
  filter.allow(SCMP_SYS(tgkill), {argumentIs(0, self)});  // abort() tells its own thread
  filter.allow(SCMP_SYS(prlimit64), {argumentIs(2, 0)});  // to be told, not to set
  filter.allow(SCMP_SYS(prctl), {argumentIs(0, PR_SET_NAME)});
}

}  // namespace

std::string filterSystemCalls(Sockets sockets) {
  try {
    Filter filter;
    allowSteadyState(filter, sockets);
    filter.load();
    return {};
  } catch (const Filter::Failure& failure) {
    return fmt::format("the kernel takes no filter: {}", std::strerror(failure.error));
  }
}

}  // namespace Guard
