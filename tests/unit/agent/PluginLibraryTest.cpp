#include "agent/PluginLibrary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "TempDir.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kPlugin = TEST_PLUGIN;
const std::string kNoPlugin = TEST_NO_PLUGIN;

Pexa::PluginConfig named(const std::string& library, const std::string& configFile = "/etc/agent.toml") {
  return {library, {configFile, 3}};
}

std::string errorOf(const Pexa::PluginConfig& config) {
  try {
    Pexa::PluginLibrary library(config);
  } catch (const Pexa::ConfigError& error) {
    return error.what();
  }
  return "no error";
}

TEST(PluginLibrary, RegistersItsPluginWhileItIsLoaded) {
  const std::size_t before = Pexa::DefaultPluginLoader().size();
  {
    const Pexa::PluginLibrary library(named(kPlugin));
    EXPECT_EQ(Pexa::DefaultPluginLoader().size(), before + 1);
  }
  EXPECT_EQ(Pexa::DefaultPluginLoader().size(), before);
}

TEST(PluginLibrary, CanBeLoadedAgainAfterItWasUnloaded) {
  { const Pexa::PluginLibrary library(named(kPlugin)); }
  EXPECT_EQ(errorOf(named(kPlugin)), "no error");
}

TEST(PluginLibrary, IsFoundBesideTheConfiguration) {
  const TestSupport::TempDir dir;
  std::filesystem::copy_file(kPlugin, dir.path() + "/libX.so");
  EXPECT_EQ(errorOf(named("libX.so", dir.path() + "/agent.toml")), "no error");
  EXPECT_EQ(errorOf(named("./libX.so", dir.path() + "/agent.toml")), "no error");
}

TEST(PluginLibrary, IsLookedForBesideTheConfigurationBesideTheProgramAndWhereItIsInstalled) {
  const auto found = Pexa::PluginLibrary::candidates(named("libX.so"));
  ASSERT_EQ(found.size(), 4U);
  EXPECT_EQ(found[0], "/etc/libX.so");
  EXPECT_EQ(found[1].filename(), "libX.so");
  EXPECT_EQ(found[1].parent_path().filename(), "lib");
  EXPECT_EQ(found[2], found[1].parent_path() / "pexa/libX.so");
  EXPECT_EQ(found[3], "libX.so");
  EXPECT_THAT(Pexa::PluginLibrary::candidates(named("/a/libX.so")), ::testing::ElementsAre("/a/libX.so"));
  EXPECT_EQ(Pexa::PluginLibrary::candidates(named("sub/libX.so")).size(), 3U);
}

TEST(PluginLibrary, ThatIsAbsentIsSaidSoWithTheLine) {
  EXPECT_THAT(errorOf(named("/nowhere/libX.so")),
              StartsWith("/etc/agent.toml:3: plugin \"/nowhere/libX.so\" cannot be loaded: not found in "
                         "/nowhere/libX.so, expected a plugin library"));
  EXPECT_THAT(errorOf(named("libNoSuchPlugin.so")),
              HasSubstr("libNoSuchPlugin.so: cannot open shared object file"));
}

TEST(PluginLibrary, ThatIsNoLibraryIsSaidSo) {
  const TestSupport::TempDir dir;
  std::ofstream(dir.path() + "/libX.so") << "text";
  EXPECT_THAT(errorOf(named(dir.path() + "/libX.so")),
              HasSubstr("cannot be loaded: " + dir.path() + "/libX.so: "));
}

TEST(PluginLibrary, ThatRegistersNoPluginIsRefused) {
  EXPECT_THAT(errorOf(named(kNoPlugin)), HasSubstr("registers no plugin that is not there already"));
}

TEST(PluginLibrary, CannotBeLoadedTwiceAtOnce) {
  const Pexa::PluginLibrary library(named(kPlugin));
  EXPECT_THAT(errorOf(named(kPlugin)), HasSubstr("registers no plugin that is not there already"));
}

}  // namespace
