// Encodes flow records as IPFIX messages.
//
// Four templates: for each address family one for exact counts and one for scaled ones, which says so by two
// elements more. A collector that adds up packetDeltaCount and octetDeltaCount of all records has what
// passed.
//
//   flowStartMilliseconds flowEndMilliseconds octetDeltaCount packetDeltaCount
//   sourceIPv4Address destinationIPv4Address (or IPv6) ingressInterface egressInterface
//   sourceTransportPort destinationTransportPort vlanId protocolIdentifier flowDirection flowEndReason
//   scaled counts only: samplingSize (samples behind the counts), samplingPopulation (packets they stand for)
//
// The numbers of the sampling are told in elements by which no collector multiplies: the counts are scaled
// already, and samplingInterval would have some scale them again.
//
// Neighbours: FlowExporter.h sends the messages. Threading: one thread. libfixbuf encodes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "FlowRecord.h"

namespace Tracker {

class IpfixEncoder {
 public:
  static constexpr std::uint16_t kMostBytes = 1400;  // of a message

  // Takes a message when it is complete; valid during the call.
  using Sender = std::function<void(std::span<const std::uint8_t>)>;

  // Throws std::runtime_error when the library refuses.
  IpfixEncoder(std::uint32_t observationDomain, Sender sender);
  ~IpfixEncoder();
  IpfixEncoder(const IpfixEncoder&) = delete;
  IpfixEncoder& operator=(const IpfixEncoder&) = delete;

  // Adds all templates, or a record; messages that are full are sent. Throw std::runtime_error when the
  // library refuses: what was to be added is not.
  void addTemplates();
  template <class Domain>
  void add(const FlowRecord<Domain>& record);
  // Sends what was added since the last message.
  void flush();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Tracker
