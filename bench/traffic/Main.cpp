// Makes traffic to measure with: a capture, the wanted offloads of its flows, and what each flow has in it.
//
//   bench_traffic --out DIR [--flows N] [--packets N] [--seed N] [--both-directions]
//
// Each flow has one packet, and all that are left go to the flow of rank r in proportion to 1/r, in random
// order. Frames have one 802.1Q tag and 64, 594 or 1518 bytes (7:4:1), and never less than their headers.
// 200,000 packets a second pass, from a full five minutes on.
//
//   traffic.pcap            the capture
//   wanted-IPv4, -IPv6      objects for `sft table put`: each flow as it enters at Ethernet1, and with
//   --both-directions as it leaves at Ethernet2 flows.tsv               family, VLAN, source, its port,
//   destination, its port, protocol, packets, octets (of IP)
#include <fmt/format.h>
#include <fmt/os.h>
#include <pcap/pcap.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "FlowSet.h"

namespace SftBench {
namespace {

constexpr std::int64_t kStart = 1'700'000'100;  // seconds since 1970, a multiple of 300
constexpr std::uint32_t kPerSecond = 200'000;
constexpr std::size_t kMostFrame = 1518;

struct Options {
  std::filesystem::path out;
  std::uint32_t flows = 2000;
  std::uint32_t packets = 2'000'000;
  std::uint64_t seed = 20240229;
  bool bothDirections = false;
};

struct Count {
  std::uint64_t packets = 0;
  std::uint64_t octets = 0;
};

// The flow of each packet.
std::vector<std::uint32_t> order(const Options& options, std::mt19937_64& random) {
  std::vector<std::uint32_t> order(options.packets);
  std::vector<double> weights(options.flows);
  for (std::uint32_t rank = 0; rank < options.flows; ++rank) {
    order[rank] = rank;
    weights[rank] = 1.0 / (rank + 1.0);
  }
  std::discrete_distribution<std::uint32_t> ranks(weights.begin(), weights.end());
  std::generate(order.begin() + options.flows, order.end(), [&] { return ranks(random); });
  std::shuffle(order.begin(), order.end(), random);
  return order;
}

std::size_t frameBytes(std::mt19937_64& random) {
  const std::uint64_t draw = random() % 12;
  return draw < 7 ? 64 : draw < 11 ? 594 : kMostFrame;
}

class Capture {
 public:
  explicit Capture(const std::string& path)
      : handle_(::pcap_open_dead(DLT_EN10MB, 65535)), dumper_(::pcap_dump_open(handle_, path.c_str())) {
    if (dumper_ == nullptr) throw std::runtime_error(::pcap_geterr(handle_));
  }
  ~Capture() {
    ::pcap_dump_close(dumper_);
    ::pcap_close(handle_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  void add(std::span<const std::uint8_t> frame) {
    pcap_pkthdr header{};
    header.ts.tv_sec = kStart + number_ / kPerSecond;
    header.ts.tv_usec = number_ % kPerSecond * (1'000'000 / kPerSecond);
    header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
    ::pcap_dump(reinterpret_cast<unsigned char*>(dumper_), &header, frame.data());
    ++number_;
  }
  void close() {
    if (::pcap_dump_flush(dumper_) != 0) throw std::runtime_error("traffic.pcap cannot be written");
  }

 private:
  pcap_t* handle_;
  pcap_dumper_t* dumper_;
  std::uint32_t number_ = 0;
};

std::vector<Count> writeCapture(const Options& options) {
  std::mt19937_64 random(options.seed);
  std::vector<Count> counts(options.flows);
  Capture capture(options.out / "traffic.pcap");
  std::array<std::uint8_t, kMostFrame> bytes;
  for (const std::uint32_t number : order(options, random)) {
    const TrafficFlow flow(number);
    const std::span frame(bytes.data(), std::max(frameBytes(random), flow.headerBytes()));
    flow.write(frame);
    capture.add(frame);
    ++counts[number].packets;
    counts[number].octets += TrafficFlow::octets(frame.size());
  }
  capture.close();
  return counts;
}

void writeWanted(fmt::ostream& file, const TrafficFlow& flow, int direction) {
  file.print(
      R"({{"key":{{"ipFlowKey":{{"vlan":{},"srcAddr":"{}","dstAddr":"{}","ipProto":{},"srcPort":{},"dstPort":{}}},"direction":{},"intfId":"Ethernet{}"}}}})"
      "\n",
      flow.vlan, flow.source(), flow.destination(), flow.protocol, flow.sourcePort, flow.destinationPort,
      direction, direction);
}

void writeFlows(const Options& options, const std::vector<Count>& counts) {
  auto truth = fmt::output_file((options.out / "flows.tsv").string());
  auto wanted4 = fmt::output_file((options.out / "wanted-IPv4").string());
  auto wanted6 = fmt::output_file((options.out / "wanted-IPv6").string());
  for (std::uint32_t number = 0; number < options.flows; ++number) {
    const TrafficFlow flow(number);
    const Count& count = counts[number];
    truth.print("{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\n", flow.ipv6() ? "IPv6" : "IPv4", flow.vlan,
                flow.source(), flow.sourcePort, flow.destination(), flow.destinationPort, flow.protocol,
                count.packets, count.octets);
    for (const int direction : {1, 2}) {
      if (direction == 1 || options.bothDirections)
        writeWanted(flow.ipv6() ? wanted6 : wanted4, flow, direction);
    }
  }
}

void make(const Options& options) {
  if (options.packets < options.flows)
    throw std::runtime_error("--packets: fewer than --flows, and each flow has one at least");
  std::filesystem::create_directories(options.out);
  writeFlows(options, writeCapture(options));
}

}  // namespace
}  // namespace SftBench

int main(int argc, char** argv) {
  SftBench::Options options;
  CLI::App app("Makes a capture, the wanted offloads of its flows, and what each flow has in it.");
  app.add_option("--out", options.out, "folder for the files")->required();
  app.add_option("--flows", options.flows)->check(CLI::Range(1U, SftBench::TrafficFlow::kMost));
  app.add_option("--packets", options.packets)->check(CLI::Range(1U, 1'000'000'000U));
  app.add_option("--seed", options.seed);
  app.add_flag("--both-directions", options.bothDirections, "flows are wanted where they leave, too");
  CLI11_PARSE(app, argc, argv);
  try {
    SftBench::make(options);
  } catch (const std::exception& error) {
    fmt::print(stderr, "bench_traffic: {}\n", error.what());
    return 1;
  }
  return 0;
}
