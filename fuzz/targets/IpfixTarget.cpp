// Any flow records as IPFIX: the library that collectors use reads from the messages what was put into them.
//
//   each record:  flags (bit 0 IPv6, bit 1 scaled, bit 2 egress, bit 3 templates first, bit 4 flush behind
//   it) · end reason · addresses, ports, VLAN, protocol · interfaces · packets, octets, samples · start, end
#include <fixbuf/public.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <memory>
#include <vector>

#include "FuzzInput.h"
#include "IpfixEncoder.h"

namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

// What a collector asks for, of both families; what a template does not have is 0.
struct Collected {
  std::uint64_t start, end, octets, packets;
  std::uint32_t source4, destination4;
  std::uint8_t source6[16], destination6[16];
  std::uint32_t input, output, samplingSize, samplingPopulation;
  std::uint16_t sourcePort, destinationPort, vlan;
  std::uint8_t protocol, direction, reason;
  std::uint8_t padding[7];
};

fbInfoElementSpec_t element(const char* name, std::uint16_t bytes) {
  return {const_cast<char*>(name), bytes, 0};
}

// Reads messages with libfixbuf. A session of its own: it knows only what the messages say.
class Collector {
 public:
  Collector() : model_(fbInfoModelAlloc()), session_(fbSessionAlloc(model_)) {
    GError* error = nullptr;
    fbTemplate_t* wanted = fbTemplateAlloc(model_);
    fbInfoElementSpec_t spec[] = {element("flowStartMilliseconds", 8),
                                  element("flowEndMilliseconds", 8),
                                  element("octetDeltaCount", 8),
                                  element("packetDeltaCount", 8),
                                  element("sourceIPv4Address", 4),
                                  element("destinationIPv4Address", 4),
                                  element("sourceIPv6Address", 16),
                                  element("destinationIPv6Address", 16),
                                  element("ingressInterface", 4),
                                  element("egressInterface", 4),
                                  element("samplingSize", 4),
                                  element("samplingPopulation", 4),
                                  element("sourceTransportPort", 2),
                                  element("destinationTransportPort", 2),
                                  element("vlanId", 2),
                                  element("protocolIdentifier", 1),
                                  element("flowDirection", 1),
                                  element("flowEndReason", 1),
                                  element("paddingOctets", 7),
                                  FB_IESPEC_NULL};
    FUZZ_REQUIRE(fbTemplateAppendSpecArray(wanted, spec, 0, &error) != 0);
    template_ = fbSessionAddTemplate(session_, 1, FB_TID_AUTO, wanted, &error);
    FUZZ_REQUIRE(template_ != 0);
    buffer_ = fBufAllocForCollection(session_, nullptr);
    fBufSetAutomaticMode(buffer_, FALSE);
  }
  ~Collector() {
    fBufFree(buffer_);  // and the session with it
    fbInfoModelFree(model_);
  }
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  void message(std::span<const std::uint8_t> bytes) {
    FUZZ_REQUIRE(bytes.size() <= Tracker::IpfixEncoder::kMostBytes);
    std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
    fBufSetBuffer(buffer_, copy.data(), copy.size());
    GError* error = nullptr;
    FUZZ_REQUIRE(fBufSetInternalTemplate(buffer_, template_, &error) != 0);
    for (;;) {
      Collected record{};
      std::size_t size = sizeof record;
      if (fBufNext(buffer_, reinterpret_cast<std::uint8_t*>(&record), &size, &error) == 0) break;
      records.push_back(record);
    }
    const bool ended = g_error_matches(error, FB_ERROR_DOMAIN, FB_ERROR_EOM) != 0 ||
                       g_error_matches(error, FB_ERROR_DOMAIN, FB_ERROR_BUFSZ) != 0;
    if (!ended) std::fprintf(stderr, "%s\n", error->message);
    FUZZ_REQUIRE(ended);
    g_clear_error(&error);
  }

  std::vector<Collected> records;

 private:
  fbInfoModel_t* model_;
  fbSession_t* session_;
  fBuf_t* buffer_ = nullptr;
  std::uint16_t template_ = 0;
};

