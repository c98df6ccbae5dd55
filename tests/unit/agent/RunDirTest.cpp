#include "agent/RunDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "TempDir.h"

namespace {

using ::testing::HasSubstr;

TEST(RunDir, IsMadeWithAllThatLeadsToIt) {
  const TestSupport::TempDir dir;
  const Pexa::RunDir runDir(dir.path() + "/a/b");
  EXPECT_TRUE(std::filesystem::is_directory(dir.path() + "/a/b"));
  EXPECT_EQ(runDir.controlSocket(), dir.path() + "/a/b/control.sock");
}

TEST(RunDir, HoldsOneAgentAndNamesIt) {
  const TestSupport::TempDir dir;
  const Pexa::RunDir first(dir.path());
  try {
    Pexa::RunDir second(dir.path());
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("an agent is running in it (process " + std::to_string(::getpid()) + ")"));
  }
}

TEST(RunDir, IsFreeWhenItsAgentIsGone) {
  const TestSupport::TempDir dir;
  { const Pexa::RunDir first(dir.path()); }
  EXPECT_NO_THROW(Pexa::RunDir second(dir.path()));
}

TEST(RunDir, ThatCannotBeMadeIsSaidSo) {
  const TestSupport::TempDir dir;
  std::ofstream(dir.path() + "/file") << "x";
  try {
    Pexa::RunDir runDir(dir.path() + "/file/run");
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("run directory " + dir.path() + "/file/run: Not a directory, expected"));
  }
}

}  // namespace
