// Capture files that a test writes byte by byte, right ones and wrong ones.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "PacketBuilder.h"

namespace TestSupport {

// Bytes in either byte order.
class ByteText {
 public:
  explicit ByteText(bool bigEndian = false) : bigEndian_(bigEndian) {}
  ByteText& u16(std::uint32_t value) { return number(value, 2); }
  ByteText& u32(std::uint32_t value) { return number(value, 4); }
  template <class Bytes>
  ByteText& raw(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  ByteText& padTo4() {
    bytes_.resize((bytes_.size() + 3) / 4 * 4);
    return *this;
  }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }
  bool bigEndian() const { return bigEndian_; }

  void writeTo(const std::string& path) const {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
  }

 private:
  ByteText& number(std::uint32_t value, unsigned bytes) {
    for (unsigned i = 0; i < bytes; ++i) {
      const unsigned shift = 8 * (bigEndian_ ? bytes - 1 - i : i);
      bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    return *this;
  }
  std::vector<std::uint8_t> bytes_;
  bool bigEndian_;
};

struct PcapOptions {
  bool bigEndian = false;
  bool nanoseconds = false;
  std::uint32_t linkType = 1;
  std::uint32_t snapLength = 262144;
};

// A pcap file.
class PcapText {
 public:
  explicit PcapText(PcapOptions options = {}) : text_(options.bigEndian) {
    text_.u32(options.nanoseconds ? 0xa1b23c4d : 0xa1b2c3d4).u16(2).u16(4).u32(0).u32(0);
    text_.u32(options.snapLength).u32(options.linkType);
  }
  // The fraction is in the file's unit.
  PcapText& packet(const Packet& packet, std::uint32_t seconds = 1'700'000'000, std::uint32_t fraction = 0) {
    return record(seconds, fraction, static_cast<std::uint32_t>(packet.bytes.size()), packet.wireLength,
                  packet.bytes);
  }
  // A record whose lengths need not be true.
  PcapText& record(std::uint32_t seconds, std::uint32_t fraction, std::uint32_t captured, std::uint32_t wire,
                   const std::vector<std::uint8_t>& bytes) {
    text_.u32(seconds).u32(fraction).u32(captured).u32(wire).raw(bytes);
    return *this;
  }
  std::size_t size() const { return text_.bytes().size(); }
  const std::vector<std::uint8_t>& bytes() const { return text_.bytes(); }
  void writeTo(const std::string& path) const { text_.writeTo(path); }

 private:
  ByteText text_;
};

// A pcapng file of one section or more; each section begins with its own header.
class PcapngText {
 public:
  explicit PcapngText(bool bigEndian = false) : bigEndian_(bigEndian), text_(bigEndian) {
    block(0x0a0d0d0a, ByteText(bigEndian).u32(0x1a2b3c4d).u16(1).u16(0).u32(0xffffffff).u32(0xffffffff));
  }
  PcapngText& interface(std::uint32_t linkType = 1) {
    return block(1, ByteText(bigEndian_).u16(linkType).u16(0).u32(262144));
  }
  // The time in microseconds.
  PcapngText& packet(const Packet& packet, std::uint32_t interface = 0,
                     std::uint64_t time = 1'700'000'000'000'000) {
    ByteText body(bigEndian_);
    body.u32(interface).u32(static_cast<std::uint32_t>(time >> 32)).u32(static_cast<std::uint32_t>(time));
    body.u32(static_cast<std::uint32_t>(packet.bytes.size()))
        .u32(packet.wireLength)
        .raw(packet.bytes)
        .padTo4();
    return block(6, body);
  }
  PcapngText& block(std::uint32_t type, const ByteText& body) {
    const auto length = static_cast<std::uint32_t>(body.bytes().size() + 12);
    text_.u32(type).u32(length).raw(body.bytes()).u32(length);
    return *this;
  }
  PcapngText& append(const PcapngText& other) {
    text_.raw(other.text_.bytes());
    return *this;
  }
  const std::vector<std::uint8_t>& bytes() const { return text_.bytes(); }
  void writeTo(const std::string& path) const { text_.writeTo(path); }

 private:
  bool bigEndian_;
  ByteText text_;
};

}  // namespace TestSupport
