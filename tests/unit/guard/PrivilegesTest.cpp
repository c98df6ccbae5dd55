#include "guard/Privileges.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Forked.h"
#include "KivValue.h"

namespace {

using Guard::Keep;
using Guard::User;

// What a process can still do: of some rights of root, the status of the one that forked it tells.
constexpr int kOpensPackets = 1;
constexpr int kReadsShadow = 2;
constexpr int kBecomesRoot = 4;
constexpr int kIsAnother = 8;

int abilities() {
  int found = 0;
  if (::socket(AF_PACKET, SOCK_RAW, 0) >= 0) found |= kOpensPackets;
  if (::open("/etc/shadow", O_RDONLY) >= 0) found |= kReadsShadow;
  if (::getuid() != User::of("daemon").user || ::getgid() != User::of("daemon").group) found |= kIsAnother;
  if (::setuid(0) == 0) found |= kBecomesRoot;
  return found;
}

int abilitiesAs(Keep keep) {
  return TestSupport::Forked([keep] {
           Guard::become(User::of("daemon"), keep);
           return abilities();
         })
      .wait();
}

TEST(Privileges, OfRootNothingIsLeft) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root has something to give up";
  EXPECT_EQ(abilitiesAs(Keep::nothing), 0);
}

TEST(Privileges, PacketSocketsMayBeKept) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root has something to give up";
  EXPECT_EQ(abilitiesAs(Keep::rawPackets), kOpensPackets);
}

TEST(Privileges, BeingThatUserAlreadyIsEnoughAndAnotherCannotBecomeIt) {
  if (::geteuid() != 0) GTEST_SKIP() << "a user of its own is needed";
  const auto again = [](const char* name) {
    return TestSupport::Forked([name] {
             Guard::become(User::of("daemon"), Keep::nothing);
             try {
               Guard::become(User::of(name), Keep::nothing);
             } catch (const std::runtime_error& error) {
               return std::string_view(error.what()).starts_with("cannot become user bin: started as") ? 1
                                                                                                       : 2;
             }
             return 0;
           })
        .wait();
  };
  EXPECT_EQ(again("daemon"), 0);
  EXPECT_EQ(again("bin"), 1);
}

TEST(Privileges, UsersAndGroupsAreOfThisMachine) {
  EXPECT_EQ(User::of("root").user, 0U);
  EXPECT_EQ(User::of("0").name, "root");
  EXPECT_EQ(Guard::groupOf("root"), 0U);
  EXPECT_EQ(Guard::groupOf("0"), 0U);
  EXPECT_THROW(User::of("nobody-at-all"), Kiv::ValueError);
  EXPECT_THROW(Guard::groupOf("nobody-at-all"), Kiv::ValueError);
}

}  // namespace
