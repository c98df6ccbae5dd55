#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>

#include "PexaPlugin.h"

namespace {

using Pexa::DefaultPluginLoader;
using Pexa::PluginContext;
using Plugin::Impl::LoaderImpl;

class FakeStateDatabase : public Mirro::EntityManager {
 public:
  using EntityManager::EntityManager;
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  Kiv::Ptr<Mirro::MountGroup> getMountGroup(Mirro::Mounter*) override { return {}; }
  Kiv::Ptr<Kiv::Entity> getEntity(std::string_view path) const override {
    const auto found = entities.find(std::string(path));
    return found != entities.end() ? found->second : Kiv::Ptr<Kiv::Entity>();
  }
  std::map<std::string, Kiv::Ptr<Kiv::Entity>> entities;
};

class FakePlugin : public Pexa::PexaPluginBase {
 public:
  using PexaPluginBase::PexaPluginBase;
  const Kiv::Type& fwkType() const override { return Pexa::PluginManager::kivType(); }
  void doMounts(const Kiv::Ptr<PluginContext>&) override {}
  void mountsComplete(const Kiv::Ptr<Mirro::EntityManager>& entityManager) override {
    completedBeforeCall = mountsAreComplete();
    completedWith = entityManager;
  }
  void activeInit(Pexa::PexaMode) override { ++activations; }
  Kiv::Ptr<Mirro::EntityManager> completedWith;
  bool completedBeforeCall = false;
  unsigned activations = 0;
};

class JoinedPlugin : public testing::Test {
 protected:
  JoinedPlugin() { database_->entities[std::string(Pexa::PluginManager::kPath)] = manager_; }
  ~JoinedPlugin() override { manager_->pluginDelAll(); }

  Kiv::Ptr<FakeStateDatabase> database_ = Kiv::makePtr<FakeStateDatabase>("state");
  Kiv::Ptr<Pexa::PluginManager> manager_ = Kiv::makePtr<Pexa::PluginManager>("plugins");
};

TEST_F(JoinedPlugin, JoinsTheManagerThatTheStateDatabaseHolds) {
  const auto plugin = Kiv::makePtr<FakePlugin>("SampledFlowTracker");
  plugin->savePluginRef(database_);
  EXPECT_EQ(plugin->pluginManager(), manager_);
  ASSERT_EQ(manager_->plugins().size(), 1U);
  EXPECT_EQ(manager_->plugins()[0], plugin);
}

TEST_F(JoinedPlugin, ASecondOneOfItsNameTakesItsPlace) {
  const auto first = Kiv::makePtr<FakePlugin>("SampledFlowTracker");
  const auto second = Kiv::makePtr<FakePlugin>("SampledFlowTracker");
  first->savePluginRef(database_);
  second->savePluginRef(database_);
  ASSERT_EQ(manager_->plugins().size(), 1U);
  EXPECT_EQ(manager_->plugins()[0], second);
  EXPECT_EQ(first->references(), 1U);
}

TEST_F(JoinedPlugin, StaysOnItsOwnWithoutAManager) {
  const auto plugin = Kiv::makePtr<FakePlugin>("SampledFlowTracker");
  plugin->savePluginRef(Kiv::makePtr<FakeStateDatabase>("empty"));
  plugin->savePluginRef({});
  EXPECT_FALSE(plugin->pluginManager());
}

TEST_F(JoinedPlugin, CompletedMountsReachMountsComplete) {
  const auto plugin = Kiv::makePtr<FakePlugin>("SampledFlowTracker");
  EXPECT_FALSE(plugin->mountsAreComplete());
  plugin->doMirroMountsComplete(database_);
  EXPECT_TRUE(plugin->mountsAreComplete());
  EXPECT_TRUE(plugin->completedBeforeCall);
  EXPECT_EQ(plugin->completedWith, database_);
}

TEST_F(JoinedPlugin, NothingIsBuiltInStandby) {
  const auto plugin = Kiv::makePtr<FakePlugin>("SampledFlowTracker");
  plugin->standbyInit(Pexa::PexaMode::standby);
  plugin->switchoverInit(Pexa::PexaMode::standby);
  EXPECT_EQ(plugin->activations, 0U);
}

// As a plugin library's static instance does.
class FakeInstance : public PluginBase<PluginContext> {
 public:
  explicit FakeInstance(std::string name, std::vector<std::string>& initialised)
      : PluginBase(DefaultPluginLoader()), name_(std::move(name)), initialised_(initialised) {
    auto& loader = DefaultPluginLoader();
    auto node =
        std::make_unique<Plugin::Loader<PluginContext>::LoaderInitCallerWithContext>(&loader, initCaller());
    auto* raw = node.get();
    loader.push(std::move(node));
    LoaderImpl::registerPlugin(loader.name(), name_, loader.type(), "Group", "", raw);
  }
  void init(PluginContext*) override { initialised_.push_back(name_); }

 private:
  std::string name_;
  std::vector<std::string>& initialised_;
};

TEST(PluginLoader, InitialisesEachPluginOnceInTheOrderOfRegistration) {
  std::vector<std::string> initialised;
  const FakeInstance a("a", initialised);
  auto b = std::make_optional<FakeInstance>("b", initialised);
  EXPECT_EQ(DefaultPluginLoader().size(), 2U);
  DefaultPluginLoader().initPlugins(nullptr);
  DefaultPluginLoader().initPlugins(nullptr);
  EXPECT_EQ(initialised, (std::vector<std::string>{"a", "b"}));
  b.reset();
  b.emplace("c", initialised);
  DefaultPluginLoader().initPlugins(nullptr);
  EXPECT_EQ(initialised, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(PluginLoader, KnowsWhatIsRegisteredWhileItLives) {
  std::vector<std::string> initialised;
  {
    const FakeInstance a("a", initialised);
    ASSERT_EQ(LoaderImpl::registrations().size(), 1U);
    const auto& registration = LoaderImpl::registrations()[0];
    EXPECT_EQ(registration.pluginName, "a");
    EXPECT_EQ(registration.group, "Group");
    EXPECT_EQ(registration.loaderName, DefaultPluginLoader().name());
    EXPECT_EQ(registration.loaderType, DefaultPluginLoader().type());
  }
  EXPECT_TRUE(LoaderImpl::registrations().empty());
  EXPECT_EQ(DefaultPluginLoader().size(), 0U);
}

TEST(PluginLoader, RefusesASecondPluginOfAName) {
  LoaderImpl::registerPlugin("l", "twice", "t", "g", "", nullptr);
  EXPECT_THROW(LoaderImpl::registerPlugin("l", "twice", "t", "g", "", nullptr), Kiv::TypeError);
  LoaderImpl::unregisterPlugin(nullptr);
}

}  // namespace