std::uint64_t milliseconds(double utc) {
  if (!(utc > 0)) return 0;
  return utc * 1000 < 18446744073709551616.0 ? static_cast<std::uint64_t>(utc * 1000) : UINT64_MAX;
}
std::uint32_t most32(std::uint64_t value) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(value, UINT32_MAX));
}

void addressesInto(Collected& expected, const FlowTracking::IpFlowKey& flow) {
  expected.source4 = Pavo::load32(flow.srcAddr.bytes.data());
  expected.destination4 = Pavo::load32(flow.dstAddr.bytes.data());
}
void addressesInto(Collected& expected, const FlowTracking::Ip6FlowKey& flow) {
  std::copy_n(flow.srcAddr.bytes.begin(), 16, expected.source6);
  std::copy_n(flow.dstAddr.bytes.begin(), 16, expected.destination6);
}

template <class Domain>
Tracker::FlowRecord<Domain> recordOf(FuzzInput& input, unsigned flags) {
  Tracker::FlowRecord<Domain> record;
  record.reason = static_cast<Tracker::EndReason>(input.take<std::uint8_t>());
  auto& flow = record.key.ipFlowKey;
  flow.srcAddr = input.take<decltype(flow.srcAddr)>();
  flow.dstAddr = input.take<decltype(flow.dstAddr)>();
  flow.srcPort = input.take<std::uint16_t>();
  flow.dstPort = input.take<std::uint16_t>();
  flow.vlan = input.take<std::uint16_t>();
  flow.ipProto = input.take<std::uint8_t>();
  record.key.direction = (flags & 4U) != 0 ? Bridging::AllowedTrafficDirection::egress
                                           : Bridging::AllowedTrafficDirection::ingress;
  record.input = input.take<std::uint32_t>();
  record.output = input.take<std::uint32_t>();
  record.counts.packets = input.take<std::uint64_t>();
  record.counts.octets = input.take<std::uint64_t>();
  record.counts.samples = (flags & 2U) != 0 ? input.take<std::uint64_t>() : 0;
  record.counts.start = input.take<double>();
  record.counts.end = input.take<double>();
  return record;
}

template <class Domain>
Collected expectedOf(const Tracker::FlowRecord<Domain>& record) {
  Collected expected{};
  const auto& flow = record.key.ipFlowKey;
  addressesInto(expected, flow);
  expected.start = milliseconds(record.counts.start);
  expected.end = milliseconds(record.counts.end);
  expected.octets = record.counts.octets;
  expected.packets = record.counts.packets;
  expected.input = record.input;
  expected.output = record.output;
  if (record.counts.samples != 0) {
    expected.samplingSize = most32(record.counts.samples);
    expected.samplingPopulation = most32(record.counts.packets);
  }
  expected.sourcePort = flow.srcPort;
  expected.destinationPort = flow.dstPort;
  expected.vlan = flow.vlan;
  expected.protocol = static_cast<std::uint8_t>(flow.ipProto);
  expected.direction = record.key.direction == Bridging::AllowedTrafficDirection::egress ? 1 : 0;
  expected.reason = static_cast<std::uint8_t>(record.reason);
  return expected;
}

bool same(const Collected& left, const Collected& right) {
  return std::memcmp(&left, &right, sizeof(Collected)) == 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Made once: a session goes on over many messages.
  static Collector collector;
  static Tracker::IpfixEncoder encoder(1,
                                       [](std::span<const std::uint8_t> bytes) { collector.message(bytes); });
  collector.records.clear();
  FuzzInput input(data, size);
  encoder.addTemplates();
  std::vector<Collected> expected;
  const auto add = [&]<class Domain>(Domain, unsigned flags) {
    const auto record = recordOf<Domain>(input, flags);
    encoder.add(record);
    expected.push_back(expectedOf(record));
  };
  while (!input.empty()) {
    const unsigned flags = input.take<std::uint8_t>();
    if ((flags & 8U) != 0) encoder.addTemplates();
    (flags & 1U) != 0 ? add(IPv6(), flags) : add(IPv4(), flags);
    if ((flags & 16U) != 0) encoder.flush();
  }
  encoder.flush();
  FUZZ_REQUIRE(
      std::equal(collector.records.begin(), collector.records.end(), expected.begin(), expected.end(), same));
  return 0;
}
