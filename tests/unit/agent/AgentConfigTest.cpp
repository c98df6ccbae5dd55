#include "agent/AgentConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class AgentConfigTest : public ::testing::Test {
 protected:
  Pexa::AgentConfig read(std::string_view text) const {
    std::ofstream(file_) << text;
    return Pexa::readAgentConfig(file_);
  }
  // The error's text without the file's name: "LINE: what".
  std::string errorOf(std::string_view text) const {
    try {
      read(text);
    } catch (const Pexa::ConfigError& error) {
      EXPECT_THAT(error.what(), StartsWith(file_.string() + ":"));
      EXPECT_THAT(error.what(), ::testing::Not(HasSubstr("\n")));
      return std::string(error.what()).substr(file_.string().size() + 1);
    }
    return "no error";
  }
  void TearDown() override { std::filesystem::remove(file_); }

  const std::filesystem::path file_ =
      std::filesystem::path(::testing::TempDir()) /
      (std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".toml");
};

constexpr std::string_view kWhole = R"(run_dir = "/run/pexa"
plugins = ["libPexaSampledFlowTracker.so"]
[[port]]
name = "Ethernet1"
capture = "mixed.pcap"
vlan = 7
[[port]]
name = "Ethernet2"
device = "veth1"
[[port]]
name = "Ethernet3"
write = "/tmp/out.pcap"
[forward]
Ethernet1 = "Ethernet3"
[replay]
pace = "recorded"
[sflow]
agent = "127.0.0.1"
collectors = ["127.0.0.1:6343", "[::1]:6344"]
[state."hardware/flowtracking/config/sampled"]
hwOffloadIpv4 = true
sampleRate = 1000
[state."sflow/hwconfigdir/sampledflowtracker"]
ingressInterfaces = ["Ethernet1"]
[[trace_filter]]
name = "web"
expression = "tcp port 80"
[trace.level]
"Pexa::Sft" = 0
)";

TEST_F(AgentConfigTest, ReadsEveryKey) {
  const Pexa::AgentConfig config = read(kWhole);
  EXPECT_EQ(config.mode, Pexa::PexaMode::active);
  EXPECT_EQ(config.runDir, "/run/pexa");
  ASSERT_EQ(config.plugins.size(), 1U);
  EXPECT_EQ(config.plugins[0].library, "libPexaSampledFlowTracker.so");
  EXPECT_EQ(config.plugins[0].place.line, 2U);
  ASSERT_EQ(config.ports.size(), 3U);
  EXPECT_EQ(config.ports[0].kind, Capture::PortKind::capture);
  EXPECT_EQ(config.ports[0].vlan, 7);
  EXPECT_EQ(config.ports[0].place.line, 3U);
  EXPECT_EQ(config.ports[1].kind, Capture::PortKind::device);
  EXPECT_EQ(config.ports[1].source, "veth1");
  EXPECT_EQ(config.ports[1].vlan, 1);
  EXPECT_EQ(config.ports[2].kind, Capture::PortKind::write);
  EXPECT_EQ(config.ports[2].source, "/tmp/out.pcap");
  ASSERT_EQ(config.forwards.size(), 1U);
  EXPECT_EQ(config.forwards[0].from, "Ethernet1");
  EXPECT_EQ(config.forwards[0].to, "Ethernet3");
  EXPECT_EQ(config.pace, Capture::Pace::recorded);
  ASSERT_TRUE(config.sflow.has_value());
  ASSERT_EQ(config.sflow->collectors.size(), 2U);
  EXPECT_EQ(config.sflow->collectors[1].text, "[::1]:6344");
  ASSERT_EQ(config.states.size(), 2U);
  EXPECT_EQ(config.states[0].path, "hardware/flowtracking/config/sampled");
  ASSERT_EQ(config.states[0].attributes.size(), 2U);
  EXPECT_EQ(config.states[0].attributes[1].name, "sampleRate");
  EXPECT_EQ(config.states[0].attributes[1].value, Kiv::Value(1000));
  EXPECT_EQ(config.states[0].attributes[1].place.line, 22U);
  ASSERT_EQ(config.traceFilters.size(), 1U);
  EXPECT_EQ(config.traceFilters[0].expression, "tcp port 80");
  ASSERT_EQ(config.traceLevels.size(), 1U);
  EXPECT_EQ(config.traceLevels[0].handle, "Pexa::Sft");
}

