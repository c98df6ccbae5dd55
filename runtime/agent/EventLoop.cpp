#include "EventLoop.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <functional>
#include <utility>

namespace Pexa {

namespace {

// Hears once when a descriptor becomes readable, and again when it is armed again. It waits on a duplicate:
// the owner may close its own descriptor at any time.
class DescriptorWait {
 public:
  DescriptorWait(asio::io_context& io, std::function<void()> heard)
      : descriptor_(io), heard_(std::move(heard)) {}

  void open(int descriptor) {
    asio::error_code ignored;
    descriptor_.close(ignored);
    armed_ = false;
    const int duplicate = descriptor < 0 ? -1 : ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (duplicate < 0) return;
    descriptor_.assign(duplicate, ignored);
    if (ignored) ::close(duplicate);
  }
  void arm() {
    if (armed_ || !descriptor_.is_open()) return;
    armed_ = true;
    descriptor_.async_wait(asio::posix::descriptor_base::wait_read, [this](const asio::error_code& error) {
      if (error == asio::error::operation_aborted) return;  // closed: this may be gone
      armed_ = false;
      if (!error) heard_();
    });
  }

 private:
  asio::posix::stream_descriptor descriptor_;
  std::function<void()> heard_;
  bool armed_ = false;
};

}  // namespace

// The descriptors that wake the loop: those of ports, whose packets the next turn receives, and of work.
class EventLoop::Waits {
 public:
  explicit Waits(asio::io_context& io) : io_(io) {}
  void portsAre(const AgentPorts& ports) {
    for (const AgentPort& port : ports.all()) ports_.push_back(std::make_unique<PortWait>(io_, *port.device));
  }
  void workIs(Work& work) {
    if (work.descriptor() < 0) return;
    work_.push_back(std::make_unique<DescriptorWait>(io_, [&work] { work.readable(); }));
    work_.back()->open(work.descriptor());
  }
  void armWork() {
    for (const auto& wait : work_) wait->arm();
  }
  // REQUIRES: no packets are left to receive.
  void armPorts() {
    for (const auto& wait : ports_) wait->arm();
  }

 private:
  class PortWait {
   public:
    PortWait(asio::io_context& io, const Capture::PortDevice& device) : device_(device), wait_(io, [] {}) {
      wait_.open(device.descriptor());
      changes_ = device.descriptorChanges();
    }
    void arm() {
      if (changes_ != device_.descriptorChanges()) {
        changes_ = device_.descriptorChanges();
        wait_.open(device_.descriptor());
      }
      wait_.arm();
    }

   private:
    const Capture::PortDevice& device_;
    DescriptorWait wait_;
    std::uint64_t changes_ = 0;
  };

  asio::io_context& io_;
  std::vector<std::unique_ptr<PortWait>> ports_;
  std::vector<std::unique_ptr<DescriptorWait>> work_;
};

EventLoop::EventLoop(asio::io_context& io, AgentPorts& ports, PatchPanel& panel)
    : io_(io), ports_(ports), panel_(panel), waits_(std::make_unique<Waits>(io)) {}

EventLoop::~EventLoop() = default;

void EventLoop::workIs(Work* work) {
  work_.push_back({work, slices_.kindIs(work->name())});
  waits_->workIs(*work);
}

void EventLoop::run(bool untilEnd) {
  const auto guard = asio::make_work_guard(io_);
  waits_->portsAre(ports_);
  ports_.replaysHeldIs(true);
  slices_.begin();
  for (unsigned turn = 0; !stopped_; ++turn) {
    const std::size_t packets = panel_.runRound();
    if (packets != 0) {
      slices_.ended(packetSlices_);
    } else {
      slices_.begin();
    }
    const bool work = runDueWork(slice(packets));
    if (!settled_) settle();
    if (packets != 0 || work) {
      if (turn % kTurnsPerLook == 0) lookAtDescriptors();
      continue;
    }
    ports_.report();
    flush();
    if (untilEnd && atEnd()) break;
    sleep();
  }
  ports_.report();
  flush();
}

double EventLoop::slice(std::size_t packets) const {
  if (packets == 0) return kIdleSlice;
  return panel_.behind() ? kBehindSlice : kBusySlice;
}

bool EventLoop::runDueWork(double slice) {
  const double now = Kiv::System::currentTimeUtc();
  bool ran = false;
  for (const DueWork& each : work_) {
    if (each.work->next() > now) continue;
    each.work->run(now, slice);
    slices_.ended(each.kind);
    ran = true;
  }
  return ran;
}

void EventLoop::flush() {
  for (const DueWork& each : work_) each.work->flush();
  ports_.flush();
}

bool EventLoop::unfinished() const {
  return std::any_of(work_.begin(), work_.end(), [](const DueWork& each) { return each.work->unfinished(); });
}

void EventLoop::settle() {
  if (unfinished()) return;
  lookAtDescriptors();  // what has come through them is not known of before
  if (unfinished()) return;
  settled_ = true;
  ports_.replaysHeldIs(false);
}

bool EventLoop::atEnd() {
  if (!settled_ || ports_.replaying()) return false;
  if (!std::exchange(capturesEnded_, true)) {
    for (const DueWork& each : work_) each.work->capturesEnded();
  }
  return !unfinished();
}

void EventLoop::lookAtDescriptors() {
  ports_.report();
  for (const DueWork& each : work_) each.work->flush();
  waits_->armWork();
  static constexpr int kMostHandlers = 16;  // a client that never tires must not hold up the packets
  slices_.begin();
  int handlers = 0;
  while (handlers < kMostHandlers && io_.poll_one() != 0) ++handlers;
  if (handlers != 0) slices_.ended(controlSlices_);
}

void EventLoop::sleep() {
  const double now = Kiv::System::currentTimeUtc();
  double until = now + kLongestSleep;
  for (const DueWork& each : work_) until = std::min(until, each.work->next());
  for (const AgentPort& port : ports_.all()) until = std::min(until, port.device->nextReceive());
  waits_->armPorts();
  // Rounded up: waking a moment too early would spin until the moment has come.
  const auto microseconds = static_cast<std::int64_t>(std::max(0.0, until - now) * 1e6) + 1;
  io_.run_one_for(std::chrono::microseconds(microseconds));
  lookAtDescriptors();
}

}  // namespace Pexa
