#include "guard/SystemCallFilter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/netlink.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <thread>

#include "Forked.h"
#include "TempDir.h"

namespace {

using Guard::Sockets;

// In a process of its own: the filter is for good. 0: the body said yes; 1: no; 2: there is no filter.
int filtered(const std::function<bool()>& body, Sockets sockets = Sockets::local) {
  return TestSupport::Forked([&] {
           if (!Guard::filterSystemCalls(sockets).empty()) return 2;
           return body() ? 0 : 1;
         })
      .wait();
}

bool refused(long result) {
  return result == -1 && errno == EPERM;
}

TEST(SystemCallFilter, StartsNoProgramAndNoProcess) {
  EXPECT_EQ(filtered([] {
              char* arguments[] = {nullptr};
              return refused(::execv("/bin/true", arguments)) && refused(::fork());
            }),
            0);
}

TEST(SystemCallFilter, MapsNoCode) {
  EXPECT_EQ(filtered([] {
              void* code = ::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
              if (code != MAP_FAILED || errno != EPERM) return false;
              void* data = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
              return data != MAP_FAILED && refused(::mprotect(data, 4096, PROT_READ | PROT_EXEC));
            }),
            0);
}

TEST(SystemCallFilter, LeavesOtherProcessesAndTheMachineAlone) {
  EXPECT_EQ(filtered([] {
              const rlimit more{4096, 4096};
              return refused(::kill(::getppid(), 0)) && refused(::ptrace(PTRACE_TRACEME, 0, 0, 0)) &&
                     refused(::mount("none", "/", "tmpfs", 0, nullptr)) && refused(::setuid(0)) &&
                     refused(::chroot("/")) && refused(::chmod("/", 0755)) &&
                     refused(::setrlimit(RLIMIT_NOFILE, &more));
            }),
            0);
}

TEST(SystemCallFilter, SocketsAreOfThoseFamiliesThatAreUsed) {
  const auto opens = [](int family, int kind) {
    return [family, kind] { return ::socket(family, kind, 0) >= 0 || errno != EPERM; };
  };
  EXPECT_EQ(filtered(opens(AF_UNIX, SOCK_STREAM)), 0);
  EXPECT_EQ(filtered(opens(AF_INET, SOCK_DGRAM)), 0);
  EXPECT_EQ(filtered(opens(AF_INET6, SOCK_DGRAM)), 0);
  EXPECT_EQ(filtered(opens(AF_NETLINK, SOCK_RAW)), 1);
  if (::geteuid() != 0) return;  // the kernel's own refusal is the same
  EXPECT_EQ(filtered(opens(AF_PACKET, SOCK_RAW)), 1);
  EXPECT_EQ(filtered(opens(AF_PACKET, SOCK_RAW), Sockets::localAndPackets), 0);
}

TEST(SystemCallFilter, ThreadsAndFilesGoOn) {
  const TestSupport::TempDir dir;
  EXPECT_EQ(filtered([&] {
              bool ran = false;
              std::thread([&] { ran = true; }).join();
              const int file = ::open((dir.path() + "/file").c_str(), O_RDWR | O_CREAT, 0600);
              return ran && file >= 0 && ::posix_fallocate(file, 0, 4096) == 0 &&
                     ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) != MAP_FAILED;
            }),
            0);
}

}  // namespace
