#include "SflowDecoder.h"

#include <algorithm>
#include <array>

namespace Tracker {
namespace {

using Bytes = SflowDecoder::Bytes;

constexpr std::uint32_t kVersion = 5;
constexpr std::uint32_t kAddressIp4 = 1;
constexpr std::uint32_t kAddressIp6 = 2;

// Formats of the standard's own structures: the enterprise in the upper 20 bits is 0.
constexpr std::uint32_t kFlowSample = 1;
constexpr std::uint32_t kCountersSample = 2;
constexpr std::uint32_t kExpandedFlowSample = 3;
constexpr std::uint32_t kExpandedCountersSample = 4;
constexpr std::uint32_t kSampledHeader = 1;
constexpr std::uint32_t kSampledIp4 = 3;
constexpr std::uint32_t kSampledIp6 = 4;
constexpr std::uint32_t kExtendedSwitch = 1001;

// Kinds of sampled headers.
constexpr std::uint32_t kProtocolEthernet = 1;
constexpr std::uint32_t kProtocolIp4 = 11;
constexpr std::uint32_t kProtocolIp6 = 12;

constexpr std::size_t kSampledIp4Bytes = 8 * 4;
constexpr std::size_t kSampledIp6Bytes = 6 * 4 + 2 * 16;
constexpr std::size_t kExtendedSwitchBytes = 4 * 4;

SampledPort portOf(std::uint32_t word) {
  return {static_cast<SampledPort::Format>(word >> 30), word & SampledPort::kInternal};
}

SampledPort portOf(std::uint32_t format, std::uint32_t value) {
  return {static_cast<SampledPort::Format>(std::min(format, 3U)), value};
}

std::optional<FlowSample::HeaderKind> headerKindOf(std::uint32_t protocol) {
  switch (protocol) {
    case kProtocolEthernet:
      return FlowSample::HeaderKind::ethernet;
    case kProtocolIp4:
      return FlowSample::HeaderKind::ip4;
    case kProtocolIp6:
      return FlowSample::HeaderKind::ip6;
    default:
      return std::nullopt;
  }
}

std::optional<Malformation> readSampledHeader(Bytes bytes, FlowSample& sample) {
  XdrReader reader(bytes);
  const std::uint32_t protocol = reader.word();
  const std::uint32_t frameBytes = reader.word();
  const std::uint32_t stripped = reader.word();
  const std::uint32_t length = reader.word();
  if (reader.cut()) return Malformation::recordShort;
  const Bytes header = reader.takePadded(length);
  if (reader.cut()) return Malformation::headerLength;
  const auto kind = headerKindOf(protocol);
  if (!kind) {
    sample.otherHeader = true;
    return std::nullopt;
  }
  sample.header = header;
  sample.headerKind = *kind;
  sample.frameBytes = frameBytes;
  sample.stripped = stripped;
  return std::nullopt;
}

std::optional<Malformation> readExtendedSwitch(Bytes bytes, FlowSample& sample) {
  if (bytes.size() < kExtendedSwitchBytes) return Malformation::recordShort;
  sample.inVlan = Pavo::load32(bytes.data());
  return std::nullopt;
}

std::optional<Malformation> keepFixed(Bytes bytes, std::size_t fixed, Bytes& kept) {
  if (bytes.size() < fixed) return Malformation::recordShort;
  kept = bytes.first(fixed);
  return std::nullopt;
}

std::optional<Malformation> readRecord(std::uint32_t format, Bytes bytes, FlowSample& sample) {
  switch (format) {
    case kSampledHeader:
      return readSampledHeader(bytes, sample);
    case kSampledIp4:
      return keepFixed(bytes, kSampledIp4Bytes, sample.ip4);
    case kSampledIp6:
      return keepFixed(bytes, kSampledIp6Bytes, sample.ip6);
    case kExtendedSwitch:
      return readExtendedSwitch(bytes, sample);
    default:
      return std::nullopt;
  }
}

void readSource(XdrReader& reader, bool expanded, FlowSample& sample) {
  sample.sequence = reader.word();
  const std::uint32_t source = reader.word();
  sample.sourceType = expanded ? source : source >> 24;
  sample.sourceIndex = expanded ? reader.word() : source & 0xffffff;
}

SampledPort readPort(XdrReader& reader, bool expanded) {
  const std::uint32_t word = reader.word();
  return expanded ? portOf(word, reader.word()) : portOf(word);
}

std::optional<Malformation> readFlowSample(Bytes bytes, bool expanded, FlowSample& sample) {
  XdrReader reader(bytes);
  readSource(reader, expanded, sample);
  sample.rate = reader.word();
  sample.pool = reader.word();
  sample.drops = reader.word();
  sample.input = readPort(reader, expanded);
  sample.output = readPort(reader, expanded);
  std::uint32_t records = reader.word();
  if (reader.cut()) return Malformation::sampleShort;
  for (; records != 0; --records) {
    const std::uint32_t format = reader.word();
    const Bytes record = reader.opaque();
    if (reader.cut()) return Malformation::recordCut;
    if (const auto wrong = readRecord(format, record, sample)) return wrong;
  }
  return std::nullopt;
}

}  // namespace

std::string_view nameOf(Malformation malformation) {
  static constexpr std::array<std::string_view, kMalformations> kNames = {
      "headerCut",   "version",   "addressType", "sampleCut",
      "sampleShort", "recordCut", "recordShort", "headerLength"};
  return kNames[static_cast<std::size_t>(malformation)];
}

std::optional<Malformation> SflowDecoder::decode(Bytes bytes) {
  datagram_.samples.clear();
  datagram_.counterSamples = 0;
  datagram_.unknownSamples = 0;
  XdrReader reader(bytes);
  std::uint32_t samples = 0;
  if (const auto wrong = readHeader(reader, samples)) return wrong;
  // A sample takes eight bytes at least, so that a count that lies ends this loop soon.
  for (; samples != 0; --samples) {
    const std::uint32_t format = reader.word();
    const Bytes sample = reader.opaque();
    if (reader.cut()) return Malformation::sampleCut;
    if (const auto wrong = readSample(format, sample)) return wrong;
  }
  datagram_.trailingBytes = reader.left();
  return std::nullopt;
}

std::optional<Malformation> SflowDecoder::readHeader(XdrReader& reader, std::uint32_t& samples) {
  const std::uint32_t version = reader.word();
  if (reader.cut()) return Malformation::headerCut;
  if (version != kVersion) return Malformation::version;
  const std::uint32_t type = reader.word();
  if (reader.cut()) return Malformation::headerCut;
  if (type != kAddressIp4 && type != kAddressIp6) return Malformation::addressType;
  datagram_.agent = {};
  datagram_.agent.ip6 = type == kAddressIp6;
  const Bytes address = reader.take(datagram_.agent.ip6 ? 16 : 4);
  std::copy(address.begin(), address.end(), datagram_.agent.bytes.begin());
  datagram_.subAgent = reader.word();
  datagram_.sequence = reader.word();
  datagram_.uptime = reader.word();
  samples = reader.word();
  return reader.cut() ? std::optional(Malformation::headerCut) : std::nullopt;
}

std::optional<Malformation> SflowDecoder::readSample(std::uint32_t format, Bytes bytes) {
  switch (format) {
    case kFlowSample:
    case kExpandedFlowSample:
      datagram_.samples.emplace_back();
      return readFlowSample(bytes, format == kExpandedFlowSample, datagram_.samples.back());
    case kCountersSample:
    case kExpandedCountersSample:
      ++datagram_.counterSamples;
      return std::nullopt;
    default:
      ++datagram_.unknownSamples;
      return std::nullopt;
  }
}

}  // namespace Tracker
