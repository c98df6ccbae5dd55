#include "EventLoop.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <asio.hpp>
#include <chrono>

namespace Pexa {

// Wakes the loop when a port's descriptor becomes readable. It waits on duplicates: a port may close its own
// descriptor at any time.
class EventLoop::Waits {
 public:
  Waits(asio::io_context& io, const AgentPorts& ports) {
    for (const AgentPort& port : ports.all()) waits_.push_back(std::make_unique<Wait>(io, *port.device));
  }
  // Asks once more for each port that is not being waited for. REQUIRES: no packets are left to receive.
  void arm() {
    for (const auto& wait : waits_) wait->arm();
  }

 private:
  class Wait {
   public:
    Wait(asio::io_context& io, const Capture::PortDevice& device) : device_(device), descriptor_(io) {}

    void arm() {
      if (changes_ != device_.descriptorChanges() || !opened_) open();
      if (armed_ || !descriptor_.is_open()) return;
      armed_ = true;
      descriptor_.async_wait(asio::posix::descriptor_base::wait_read, [this](const asio::error_code& error) {
        if (error != asio::error::operation_aborted) armed_ = false;
      });
    }

   private:
    void open() {
      asio::error_code ignored;
      descriptor_.close(ignored);
      armed_ = false;
      opened_ = true;
      changes_ = device_.descriptorChanges();
      if (device_.descriptor() < 0) return;
      const int duplicate = ::fcntl(device_.descriptor(), F_DUPFD_CLOEXEC, 0);
      if (duplicate < 0) return;
      descriptor_.assign(duplicate, ignored);
      if (ignored) ::close(duplicate);
    }

    const Capture::PortDevice& device_;
    asio::posix::stream_descriptor descriptor_;
    std::uint64_t changes_ = 0;
    bool opened_ = false;
    bool armed_ = false;
  };

  std::vector<std::unique_ptr<Wait>> waits_;
};

EventLoop::EventLoop(asio::io_context& io, AgentPorts& ports, PatchPanel& panel)
    : io_(io), ports_(ports), panel_(panel), waits_(std::make_unique<Waits>(io, ports)) {}

EventLoop::~EventLoop() = default;

void EventLoop::run(bool untilEnd) {
  const auto guard = asio::make_work_guard(io_);
  for (unsigned turn = 0; !stopped_; ++turn) {
    const bool packets = panel_.runRound() != 0;
    const bool work = runDueWork();
    if (packets || work) {
      if (turn % kTurnsPerLook == 0) lookAtDescriptors();
      continue;
    }
    ports_.reportEnds();
    flush();
    if (untilEnd && atEnd()) break;
    sleep();
  }
  ports_.reportEnds();
  flush();
}

bool EventLoop::runDueWork() {
  const double now = Kiv::System::currentTimeUtc();
  bool ran = false;
  for (Work* work : work_) {
    if (work->next() > now) continue;
    work->run(now);
    ran = true;
  }
  return ran;
}

void EventLoop::flush() {
  for (Work* work : work_) work->flush();
  ports_.flush();
}

bool EventLoop::atEnd() const {
  return !ports_.replaying() &&
         std::none_of(work_.begin(), work_.end(), [](const Work* work) { return work->unfinished(); });
}

void EventLoop::lookAtDescriptors() {
  ports_.reportEnds();
  for (Work* work : work_) work->flush();
  static constexpr int kMostHandlers = 16;  // a client that never tires must not hold up the packets
  for (int i = 0; i < kMostHandlers && io_.poll_one() != 0; ++i) continue;
}

void EventLoop::sleep() {
  const double now = Kiv::System::currentTimeUtc();
  double until = now + kLongestSleep;
  for (const Work* work : work_) until = std::min(until, work->next());
  for (const AgentPort& port : ports_.all()) until = std::min(until, port.device->nextReceive());
  waits_->arm();
  // Rounded up: waking a moment too early would spin until the moment has come.
  const auto microseconds = static_cast<std::int64_t>(std::max(0.0, until - now) * 1e6) + 1;
  io_.run_one_for(std::chrono::microseconds(microseconds));
  lookAtDescriptors();
}

}  // namespace Pexa
