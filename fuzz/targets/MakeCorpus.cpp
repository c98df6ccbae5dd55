// Writes the corpus of the packet, frame, capture, datagram and tracker control targets anew: make_corpus
// FOLDER.
#include <filesystem>
#include <iostream>

#include "CaptureFile.h"
#include "PacketBuilder.h"
#include "SflowText.h"

namespace {

using TestSupport::Packet;
using TestSupport::PacketBuilder;
using TestSupport::PcapngText;
using TestSupport::PcapText;
using TestSupport::SflowRecord;
using TestSupport::SflowText;
using TestSupport::XdrText;

PacketBuilder v4(PacketBuilder builder = {}) {
  return builder.ipv4("10.0.0.1", "10.0.0.2");
}
PacketBuilder v6(PacketBuilder builder = {}) {
  return builder.ipv6("2001:db8::1", "2001:db8::2");
}

void write(const std::filesystem::path& folder, const std::string& name,
           const std::vector<std::uint8_t>& bytes) {
  TestSupport::ByteText().raw(bytes).writeTo((folder / name).string());
}

void writePackets(const std::filesystem::path& folder) {
  const auto put = [&](const std::string& name, const PacketBuilder& builder) {
    write(folder, name, builder.build().bytes);
  };
  put("ethernet-only", PacketBuilder());
  put("ethernet-cut", PacketBuilder().cutTo(9));
  put("arp", PacketBuilder().etherType(0x0806).payload(28));
  put("mpls", PacketBuilder().etherType(0x8847).payload(24));
  put("ipv4-tcp", v4().tcp(1234, 80).payload(4));
  put("ipv4-udp", v4().udp(1234, 53).payload(4));
  put("ipv4-icmp", v4().icmp());
  put("ipv4-options", v4().ipv4Options(std::vector<std::uint8_t>(8, 1)).tcp(1, 2));
  put("ipv4-first-fragment", v4().ipv4Fragment(0, true).udp(1, 2));
  put("ipv4-later-fragment", v4().ipv4Fragment(3, false).udp(1, 2));
  put("ipv4-tcp-of-16-bytes", v4().ipv4Fragment(0, true).protocol(6).payload(16));
  put("ipv4-total-length-zero", v4().tcp(1, 2).lengthField(0));
  put("ipv4-total-length-short", v4().tcp(1, 2).lengthField(19));
  put("ipv4-total-length-long", v4().udp(1, 2).lengthField(65535));
  put("ipv4-padded", v4().udp(1, 2).trailer(18));
  put("ipv4-bad-version", v4().tcp(1, 2).versionField(5));
  put("ipv4-bad-header-length", v4().tcp(1, 2).headerWordsField(4));
  put("ipv4-cut", v4().tcp(1, 2).cutTo(40));
  put("ipv6-tcp", v6().tcp(1234, 80).payload(4));
  put("ipv6-udp", v6().udp(1234, 53).payload(4));
  put("ipv6-icmp", v6().icmp());
  put("ipv6-hop-by-hop", v6().ipv6Extension(0).tcp(1, 2));
  put("ipv6-routing", v6().ipv6Extension(43, 16).udp(1, 2));
  put("ipv6-fragment", v6().ipv6Fragment(0, true).udp(1, 2));
  put("ipv6-payload-length-zero", v6().tcp(1, 2).lengthField(0));
  put("ipv6-cut", v6().tcp(1, 2).cutTo(60));
  put("vlan-ipv4-tcp", v4(PacketBuilder().vlan(10)).tcp(1, 2));
  put("vlan-three-ipv6-udp", v6(PacketBuilder().vlan(1, 0x88a8).vlan(2).vlan(0)).udp(1, 2));
  put("vlan-cut", PacketBuilder().vlan(10).vlan(11).cutTo(20));
}

// Frames with what is undone in them before them, as FrameOffloadTarget.cpp reads it.
void writeFrames(const std::filesystem::path& folder) {
  struct Undone {
    std::uint8_t cut = 0, checksumMissing = 1;
    std::uint8_t start = 34, offset = 16;
    std::uint16_t cutBytes = 100;
  };
  const auto put = [&](const std::string& name, const Undone& undone, const PacketBuilder& builder) {
    std::vector<std::uint8_t> bytes{undone.cut,
                                    undone.checksumMissing,
                                    0,
                                    undone.start,
                                    0,
                                    undone.offset,
                                    static_cast<std::uint8_t>(undone.cutBytes >> 8),
                                    static_cast<std::uint8_t>(undone.cutBytes)};
    const Packet packet = builder.build();
    bytes.insert(bytes.end(), packet.bytes.begin(), packet.bytes.end());
    write(folder, name, bytes);
  };
  put("checksum-tcp", {}, v4().tcp(1, 2).payload(5));
  put("checksum-udp-ipv6", {.start = 54, .offset = 6}, v6().udp(1, 2).payload(4));
  put("checksum-behind-the-end", {.start = 200}, v4().tcp(1, 2));
  put("cut-tcp-ipv4", {.cut = 1}, v4().tcp(1, 2).payload(350));
  put("cut-tcp-ipv6", {.cut = 2, .start = 54}, v6().tcp(1, 2).payload(301));
  put("cut-udp-ipv4", {.cut = 3, .offset = 6}, v4().udp(1, 2).payload(250));
  put("cut-udp-ipv6", {.cut = 3, .start = 54, .offset = 6}, v6().udp(1, 2).payload(250));
  put("cut-vlan", {.cut = 1, .start = 38}, v4(PacketBuilder().vlan(10)).tcp(1, 2).payload(350));
  put("cut-options", {.cut = 1, .start = 42},
      v4().ipv4Options(std::vector<std::uint8_t>(8, 1)).tcp(1, 2).payload(350));
  put("cut-hop-by-hop", {.cut = 2, .start = 62}, v6().ipv6Extension(0).tcp(1, 2).payload(350));
  put("cut-routing", {.cut = 2, .start = 70}, v6().ipv6Extension(43, 16).tcp(1, 2).payload(350));
  put("cut-of-another-kind", {.cut = 2}, v4().tcp(1, 2).payload(350));
  put("cut-unknown", {.cut = 4}, v4().udp(1, 2).payload(350));
  put("cut-of-nothing", {.cut = 1, .cutBytes = 0}, v4().tcp(1, 2).payload(350));
  put("cut-no-payload", {.cut = 1}, v4().tcp(1, 2));
  put("cut-off", {.cut = 1}, v4().tcp(1, 2).payload(350).cutTo(50));
}

void writeCaptures(const std::filesystem::path& folder) {
  const Packet tcp = v4().tcp(1, 2).build();
  const Packet udp = v6(PacketBuilder().vlan(5)).udp(1, 2).build();
  write(folder, "pcap", PcapText().packet(tcp).packet(udp).bytes());
  write(folder, "pcap-big-endian", PcapText({true, false, 1, 65535}).packet(tcp).bytes());
  write(folder, "pcap-nanoseconds", PcapText({false, true, 1, 65535}).packet(udp).bytes());
  write(folder, "pcap-empty", PcapText().bytes());
  write(folder, "pcap-linux-sll", PcapText({false, false, 113, 65535}).packet(tcp).bytes());
  write(folder, "pcap-two-gigabytes",
        PcapText().packet(tcp).record(1, 0, 0x80000000, 0x80000000, {1}).bytes());
  auto cut = PcapText().packet(tcp).packet(tcp).bytes();
  cut.resize(cut.size() - 5);
  write(folder, "pcap-cut-off", cut);
  write(folder, "pcapng", PcapngText().interface().packet(tcp).packet(udp).bytes());
  write(folder, "pcapng-big-endian", PcapngText(true).interface().packet(tcp).bytes());
  write(folder, "pcapng-two-interfaces", PcapngText().interface().interface().packet(udp, 1).bytes());
  write(folder, "pcapng-two-link-types", PcapngText().interface().interface(113).packet(udp, 1).bytes());
  write(folder, "pcapng-two-sections",
        PcapngText().interface().append(PcapngText().interface().packet(tcp)).bytes());
  write(folder, "pcapng-no-interface", PcapngText().packet(tcp).bytes());
}

void writeDatagrams(const std::filesystem::path& folder) {
  using TestSupport::sampledHeader;
  using TestSupport::sampledIp;
  const SflowRecord tcp = sampledHeader(v4().tcp(1234, 80).payload(200).build());
  const SflowRecord udp = sampledHeader(v6(PacketBuilder().vlan(5)).udp(53, 5353).build());
  const SflowRecord vlan = TestSupport::extendedSwitch(10);
  const auto put = [&](const std::string& name, const SflowText& text) { write(folder, name, text.bytes()); };
  put("empty", SflowText());
  put("flow-sample", SflowText().flowSample({}, {tcp, vlan}));
  put("flow-sample-egress", SflowText().flowSample({.source = 2}, {udp, vlan}));
  put("flow-samples", SflowText().flowSample({}, {tcp}).flowSample({}, {udp}).flowSample({}, {tcp, vlan}));
  put("expanded-flow-sample", SflowText("2001:db8::1").expandedFlowSample({}, {udp, vlan}));
  put("discarded", SflowText().flowSample({.outputFormat = 1, .output = 258}, {tcp}));
  put("sampled-ipv4",
      SflowText().flowSample({}, {sampledIp(TestSupport::address4("10.0.0.1"),
                                            TestSupport::address4("10.0.0.2"), 6, 1, 2, 60)}));
  put("sampled-ipv6", SflowText().flowSample({}, {sampledIp(TestSupport::address6("::1"),
                                                            TestSupport::address6("::2"), 17, 1, 2, 60)}));
  put("counter-samples", SflowText().sample(2, XdrText().word(1).word(1).word(0)).sample(4, XdrText()));
  put("unknown-sample", SflowText().sample(0x1001, XdrText().word(1)));
  put("unknown-record", SflowText().flowSample({}, {{1003, XdrText().word(1)}, tcp}));
  put("count-that-lies", SflowText().flowSample({}, {tcp}).claimed(0xffffffff));
  put("header-that-lies",
      SflowText().flowSample({}, {{1, XdrText().word(1).word(100).word(4).word(0xffffffff)}}));
  put("record-short", SflowText().flowSample({}, {{1001, XdrText().word(1)}}));
  auto cut = SflowText().flowSample({}, {tcp, vlan}).bytes();
  cut.resize(cut.size() - 5);
  write(folder, "cut-off", cut);
  write(folder, "version-4", XdrText().word(4).word(1).bytes());
}

// Histories and what is asked behind them, as TrackerControlTarget.cpp reads them.
void writeTrackerControl(const std::filesystem::path& folder) {
  using Steps = std::vector<std::pair<std::uint8_t, std::uint8_t>>;
  constexpr std::uint8_t kSample = 0, kCutSample = 2, kAdmit = 3, kCount = 4, kWait = 5;
  const Steps learned{{kSample, 0}, {kSample, 0}, {kSample, 1}, {kSample, 1}, {kSample, 2}, {kSample, 2}};
  const Steps seen{{kSample, 0}, {kSample, 3}, {kSample, 5}, {kSample, 8}, {kSample, 12}, {kCutSample, 40}};
  Steps counted = learned;
  counted.insert(counted.end(),
                 {{kAdmit, 0}, {kAdmit, 2}, {kWait, 1}, {kCount, 0}, {kCount, 18}, {kWait, 1}});
  Steps aged = counted;
  aged.insert(aged.end(), {{kSample, 4}, {kWait, 60}, {kSample, 6}});
  const auto put = [&](const std::string& name, const Steps& steps, std::string_view lines) {
    std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(steps.size())};
    for (const auto& [kind, which] : steps) bytes.insert(bytes.end(), {kind, which});
    bytes.insert(bytes.end(), lines.begin(), lines.end());
    write(folder, name, bytes);
  };
  constexpr std::string_view kStatistics = R"({"request":"statistics"})", kFlows = R"({"request":"flows"})",
                             kCandidates = R"({"request":"candidates"})";
  put("statistics-of-nothing", {}, kStatistics);
  put("statistics", counted, kStatistics);
  put("flows", learned, kFlows);
  put("flows-counted", counted, kFlows);
  put("flows-aged", aged, kFlows);
  put("candidates", seen, kCandidates);
  put("candidates-none", learned, kCandidates);
  put("candidates-one", seen, R"({"request":"candidates","most":1})");
  put("candidates-too-many", seen, R"({"request":"candidates","most":1001})");
  put("candidates-negative", seen, R"({"request":"candidates","most":-1})");
  put("candidates-of-a-network", seen,
      R"({"request":"candidates","match":{"source":"10.0.0.0/8","vlan":9}})");
  put("candidates-of-a-port", seen,
      R"({"request":"candidates","match":{"sourcePort":1001,"destinationPort":80,"protocol":6}})");
  put("candidates-of-a-direction", seen,
      R"({"request":"candidates","match":{"direction":2,"interface":"Ethernet2","vrf":16777215}})");
  put("candidates-of-no-pattern", seen, R"({"request":"candidates","match":{"source":"10.0.0.0/33"}})");
  put("unknown", {}, R"({"request":"nothing"})");
  put("no-object", {}, "[1]");
  put("no-line", {}, "");
  put("several", aged,
      std::string(kStatistics) + "\n" + std::string(kCandidates) + "\n{\n" + std::string(kFlows));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: make_corpus FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder(arguments[1]);
  for (const char* name : {"packet", "frame", "capture", "datagram", "tracker_control"})
    std::filesystem::create_directories(folder / name);
  writePackets(folder / "packet");
  writeFrames(folder / "frame");
  writeCaptures(folder / "capture");
  writeDatagrams(folder / "datagram");
  writeTrackerControl(folder / "tracker_control");
  return 0;
}