TEST_F(AgentConfigTest, AnEmptyFileIsAnAgentWithoutPorts) {
  const Pexa::AgentConfig config = read("");
  EXPECT_TRUE(config.ports.empty());
  EXPECT_FALSE(config.sflow.has_value());
  EXPECT_FALSE(config.metrics.has_value());
  EXPECT_EQ(config.runDir, "/run/pexa");
}

TEST_F(AgentConfigTest, TheMetricsTableAloneListensOnTheLoopback) {
  EXPECT_EQ(read("[metrics]\n").metrics->listen.text(), "127.0.0.1:9475");
  const Pexa::AgentConfig config = read("[metrics]\nlisten = \"0.0.0.0:0\"\n");
  EXPECT_EQ(config.metrics->listen.text(), "0.0.0.0:0");
  EXPECT_EQ(config.metrics->place.line, 2U);
}

TEST_F(AgentConfigTest, AnAddressToListenOnIsNumericWithAPort) {
  EXPECT_THAT(errorOf("[metrics]\nlisten = \"localhost:80\"\n"),
              StartsWith("2: listen \"localhost:80\", expected a numeric IPv4 address and a port"));
  EXPECT_THAT(errorOf("[metrics]\nlisten = 9475\n"), StartsWith("2: \"listen\" of [metrics] is"));
  EXPECT_THAT(errorOf("[metrics]\nport = 9475\n"), StartsWith("2: unknown key \"port\" in [metrics]"));
}

TEST_F(AgentConfigTest, RelativePathsStartAtTheFileItself) {
  const Pexa::AgentConfig config =
      read("run_dir = \"run\"\n[[port]]\nname = \"E1\"\ncapture = \"../a.pcap\"\n");
  EXPECT_EQ(config.runDir, file_.parent_path() / "run");
  EXPECT_EQ(config.ports[0].source, (file_.parent_path().parent_path() / "a.pcap").lexically_normal());
}

TEST_F(AgentConfigTest, StandbyIsAMode) {
  EXPECT_EQ(read("mode = \"standby\"").mode, Pexa::PexaMode::standby);
  EXPECT_THAT(errorOf("mode = \"both\""), StartsWith("1: mode \"both\", expected \"active\" or \"standby\""));
}

TEST_F(AgentConfigTest, AMissingFileIsSaidSo) {
  try {
    Pexa::readAgentConfig("/nowhere/agent.toml");
    FAIL() << "no error";
  } catch (const Pexa::ConfigError& error) {
    EXPECT_STREQ(error.what(),
                 "/nowhere/agent.toml: cannot read the configuration: No such file or directory, expected a "
                 "TOML file");
  }
}

TEST_F(AgentConfigTest, BrokenTomlNamesItsLine) {
  EXPECT_THAT(errorOf("plugins = []\nmode = \"active\n"), StartsWith("2: not TOML: "));
}

