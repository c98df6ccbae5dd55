// What must be done before a capture is replayed, and before an agent that runs until the end may leave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <asio.hpp>

#include "CaptureFile.h"
#include "CountedWork.h"
#include "TempDir.h"
#include "agent/EventLoop.h"

namespace {

using TestSupport::CountedWork;

constexpr unsigned kPackets = 100;

class Settling : public ::testing::Test {
 protected:
  Pexa::AgentConfig config() const {
    TestSupport::PcapText text;
    for (unsigned i = 0; i < kPackets; ++i) text.packet(TestSupport::PacketBuilder().build());
    Pexa::PortConfig port;
    port.name = "Ethernet1";
    port.kind = Capture::PortKind::capture;
    port.source = dir_.path() + "/in.pcap";
    text.writeTo(port.source);
    Pexa::AgentConfig result;
    result.ports.push_back(port);
    return result;
  }
  std::uint64_t replayed() const { return ports_.all()[0].device->counts().packetsIn; }

  TestSupport::TempDir dir_;
  asio::io_context io_;
  Pexa::AgentPorts ports_{config()};
  Kiv::Ptr<Pexa::AllGenericPipelineSteps> steps_ = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Pexa::NamedCounters reasons_;
  Capture::TraceFilters filters_;
  Pexa::PatchPanel panel_{ports_, steps_, reasons_, filters_};
  Pexa::EventLoop loop_{io_, ports_, panel_};
};

TEST_F(Settling, WithNothingLeftToDoTheReplayBegins) {
  loop_.run(true);
  EXPECT_EQ(replayed(), kPackets);
}

TEST_F(Settling, TheReplayWaitsForTheWorkThatTheStartLeft) {
  std::uint64_t early = 0;
  CountedWork work(50, [&] { early = replayed(); });
  loop_.workIs(&work);
  loop_.run(true);
  EXPECT_EQ(early, 0U);
  EXPECT_EQ(replayed(), kPackets);
}

TEST_F(Settling, TheReplayWaitsUntilAllOfTheWorkIsDone) {
  std::uint64_t early = 0;
  CountedWork brief(1);
  CountedWork lengthy(20, [&] { early = replayed(); });
  loop_.workIs(&brief);
  loop_.workIs(&lengthy);
  loop_.run(true);
  EXPECT_EQ(early, 0U);
}

TEST_F(Settling, WorkThatComesLaterHoldsNothingUp) {
  struct Late : CountedWork {
    using CountedWork::CountedWork;
    double next() const override { return left() > 0 && device->counts().packetsIn > 0 ? 0 : kNever; }
    bool unfinished() const override { return next() == 0 && left() > 0; }
    const Capture::PortDevice* device = nullptr;
  };
  std::uint64_t seen = 0;
  Late late(1'000'000, [&] {
    seen = std::max(seen, replayed());
    if (replayed() == kPackets) loop_.stop();
  });
  late.device = ports_.all()[0].device.get();
  loop_.workIs(&late);
  loop_.run(true);
  EXPECT_EQ(seen, kPackets);
}

// Is due once its descriptor was readable.
class KnockedWork : public CountedWork {
 public:
  explicit KnockedWork(std::function<void()> heard) : CountedWork(0), heard_(std::move(heard)) {
    EXPECT_EQ(::pipe(pipe_), 0);
    EXPECT_EQ(::write(pipe_[1], "x", 1), 1);
  }
  ~KnockedWork() override {
    ::close(pipe_[0]);
    ::close(pipe_[1]);
  }
  double next() const override { return due_ ? 0 : kNever; }
  bool unfinished() const override { return due_; }
  void run(double, double) override {
    char byte = 0;
    EXPECT_EQ(::read(pipe_[0], &byte, 1), 1);
    due_ = false;
    heard_();
  }
  int descriptor() const override { return pipe_[0]; }
  void readable() override { due_ = true; }

 private:
  int pipe_[2] = {-1, -1};
  bool due_ = false;
  std::function<void()> heard_;
};

TEST_F(Settling, TheReplayWaitsForWhatADescriptorHasToTellAtTheStart) {
  std::uint64_t early = 99;
  KnockedWork work([&] { early = replayed(); });
  loop_.workIs(&work);
  loop_.run(true);
  EXPECT_EQ(early, 0U);
  EXPECT_EQ(replayed(), kPackets);
}

TEST_F(Settling, TheMorePacketsComeTheShorterIsTheSliceOfWork) {
  std::vector<std::pair<std::uint64_t, double>> slices;  // packets that came in the turn, and the slice
  struct Watching : Pexa::Work {
    double next() const override { return 0; }
    void run(double, double slice) override { each(slice); }
    std::function<void(double)> each;
  } watching;
  std::uint64_t before = 0;
  watching.each = [&](double slice) {
    slices.emplace_back(replayed() - before, slice);
    before = replayed();
    if (before == kPackets && slices.back().first == 0) loop_.stop();
  };
  loop_.workIs(&watching);
  loop_.run(false);
  for (const auto& [packets, slice] : slices) {
    const bool full = packets == Pexa::PacketPipeline::kMostBurst;
    const double some = full ? Pexa::EventLoop::kBehindSlice : Pexa::EventLoop::kBusySlice;
    EXPECT_EQ(slice, packets == 0 ? Pexa::EventLoop::kIdleSlice : some) << packets << " packets";
  }
  EXPECT_GE(slices.size(), 5U) << "one before the replay, four bursts, one behind it";
}

// Has a last thing to do when it hears that the captures have ended.
class LastWork : public Pexa::Work {
 public:
  explicit LastWork(std::function<void()> ended) : ended_(std::move(ended)) {}
  double next() const override { return left_ > 0 ? 0 : kNever; }
  void run(double, double) override { --left_; }
  bool unfinished() const override { return left_ > 0; }
  void capturesEnded() override {
    ++told_;
    left_ = 3;
    ended_();
  }
  int told() const { return told_; }

 private:
  int left_ = 0;
  int told_ = 0;
  std::function<void()> ended_;
};

TEST_F(Settling, WorkIsToldOnceWhenTheCapturesHaveEndedAndIsWaitedFor) {
  std::uint64_t atTheEnd = 0;
  LastWork work([&] { atTheEnd = replayed(); });
  loop_.workIs(&work);
  loop_.run(true);
  EXPECT_EQ(atTheEnd, kPackets);
  EXPECT_EQ(work.told(), 1);
  EXPECT_FALSE(work.unfinished());
}

}  // namespace
