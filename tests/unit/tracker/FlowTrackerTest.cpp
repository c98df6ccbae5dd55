#include "FlowTracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "FlowTableThings.h"
#include "SflowText.h"
#include "capture/CaptureReader.h"
#include "json/JsonText.h"

namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;
using TestSupport::extendedSwitch;
using TestSupport::PacketBuilder;
using TestSupport::sampledHeader;
using TestSupport::SflowText;

class FlowTrackerTest : public testing::Test {
 protected:
  FlowTrackerTest() {
    interfaces_.add({std::nullopt, 1, Pavo::IntfId("Ethernet1"), 1});
    interfaces_.add({std::nullopt, 2, Pavo::IntfId("Ethernet2"), 1});
  }
  Tracker::FlowTracker& tracker() {
    if (!tracker_) tracker_.emplace(limits_, interfaces_, memory_.tables, sink_);
    return *tracker_;
  }
  void give(const SflowText& text) { tracker().datagram(text.bytes()); }
  Kiv::Value statistic(std::initializer_list<std::string_view> path) {
    Kiv::Value value = tracker().statistics();
    for (const std::string_view name : path) {
      const Kiv::Value* member = value.member(name);
      if (member == nullptr) return {};
      value = Kiv::Value(*member);
    }
    return value;
  }

  TestSupport::ManualClock clock_;
  Tracker::FlowLimits limits_;
  Tracker::Interfaces interfaces_;
  TestSupport::MemoryTables memory_;
  TestSupport::RecordingSink sink_;

 private:
  std::optional<Tracker::FlowTracker> tracker_;
};

const auto kTcp4 = PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").tcp(1234, 80).build();
const auto kUdp6 = PacketBuilder().vlan(7).ipv6("2001:db8::1", "2001:db8::2").udp(53, 5353).build();

TEST_F(FlowTrackerTest, LearnsFlowsOfBothFamiliesAndDirections) {
  for (int i = 0; i < 2; ++i) {
    give(SflowText()
             .flowSample({.source = 1}, {sampledHeader(kTcp4), extendedSwitch(9)})
             .flowSample({.source = 2}, {sampledHeader(kTcp4), extendedSwitch(9)})
             .expandedFlowSample({.source = 2}, {sampledHeader(kUdp6)}));
  }
  std::vector<std::string> wanted;
  memory_.tables.wanted<IPv4>([&](const auto& record) { wanted.push_back(record.key.str()); });
  memory_.tables.wanted<IPv6>([&](const auto& record) { wanted.push_back(record.key.str()); });
  EXPECT_THAT(wanted,
              testing::UnorderedElementsAre("16777215/9/10.0.0.1/10.0.0.2/6/1234/80/1/Ethernet1",
                                            "16777215/9/10.0.0.1/10.0.0.2/6/1234/80/2/Ethernet2",
                                            "16777215/7/2001:db8::1/2001:db8::2/17/53/5353/2/Ethernet2"));
}

TEST_F(FlowTrackerTest, EveryDatagramAndEverySampleIsCountedOnce) {
  give(SflowText().flowSample({}, {sampledHeader(kTcp4)}).sample(2, {}).sample(77, {}));
  give(SflowText().flowSample({}, {sampledHeader(kTcp4)}).flowSample({}, {}));
  give(SflowText()
           .flowSample({}, {sampledHeader(kTcp4)})
           .flowSample({.source = 5, .input = 5}, {sampledHeader(kTcp4)}));
  give(SflowText().claimed(1));
  EXPECT_EQ(statistic({"datagrams"}), Kiv::Value(4U));
  EXPECT_EQ(statistic({"malformed", "sampleCut"}), Kiv::Value(1U));
  EXPECT_EQ(statistic({"flowSamples"}), Kiv::Value(5U));
  EXPECT_EQ(statistic({"counterSamples"}), Kiv::Value(1U));
  EXPECT_EQ(statistic({"unknownSamples"}), Kiv::Value(1U));
  EXPECT_EQ(statistic({"samplesWithoutFlow", "noHeader"}), Kiv::Value(1U));
  EXPECT_EQ(statistic({"samplesWithoutFlow", "unknownInterface"}), Kiv::Value(1U));
  EXPECT_EQ(statistic({"ipv4", "samplesOfCandidates"}), Kiv::Value(2U));
  EXPECT_EQ(statistic({"ipv4", "samplesOfFlows"}), Kiv::Value(1U));
  EXPECT_EQ(statistic({"ipv4", "flows"}), Kiv::Value(1U));
}

