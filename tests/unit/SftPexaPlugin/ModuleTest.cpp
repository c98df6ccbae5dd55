// The built library, as the agent uses it: loaded, run through its life, and unloaded without a trace.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "PexaPlugin.h"
#include "TaskThings.h"
#include "mirro/StateDatabase.h"
#include "quell/SharedTables.h"

namespace SampledFlowTracker {
namespace {

using ::testing::IsEmpty;

std::vector<std::string> typeNames() {
  std::vector<std::string> names;
  for (const Kiv::Type* type : Kiv::registeredTypes()) names.push_back(type->name());
  return names;
}

bool isMapped() {
  void* library = ::dlopen(SFT_PLUGIN_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) ::dlclose(library);
  return library != nullptr;
}

// Everything of the agent that a plugin gets hold of.
struct Agent {
  explicit Agent(const std::filesystem::path& runDir)
      : tables(Kiv::makePtr<Quell::SharedTables>("tables", runDir.string())) {
    manager->agent = Kiv::makePtr<Pexa::PexaAgent>("agent", tables);
    manager->ports = Kiv::makePtr<Pexa::Ports>("ports");
    manager->counterHolder = Kiv::makePtr<Pexa::Counter::PktCounterCollectionHolder>("counters");
    manager->steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
    database->configurationIs("sflow/hwconfigdir/sflow", {});
    database->configurationIs("hardware/flowtracking/config/sampled",
                              {{"hwOffloadIpv4", true, "agent.toml", 1}});
    database->entityIs(Kiv::String(Pexa::PluginManager::kPath), manager);
    database->entityIs("interface/status/eth/intf", "Interface::EthIntfStatusDir");
    database->entityIs("hardware/flowtracking/capabilities/sampled", "HwFlowTracking::Capabilities");
    database->entityIs("hardware/flowwatcher/capabilities", "HwFlowWatcher::Capabilities");
  }
  void start() {
    context = Kiv::makePtr<Pexa::PluginContext>("context", database, manager->agent);
    Pexa::DefaultPluginLoader().initPlugins(context.get());
    for (const auto& plugin : manager->plugins()) plugin->doMounts(context);
    while (database->completeMounts()) {
    }
    for (const auto& plugin : manager->plugins()) plugin->activeInit(Pexa::PexaMode::active);
  }
  // What the agent does before it unloads its plugins.
  void stop() {
    manager->steps->clear();
    manager->counterHolder->clear();
    manager->pluginDelAll();
    database->clear();
    context.reset();
    manager->agent.reset();
    EXPECT_EQ(tables->references(), 1U) << "nobody but this test holds the tables any more";
    tables.reset();
  }
  Kiv::Ptr<Quell::SharedTables> tables;
  Kiv::Ptr<Pexa::PluginManager> manager = Kiv::makePtr<Pexa::PluginManager>("plugins");
  Kiv::Ptr<Mirro::StateDatabase> database = Kiv::makePtr<Mirro::StateDatabase>("state");
  Kiv::Ptr<Pexa::PluginContext> context;
};

class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(isMapped());
    std::filesystem::create_directories(runDir);
  }
  void TearDown() override { std::filesystem::remove_all(runDir); }
  void load() {
    library = ::dlopen(SFT_PLUGIN_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
  }
  void unload() {
    ASSERT_EQ(::dlclose(library), 0) << ::dlerror();
    EXPECT_FALSE(isMapped()) << "the library stays in the process";
  }
  TestSupport::EndlessSlice endless;
  void* library = nullptr;
  std::filesystem::path runDir =
      std::filesystem::temp_directory_path() / ("sft-module-" + std::to_string(::getpid()));
};

TEST_F(ModuleTest, RegistersItselfAndItsTypesAsItIsLoadedAndTakesThemWithIt) {
  const auto before = typeNames();
  load();
  ASSERT_EQ(Plugin::Impl::LoaderImpl::registrations().size(), 1U);
  EXPECT_EQ(Plugin::Impl::LoaderImpl::registrations()[0].pluginName, "PexaSampledFlowTrackerPlugin");
  EXPECT_NE(Kiv::typeByName("SampledFlowTracker::SftPexaPlugin"), nullptr);
  EXPECT_NE(Kiv::typeByName("FlowTracking::HoFlowStatus"), nullptr);
  unload();
  EXPECT_THAT(Plugin::Impl::LoaderImpl::registrations(), IsEmpty());
  EXPECT_EQ(Pexa::DefaultPluginLoader().size(), 0U);
  EXPECT_EQ(typeNames(), before);
}

// Twice, because what the first life left behind would be in the way of the second.
TEST_F(ModuleTest, LivesThroughAnAgentsLifeAndLeavesNothingBehind) {
  const auto before = typeNames();
  for (int life = 0; life < 2; ++life) {
    Agent agent(runDir);
    load();
    agent.start();
    ASSERT_EQ(agent.manager->plugins().size(), 1U);
    EXPECT_EQ(agent.manager->plugins()[0]->name(), "SampledFlowTracker");
    EXPECT_EQ(agent.manager->steps->input().size(), 1U);
    EXPECT_EQ(agent.manager->steps->output().size(), 1U);
    ASSERT_EQ(agent.manager->counterHolder->collections().size(), 1U);
    EXPECT_EQ(agent.manager->counterHolder->collections()[0]->name(), "SftHardwareOffload");
    EXPECT_EQ(agent.tables->mounted().size(), 4U);
    EXPECT_EQ(agent.database->get("hardware/flowtracking/capabilities/sampled", "supported"),
              Kiv::Value(true));
    EXPECT_EQ(agent.database->get("flowtracking/hoStatus/sampled", "v4enabled"), Kiv::Value(true));

    const auto scheduler = Olt::TaskSchedulerRoot::findOrCreateScheduler();
    EXPECT_EQ(scheduler->tasks().size(), 14U) << "ten outputs, two polls, two scans";
    while (scheduler->due() > 0) scheduler->run(endless);
    {
      const auto hocSm = Kiv::ValueTraits<Kiv::Ptr<Kiv::PtrInterface>>::fromValue(
          Kiv::attribute(*agent.manager->plugins()[0], "hocSm"));
      ASSERT_TRUE(hocSm);
      EXPECT_EQ(Kiv::attribute(*hocSm, "ready"), Kiv::Value(true));
    }

    const auto config = agent.database->getEntity("hardware/flowtracking/config/sampled");
    const auto ports = agent.manager->ports;
    agent.stop();
    unload();
    EXPECT_THAT(scheduler->tasks(), IsEmpty());
    EXPECT_TRUE(config->notifieeList()->empty());
    EXPECT_EQ(config->references(), 1U) << "this test's";
    EXPECT_EQ(ports->references(), 2U) << "this test's and the agent's";
    EXPECT_EQ(agent.manager->references(), 1U);
    EXPECT_THAT(Plugin::Impl::LoaderImpl::registrations(), IsEmpty());
    EXPECT_EQ(typeNames(), before);
  }
}

TEST_F(ModuleTest, CanBeUnloadedBeforeItsMountsAreComplete) {
  Agent agent(runDir);
  load();
  agent.context = Kiv::makePtr<Pexa::PluginContext>("context", agent.database, agent.manager->agent);
  Pexa::DefaultPluginLoader().initPlugins(agent.context.get());
  ASSERT_EQ(agent.manager->plugins().size(), 1U);
  agent.manager->plugins()[0]->doMounts(agent.context);
  agent.stop();
  unload();
  EXPECT_EQ(agent.manager->references(), 1U);
}

}  // namespace
}  // namespace SampledFlowTracker
