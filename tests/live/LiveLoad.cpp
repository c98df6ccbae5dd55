// Load for live ports, counted exactly at both ends.
//
//   live_load send --to ADDRESS [--to ADDRESS] --packets N --rate N [--flows N]
//   live_load receive [--flows N]
//
// The first sends, then tells what it sent; the second tells what it received once its standard input has
// ended and nothing is left. A flow has a source port of its own; flows take turns with the addresses.
// Packets are of 64 to 1500 bytes in turn, and hold their flow and their number in it. Both print one JSON
// object: what a flow had, and for the receiver what came twice, late, or was dropped because it was slow.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::uint16_t kPort = 9000;          // of the receiver
constexpr std::uint16_t kFirstSource = 20000;  // of flow 0
constexpr std::size_t kBatch = 16;             // packets of one flow in a row
constexpr int kBufferBytes = 64 * 1024 * 1024;
constexpr std::array<std::size_t, 8> kPacketBytes = {64, 1500, 128, 64, 594, 256, 1024, 90};

struct Mark {  // what a packet holds
  std::uint32_t flow;
  std::uint32_t number;
};
struct Flow {
  std::uint64_t packets = 0;
  std::uint64_t payloadBytes = 0;
};

[[noreturn]] void failed(const std::string& what) {
  throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

std::string text(const std::vector<Flow>& flows) {
  std::string rows;
  for (std::size_t i = 0; i < flows.size(); ++i) {
    rows += fmt::format("{}{{\"port\":{},\"packets\":{},\"payloadBytes\":{}}}", i == 0 ? "" : ",",
                        kFirstSource + i, flows[i].packets, flows[i].payloadBytes);
  }
  return "[" + rows + "]";
}

std::int64_t now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// Sixteen messages of one system call.
struct Batch {
  std::array<mmsghdr, kBatch> messages{};
  std::array<iovec, kBatch> parts{};
  std::array<std::array<std::uint8_t, 2048>, kBatch> bytes{};

  Batch() {
    for (std::size_t i = 0; i < kBatch; ++i) {
      parts[i] = {bytes[i].data(), bytes[i].size()};
      messages[i].msg_hdr.msg_iov = &parts[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
  }
};

class Sender {
 public:
  Sender(const std::vector<std::string>& addresses, std::size_t flows) : flows_(flows) {
    for (std::size_t i = 0; i < flows; ++i) sockets_.push_back(open(addresses[i % addresses.size()], i));
  }
  // A round of all flows, on time: what the machine is late by is made up for.
  void run(std::uint64_t packets, double rate) {
    const std::int64_t begin = now();
    std::uint64_t sent = 0;
    for (std::size_t flow = 0; sent < packets; flow = (flow + 1) % flows_.size()) {
      const std::int64_t due = begin + static_cast<std::int64_t>(static_cast<double>(sent) / rate * 1e9);
      const timespec until{due / 1'000'000'000, due % 1'000'000'000};
      if (due > now()) ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
      sent += send(flow, std::min<std::uint64_t>(kBatch, packets - sent));
    }
    const double seconds = static_cast<double>(now() - begin) / 1e9;
    fmt::print("{{\"sent\":{},\"seconds\":{:.3f},\"flows\":{}}}\n", sent, seconds, text(flows_));
  }

 private:
  int open(const std::string& address, std::size_t flow) {
    sockaddr_in six4{};
    sockaddr_in6 six{};
    const auto source = static_cast<std::uint16_t>(kFirstSource + flow);
    const bool v4 = ::inet_pton(AF_INET, address.c_str(), &six4.sin_addr) == 1;
    if (!v4 && ::inet_pton(AF_INET6, address.c_str(), &six.sin6_addr) != 1) failed("no address: " + address);
    headers_.push_back(v4 ? 28 : 48);
    const int socket = ::socket(v4 ? AF_INET : AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own4{};
    own4.sin_family = AF_INET;
    own4.sin_port = htons(source);
    sockaddr_in6 own{};
    own.sin6_family = AF_INET6;
    own.sin6_port = htons(source);
    six4.sin_family = AF_INET;
    six4.sin_port = htons(kPort);
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(kPort);
    const auto* from = v4 ? reinterpret_cast<sockaddr*>(&own4) : reinterpret_cast<sockaddr*>(&own);
    const auto* to = v4 ? reinterpret_cast<sockaddr*>(&six4) : reinterpret_cast<sockaddr*>(&six);
    const socklen_t length = v4 ? sizeof six4 : sizeof six;
    if (socket < 0 || ::bind(socket, from, length) != 0 || ::connect(socket, to, length) != 0)
      failed(address);
    return socket;
  }
  std::uint64_t send(std::size_t flow, std::uint64_t most) {
    for (std::size_t i = 0; i < most; ++i) {
      const auto number = static_cast<std::uint32_t>(flows_[flow].packets + i);
      const Mark mark{static_cast<std::uint32_t>(flow), number};
      std::memcpy(batch_.bytes[i].data(), &mark, sizeof mark);
      const std::size_t packet = kPacketBytes[number % kPacketBytes.size()];
      batch_.parts[i].iov_len = std::max(packet, headers_[flow] + sizeof mark) - headers_[flow];
    }
    const int count = ::sendmmsg(sockets_[flow], batch_.messages.data(), static_cast<unsigned>(most), 0);
    if (count < 0 && errno != ENOBUFS && errno != ECONNREFUSED) failed("sending");
    for (int i = 0; i < count; ++i)
      flows_[flow].payloadBytes += batch_.parts[static_cast<std::size_t>(i)].iov_len;
    flows_[flow].packets += static_cast<std::uint64_t>(std::max(count, 0));
    return static_cast<std::uint64_t>(std::max(count, 0));
  }

  std::vector<Flow> flows_;
  std::vector<int> sockets_;
  std::vector<std::size_t> headers_;  // bytes of IP and UDP
  Batch batch_;
};

class Receiver {
 public:
  explicit Receiver(std::size_t flows)
      : flows_(flows), seen_(flows), socket_(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in6 own{};
    own.sin6_family = AF_INET6;
    own.sin6_port = htons(kPort);
    if (::setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &kBufferBytes, sizeof kBufferBytes) != 0 ||
        ::bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
      failed("receiving");
    }
  }
  void run() {
    fmt::print("ready\n");
    std::fflush(stdout);
    std::array<pollfd, 2> waiting{{{socket_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    while (waiting[1].revents == 0) {
      ::poll(waiting.data(), waiting.size(), -1);
      while (take()) continue;
    }
    while (take()) continue;
    fmt::print("{{\"received\":{},\"twice\":{},\"late\":{},\"strange\":{},\"dropped\":{},\"flows\":{}}}\n",
               received_, twice_, late_, strange_, drops(), text(flows_));
  }

 private:
  bool take() {
    for (iovec& part : batch_.parts) part.iov_len = batch_.bytes[0].size();
    const int count = ::recvmmsg(socket_, batch_.messages.data(), kBatch, MSG_DONTWAIT, nullptr);
    for (int i = 0; i < count; ++i) one(static_cast<std::size_t>(i));
    return count > 0;
  }
  void one(std::size_t index) {
    ++received_;
    Mark mark{};
    std::memcpy(&mark, batch_.bytes[index].data(), sizeof mark);
    if (batch_.messages[index].msg_len < sizeof mark || mark.flow >= flows_.size()) {
      ++strange_;
      return;
    }
    std::vector<bool>& seen = seen_[mark.flow];
    if (mark.number < seen.size()) {
      ++(seen[mark.number] ? twice_ : late_);
    } else {
      seen.resize(mark.number + 1);
    }
    seen[mark.number] = true;
    ++flows_[mark.flow].packets;
    flows_[mark.flow].payloadBytes += batch_.messages[index].msg_len;
  }
  std::uint32_t drops() const {
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t length = sizeof memory;
    ::getsockopt(socket_, SOL_SOCKET, SO_MEMINFO, memory.data(), &length);
    return memory[SK_MEMINFO_DROPS];
  }

  std::vector<Flow> flows_;
  std::vector<std::vector<bool>> seen_;  // of each flow: which numbers have come
  int socket_;
  Batch batch_;
  std::uint64_t received_ = 0, twice_ = 0, late_ = 0, strange_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("UDP load over many flows, counted exactly at both ends");
  app.require_subcommand(1);
  std::vector<std::string> addresses;
  std::uint64_t packets = 0;
  double rate = 0;
  std::size_t flows = 64;
  CLI::App* send = app.add_subcommand("send", "sends, then tells what it sent");
  send->add_option("--to", addresses, "addresses of the receiver")->required();
  send->add_option("--packets", packets)->required();
  send->add_option("--rate", rate, "packets a second")->required()->check(CLI::PositiveNumber);
  CLI::App* receive = app.add_subcommand("receive", "tells what it received, once its standard input ended");
  for (CLI::App* each : {send, receive}) each->add_option("--flows", flows)->check(CLI::Range(1, 10000));
  CLI11_PARSE(app, argc, argv);
  try {
    if (send->parsed()) {
      Sender(addresses, flows).run(packets, rate);
    } else {
      Receiver(flows).run();
    }
  } catch (const std::exception& error) {
    fmt::print(stderr, "live_load: {}\n", error.what());
    return 1;
  }
  return 0;
}
