// A process of the test: runs a body, leaves with its status, and cannot outlive the test.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <new>
#include <stdexcept>

namespace TestSupport {

class Forked {
 public:
  // The body's result is the process's status. What it logs is dropped.
  explicit Forked(const std::function<int()>& body) : pid_(::fork()) {
    if (pid_ < 0) throw std::runtime_error("no process for the test");
    if (pid_ != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    int status = 99;
    try {
      status = body();
    } catch (...) {
    }
    ::_exit(status);
  }
  ~Forked() {
    if (pid_ > 0) kill();
  }
  Forked(const Forked&) = delete;
  Forked& operator=(const Forked&) = delete;

  pid_t pid() const { return pid_; }
  void kill() {
    ::kill(pid_, SIGKILL);
    wait();
  }
  // The status it left with; negative when a signal ended it.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t pid_;
};

// A T that the test and its processes share.
template <class T>
class SharedWithForked {
 public:
  SharedWithForked()
      : at_(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (at_ == MAP_FAILED) throw std::runtime_error("no memory to share");
    new (at_) T();
  }
  ~SharedWithForked() { ::munmap(at_, sizeof(T)); }
  SharedWithForked(const SharedWithForked&) = delete;
  SharedWithForked& operator=(const SharedWithForked&) = delete;
  T* operator->() const { return static_cast<T*>(at_); }

 private:
  void* at_;
};

}  // namespace TestSupport
