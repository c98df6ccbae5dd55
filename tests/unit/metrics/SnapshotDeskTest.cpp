// Other threads ask, the event thread takes: what the thread sanitizer is to look at.
#include "metrics/SnapshotDesk.h"

#include <gtest/gtest.h>

#include <asio.hpp>
#include <future>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

class SnapshotDeskTest : public testing::Test {
 protected:
  // Of the event thread alone, as the agent's numbers are.
  Metrics::Snapshot take() {
    takenOn_ = std::this_thread::get_id();
    if (fails_) throw std::runtime_error("no numbers");
    Metrics::Snapshot snapshot;
    snapshot.counter("taken_total", "").add(++taken_);
    return snapshot;
  }
  static double taken(const Metrics::SnapshotDesk::Answer& answer) {
    return answer.snapshot->families().at("taken_total").numbers().begin()->second;
  }
  Metrics::SnapshotDesk::Answer askElsewhere() {
    auto asked = std::async(std::launch::async, [this] { return desk_.ask(1h); });
    while (asked.wait_for(0s) != std::future_status::ready) {
      io_.run_one_for(1ms);
      io_.restart();
    }
    return asked.get();
  }

  unsigned taken_ = 0;
  bool fails_ = false;
  std::thread::id takenOn_;
  asio::io_context io_;
  Metrics::SnapshotDesk desk_{io_, [this] { return take(); }};
};

TEST_F(SnapshotDeskTest, WhoAsksGetsASnapshotThatTheEventThreadTook) {
  const auto answer = askElsewhere();
  EXPECT_EQ(taken(answer), 1);
  EXPECT_EQ(takenOn_, std::this_thread::get_id());
  EXPECT_GE(answer.age.count(), 0);
}

TEST_F(SnapshotDeskTest, ManyMayAskWhileTheEventThreadWorks) {
  constexpr unsigned kAskers = 4;
  std::atomic<unsigned> left = kAskers;
  std::vector<std::thread> askers;
  for (unsigned i = 0; i < kAskers; ++i) {
    askers.emplace_back([&] {
      double before = 0;
      for (unsigned asked = 0; asked < 200; ++asked) {
        const double now = taken(desk_.ask(1h));
        EXPECT_GE(now, before);
        before = now;
      }
      --left;
    });
  }
  while (left > 0) {
    io_.run_one_for(1ms);
    io_.restart();
    fails_ = false;  // the event thread's own, beside the asking
  }
  for (std::thread& asker : askers) asker.join();
  EXPECT_LT(taken_, kAskers * 200) << "who asks at once shares";
}

TEST_F(SnapshotDeskTest, WithoutAnEventThreadNobodyWaitsForEver) {
  EXPECT_EQ(desk_.ask(10ms).snapshot, nullptr);
}

TEST_F(SnapshotDeskTest, WhenTheEventThreadFallsSilentTheLatestIsGivenWithItsAge) {
  askElsewhere();
  auto answer = desk_.ask(1ms);
  while (answer.age < Metrics::SnapshotDesk::kFresh) answer = desk_.ask(1ms);
  EXPECT_EQ(taken(answer), 1);
}

TEST_F(SnapshotDeskTest, ASnapshotThatFailsIsNotWaitedFor) {
  fails_ = true;
  EXPECT_EQ(askElsewhere().snapshot, nullptr);
  fails_ = false;
  EXPECT_EQ(taken(askElsewhere()), 1);
}

TEST_F(SnapshotDeskTest, ClosingFreesWhoWaitsAndNothingIsTakenAnyMore) {
  std::vector<std::future<Metrics::SnapshotDesk::Answer>> asked;
  for (unsigned i = 0; i < 4; ++i)
    asked.push_back(std::async(std::launch::async, [this] { return desk_.ask(1h); }));
  desk_.close();
  for (auto& each : asked) EXPECT_EQ(each.get().snapshot, nullptr);
  io_.run();
  EXPECT_EQ(taken_, 0U);
}

TEST_F(SnapshotDeskTest, WhatWasPostedMayOutliveTheDesk) {
  {
    Metrics::SnapshotDesk brief(io_, [this] { return take(); });
    brief.ask(1ms);
  }
  io_.run();
  EXPECT_EQ(taken_, 0U);
}

}  // namespace
