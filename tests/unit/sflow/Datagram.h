// A reader of sFlow datagrams of the tests' own, independent of the writer: it takes the words as they come.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

namespace TestSupport {

struct SflowFlowSample {
  std::uint32_t sequence, source, rate, pool, drops, input, output;
  std::uint32_t frameLength, stripped;
  std::vector<std::uint8_t> header;
  std::uint32_t inVlan, inPriority, outVlan, outPriority;
};
struct SflowCounterSample {
  std::uint32_t sequence, source;
  std::vector<std::uint32_t> words;  // of the interface counters, ifIndex first
};
struct SflowDatagram {
  std::uint32_t subAgent = 0;
  std::uint32_t sequence = 0;
  std::uint32_t uptime = 0;
  std::vector<SflowFlowSample> flows;
  std::vector<SflowCounterSample> counters;
};

class SflowReader {
 public:
  explicit SflowReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  // Throws std::runtime_error at the first word that is not as the standard has it.
  SflowDatagram read() {
    SflowDatagram datagram;
    want(5, "version");
    const std::uint32_t addressType = word();
    skip(addressType == 1 ? 4 : 16);
    datagram.subAgent = word();
    datagram.sequence = word();
    datagram.uptime = word();
    for (std::uint32_t left = word(); left != 0; --left) {
      const std::uint32_t format = word();
      const std::size_t end = word() + at_;
      if (format == 1) {
        datagram.flows.push_back(flow());
      } else if (format == 2) {
        datagram.counters.push_back(counter());
      } else {
        throw std::runtime_error("sample format");
      }
      if (at_ != end) throw std::runtime_error("sample length");
    }
    if (at_ != bytes_.size()) throw std::runtime_error("bytes behind the last sample");
    return datagram;
  }

 private:
  SflowFlowSample flow() {
    SflowFlowSample sample{};
    for (auto* field : {&sample.sequence, &sample.source, &sample.rate, &sample.pool, &sample.drops,
                        &sample.input, &sample.output}) {
      *field = word();
    }
    want(2, "records");
    want(1, "sampled header");
    skip(4);
    want(1, "Ethernet");
    sample.frameLength = word();
    sample.stripped = word();
    const std::uint32_t length = word();
    sample.header.assign(bytes_.begin() + static_cast<std::ptrdiff_t>(at_),
                         bytes_.begin() + static_cast<std::ptrdiff_t>(at_ + length));
    skip((length + 3) / 4 * 4);
    want(1001, "extended switch");
    want(16, "its length");
    for (auto* field : {&sample.inVlan, &sample.inPriority, &sample.outVlan, &sample.outPriority}) {
      *field = word();
    }
    return sample;
  }
  SflowCounterSample counter() {
    SflowCounterSample sample{word(), word(), {}};
    want(1, "records");
    want(1, "interface counters");
    want(88, "their length");
    for (int i = 0; i < 22; ++i) sample.words.push_back(word());
    return sample;
  }
  std::uint32_t word() {
    skip(4);
    const auto* b = bytes_.data() + at_ - 4;
    return std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
  }
  void want(std::uint32_t value, const char* what) {
    if (word() != value) throw std::runtime_error(what);
  }
  void skip(std::size_t bytes) {
    if (bytes > bytes_.size() - at_) throw std::runtime_error("cut off");
    at_ += bytes;
  }
  std::span<const std::uint8_t> bytes_;
  std::size_t at_ = 0;
};

}  // namespace TestSupport
