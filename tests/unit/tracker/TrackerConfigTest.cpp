#include "TrackerConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "TempDir.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class TrackerConfigTest : public testing::Test {
 protected:
  Tracker::TrackerConfig read(const std::string& text) const {
    std::ofstream(file_) << text;
    return Tracker::readTrackerConfig(file_);
  }
  // The error's text without the file's name: "LINE: what".
  std::string errorOf(const std::string& text) const {
    try {
      read(text);
    } catch (const Pexa::ConfigError& error) {
      EXPECT_THAT(error.what(), StartsWith(file_ + ":"));
      EXPECT_THAT(error.what(), testing::Not(HasSubstr("\n")));
      return std::string(error.what()).substr(file_.size() + 1);
    }
    return "no error";
  }

  const TestSupport::TempDir dir_;
  const std::string file_ = dir_.path() + "/tracker.toml";
};

TEST_F(TrackerConfigTest, ReadsEveryKey) {
  const auto config = read(R"(listen = "[::1]:7000"
run_dir = "run"
samples_to_learn = 5
idle_timeout = 7
max_flows = 11
max_candidates = 13
[[interface]]
index = 1
name = "Ethernet1"
[[interface]]
index = 1
name = "uplink"
agent = "2001:db8::1"
vlan = 0
[[collector]]
address = "192.0.2.9:4739"
[[collector]]
address = "[::1]:2055"
[ipfix]
active_timeout = 17
template_refresh = 19
observation_domain = 0
)");
  ASSERT_EQ(config.collectors.size(), 2U);
  EXPECT_EQ(config.collectors[1].address, "[::1]:2055");
  EXPECT_EQ(config.collectors[1].place.line, 18U);
  EXPECT_EQ(config.limits.activeTimeout, 17);
  EXPECT_EQ(config.ipfix.templateRefresh, 19);
  EXPECT_EQ(config.ipfix.observationDomain, 0U);
  EXPECT_EQ(config.listen, "[::1]:7000");
  EXPECT_EQ(config.listenPlace.line, 1U);
  EXPECT_EQ(config.runDir, dir_.path() + "/run");
  EXPECT_EQ(config.limits.samplesToLearn, 5U);
  EXPECT_EQ(config.limits.idleTimeout, 7);
  EXPECT_EQ(config.limits.maxFlows, 11U);
  EXPECT_EQ(config.limits.maxCandidates, 13U);
  const auto* any = config.interfaces.find(*Tracker::AgentAddress::fromText("192.0.2.1"), 1);
  ASSERT_NE(any, nullptr);
  EXPECT_EQ(any->intfId.name(), "Ethernet1");
  EXPECT_EQ(any->vlan, 1);
  const auto* own = config.interfaces.find(*Tracker::AgentAddress::fromText("2001:db8::1"), 1);
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own->intfId.name(), "uplink");
  EXPECT_EQ(own->vlan, 0);
}

TEST_F(TrackerConfigTest, EverythingMayBeLeftOut) {
  const auto config = read("");
  EXPECT_EQ(config.listen, "0.0.0.0:6343");
  EXPECT_EQ(config.runDir, "/run/pexa");
  EXPECT_EQ(config.limits.samplesToLearn, 2U);
}

TEST_F(TrackerConfigTest, UnknownKeysAreToldWithTheirLine) {
  EXPECT_THAT(errorOf("listen = \"1.2.3.4:5\"\nidle_time = 5\n"),
              StartsWith("2: unknown key \"idle_time\" in the file, expected one of: listen, "));
  EXPECT_THAT(errorOf("[[interface]]\nindex = 1\nname = \"a\"\nspeed = 5\n"),
              StartsWith("4: unknown key \"speed\" in [[interface]]"));
}

TEST_F(TrackerConfigTest, NumbersOutOfRangeAreToldWithTheirLine) {
  for (const char* key : {"samples_to_learn", "idle_timeout", "max_flows", "max_candidates"}) {
    EXPECT_THAT(
        errorOf(std::string(key) + " = 0\n"),
        testing::AllOf(StartsWith("1: \"" + std::string(key)), HasSubstr("expected a number from 1 to")));
    EXPECT_THAT(errorOf(std::string(key) + " = 1.5\n"), HasSubstr("expected a number"));
  }
}

TEST_F(TrackerConfigTest, InterfacesAreChecked) {
  EXPECT_EQ(errorOf("[[interface]]\nname = \"a\"\n"),
            "1: [[interface]] has no \"index\", expected index = 1");
  EXPECT_THAT(errorOf("[[interface]]\nindex = 1\n"), StartsWith("1: [[interface]] has no \"name\""));
  EXPECT_THAT(errorOf("[[interface]]\nindex = 1\nname = \"a name of more than 22 bytes\"\n"),
              StartsWith("3: interface name"));
  EXPECT_THAT(errorOf("[[interface]]\nindex = 1\nname = \"a\"\nagent = \"here\"\n"),
              StartsWith("4: agent \"here\", expected an IPv4 or IPv6 address"));
  EXPECT_THAT(errorOf("[[interface]]\nindex = 1\nname = \"a\"\nvlan = 4096\n"), StartsWith("4: \"vlan\""));
  EXPECT_THAT(errorOf("[[interface]]\nindex = 1\nname = \"a\"\n[[interface]]\nindex = 1\nname = \"b\"\n"),
              StartsWith("5: interface index 1 is already there"));
}

TEST_F(TrackerConfigTest, CollectorsAreChecked) {
  EXPECT_THAT(errorOf("[[collector]]\n"), StartsWith("1: [[collector]] has no \"address\""));
  EXPECT_THAT(errorOf("[[collector]]\naddress = \"a:1\"\n[[collector]]\naddress = \"a:1\"\n"),
              StartsWith("4: collector \"a:1\" is already there on line 2"));
  std::string many;
  for (int i = 1; i <= 9; ++i) many += "[[collector]]\naddress = \"a:" + std::to_string(i) + "\"\n";
  EXPECT_EQ(errorOf(many), "17: one collector too many, expected at most 8");
  EXPECT_THAT(errorOf("[ipfix]\nactive_timeout = 0\n"), StartsWith("2: \"active_timeout\" of [ipfix] is 0"));
  EXPECT_THAT(errorOf("[ipfix]\nport = 0\n"), StartsWith("2: unknown key \"port\" in [ipfix]"));
}

TEST_F(TrackerConfigTest, BrokenTomlAndNoFileAreTold) {
  EXPECT_THAT(errorOf("listen = \n"), StartsWith("1: not TOML"));
  EXPECT_THROW(Tracker::readTrackerConfig(dir_.path() + "/none.toml"), Pexa::ConfigError);
}

}  // namespace
