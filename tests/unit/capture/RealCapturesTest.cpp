// Reads a folder of recorded captures and compares what the reader and the parser find in each with what was
// counted in it independently: FOLDER/FILE and FOLDER/truth/FILE.tsv, "#name value" lines before one row a
// tuple.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "PexaPacket.h"
#include "capture/CaptureError.h"
#include "capture/CaptureReader.h"

namespace {

using Pexa::HeaderName;

struct Total {
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  std::uint64_t wireBytes = 0;
  bool operator==(const Total&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Total& total) {
  return out << total.packets << " packets, " << total.bytes << " bytes, " << total.wireBytes
             << " on the wire";
}

// What is in a capture: totals by name, and by "kind version vlan source destination protocol port port".
struct Contents {
  std::map<std::string, std::uint64_t> counts;
  std::map<std::string, Total> tuples;
};

std::filesystem::path folder() {
  const char* set = std::getenv("SFT_CAPTURES");
  return set != nullptr ? set : SFT_CAPTURES_FOLDER;
}

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream in(line);
  for (std::string field; std::getline(in, field, '\t');) fields.push_back(field);
  return fields;
}

struct Truth {
  std::map<std::string, std::string> summary;
  Contents contents;
};

Truth readTruth(const std::filesystem::path& path) {
  Truth truth;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    const auto fields = split(line);
    if (line.starts_with("#")) {
      truth.summary[fields[0].substr(1)] = fields.size() > 1 ? fields[1] : "";
    } else if (fields[0] != "kind") {
      std::string key = fields[0];
      for (std::size_t i = 1; i < 8; ++i) key += ' ' + fields[i];
      truth.contents.tuples[key] = {std::stoull(fields[8]), std::stoull(fields[9]), std::stoull(fields[10])};
    }
  }
  for (const auto& [name, value] : truth.summary) {
    if (!value.empty() && value.find_first_not_of("0123456789") == std::string::npos) {
      truth.contents.counts[name] = std::stoull(value);
    }
  }
  return truth;
}

template <class Header>
void countIp(Contents& contents, Pexa::ParsedPacket& parsed, const Pexa::PacketHeader& ip, unsigned version) {
  const Pavo::Pkt& pkt = parsed.pkt();
  const Header header(pkt.offsetFront(ip.offset(), ip.length()));
  const auto* behind = parsed.header(ip.position() + 1U);
  ASSERT_NE(behind, nullptr);
  const bool l4 = behind->name() == HeaderName::Tcp || behind->name() == HeaderName::Udp;
  std::string ports = "- -";
  if (l4) {
    const Pavo::L4Ports l4Ports(pkt.offsetFront(behind->offset(), behind->length()));
    ports = fmt::format("{} {}", l4Ports.srcPort(), l4Ports.dstPort());
    ++contents.counts[fmt::format("l4_{}{}", behind->name() == HeaderName::Tcp ? "tcp" : "udp", version)];
  }
  ++contents.counts[fmt::format("ip{}", version)];
  const std::string vlan = parsed.tagged() ? std::to_string(parsed.firstTag() & 0xfff) : "-";
  Total& total = contents.tuples[fmt::format("{} {} {} {} {} {} {}", l4 ? "l4" : "ip", version, vlan,
                                             Pavo::stringValue(header.src()), Pavo::stringValue(header.dst()),
                                             header.protocolNum(), ports)];
  ++total.packets;
  total.bytes += header.packetBytes();
  total.wireBytes += pkt.wireLength();
}

void count(Contents& contents, const Pavo::Pkt& captured) {
  // A copy of exactly the captured bytes: a sanitizer sees any read behind them.
  const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[captured.capturedLength()]);
  std::copy_n(captured.front(), captured.capturedLength(), bytes.get());
  Pexa::ParsedPacket parsed(Pavo::Pkt(bytes.get(), captured.capturedLength(), captured.wireLength()));
  parsed.maybeDoFullParse();
  ++contents.counts["packets"];
  contents.counts["wire_bytes"] += captured.wireLength();
  const auto* ip = parsed.firstHeaderIpAnyVersion();
  if (ip == nullptr) return;
  if (ip->name() == HeaderName::Ipv4) {
    countIp<Pavo::IpHdr>(contents, parsed, *ip, 4);
  } else {
    countIp<Pavo::Ip6Hdr>(contents, parsed, *ip, 6);
  }
}

void compare(const Truth& truth, const Contents& found) {
  for (const char* name :
       {"packets", "wire_bytes", "ip4", "ip6", "l4_tcp4", "l4_udp4", "l4_tcp6", "l4_udp6"}) {
    const auto at = found.counts.find(name);
    EXPECT_EQ(at != found.counts.end() ? at->second : 0, truth.contents.counts.at(name)) << name;
  }
  EXPECT_EQ(found.tuples.size(), truth.contents.tuples.size());
  for (const auto& [tuple, total] : truth.contents.tuples) {
    const auto at = found.tuples.find(tuple);
    ASSERT_NE(at, found.tuples.end()) << "missing: " << tuple;
    EXPECT_EQ(at->second, total) << tuple;
  }
}

void checkEthernet(const std::filesystem::path& file, const Truth& truth) {
  Capture::CaptureReader reader(file.string());
  Contents found;
  Capture::ReceivedPacket packet;
  Capture::CaptureReader::Result result{};
  while ((result = reader.next(packet)) == Capture::CaptureReader::Result::packet) count(found, packet.pkt);
  const bool damaged = truth.summary.contains("reader_error");
  EXPECT_EQ(result, damaged ? Capture::CaptureReader::Result::damaged : Capture::CaptureReader::Result::end)
      << reader.error();
  compare(truth, found);
}

// Other link types, alone or beside Ethernet, end the reading with an error that names the file and the type.
void checkRefused(const std::filesystem::path& file) {
  std::string error;
  try {
    Capture::CaptureReader reader(file.string());
    Capture::ReceivedPacket packet;
    while (reader.next(packet) == Capture::CaptureReader::Result::packet) {
    }
    error = reader.error();
  } catch (const Capture::CaptureError& refused) {
    error = refused.what();
  }
  EXPECT_THAT(error, testing::HasSubstr(file.string()));
  EXPECT_THAT(error, testing::HasSubstr("type"));
}

TEST(RealCaptures, HoldWhatWasCountedInThem) {
  if (!std::filesystem::is_directory(folder() / "truth")) {
    GTEST_SKIP() << "no recorded captures with their truth in " << folder()
                 << " (SFT_CAPTURES names another folder)";
  }
  unsigned files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder())) {
    if (!entry.path().extension().string().starts_with(".pcap")) continue;
    SCOPED_TRACE(entry.path().filename().string());
    const Truth truth = readTruth(folder() / "truth" / (entry.path().filename().string() + ".tsv"));
    ASSERT_FALSE(truth.summary.empty()) << "no truth for it";
    if (truth.summary.at("linktypes") == "1:EN10MB") {
      checkEthernet(entry.path(), truth);
    } else {
      checkRefused(entry.path());
    }
    ++files;
  }
  EXPECT_GT(files, 0U);
}

}  // namespace
