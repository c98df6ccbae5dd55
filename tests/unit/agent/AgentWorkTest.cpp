#include "agent/AgentWork.h"

#include <gtest/gtest.h>

#include "ManualClock.h"

namespace {

class PortStatusWorkTest : public ::testing::Test {
 protected:
  // As the event loop does.
  bool runsWhenDue() {
    if (work_.next() > clock_.now()) return false;
    work_.run(clock_.now(), 1e-3);
    return true;
  }

  TestSupport::ManualClock clock_;
  Pexa::AgentPorts ports_{Pexa::AgentConfig{}};
  Pexa::PortStatusWork work_{ports_, Kiv::makePtr<Interface::EthIntfStatusDir>("status")};
};

TEST_F(PortStatusWorkTest, LooksOnceASecond) {
  EXPECT_TRUE(runsWhenDue());
  clock_.advance(0.5);
  EXPECT_FALSE(runsWhenDue());
  clock_.advance(0.5);
  EXPECT_TRUE(runsWhenDue());
}

TEST_F(PortStatusWorkTest, GoesOnWhenTheClockIsSetBackByHours) {
  EXPECT_TRUE(runsWhenDue());
  clock_.advance(-7200);
  EXPECT_TRUE(runsWhenDue());
  EXPECT_FALSE(runsWhenDue());
  clock_.advance(1);
  EXPECT_TRUE(runsWhenDue());
}

TEST_F(PortStatusWorkTest, GoesOnWhenTheClockIsSetForwardByHours) {
  EXPECT_TRUE(runsWhenDue());
  clock_.advance(7200);
  EXPECT_TRUE(runsWhenDue());
  EXPECT_FALSE(runsWhenDue());
}

}  // namespace
