// Network types: interface identifiers, addresses, packets as bytes, and views of the headers in them.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "KivMap.h"
#include "KivValue.h"

namespace Pavo {

// Identifies an interface by its name, held in place so that it can stand in shared memory. The empty value
// means that there is no interface.
class IntfId {
 public:
  static constexpr std::size_t kMost = 22;  // bytes of the longest name

  constexpr IntfId() = default;
  // Throws Kiv::ValueError when the name is longer than kMost or holds a NUL.
  explicit IntfId(std::string_view name);

  std::string_view name() const { return {text_.data(), ::strnlen(text_.data(), text_.size())}; }
  bool empty() const { return text_[0] == '\0'; }
  bool operator==(const IntfId& other) const {
    // Three words, of which the last two overlap: a call of memcmp is three times as long.
    constexpr std::size_t kLast = kMost + 1 - sizeof(std::uint64_t);
    return (differs(other, 0) | differs(other, 8) | differs(other, kLast)) == 0;
  }
  std::strong_ordering operator<=>(const IntfId& other) const { return name().compare(other.name()) <=> 0; }
  std::uint32_t hash(unsigned seed) const;
  // The bytes as three words, the last one filled up with a 0: for what compares, hashes and copies ids for
  // each packet.
  std::array<std::uint64_t, 3> words() const {
    std::array<std::uint64_t, 3> words;
    std::memcpy(words.data(), text_.data(), 2 * sizeof(std::uint64_t));
    std::memcpy(&words[2], text_.data() + text_.size() - sizeof(std::uint64_t), sizeof(std::uint64_t));
    words[2] >>= 8;  // its first byte is the last one of the second word
    return words;
  }

 private:
  std::uint64_t differs(const IntfId& other, std::size_t at) const {
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    std::memcpy(&a, text_.data() + at, sizeof(a));
    std::memcpy(&b, other.text_.data() + at, sizeof(b));
    return a ^ b;
  }

  std::array<char, kMost + 1> text_{};  // unused bytes are 0
};
static_assert(sizeof(IntfId) == 23);
// Places interfaces in the maps that are asked for each packet: as good as IntfId::hash for names, and
// inline.
struct IntfIdHash {
  std::uint64_t operator()(const IntfId& intfId) const {
    static const std::uint64_t seed = Kiv::hashSeed() | 1;
    std::uint64_t hash = seed;
    for (const std::uint64_t word : intfId.words()) {
      hash = (hash ^ word) * 0x9e3779b97f4a7c15U;
      hash ^= hash >> 32;
    }
    return hash * seed;
  }
};
std::ostream& operator<<(std::ostream& out, const IntfId& intfId);

// An address as it stands in a packet: network byte order.
template <std::size_t N>
struct Address {
  static constexpr std::size_t kBytes = N;
  std::array<std::uint8_t, N> bytes{};
  auto operator<=>(const Address&) const = default;
};
using IpAddr = Address<4>;
using Ip6Addr = Address<16>;
// Dotted quad, or RFC 5952.
std::string stringValue(const IpAddr& address);
std::string stringValue(const Ip6Addr& address);
// Throws Kiv::ValueError when the text is no address of the family.
template <class A>
A addressFromText(std::string_view text);
template <>
IpAddr addressFromText<IpAddr>(std::string_view text);
template <>
Ip6Addr addressFromText<Ip6Addr>(std::string_view text);

// Names of the address families, as template arguments.
namespace Traits {
struct IPv4 {};
struct IPv6 {};
}  // namespace Traits

// IP protocol numbers.
enum class IpProto : std::uint32_t {
  ipProtoHopopt = 0,
  ipProtoIcmp = 1,
  ipProtoIgmp = 2,
  ipProtoIpip = 4,
  ipProtoTcp = 6,
  ipProtoUdp = 17,
  ipProtoIpv6 = 41,
  ipProtoGre = 47,
  ipProtoEsp = 50,
  ipProtoAh = 51,
  ipProtoIcmpv6 = 58,
  ipProtoOspf = 89,
  ipProtoPim = 103,
  ipProtoSctp = 132,
};
// The enumerator's name, or the number in decimal when it has none.
std::string stringValue(IpProto protocol);

inline std::uint16_t load16(const std::uint8_t* at) {
  return static_cast<std::uint16_t>(at[0] << 8 | at[1]);
}
inline std::uint32_t load32(const std::uint8_t* at) {
  return std::uint32_t{load16(at)} << 16 | load16(at + 2);
}

// A packet's captured bytes. It does not own them: they stay valid while the packet is being processed.
class Pkt {
 public:
  Pkt() = default;
  // REQUIRES: `captured` bytes at `front`. The wire length may be smaller than what was captured (captures
  // lie).
  Pkt(const std::uint8_t* front, std::uint32_t captured, std::uint32_t wireLength)
      : front_(front), captured_(captured), wireLength_(wireLength) {}

