// Writes the corpus of the packet and the capture targets anew: make_corpus FOLDER.
#include <filesystem>
#include <iostream>

#include "CaptureFile.h"
#include "PacketBuilder.h"

namespace {

using TestSupport::Packet;
using TestSupport::PacketBuilder;
using TestSupport::PcapngText;
using TestSupport::PcapText;

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

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: make_corpus FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder(arguments[1]);
  for (const char* name : {"packet", "capture"}) std::filesystem::create_directories(folder / name);
  writePackets(folder / "packet");
  writeCaptures(folder / "capture");
  return 0;
}
