#include "guard/AccessRules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "TempDir.h"

namespace {

using Guard::AccessGroups;
using Guard::AccessRules;
using Guard::Peer;
using ::testing::HasSubstr;

constexpr gid_t kReaders = 40001;
constexpr gid_t kChangers = 40002;
constexpr uid_t kSomebody = 40003;

class AccessRulesTest : public ::testing::Test {
 protected:
  AccessRules rules(mode_t directory, const AccessGroups& groups = {}) {
    EXPECT_EQ(::chmod(dir_.path().c_str(), directory), 0);
    return {dir_.path(), groups};
  }
  static Peer of(gid_t group) { return {kSomebody, 1, {group}}; }
  // "", "reads", or "reads and changes".
  static std::string rights(const AccessRules& rules, const Peer& peer) {
    if (rules.mayChange(peer)) return rules.mayRead(peer) ? "reads and changes" : "changes only";
    return rules.mayRead(peer) ? "reads" : "";
  }

  TestSupport::TempDir dir_;
  const gid_t group_ = [this] {
    struct stat status {};
    ::stat(dir_.path().c_str(), &status);
    return status.st_gid;
  }();
};

TEST_F(AccessRulesTest, RootAndTheDaemonsUserMayDoBoth) {
  const AccessRules closed = rules(0700);
  EXPECT_EQ(rights(closed, {0, 1, {}}), "reads and changes");
  EXPECT_EQ(rights(closed, {::geteuid(), 1, {}}), "reads and changes");
  EXPECT_EQ(rights(closed, {kSomebody, 1, {}}), "");
  EXPECT_EQ(closed.socketMode(), 0600U);
}

TEST_F(AccessRulesTest, TheGroupHasTheRightsThatItHasInTheDirectory) {
  EXPECT_EQ(rights(rules(0700), of(group_)), "");
  EXPECT_EQ(rights(rules(0710), of(group_)), "");  // may pass through, not look
  EXPECT_EQ(rights(rules(0750), of(group_)), "reads");
  EXPECT_EQ(rights(rules(0770), of(group_)), "reads and changes");
  EXPECT_EQ(rights(rules(0777), {kSomebody, 1, {kReaders}}), "");  // others have none, whatever its mode
  EXPECT_EQ(rules(0750).socketMode(), 0660U);
}

TEST_F(AccessRulesTest, GroupsMayBeTold) {
  const AccessRules told = rules(0750, {kReaders, kChangers});
  EXPECT_EQ(rights(told, of(kReaders)), "reads");
  EXPECT_EQ(rights(told, of(kChangers)), "reads and changes");
  EXPECT_EQ(rights(told, of(group_)), "reads");
  EXPECT_EQ(rights(told, of(40009)), "");
  EXPECT_EQ(told.socketMode(), 0666U);  // a file has one group only
}

TEST_F(AccessRulesTest, AGroupThatMayChangeTakesThePlaceOfTheDirectorys) {
  EXPECT_EQ(rights(rules(0770, {{}, kChangers}), of(group_)), "reads");
}

TEST_F(AccessRulesTest, SupplementaryGroupsCount) {
  EXPECT_EQ(rights(rules(0700, {{}, kChangers}), {kSomebody, 1, {1, 2, kChangers}}), "reads and changes");
}

TEST_F(AccessRulesTest, TellsWhoMay) {
  EXPECT_THAT(rules(0700, {{}, kChangers}).changersText(), HasSubstr("root"));
  EXPECT_THAT(rules(0700, {{}, kChangers}).changersText(), HasSubstr(" or a member of group 40002"));
}

TEST_F(AccessRulesTest, ADirectoryThatIsGoneGivesNobodyARight) {
  const AccessRules gone(dir_.path() + "/absent", {});
  EXPECT_EQ(rights(gone, of(group_)), "");
  EXPECT_EQ(gone.socketMode(), 0600U);
}

TEST(Peer, IsWhomTheKernelSays) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const auto peer = Guard::peerOf(ends[0]);
  for (const int end : ends) ::close(end);
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->user, ::geteuid());
  EXPECT_EQ(peer->process, ::getpid());
  EXPECT_TRUE(peer->isIn(::getegid()));
}

TEST(Peer, IsNotKnownOfWhatIsNoSocket) {
  EXPECT_FALSE(Guard::peerOf(-1));
}

}  // namespace