  const std::uint8_t* front() const { return front_; }
  std::uint32_t capturedLength() const { return captured_; }
  std::uint32_t wireLength() const { return wireLength_; }

  // The bytes at an offset. REQUIRES: they lie within the captured bytes; asserts so.
  const std::uint8_t* offsetFront(std::uint32_t offset, std::uint32_t length) const {
    if (offset > captured_ || length > captured_ - offset) outside(offset, length, captured_);
    return front_ + offset;
  }

 private:
  [[noreturn]] static void outside(std::uint32_t offset, std::uint32_t length, std::uint32_t captured);

  const std::uint8_t* front_ = nullptr;
  std::uint32_t captured_ = 0;
  std::uint32_t wireLength_ = 0;
};

// Views of header bytes; each is valid as long as the bytes are.
class IpHdr {
 public:
  static constexpr std::uint32_t kBytes = 20;  // without options
  explicit IpHdr(const std::uint8_t* at) : at_(at) {}
  IpAddr src() const { return address(12); }
  IpAddr dst() const { return address(16); }
  // Source and destination, one behind the other.
  const std::uint8_t* addresses() const { return at_ + 12; }
  std::uint32_t protocolNum() const { return at_[9]; }
  // Bytes of the packet from the IP header on, as the length field says.
  std::uint32_t packetBytes() const { return load16(at_ + 2); }

 private:
  IpAddr address(std::size_t offset) const {
    IpAddr result;
    std::memcpy(result.bytes.data(), at_ + offset, IpAddr::kBytes);
    return result;
  }
  const std::uint8_t* at_;
};

class Ip6Hdr {
 public:
  static constexpr std::uint32_t kBytes = 40;
  explicit Ip6Hdr(const std::uint8_t* at) : at_(at) {}
  Ip6Addr src() const { return address(8); }
  Ip6Addr dst() const { return address(24); }
  const std::uint8_t* addresses() const { return at_ + 8; }
  std::uint32_t protocolNum() const { return at_[6]; }
  // The payload length field and the fixed header: 65575 for a full payload, so wider than 16 bits.
  std::uint32_t packetBytes() const { return std::uint32_t{load16(at_ + 4)} + kBytes; }

 private:
  Ip6Addr address(std::size_t offset) const {
    Ip6Addr result;
    std::memcpy(result.bytes.data(), at_ + offset, Ip6Addr::kBytes);
    return result;
  }
  const std::uint8_t* at_;
};

// What TCP and UDP have in common: the ports in the first four bytes.
class L4Ports {
 public:
  static constexpr std::uint32_t kBytes = 4;
  explicit L4Ports(const std::uint8_t* at) : at_(at) {}
  std::uint16_t srcPort() const { return load16(at_); }
  std::uint16_t dstPort() const { return load16(at_ + 2); }

 private:
  const std::uint8_t* at_;
};

}  // namespace Pavo

namespace Kiv {
template <>
struct ValueTraits<Pavo::IntfId> {
  static constexpr std::string_view kTypeName = "interface";
  static Value toValue(const Pavo::IntfId& value) { return Value(value.name()); }
  static Pavo::IntfId fromValue(const Value& value) {
    return Pavo::IntfId(ValueTraits<String>::fromValue(value));
  }
};
template <std::size_t N>
struct ValueTraits<Pavo::Address<N>> {
  static constexpr std::string_view kTypeName = N == 4 ? "IPv4 address" : "IPv6 address";
  static Value toValue(const Pavo::Address<N>& value) { return Value(Pavo::stringValue(value)); }
  static Pavo::Address<N> fromValue(const Value& value) {
    return Pavo::addressFromText<Pavo::Address<N>>(ValueTraits<String>::fromValue(value));
  }
};
}  // namespace Kiv
