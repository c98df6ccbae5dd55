// What keeps an agent from starting, where only a plugin that is wrong can bring it about.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TempDir.h"
#include "agent/Agent.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

TEST(AgentStart, IsRefusedWhenAPluginsMountCannotBeDone) {
  const TestSupport::TempDir dir;
  Pexa::AgentConfig config;
  config.runDir = dir.path() + "/run";
  config.plugins.push_back({TEST_BAD_MOUNT_PLUGIN, {"agent.toml", 1}});
  std::string error = "started";
  try {
    const Pexa::Agent agent(config);
  } catch (const std::runtime_error& refused) {
    error = refused.what();
  }
  EXPECT_THAT(error, AllOf(HasSubstr("state \"no/where\""), HasSubstr("HwFlowTracking::Config"),
                           HasSubstr("there is no entity at this path")));
}

TEST(AgentStart, SucceedsWithNothingToDo) {
  const TestSupport::TempDir dir;
  Pexa::AgentConfig config;
  config.runDir = dir.path() + "/run";
  EXPECT_EQ(Pexa::Agent(config).run(true), 0);
}

}  // namespace
