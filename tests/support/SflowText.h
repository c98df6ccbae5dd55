// sFlow datagrams that a test writes word by word, right ones and wrong ones.
//
//   SflowText().flowSample({.source = 1, .input = 1}, {sampledHeader(packet), extendedSwitch(10)}).bytes()
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "PacketBuilder.h"

namespace TestSupport {

class XdrText {
 public:
  XdrText& word(std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
    return *this;
  }
  template <class Bytes>
  XdrText& raw(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  XdrText& pad() {
    bytes_.resize((bytes_.size() + 3) / 4 * 4);
    return *this;
  }
  // A length, the bytes, and what fills them up.
  template <class Bytes>
  XdrText& opaque(const Bytes& bytes) {
    return word(static_cast<std::uint32_t>(bytes.size())).raw(bytes).pad();
  }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

// A record of a flow sample: its format and its bytes.
struct SflowRecord {
  std::uint32_t format = 0;
  XdrText body;
};

inline SflowRecord sampledHeader(const std::vector<std::uint8_t>& header, std::uint32_t frameBytes,
                                 std::uint32_t stripped = 4, std::uint32_t protocol = 1) {
  return {1, XdrText().word(protocol).word(frameBytes).word(stripped).opaque(header)};
}
// As an agent samples it: the first 128 bytes, and the frame check sequence counted but not there.
inline SflowRecord sampledHeader(const Packet& packet) {
  auto header = packet.bytes;
  if (header.size() > 128) header.resize(128);
  return sampledHeader(header, packet.wireLength + 4);
}
inline SflowRecord extendedSwitch(std::uint32_t inVlan) {
  return {1001, XdrText().word(inVlan).word(0).word(inVlan).word(0)};
}
template <class Address>
SflowRecord sampledIp(const Address& src, const Address& dst, std::uint32_t protocol, std::uint32_t srcPort,
                      std::uint32_t dstPort, std::uint32_t octets) {
  return {Address::kBytes == 4 ? 3U : 4U, XdrText()
                                              .word(octets)
                                              .word(protocol)
                                              .raw(src.bytes)
                                              .raw(dst.bytes)
                                              .word(srcPort)
                                              .word(dstPort)
                                              .word(0)
                                              .word(0)};
}

struct SflowSampleHead {
  std::uint32_t sequence = 1;
  std::uint32_t sourceType = 0;
  std::uint32_t source = 1;
  std::uint32_t rate = 100;
  std::uint32_t inputFormat = 0;
  std::uint32_t input = 1;
  std::uint32_t outputFormat = 0;
  std::uint32_t output = 2;
};

class SflowText {
 public:
  explicit SflowText(const std::string& agent = "192.0.2.1", std::uint32_t subAgent = 0,
                     std::uint32_t sequence = 1)
      : subAgent_(subAgent), sequence_(sequence) {
    if (agent.find(':') == std::string::npos) {
      agent_.word(1).raw(address4(agent).bytes);
    } else {
      agent_.word(2).raw(address6(agent).bytes);
    }
  }

  SflowText& flowSample(const SflowSampleHead& head, const std::vector<SflowRecord>& records) {
    XdrText body;
    body.word(head.sequence).word(head.sourceType << 24 | head.source).word(head.rate).word(0).word(0);
    body.word(head.inputFormat << 30 | head.input).word(head.outputFormat << 30 | head.output);
    return sample(1, with(body, records));
  }
  SflowText& expandedFlowSample(const SflowSampleHead& head, const std::vector<SflowRecord>& records) {
    XdrText body;
    body.word(head.sequence).word(head.sourceType).word(head.source).word(head.rate).word(0).word(0);
    body.word(head.inputFormat).word(head.input).word(head.outputFormat).word(head.output);
    return sample(3, with(body, records));
  }
  // Any sample, of these bytes.
  SflowText& sample(std::uint32_t format, const XdrText& body) {
    samples_.word(format).opaque(body.bytes());
    ++count_;
    return *this;
  }
  // Claims so many samples, whatever there are.
  SflowText& claimed(std::uint32_t count) {
    count_ = count;
    return *this;
  }
  std::vector<std::uint8_t> bytes() const {
    XdrText all;
    all.word(5).raw(agent_.bytes()).word(subAgent_).word(sequence_).word(1000).word(count_);
    return all.raw(samples_.bytes()).bytes();
  }

 private:
  static XdrText with(XdrText body, const std::vector<SflowRecord>& records) {
    body.word(static_cast<std::uint32_t>(records.size()));
    for (const SflowRecord& record : records) body.word(record.format).opaque(record.body.bytes());
    return body;
  }

  XdrText agent_;
  std::uint32_t subAgent_;
  std::uint32_t sequence_;
  XdrText samples_;
  std::uint32_t count_ = 0;
};

}  // namespace TestSupport
