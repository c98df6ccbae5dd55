#include "KivSystem.h"

#include <gtest/gtest.h>

namespace {

class CountingClock : public Kiv::Clock {
 public:
  CountingClock() { Kiv::System::clockIs(this); }
  ~CountingClock() override { Kiv::System::clockIs(nullptr); }
  double currentTimeUtc() override { return ++reads; }
  double reads = 0;
};

TEST(System, TimeComesFromTheReplacedClock) {
  CountingClock clock;
  EXPECT_EQ(Kiv::System::currentTimeUtc(), 1.0);
  EXPECT_EQ(Kiv::System::currentTimeUtc(), 2.0);
}

TEST(System, AHoldReadsTheClockOnceForAll) {
  CountingClock clock;
  {
    const Kiv::System::TimeHold hold;
    EXPECT_EQ(Kiv::System::currentTimeUtc(), 1.0);
    EXPECT_EQ(Kiv::System::currentTimeUtc(), 1.0);
    EXPECT_EQ(clock.reads, 1.0);
  }
  EXPECT_EQ(Kiv::System::currentTimeUtc(), 2.0);
}

TEST(System, WithoutAReplacementTheClockIsTheSystems) {
  EXPECT_GT(Kiv::System::currentTimeUtc(), 1.6e9);
}

}  // namespace
