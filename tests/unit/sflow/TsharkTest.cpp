// What the exporter sends, as an independent dissector understands it.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "Datagram.h"
#include "ManualClock.h"
#include "SamplerThings.h"
#include "TempDir.h"
#include "UdpReceiver.h"
#include "sflow/SflowExporter.h"

namespace Sflow {
namespace {

using namespace TestSupport;
using Bytes = std::vector<std::uint8_t>;

std::string output(const std::string& command) {
  std::string text;
  FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
  std::array<char, 4096> buffer;
  for (std::size_t got = 0; (got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
    text.append(buffer.data(), got);
  }
  ::pclose(pipe);
  return text;
}

template <class T>
void put(std::ofstream& out, T value) {
  out.write(reinterpret_cast<const char*>(&value), sizeof(value));
}

// Datagrams to the sFlow port in a capture file.
void writeCapture(const std::string& path, const std::vector<Bytes>& datagrams) {
  std::ofstream out(path, std::ios::binary);
  put<std::uint32_t>(out, 0xa1b2c3d4);
  put<std::uint16_t>(out, 2);
  put<std::uint16_t>(out, 4);
  put<std::uint64_t>(out, 0);
  put<std::uint32_t>(out, 65535);
  put<std::uint32_t>(out, 1);  // Ethernet
  for (const Bytes& datagram : datagrams) {
    const Packet packet =
        PacketBuilder().ipv4("127.0.0.1", "127.0.0.1").udp(40000, 6343).payload(datagram).build();
    put<std::uint64_t>(out, 0);
    put(out, static_cast<std::uint32_t>(packet.bytes.size()));
    put(out, packet.wireLength);
    out.write(reinterpret_cast<const char*>(packet.bytes.data()),
              static_cast<std::streamsize>(packet.bytes.size()));
  }
}

class ToldCounters : public CounterSource {
 public:
  std::uint32_t ports() const override { return 3; }
  IfCounters ifCounters(std::uint32_t portIndex) const override {
    IfCounters counters;
    counters.ifSpeed = 1'000'000'000;
    counters.ifInOctets = 5'000'000'000 + portIndex;
    counters.ifOutUcastPkts = 77 + portIndex;
    return counters;
  }
};

// Values of a field, as they stand one behind the other in a datagram.
std::string values(const std::vector<std::uint64_t>& numbers) {
  std::string text;
  for (const std::uint64_t each : numbers) text += (text.empty() ? "" : ",") + std::to_string(each);
  return text;
}

template <class Item, class Of>
std::string valuesOf(const std::vector<Item>& items, Of of) {
  std::vector<std::uint64_t> numbers;
  for (const Item& each : items) numbers.push_back(of(each));
  return values(numbers);
}

class ExportedDatagrams : public testing::Test {
 protected:
  void SetUp() override {
    if (output("tshark --version").empty()) GTEST_SKIP() << "tshark is not installed";
    ExporterConfig config;
    config.agent = "192.0.2.77";
    config.subAgentId = 4;
    config.collectors = {receiver_.name()};
    SflowExporter exporter(config, &counters_);
    ports_.ports->sampleReceiverIs(&exporter);
    sampleMuch();
    for (int round = 0; round < 3; ++round) {
      clock_.advance(20);
      exporter.countersDue();
      exporter.flush();
    }
    ports_.ports->sampleReceiverIs(nullptr);
    datagrams_ = receiver_.take();
    capture_ = dir_.path() + "/sflow.pcap";
    writeCapture(capture_, datagrams_);
  }
  void sampleMuch() {
    const auto sampler = Kiv::makePtr<TestSampler>(ports_.ports, 1U);
    sampler->egressRate = 2;
    std::vector<Packet> packets;
    for (std::size_t payload = 0; payload < 90; payload += 3) {
      packets.push_back(
          PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").udp(1000, 2000).payload(payload).build());
      packets.push_back(PacketBuilder()
                            .vlan(100, 0x8100, 5)
                            .ipv6("2001:db8::1", "2001:db8::2")
                            .tcp(1, 2)
                            .payload(payload)
                            .build());
      packets.push_back(
          PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").tcp(5, 6).payload(1300).cutTo(200).build());
    }
    for (const Packet& packet : packets) {
      sampler->maybeSampleIngress(packet.pkt(), ports_[0]);
      sampler->maybeSampleEgress(packet.pkt(), ports_[0], ports_[1]);
      sampler->maybeSampleEgress(packet.pkt(), {}, ports_[0]);
    }
  }
  // Of each datagram, a line with its fields behind one another.
  std::string fields(const std::string& names) const {
    return output("tshark -r " + capture_ + " -T fields -E separator=/s -E occurrence=a " + names);
  }
  std::string text() const { return output("tshark -V -r " + capture_); }

  ManualClock clock_;
  TempDir dir_;
  UdpReceiver receiver_;
  ToldCounters counters_;
  FakePorts ports_{3, 12};
  std::vector<Bytes> datagrams_;
  std::string capture_;
};

TEST_F(ExportedDatagrams, AreWellFormed) {
  ASSERT_GT(datagrams_.size(), 20U);
  EXPECT_EQ(output("tshark -r " + capture_ + " -Y '_ws.malformed or _ws.expert or not sflow'"), "");
  // The expert filter also covers the sampled packets, whose headers end after 128 bytes: those are told by
  // "short".
  const std::string all = text();
  EXPECT_EQ(all.find("Malformed"), std::string::npos);
  EXPECT_EQ(all.find("Expert Info"), std::string::npos);
}

TEST_F(ExportedDatagrams, HaveTheirHeaderFieldsAsSent) {
  std::ostringstream expected;
  for (const Bytes& bytes : datagrams_) {
    const SflowDatagram datagram = SflowReader(bytes).read();
    expected << "5 192.0.2.77 4 " << datagram.sequence << ' ' << datagram.uptime << ' '
             << datagram.flows.size() + datagram.counters.size() << '\n';
  }
  EXPECT_EQ(fields("-e sflow_245.version -e sflow_245.agent -e sflow_245.sub_agent_id "
                   "-e sflow_245.sequence_number -e sflow_245.sysuptime -e sflow_245.numsamples"),
            expected.str());
}

TEST_F(ExportedDatagrams, HaveTheirSamplesAsSent) {
  std::ostringstream expected;
  for (const Bytes& bytes : datagrams_) {
    const auto flows = SflowReader(bytes).read().flows;
    expected << valuesOf(flows, [](auto& s) { return s.frameLength; }) << ' '
             << valuesOf(flows, [](auto& s) { return s.stripped; }) << ' '
             << valuesOf(flows, [](auto& s) { return s.header.size(); }) << ' '
             << valuesOf(flows, [](auto& s) { return s.inVlan; }) << ' '
             << valuesOf(flows, [](auto& s) { return s.inPriority; }) << ' '
             << valuesOf(flows, [](auto& s) { return s.outVlan; }) << ' '
             << valuesOf(flows, [](auto& s) { return s.outPriority; }) << '\n';
  }
  EXPECT_EQ(fields("-e sflow_245.header.frame_length -e sflow_245.header.payload_stripped "
                   "-e sflow_245.header.sampled_header_length -e sflow_245.vlan.in -e sflow_245.pri.in "
                   "-e sflow_245.vlan.out -e sflow_245.pri.out"),
            expected.str());
}

// Fields that the dissector shows in its text only: of each flow sample, what stands before its first record.
TEST_F(ExportedDatagrams, HaveTheirSequencesPoolsAndInterfacesAsSent) {
  const std::array names = {"Sequence number: ",       "= Index: ",         "Sampling rate: 1 out of ",
                            "Sample pool: ",           "Dropped packets: ", "Input interface (ifIndex): ",
                            "Output interface value: "};
  std::vector<std::vector<std::uint64_t>> expected;
  for (const Bytes& bytes : datagrams_) {
    const SflowDatagram datagram = SflowReader(bytes).read();
    for (const auto& s : datagram.flows) {
      expected.push_back({s.sequence, s.source, s.rate, s.pool, s.drops, s.input, s.output});
    }
  }
  std::vector<std::vector<std::uint64_t>> shown;
  std::istringstream lines(text());
  bool inFlow = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("    Flow sample, ")) shown.emplace_back();
    inFlow = inFlow ? line.find("Flow record: ") == std::string::npos : line.starts_with("    Flow sample, ");
    for (const std::string_view name : names) {
      const std::size_t at = line.find(name);
      if (inFlow && at != std::string::npos)
        shown.back().push_back(std::stoull(line.substr(at + name.size())));
    }
  }
  EXPECT_EQ(shown, expected);
}

TEST_F(ExportedDatagrams, HaveTheirCountersAsSent) {
  std::string expected;
  for (const Bytes& bytes : datagrams_) {
    const auto counters = SflowReader(bytes).read().counters;
    for (const auto& sample : counters) EXPECT_EQ(sample.words.at(0), sample.source);
    expected += valuesOf(counters, [](auto& s) { return s.source; }) + ' ' +
                valuesOf(counters, [](auto&) { return std::uint64_t{1'000'000'000}; }) + ' ' +
                valuesOf(counters, [](auto& s) { return 5'000'000'000 + s.source - 1; }) + ' ' +
                valuesOf(counters, [](auto& s) { return 77 + s.source - 1; }) + '\n';
  }
  EXPECT_NE(expected.find("1,2,3"), std::string::npos);
  EXPECT_EQ(fields("-e sflow_245.ifindex -e sflow_245.ifspeed -e sflow_245.ifinoct -e sflow_245.ifoutpkt"),
            expected);
}

// The packets in the samples are the packets that were sampled.
TEST_F(ExportedDatagrams, CarryTheSampledPackets) {
  std::string dissected;
  for (const std::string port : {"1000", "5"}) {
    dissected = output(fmt::format(
        "tshark -r {} -T fields -E occurrence=a -e ip.src -Y 'udp.srcport=={} or tcp.srcport=={}'", capture_,
        port, port));
    EXPECT_NE(dissected.find("10.0.0.1"), std::string::npos) << port;
  }
  EXPECT_NE(output("tshark -r " + capture_ + " -T fields -e ipv6.dst").find("2001:db8::2"),
            std::string::npos);
}

}  // namespace
}  // namespace Sflow
