// Takes sFlow version 5 datagrams apart: any agent's, and any bytes that claim to be one.
//
//   if (const auto wrong = decoder.decode(bytes)) ++malformed[*wrong];
//   else for (const FlowSample& sample : decoder.datagram().samples) ...
//
// A datagram is understood whole or not at all: what stands before the malformation is not delivered. Formats
// that this decoder does not know are skipped, as the protocol wants it; so are bytes behind the last sample,
// which some agents send.
//
// Neighbours: SampledFlow.h makes flows of the samples. Threading: one thread a decoder; nothing allocates
// once the largest datagram was met.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "AgentAddress.h"
#include "XdrReader.h"

namespace Tracker {

// What can be wrong with a datagram.
enum class Malformation : std::uint8_t {
  headerCut,     // ends before the samples begin
  version,       // not version 5
  addressType,   // the agent's address is neither IPv4 nor IPv6
  sampleCut,     // ends before its last sample does
  sampleShort,   // a sample is shorter than its fixed part
  recordCut,     // a sample ends before its last record does
  recordShort,   // a record is shorter than its fixed part
  headerLength,  // a sampled header is longer than its record
};
inline constexpr std::size_t kMalformations = 8;
std::string_view nameOf(Malformation malformation);

// An interface as a sample names it.
struct SampledPort {
  // What the number is: an interface index, the reason of a discard, a number of interfaces.
  enum class Format : std::uint8_t { index = 0, discarded = 1, multiple = 2, other = 3 };
  static constexpr std::uint32_t kInternal = 0x3fffffff;  // the agent itself

  Format format = Format::index;
  std::uint32_t value = 0;

  // The interface index; 0 when no single, known interface is meant.
  std::uint32_t index() const {
    return format == Format::index && value != kInternal && value != 0xffffffff ? value : 0;
  }
};

struct FlowSample {
  using Bytes = std::span<const std::uint8_t>;

  std::uint32_t sequence = 0;
  std::uint32_t sourceType = 0;  // 0: sourceIndex is an interface index
  std::uint32_t sourceIndex = 0;
  std::uint32_t rate = 0;  // one of so many packets is sampled
  std::uint32_t pool = 0;
  std::uint32_t drops = 0;
  SampledPort input;
  SampledPort output;

  // With what a sampled header begins.
  enum class HeaderKind : std::uint8_t { ethernet, ip4, ip6 };

  // The first bytes of a packet; empty when the sample has none. Bytes of the datagram.
  Bytes header;
  HeaderKind headerKind = HeaderKind::ethernet;
  std::uint32_t frameBytes = 0;  // of the packet on the wire, frame check sequence included
  std::uint32_t stripped = 0;    // of these, bytes that are not to be found behind the header
  // A sampled header of another kind was there.
  bool otherHeader = false;
  // Length, protocol, addresses and ports as the agent read them, in XDR; empty when the sample has none.
  Bytes ip4;
  Bytes ip6;
  std::optional<std::uint32_t> inVlan;  // as the switch knew it
};

struct Datagram {
  AgentAddress agent;
  std::uint32_t subAgent = 0;
  std::uint32_t sequence = 0;
  std::uint32_t uptime = 0;          // milliseconds
  std::vector<FlowSample> samples;   // in their order; views into the datagram's bytes
  std::uint32_t counterSamples = 0;  // skipped
  std::uint32_t unknownSamples = 0;  // of formats that are not known here, skipped
  std::size_t trailingBytes = 0;     // behind the last sample
};

class SflowDecoder {
 public:
  using Bytes = std::span<const std::uint8_t>;

  // What is wrong with these bytes, or nothing: then datagram() is what they say. Any bytes can be decoded.
  std::optional<Malformation> decode(Bytes bytes);
  // REQUIRES: the last decode() found nothing wrong, and its bytes are still there.
  const Datagram& datagram() const { return datagram_; }

 private:
  std::optional<Malformation> readHeader(XdrReader& reader, std::uint32_t& samples);
  std::optional<Malformation> readSample(std::uint32_t format, Bytes bytes);

  Datagram datagram_;
};

}  // namespace Tracker
