// The built libraries side by side, as the agent uses them: loaded in either order, run through their life,
// and unloaded without a trace.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Olt.h"
#include "PexaPlugin.h"
#include "mirro/StateDatabase.h"
#include "olt/ClockSlice.h"
#include "quell/SharedTables.h"

namespace SampledFlowTracker {
namespace {

constexpr const char* kTracker = SFT_PLUGIN_LIBRARY;
constexpr const char* kAudit = SFT_AUDIT_LIBRARY;

std::vector<std::string> typeNames() {
  std::vector<std::string> names;
  for (const Kiv::Type* type : Kiv::registeredTypes()) names.push_back(type->name());
  return names;
}

bool isMapped(const char* library) {
  void* handle = ::dlopen(library, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

class AuditModule : public ::testing::TestWithParam<std::vector<const char*>> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(runDir);
    for (const char* library : {kTracker, kAudit}) ASSERT_FALSE(isMapped(library));
  }
  void TearDown() override { std::filesystem::remove_all(runDir); }

  void start() {
    tables = Kiv::makePtr<Quell::SharedTables>("tables", runDir.string());
    manager->agent = Kiv::makePtr<Pexa::PexaAgent>("agent", tables);
    manager->ports = Kiv::makePtr<Pexa::Ports>("ports");
    manager->counterHolder = Kiv::makePtr<Pexa::Counter::PktCounterCollectionHolder>("counters");
    manager->steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
    database->entityIs(Kiv::String(Pexa::PluginManager::kPath), manager);
    database->entityIs("interface/status/eth/intf", "Interface::EthIntfStatusDir");
    database->entityIs("hardware/flowtracking/capabilities/sampled", "HwFlowTracking::Capabilities");
    database->entityIs("hardware/flowwatcher/capabilities", "HwFlowWatcher::Capabilities");
    for (const char* library : GetParam()) {
      libraries.push_back(::dlopen(library, RTLD_NOW | RTLD_LOCAL));
      ASSERT_NE(libraries.back(), nullptr) << ::dlerror();
    }
    context = Kiv::makePtr<Pexa::PluginContext>("context", database, manager->agent);
    Pexa::DefaultPluginLoader().initPlugins(context.get());
    for (const auto& plugin : manager->plugins()) plugin->doMounts(context);
    while (database->completeMounts()) continue;
    for (const auto& plugin : manager->plugins()) plugin->activeInit(Pexa::PexaMode::active);
  }
  void runDue() {
    Olt::ClockSlice slice(60);
    for (int i = 0; i < 10'000 && scheduler->runTask(slice); ++i) continue;
  }
  // As the agent does it before and when it unloads: the library that was loaded last goes first.
  void stop() {
    manager->steps->clear();
    manager->counterHolder->clear();
    manager->pluginDelAll();
    database->clear();
    context.reset();
    manager->agent.reset();
    EXPECT_EQ(tables->references(), 1U) << "nobody but this test holds the tables any more";
    tables.reset();
    while (!libraries.empty()) {
      ASSERT_EQ(::dlclose(libraries.back()), 0) << ::dlerror();
      libraries.pop_back();
    }
    for (const char* library : {kTracker, kAudit}) {
      EXPECT_FALSE(isMapped(library)) << library << " stays in the process";
    }
  }
  Kiv::Ptr<Pexa::PexaPluginBase> plugin(std::string_view name) const {
    for (const auto& each : manager->plugins()) {
      if (each->name() == name) return each;
    }
    return {};
  }

  std::filesystem::path runDir =
      std::filesystem::temp_directory_path() / ("sft-audit-module-" + std::to_string(::getpid()));
  Kiv::Ptr<Olt::TaskScheduler> scheduler = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  Kiv::Ptr<Quell::SharedTables> tables;
  Kiv::Ptr<Pexa::PluginManager> manager = Kiv::makePtr<Pexa::PluginManager>("plugins");
  Kiv::Ptr<Mirro::StateDatabase> database = Kiv::makePtr<Mirro::StateDatabase>("state");
  Kiv::Ptr<Pexa::PluginContext> context;
  std::vector<void*> libraries;
};

TEST_P(AuditModule, AuditsAndLeavesNothingBehind) {
  const auto before = typeNames();
  const auto tasks = scheduler->tasks().size();
  start();
  runDue();
  {
    const auto audit = plugin("SftAudit");
    ASSERT_TRUE(audit);
    EXPECT_EQ(Kiv::attribute(*audit, "run"), Kiv::Value(1U)) << "the one after the restart";
    EXPECT_EQ(Kiv::invoke(*audit, "start", {{"repair", true}}), Kiv::Value(2U));
    EXPECT_EQ(Kiv::attribute(*audit, "running"), Kiv::Value(true));
    runDue();
    EXPECT_EQ(Kiv::attribute(*audit, "lastResult"),
              Kiv::Value("audit asked for (repair): 0 statuses, no difference"));
  }
  stop();
  EXPECT_EQ(typeNames(), before);
  EXPECT_EQ(scheduler->tasks().size(), tasks);
}

TEST_P(AuditModule, GoesAmidARun) {
  start();
  runDue();
  Kiv::invoke(*plugin("SftAudit"), "start", {{"repair", true}});
  stop();
  runDue();
}

INSTANTIATE_TEST_SUITE_P(InEitherOrder, AuditModule,
                         ::testing::Values(std::vector<const char*>{kTracker, kAudit},
                                           std::vector<const char*>{kAudit, kTracker}));

}  // namespace
}  // namespace SampledFlowTracker
