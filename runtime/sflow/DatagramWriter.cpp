#include "sflow/DatagramWriter.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <string>

#include "KivValue.h"

namespace Sflow {

namespace {

constexpr std::uint32_t kVersion = 5;
constexpr std::uint32_t kAddressIp4 = 1;
constexpr std::uint32_t kAddressIp6 = 2;

// Formats of the standard's own structures (enterprise 0).
constexpr std::uint32_t kFlowSample = 1;
constexpr std::uint32_t kCountersSample = 2;
constexpr std::uint32_t kSampledHeader = 1;
constexpr std::uint32_t kExtendedSwitch = 1001;
constexpr std::uint32_t kInterfaceCounters = 1;
constexpr std::uint32_t kProtocolEthernet = 1;

// Bytes of the structures, without their format and length words.
constexpr std::uint32_t kFlowSampleFixed = 8 * 4;
constexpr std::uint32_t kSampledHeaderFixed = 4 * 4;
constexpr std::uint32_t kExtendedSwitchBytes = 4 * 4;
constexpr std::uint32_t kInterfaceCounterBytes = 88;
constexpr std::uint32_t kCountersSampleBytes = 3 * 4 + 8 + kInterfaceCounterBytes;
constexpr std::uint32_t kTagBytes = 8;  // format and length

constexpr std::uint32_t padded(std::uint32_t bytes) {
  return (bytes + 3) & ~3U;
}

std::span<const std::uint8_t> sampledHeader(const DatagramWriter::FlowSample& sample) {
  return sample.header.first(std::min<std::size_t>(sample.header.size(), DatagramWriter::kMostHeaderBytes));
}

std::uint32_t headerRecordBytes(const DatagramWriter::FlowSample& sample) {
  return kSampledHeaderFixed + padded(static_cast<std::uint32_t>(sampledHeader(sample).size()));
}

std::uint32_t flowSampleBytes(const DatagramWriter::FlowSample& sample) {
  return kFlowSampleFixed + kTagBytes + headerRecordBytes(sample) + kTagBytes + kExtendedSwitchBytes;
}

}  // namespace

DatagramWriter::DatagramWriter(std::string_view agentAddress, std::uint32_t subAgentId) {
  std::array<std::uint8_t, 16> address{};
  const std::string text(agentAddress);
  put32(kVersion);
  if (::inet_pton(AF_INET, text.c_str(), address.data()) == 1) {
    put32(kAddressIp4);
    putBytes(std::span(address).first(4));
  } else if (::inet_pton(AF_INET6, text.c_str(), address.data()) == 1) {
    put32(kAddressIp6);
    putBytes(address);
  } else {
    throw Kiv::ValueError("sFlow agent \"" + text + "\": expected an IPv4 or IPv6 address");
  }
  put32(subAgentId);
  sequenceAt_ = used_;
  used_ += 3 * 4;
}

bool DatagramWriter::fits(const FlowSample& sample) const {
  return used_ + kTagBytes + flowSampleBytes(sample) <= kMostBytes;
}

bool DatagramWriter::fitsCounters() const {
  return used_ + kTagBytes + kCountersSampleBytes <= kMostBytes;
}

void DatagramWriter::add(const FlowSample& sample) {
  assert(fits(sample) && sample.source < 1U << 24);
  put32(kFlowSample);
  put32(flowSampleBytes(sample));
  put32(sample.sequence);
  put32(sample.source);  // type 0, an interface index, in the upper byte
  put32(sample.rate);
  put32(sample.pool);
  put32(sample.drops);
  put32(sample.input);
  put32(sample.output);
  put32(2);  // records

  put32(kSampledHeader);
  put32(headerRecordBytes(sample));
  put32(kProtocolEthernet);
  put32(sample.frameBytes + kFcsBytes);
  put32(kFcsBytes);  // stripped
  put32(static_cast<std::uint32_t>(sampledHeader(sample).size()));
  putPadded(sampledHeader(sample));

  put32(kExtendedSwitch);
  put32(kExtendedSwitchBytes);
  put32(sample.inVlan);
  put32(sample.inPriority);
  put32(sample.outVlan);
  put32(sample.outPriority);
  ++samples_;
}

void DatagramWriter::add(const CounterSample& sample) {
  assert(fitsCounters() && sample.source < 1U << 24);
  const IfCounters& counters = sample.counters;
  put32(kCountersSample);
  put32(kCountersSampleBytes);
  put32(sample.sequence);
  put32(sample.source);
  put32(1);  // records

  put32(kInterfaceCounters);
  put32(kInterfaceCounterBytes);
  put32(sample.source);
  put32(counters.ifType);
  put64(counters.ifSpeed);
  put32(counters.ifDirection);
  put32((counters.adminUp ? 1U : 0U) | (counters.operUp ? 2U : 0U));
  put64(counters.ifInOctets);
  put32(counters.ifInUcastPkts);
  put32(counters.ifInMulticastPkts);
  put32(counters.ifInBroadcastPkts);
  put32(counters.ifInDiscards);
  put32(counters.ifInErrors);
  put32(counters.ifInUnknownProtos);
  put64(counters.ifOutOctets);
  put32(counters.ifOutUcastPkts);
  put32(counters.ifOutMulticastPkts);
  put32(counters.ifOutBroadcastPkts);
  put32(counters.ifOutDiscards);
  put32(counters.ifOutErrors);
  put32(counters.ifPromiscuousMode);
  ++samples_;
}

std::span<const std::uint8_t> DatagramWriter::finish(std::uint32_t sequence,
                                                     std::uint32_t uptimeMilliseconds) {
  const std::span<const std::uint8_t> datagram(buffer_.data(), used_);
  used_ = sequenceAt_;
  put32(sequence);
  put32(uptimeMilliseconds);
  put32(samples_);
  samples_ = 0;
  return datagram;
}

void DatagramWriter::put32(std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) buffer_[used_++] = static_cast<std::uint8_t>(value >> shift);
}

void DatagramWriter::put64(std::uint64_t value) {
  put32(static_cast<std::uint32_t>(value >> 32));
  put32(static_cast<std::uint32_t>(value));
}

void DatagramWriter::putBytes(std::span<const std::uint8_t> bytes) {
  std::copy(bytes.begin(), bytes.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(used_));
  used_ += bytes.size();
}

void DatagramWriter::putPadded(std::span<const std::uint8_t> bytes) {
  putBytes(bytes);
  while (used_ % 4 != 0) buffer_[used_++] = 0;
}

}  // namespace Sflow