TEST_F(FlowTrackerTest, FlowsAreShown) {
  for (int i = 0; i < 2; ++i) give(SflowText().flowSample({}, {sampledHeader(kTcp4)}));
  std::vector<Kiv::Value> rows;
  tracker().flows([&](Kiv::Value::Object row) { rows.emplace_back(std::move(row)); });
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(*rows[0].member("sampledPackets"), Kiv::Value(200U));
  EXPECT_EQ(*rows[0].member("key")->member("intfId"), Kiv::Value("Ethernet1"));
}

TEST_F(FlowTrackerTest, CandidatesAreShownAsFarAsTheyAreMeant) {
  give(SflowText()
           .flowSample({.source = 1}, {sampledHeader(kTcp4)})
           .flowSample({.source = 2}, {sampledHeader(kTcp4)})
           .flowSample({}, {sampledHeader(kUdp6)}));
  const auto shown = [&](const FlowTracking::FlowPattern& pattern, std::size_t most) {
    std::vector<Kiv::Value> rows;
    const std::size_t met = tracker().candidates(
        pattern, most, [&](Kiv::Value::Object row) { rows.emplace_back(std::move(row)); });
    return std::pair(met, rows);
  };
  FlowTracking::FlowPattern pattern;
  EXPECT_EQ(shown(pattern, 0).first, 3U);
  EXPECT_EQ(shown(pattern, 1).second.size(), 2U);  // of each family one
  pattern.source.emplace("10.0.0.0/8");
  pattern.interface = Pavo::IntfId("Ethernet2");
  const auto [met, rows] = shown(pattern, 10);
  EXPECT_EQ(met, 1U);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(*rows[0].member("samples"), Kiv::Value(1U));
  EXPECT_EQ(*rows[0].member("lastSampled"), Kiv::Value(clock_.now()));
  EXPECT_EQ(*rows[0].member("key")->member("intfId"), Kiv::Value("Ethernet2"));
}

TEST_F(FlowTrackerTest, StatisticsTellTheBoundsAndTheInterfaces) {
  EXPECT_EQ(statistic({"limits", "samplesToLearn"}), Kiv::Value(limits_.samplesToLearn));
  EXPECT_EQ(statistic({"limits", "maxFlows"}), Kiv::Value(limits_.maxFlows));
  EXPECT_EQ(Json::text(statistic({"interfaces"})),
            R"([{"index":1,"name":"Ethernet1","agent":null},{"index":2,"name":"Ethernet2","agent":null}])");
}

TEST_F(FlowTrackerTest, TicksAgeBothFamilies) {
  for (int i = 0; i < 2; ++i)
    give(SflowText().flowSample({}, {sampledHeader(kTcp4)}).flowSample({}, {sampledHeader(kUdp6)}));
  clock_.advance(limits_.idleTimeout);
  tracker().tick();
  EXPECT_EQ(tracker().table<IPv4>().size() + tracker().table<IPv6>().size(), 0U);
  EXPECT_EQ(sink_.records4.size(), 1U);
  EXPECT_EQ(sink_.records6.size(), 1U);
}

TEST_F(FlowTrackerTest, FinishingTellsRecordsAndLeavesWhatIsWanted) {
  for (int i = 0; i < 2; ++i) give(SflowText().flowSample({}, {sampledHeader(kUdp6)}));
  tracker().finish();
  ASSERT_EQ(sink_.records6.size(), 1U);
  EXPECT_EQ(sink_.records6[0].reason, Tracker::EndReason::forcedEnd);
  EXPECT_EQ((memory_.config->map<IPv6>().size()), 1U);
}

// --- Datagrams recorded from other agents, held against what an independent dissector made of them

class RecordedSflowTest : public FlowTrackerTest, public testing::WithParamInterface<const char*> {
 protected:
  using Row = std::map<std::string, std::string>;

