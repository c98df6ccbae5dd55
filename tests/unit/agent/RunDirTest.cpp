#include "agent/RunDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
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

std::string refusalOf(const std::string& path) {
  try {
    const Pexa::RunDir runDir(path);
    return "taken";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

std::filesystem::perms permissionsOf(const std::filesystem::path& path) {
  return std::filesystem::status(path).permissions();
}

TEST(RunDir, ThatIsMadeIsReadByItsGroupAndByNobodyElse) {
  const TestSupport::TempDir dir;
  const mode_t before = ::umask(0);
  const Pexa::RunDir runDir(dir.path() + "/run");
  ::umask(before);
  EXPECT_EQ(permissionsOf(dir.path() + "/run"), std::filesystem::perms(0750));
}

TEST(RunDir, ThatAnybodyMayWriteIsRefused) {
  const TestSupport::TempDir dir;
  std::filesystem::permissions(dir.path(), std::filesystem::perms(01777));
  EXPECT_THAT(refusalOf(dir.path()), HasSubstr("anybody may write it (mode 1777), expected one that only"));
}

TEST(RunDir, OfSomebodyElseIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  const TestSupport::TempDir dir;
  ASSERT_EQ(::chown(dir.path().c_str(), 12345, 12345), 0);
  EXPECT_THAT(refusalOf(dir.path()), HasSubstr("belongs to user 12345, expected one of root's or"));
  // One that is shared with a group of this process's.
  ASSERT_EQ(::chown(dir.path().c_str(), 12345, ::getegid()), 0);
  ASSERT_EQ(::chmod(dir.path().c_str(), 02770), 0);
  EXPECT_EQ(refusalOf(dir.path()), "taken");
}

TEST(RunDir, OfTheUserThatTheProcessBecomesIsTaken) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  const TestSupport::TempDir dir;
  const Guard::User user{"somebody", 12345, 12346};
  const Pexa::RunDir runDir(dir.path() + "/run", user);
  for (const char* each : {"/run", "/run/agent.lock"}) {
    struct stat status {};
    ASSERT_EQ(::stat((dir.path() + each).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, user.user) << each;
    EXPECT_EQ(status.st_gid, user.group) << each;
  }
}

TEST(RunDir, ALinkInTheLocksPlaceIsRefusedAndItsTargetLeftAlone) {
  const TestSupport::TempDir dir;
  const std::string victim = dir.path() + "/victim";
  std::ofstream(victim) << "precious";
  const std::string runDir = dir.path() + "/run";
  std::filesystem::create_directory(runDir);
  for (const bool symbolic : {true, false}) {
    if (symbolic) {
      std::filesystem::create_symlink(victim, runDir + "/agent.lock");
    } else {
      std::filesystem::create_hard_link(victim, runDir + "/agent.lock");
    }
    EXPECT_THAT(refusalOf(runDir), HasSubstr("agent.lock: a link, or no file at all, expected"));
    std::string content;
    std::ifstream(victim) >> content;
    EXPECT_EQ(content, "precious");
    std::filesystem::remove(runDir + "/agent.lock");
  }
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
