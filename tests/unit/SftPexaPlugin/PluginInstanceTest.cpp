#include "SftPexaPlugin/PluginInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"
#include "Skein.h"

namespace SampledFlowTracker {
namespace {

using Node = Plugin::Loader<Pexa::PluginContext>::LoaderInitCallerWithContext;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Plugin::Impl::Registration* registration() {
  for (const auto& each : Plugin::Impl::LoaderImpl::registrations()) {
    if (each.pluginName == "PexaSampledFlowTrackerPlugin") return &each;
  }
  return nullptr;
}

// Collects what is written to the ring buffer and to the text trace, each as one line.
class Traces : public Kiv::TraceSink {
 public:
  Traces() : formerSink_(Kiv::traceSinkIs(this)), formerRing_(Skein::agentTraceHandleIs(&ring_)) {}
  ~Traces() override {
    Skein::agentTraceHandleIs(formerRing_);
    Kiv::traceSinkIs(formerSink_);
    Kiv::TraceHandle::levelIs("Pexa::Sft", -1);
  }
  void write(const Kiv::TraceRecord& record) override {
    text.push_back(Kiv::String(record.handle) + " " + std::to_string(record.level) + " " +
                   Kiv::String(record.file) + ":" + std::to_string(record.line) + " " +
                   Kiv::String(record.function) + "| " + Kiv::String(record.text));
  }
  const std::vector<std::string>& ring() const { return ring_.records; }
  void ringOn() { ring_.volumesIs(Skein::volumeBit(Skein::Volume::event)); }

  std::vector<std::string> text;

 private:
  class Ring : public Skein::TraceHandle {
   public:
    void write(const Skein::CallSite& site, std::string_view record, std::string_view) override {
      records.push_back(std::string(site.file()) + ":" + std::to_string(site.line()) + "| " +
                        std::string(record));
    }
    void categoryLevelIs(std::string_view, int) override {}
    std::vector<std::string> records;

   protected:
    bool isEnabled(const Skein::CallSite&, bool) const override { return true; }
  };
  Ring ring_;
  Kiv::TraceSink* formerSink_;
  Skein::TraceHandle* formerRing_;
};

constexpr const char* kLoaded =
    "virtual void SampledFlowTracker::PexaSampledFlowTrackerPluginInst::init(Pexa::PluginContext*) loaded "
    "SampledFlowTracker plugin";

class PluginInstanceTest : public ::testing::Test {
 protected:
  // Calls the init of this program's instance, as the loader does.
  void init() {
    ASSERT_NE(registration(), nullptr);
    auto* node = dynamic_cast<Node*>(registration()->initCaller);
    ASSERT_NE(node, nullptr);
    node->callInit(agent.context.get());
  }
  Kiv::Ptr<SftPexaPlugin> joined() const {
    return agent.manager->plugins().size() == 1 ? Kiv::ptrCast<SftPexaPlugin>(agent.manager->plugins()[0])
                                                : nullptr;
  }
  AgentFixture agent;
};

TEST_F(PluginInstanceTest, IsRegisteredUnderItsNamesBeforeAnythingRuns) {
  const auto* found = registration();
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->loaderName, Pexa::DefaultPluginLoader().name());
  EXPECT_EQ(found->loaderType, Pexa::DefaultPluginLoader().type());
  EXPECT_EQ(found->group, "SampledFlowTracker");
  EXPECT_EQ(found->options, "");
  EXPECT_EQ(Pexa::DefaultPluginLoader().size(), 1U);
}

TEST_F(PluginInstanceTest, RegistersTheEntityTypesOfThePlugin) {
  for (const char* name :
       {"SampledFlowTracker::SftPexaPlugin", "SampledFlowTracker::SftPexaFtHoConfigReactor",
        "SampledFlowTracker::SftSamplerHelper", "SampledFlowTracker::SftInputSampler",
        "SampledFlowTracker::SftOutputSampler", "FlowTracking::HoStatus", "FlowTracking::HoFlowStatus",
        "FlowTracking::HoFlowConfig", "FlowTracking::HoFlowCounter", "FlowTracking::HosStateCounter"}) {
    EXPECT_NE(Kiv::typeByName(name), nullptr) << name;
  }
}

TEST_F(PluginInstanceTest, InitMakesTheRootEntityAndLetsItJoinTheAgent) {
  init();
  const auto plugin = joined();
  ASSERT_TRUE(plugin);
  EXPECT_EQ(plugin->name(), "SampledFlowTracker");
  EXPECT_TRUE(plugin->hasNotificationActive());
  EXPECT_EQ(plugin->pluginManager(), agent.manager);
  EXPECT_FALSE(plugin->mountsAreComplete()) << "mounting is the agent's to start";
}

TEST_F(PluginInstanceTest, ASecondInitReplacesAndReleasesTheFirstRootEntity) {
  init();
  const auto first = joined();
  init();
  const auto second = joined();
  ASSERT_TRUE(second);
  EXPECT_FALSE(second == first);
  EXPECT_EQ(first->references(), 1U) << "only this test still holds it";
}

TEST_F(PluginInstanceTest, AnInstanceLeavesTheLoaderAndDropsItsRootEntity) {
  Kiv::Ptr<SftPexaPlugin> plugin;
  {
    // A second instance in the process would clash with the first one's name; so that one steps aside.
    const Plugin::Impl::Registration own = *registration();
    Plugin::Impl::LoaderImpl::unregisterPlugin(own.initCaller);
    {
      PexaSampledFlowTrackerPluginInst instance;
      EXPECT_FALSE(instance.plugin());
      EXPECT_EQ(Pexa::DefaultPluginLoader().size(), 2U);
      instance.init(agent.context.get());
      plugin = instance.plugin();
      ASSERT_TRUE(plugin);
      agent.manager->pluginDelAll();
      EXPECT_EQ(plugin->references(), 2U);
    }
    EXPECT_EQ(registration(), nullptr);
    Plugin::Impl::LoaderImpl::registerPlugin(own.loaderName, own.pluginName, own.loaderType, own.group,
                                             own.options, own.initCaller);
  }
  EXPECT_EQ(plugin->references(), 1U);
  EXPECT_EQ(Pexa::DefaultPluginLoader().size(), 1U);
}

TEST_F(PluginInstanceTest, WritesNoTraceWhileTracingIsOff) {
  Traces traces;
  init();
  EXPECT_THAT(traces.ring(), IsEmpty());
  EXPECT_THAT(traces.text, IsEmpty());
  EXPECT_TRUE(joined());
}

TEST_F(PluginInstanceTest, TracesThatItIsLoadedToTheRingBuffer) {
  Traces traces;
  traces.ringOn();
  init();
  EXPECT_THAT(traces.ring(),
              ElementsAre(std::string("SampledFlowTracker/PexaPlugin/SftPexaPlugin:364| Sft ") + kLoaded));
  EXPECT_THAT(traces.text, IsEmpty());
}

TEST_F(PluginInstanceTest, TracesThatItIsLoadedAsTextWithoutTheCategory) {
  Traces traces;
  Kiv::TraceHandle::levelIs("Pexa::Sft", 0);
  init();
  EXPECT_THAT(traces.text,
              ElementsAre(std::string("Pexa::Sft 0 SampledFlowTracker/PexaPlugin/SftPexaPlugin:364 init| ") +
                          kLoaded));
  EXPECT_THAT(traces.ring(), IsEmpty());
}

TEST_F(PluginInstanceTest, StaysOnItsOwnWithoutAPluginManager) {
  agent.database->clear();
  init();
  EXPECT_FALSE(joined());
}

}  // namespace
}  // namespace SampledFlowTracker
