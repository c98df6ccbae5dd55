#include "agent/EventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <asio.hpp>
#include <chrono>
#include <functional>

#include "CountedWork.h"

namespace {

using TestSupport::CountedWork;

class EventLoopTest : public ::testing::Test {
 protected:
  asio::io_context io_;
  Pexa::AgentPorts ports_{Pexa::AgentConfig{}};
  Kiv::Ptr<Pexa::AllGenericPipelineSteps> steps_ = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Pexa::NamedCounters reasons_;
  Capture::TraceFilters filters_;
  Pexa::PatchPanel panel_{ports_, steps_, reasons_, filters_};
  Pexa::EventLoop loop_{io_, ports_, panel_};
};

TEST_F(EventLoopTest, WithNothingToDoTheEndIsAtOnce) {
  loop_.run(true);
}

TEST_F(EventLoopTest, LeavesOnlyWhenTheLastWorkIsDone) {
  CountedWork work(100);
  loop_.workIs(&work);
  loop_.run(true);
  EXPECT_EQ(work.left(), 0);
  EXPECT_GT(work.flushes(), 0);
}

TEST_F(EventLoopTest, EveryPieceOfWorkHasItsTurn) {
  std::string order;
  CountedWork first(3, [&] { order += 'a'; });
  CountedWork second(3, [&] { order += 'b'; });
  loop_.workIs(&first);
  loop_.workIs(&second);
  loop_.run(true);
  EXPECT_EQ(order, "ababab");
}

TEST_F(EventLoopTest, DescriptorsAreServedWhileWorkNeverEnds) {
  CountedWork work(1'000'000);
  loop_.workIs(&work);
  asio::post(io_, [this] { loop_.stop(); });
  loop_.run(false);
  EXPECT_GT(work.left(), 999'000);
}

TEST_F(EventLoopTest, GoesOnAfterTheEndUntilItIsStopped) {
  asio::post(io_, [this] { asio::post(io_, [this] { loop_.stop(); }); });
  loop_.run(false);
}

TEST_F(EventLoopTest, SleepsWhileThereIsNothingToDo) {
  CountedWork work(0);
  loop_.workIs(&work);
  asio::steady_timer timer(io_, std::chrono::milliseconds(30));
  timer.async_wait([this](const asio::error_code&) { loop_.stop(); });
  loop_.run(false);
  EXPECT_LT(work.flushes(), 10) << "a few turns, not as many as fit into the time";
}

// Is due once its descriptor was readable.
class HearingWork : public Pexa::Work {
 public:
  explicit HearingWork(std::function<void()> heard) : heard_(std::move(heard)) {
    EXPECT_EQ(::pipe(pipe_), 0);
  }
  ~HearingWork() override {
    ::close(pipe_[0]);
    ::close(pipe_[1]);
  }
  double next() const override { return due_ ? 0 : kNever; }
  void run(double, double) override {
    due_ = false;
    char byte = 0;
    EXPECT_EQ(::read(pipe_[0], &byte, 1), 1);
    heard_();
  }
  int descriptor() const override { return pipe_[0]; }
  void readable() override { due_ = true; }
  void knock() const { EXPECT_EQ(::write(pipe_[1], "x", 1), 1); }

 private:
  int pipe_[2] = {-1, -1};
  bool due_ = false;
  std::function<void()> heard_;
};

TEST_F(EventLoopTest, ADescriptorWakesItsWorkEachTime) {
  int heard = 0;
  HearingWork work([&] {
    if (++heard == 3) return loop_.stop();
    work.knock();
  });
  loop_.workIs(&work);
  work.knock();
  loop_.run(false);
  EXPECT_EQ(heard, 3);
}

TEST_F(EventLoopTest, AHandlerThatThrowsIsNotSwallowed) {
  asio::post(io_, [] { throw std::logic_error("a fault"); });
  EXPECT_THROW(loop_.run(false), std::logic_error);
}

}  // namespace
