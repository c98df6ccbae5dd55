#include <gtest/gtest.h>

#include "RingThings.h"

namespace Skein {
namespace {

using namespace TestSupport;

TEST(AgentTraceHandle, TracesNothingWithoutAFile) {
  EXPECT_FALSE(agentTraceHandle().enabled(kEvent));
  EXPECT_FALSE(agentTraceHandle().enabled(kPacket, "web"));
  agentTraceHandle().categoryLevelIs("Sft", 1);
  EXPECT_FALSE(agentTraceHandle().enabled(kPacket));
  agentTraceHandle().write(kEvent, "nowhere");
}

TEST(AgentTraceHandle, IsTheOneThatTheAgentOpened) {
  RingThings things;
  TraceRing ring(things.file());
  EXPECT_EQ(agentTraceHandleIs(&ring), nullptr);
  EXPECT_EQ(&agentTraceHandle(), &ring);
  EXPECT_TRUE(agentTraceHandle().enabled(kEvent));
  EXPECT_EQ(agentTraceHandleIs(nullptr), &ring);
  EXPECT_FALSE(agentTraceHandle().enabled(kEvent));
}

TEST(CallSite, GetsItsIdOnFirstUse) {
  const CallSite one("Sft", "a.cpp", 1, "f", Volume::event);
  const CallSite other("Sft", "a.cpp", 2, "f", Volume::event);
  const std::uint32_t id = one.id();
  EXPECT_NE(id, 0U);
  EXPECT_EQ(other.id(), id + 1);
  EXPECT_EQ(one.id(), id);
}

}  // namespace
}  // namespace Skein