TEST_F(AgentConfigTest, UnknownKeysAreRefusedWhereTheyStand) {
  EXPECT_THAT(errorOf("\nplugin = []\n"),
              StartsWith("2: unknown key \"plugin\" in the file, expected one of: mode,"));
  EXPECT_THAT(errorOf("[[port]]\nname = \"E1\"\ndevice = \"veth1\"\nspeed = 1\n"),
              StartsWith("4: unknown key \"speed\" in [[port]]"));
  EXPECT_THAT(errorOf("[replay]\nspeed = 1\n"),
              StartsWith("2: unknown key \"speed\" in [replay], expected one of"));
  EXPECT_THAT(errorOf("[sflow]\nrate = 1\n"), StartsWith("2: unknown key \"rate\" in [sflow]"));
  EXPECT_THAT(errorOf("[trace]\nlevels = 1\n"), StartsWith("2: unknown key \"levels\" in [trace]"));
  EXPECT_THAT(errorOf("[[trace_filter]]\nnames = 1\n"),
              StartsWith("2: unknown key \"names\" in [[trace_filter]]"));
}

TEST_F(AgentConfigTest, AnErrorIsOneLineWhateverItNames) {
  EXPECT_THAT(errorOf("\"a\\nb\\u001bc\" = 1\n"), StartsWith("1: unknown key \"a?b?c\" in the file"));
}

TEST_F(AgentConfigTest, WrongTypesSayWhatWasExpected) {
  EXPECT_THAT(errorOf("plugins = \"a.so\""),
              StartsWith("1: \"plugins\" of the file is \"a.so\", expected a list of strings"));
  EXPECT_THAT(errorOf("plugins = [1]"),
              StartsWith("1: \"plugins\" of the file is 1, expected a list of strings"));
  EXPECT_THAT(errorOf("run_dir = 7"), StartsWith("1: \"run_dir\" of the file is 7, expected a string"));
  EXPECT_THAT(errorOf("run_dir = \"\""), HasSubstr("expected a string"));
  EXPECT_THAT(errorOf("port = 1"), StartsWith("1: \"port\" of the file is 1, expected tables [[port]]"));
  EXPECT_THAT(errorOf("forward = 1"), HasSubstr("expected a table [forward]"));
  EXPECT_THAT(errorOf("[[port]]\nname = \"E1\"\ndevice = \"d\"\nvlan = 4096\n"),
              StartsWith("4: \"vlan\" of [[port]] is 4096, expected a number from 0 to 4095"));
  EXPECT_THAT(errorOf("[state.\"a/b\"]\nx = 1979-05-27\n"),
              StartsWith("2: \"x\" of [a/b] is a date or time"));
  EXPECT_THAT(errorOf("[state]\nx = 1\n"), StartsWith("2: \"x\" of [state] is 1, expected a table [x]"));
  EXPECT_THAT(errorOf("[trace.level]\na = 10\n"), HasSubstr("expected a number from -1 to 9"));
}

TEST_F(AgentConfigTest, APortHasANameOfItsOwnAndOneSource) {
  EXPECT_THAT(errorOf("[[port]]\ndevice = \"veth1\"\n"), StartsWith("1: [[port]] has no \"name\""));
  EXPECT_THAT(errorOf("[[port]]\nname = \"E1\"\n"),
              StartsWith("1: port \"E1\" has no source, expected one of capture, device and write"));
  EXPECT_THAT(errorOf("[[port]]\nname = \"E1\"\ndevice = \"d\"\ncapture = \"c\"\n"),
              StartsWith("1: port \"E1\" has more than one source"));
  EXPECT_THAT(errorOf("[[port]]\nname = \"E1\"\ndevice = \"d\"\n[[port]]\nname = \"E1\"\ndevice = \"e\"\n"),
              StartsWith("5: port \"E1\" is already there on line 1"));
  EXPECT_THAT(errorOf("[[port]]\nname = \"EthernetWithAVeryLongName\"\ndevice = \"d\"\n"),
              StartsWith("2: port name \"EthernetWithAVeryLongName\", expected at most 22 bytes"));
  EXPECT_THAT(errorOf("[[port]]\nname = \"E1\"\ndevice = \"d\"\n[[port]]\nname = \"E2\"\ndevice = \"d\"\n"),
              StartsWith("4: \"d\" of port \"E2\" is already port \"E1\"'s"));
}