  void SetUp() override {
    const char* configured = std::getenv("SFT_REAL_CAPTURES");
    folder_ = configured != nullptr ? configured : "/work/shared/captures";
    capture_ = folder_ / GetParam();
    if (!std::filesystem::exists(capture_)) GTEST_SKIP() << "no capture " << capture_;
  }
  std::vector<Row> truth() const {
    std::ifstream in(folder_ / "truth" / (std::string(GetParam()) + ".sflow.tsv"));
    std::vector<std::string> names;
    std::vector<Row> rows;
    for (std::string line; std::getline(in, line);) {
      std::vector<std::string> columns;
      std::istringstream parts(line);
      for (std::string part; std::getline(parts, part, '\t');) columns.push_back(part);
      if (names.empty()) {
        names = columns;
        continue;
      }
      Row& row = rows.emplace_back();
      for (std::size_t i = 0; i < names.size(); ++i) row[names[i]] = columns.at(i);
    }
    return rows;
  }
  // Every UDP payload of the capture.
  void giveAll() {
    Capture::CaptureReader reader(capture_.string());
    Capture::ReceivedPacket packet;
    while (reader.next(packet) == Capture::CaptureReader::Result::packet) {
      Pexa::ParsedPacket parsed(packet.pkt);
      parsed.maybeDoFullParse();
      const auto& udp = parsed.headers().back();
      ASSERT_EQ(udp.name(), Pexa::HeaderName::Udp);
      const std::uint8_t* at = packet.pkt.offsetFront(udp.offset(), 8);
      const std::uint32_t length = Pavo::load16(at + 4) - 8U;
      tracker().datagram({packet.pkt.offsetFront(udp.offset() + 8, length), length});
    }
  }
  static bool isFlowSample(const Row& row) { return row.at("type") == "0:1" || row.at("type") == "0:3"; }
  // "FORMAT:NUMBER" when it is a plain interface index.
  static std::uint32_t index(const std::string& port) {
    const auto number = static_cast<std::uint32_t>(std::stoul(port.substr(2)));
    return port.starts_with("0:") && number != 0x3fffffff ? number : 0;
  }

  std::filesystem::path folder_;
  std::filesystem::path capture_;
};

TEST_P(RecordedSflowTest, IsUnderstoodAsAnIndependentDissectorUnderstandsIt) {
  limits_.samplesToLearn = 1;
  limits_.maxFlows = limits_.maxCandidates = 100000;
  const auto rows = truth();
  ASSERT_FALSE(rows.empty());
  std::map<std::string, std::uint64_t> expected;  // packets by flow, scaled
  std::uint64_t flowSamples = 0;
  std::uint64_t counterSamples = 0;
  for (const Row& row : rows) {
    if (!isFlowSample(row)) {
      ++counterSamples;
      continue;
    }
    ++flowSamples;
    const std::uint32_t source = static_cast<std::uint32_t>(std::stoul(row.at("source_index")));
    interfaces_.add({std::nullopt, source, Pavo::IntfId("if" + row.at("source_index")), 1});
    const bool in = source == index(row.at("in"));
    const bool out = source == index(row.at("out"));
    const bool l4 = (row.at("proto") == "6" || row.at("proto") == "17") && row.at("sport") != "-";
    if (!l4 || (!in && !out)) continue;
    const std::string key = row.at("src") + " " + row.at("sport") + " " + row.at("dst") + " " +
                            row.at("dport") + " " + row.at("proto") + (in ? " in " : " out ") + "if" +
                            row.at("source_index");
    expected[key] += std::stoull(row.at("rate"));
  }
  giveAll();

  std::map<std::string, std::uint64_t> learned;
  tracker().flows([&](const Kiv::Value& row) {
    const Kiv::Value& key = *row.member("key");
    const Kiv::Value& flow = *key.member("ipFlowKey");
    const auto text = [&](const char* name) { return flow.member(name)->text(); };
    const bool in = key.member("direction")->text() == "1";
    learned[text("srcAddr") + " " + text("srcPort") + " " + text("dstAddr") + " " + text("dstPort") + " " +
            text("ipProto") + (in ? " in " : " out ") + key.member("intfId")->text()] +=
        std::stoull(row.member("sampledPackets")->text());
  });
  EXPECT_EQ(learned, expected);
  EXPECT_EQ(statistic({"flowSamples"}), Kiv::Value(flowSamples));
  EXPECT_EQ(statistic({"counterSamples"}), Kiv::Value(counterSamples));
}

INSTANTIATE_TEST_SUITE_P(Captures, RecordedSflowTest,
                         testing::Values("sflow5-datagrams-a.pcap", "sflow5-other-agents-a.pcap"),
                         [](const auto& tested) {
                           std::string name = tested.param;
                           std::erase_if(name,
                                         [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); });
                           return name;
                         });

}  // namespace