TEST_F(AgentConfigTest, TwoPortsMayReplayOneCapture) {
  EXPECT_EQ(errorOf("[[port]]\nname = \"E1\"\ncapture = \"c\"\n[[port]]\nname = \"E2\"\ncapture = \"c\"\n"),
            "no error");
}

TEST_F(AgentConfigTest, AFileThatAPortReplaysIsNotWritten) {
  const std::string replayed = file_.string() + ".pcap";
  std::ofstream(replayed) << "x";
  std::filesystem::create_symlink(replayed, replayed + ".link");
  const std::string port =
      "[[port]]\nname = \"E1\"\ncapture = \"" + replayed + "\"\n[[port]]\nname = \"E2\"\nwrite = \"";
  EXPECT_THAT(errorOf(port + replayed + "\"\n"), HasSubstr("is already port \"E1\"'s, expected another one"));
  EXPECT_THAT(errorOf(port + replayed + ".link\"\n"),
              HasSubstr("is already port \"E1\"'s, expected another one"));
  EXPECT_THAT(
      errorOf(
          "[[port]]\nname = \"E1\"\nwrite = \"/absent/a\"\n[[port]]\nname = \"E2\"\nwrite = \"/absent/a\"\n"),
      HasSubstr("is already port \"E1\"'s"));
  EXPECT_EQ(
      errorOf(
          "[[port]]\nname = \"E1\"\nwrite = \"/dev/null\"\n[[port]]\nname = \"E2\"\nwrite = \"/dev/null\"\n"),
      "no error");
  std::filesystem::remove(replayed + ".link");
  std::filesystem::remove(replayed);
}

TEST_F(AgentConfigTest, AForwardLeadsFromAPortThatReceivesToOneThatSends) {
  const std::string ports =
      "[[port]]\nname = \"in\"\ncapture = \"a\"\n[[port]]\nname = \"out\"\nwrite = \"b\"\n"
      "[[port]]\nname = \"both\"\ndevice = \"d\"\n[forward]\n";
  EXPECT_EQ(errorOf(ports + "in = \"out\"\nboth = \"out\"\n"), "no error");
  EXPECT_THAT(errorOf(ports + "other = \"out\"\n"),
              StartsWith("11: [forward] names port \"other\", which is not there"));
  EXPECT_THAT(errorOf(ports + "in = \"other\"\n"),
              StartsWith("11: [forward] names port \"other\", which is not there"));
  EXPECT_THAT(errorOf(ports + "in = \"in\"\n"), StartsWith("11: nothing can leave on port \"in\""));
  EXPECT_THAT(errorOf(ports + "out = \"both\"\n"), StartsWith("11: nothing enters on port \"out\""));
  EXPECT_THAT(errorOf(ports + "both = \"both\"\n"), StartsWith("11: port \"both\" is forwarded to itself"));
  EXPECT_THAT(errorOf(ports + "in = 3\n"), StartsWith("11: \"in\" of [forward] is 3, expected a string"));
}

TEST_F(AgentConfigTest, SflowHasAnAddressAndCollectors) {
  EXPECT_THAT(errorOf("[sflow]\nagent = \"127.0.0.1\"\ncollectors = []\n"),
              StartsWith("1: [sflow] has no collectors"));
  EXPECT_THAT(errorOf("[sflow]\nagent = \"me\"\n"),
              StartsWith("2: agent \"me\", expected an IPv4 or IPv6 address"));
}

TEST_F(AgentConfigTest, TraceFiltersHaveNamesOfTheirOwn) {
  const std::string filter = "[[trace_filter]]\nname = \"a\"\nexpression = \"ip\"\n";
  EXPECT_THAT(errorOf(filter + filter), StartsWith("5: trace filter \"a\" is already there"));
  EXPECT_THAT(errorOf("[[trace_filter]]\nname = \"a\"\n"),
              StartsWith("1: [[trace_filter]] has no \"expression\""));
}

}  // namespace
