#include "IpfixEncoder.h"

#include <fixbuf/public.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace Tracker {
namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

// libfixbuf has addresses of four bytes as numbers.
std::uint32_t wireAddress(const Pavo::IpAddr& address) {
  return Pavo::load32(address.bytes.data());
}
std::array<std::uint8_t, 16> wireAddress(const Pavo::Ip6Addr& address) {
  return address.bytes;
}
template <class Domain>
using WireAddress = decltype(wireAddress(typename FlowTracking::IpFamily<Domain>::Address()));

// A record as the library takes it, by the internal template of the same order: no gap between members.
template <class Domain>
struct WireRecord {
  std::uint64_t flowStartMilliseconds = 0;
  std::uint64_t flowEndMilliseconds = 0;
  std::uint64_t octetDeltaCount = 0;
  std::uint64_t packetDeltaCount = 0;
  WireAddress<Domain> sourceAddress{};
  WireAddress<Domain> destinationAddress{};
  std::uint32_t ingressInterface = 0;
  std::uint32_t egressInterface = 0;
  std::uint32_t samplingSize = 0;
  std::uint32_t samplingPopulation = 0;
  std::uint16_t sourceTransportPort = 0;
  std::uint16_t destinationTransportPort = 0;
  std::uint16_t vlanId = 0;
  std::uint8_t protocolIdentifier = 0;
  std::uint8_t flowDirection = 0;
  std::uint8_t flowEndReason = 0;
  std::array<std::uint8_t, 7> padding{};
};
static_assert(std::has_unique_object_representations_v<WireRecord<IPv4>> &&
              std::has_unique_object_representations_v<WireRecord<IPv6>>);

template <class Domain>
struct AddressElements;
template <>
struct AddressElements<IPv4> {
  static constexpr const char* kSource = "sourceIPv4Address";
  static constexpr const char* kDestination = "destinationIPv4Address";
};
template <>
struct AddressElements<IPv6> {
  static constexpr const char* kSource = "sourceIPv6Address";
  static constexpr const char* kDestination = "destinationIPv6Address";
};

struct Element {
  const char* name;
  std::uint16_t bytes;
  bool scaledOnly = false;
};

// In the order of WireRecord.
template <class Domain>
std::array<Element, 16> elements() {
  constexpr std::uint16_t kAddressBytes = sizeof(WireAddress<Domain>);
  return {{{"flowStartMilliseconds", 8},
           {"flowEndMilliseconds", 8},
           {"octetDeltaCount", 8},
           {"packetDeltaCount", 8},
           {AddressElements<Domain>::kSource, kAddressBytes},
           {AddressElements<Domain>::kDestination, kAddressBytes},
           {"ingressInterface", 4},
           {"egressInterface", 4},
           {"samplingSize", 4, true},
           {"samplingPopulation", 4, true},
           {"sourceTransportPort", 2},
           {"destinationTransportPort", 2},
           {"vlanId", 2},
           {"protocolIdentifier", 1},
           {"flowDirection", 1},
           {"flowEndReason", 1}}};
}

// An error of the library, which it leaves to its caller to free.
class Error {
 public:
  Error() = default;
  ~Error() { g_clear_error(&error_); }
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;

  GError** out() { return &error_; }
  bool isFull() const { return g_error_matches(error_, FB_ERROR_DOMAIN, FB_ERROR_EOM) != 0; }
  [[noreturn]] void raise(const char* what) const {
    throw std::runtime_error(
        fmt::format("IPFIX: {}: {}", what, error_ ? error_->message : "no reason given"));
  }

 private:
  GError* error_ = nullptr;
};

template <class T, void (*Free)(T*)>
struct Freed {
  void operator()(T* object) const { Free(object); }
};

// A time that no clock tells (what is published was damaged, or written by somebody else) is the first or the
// last one.
std::uint64_t milliseconds(double utc) {
  constexpr double kEnd = 18446744073709551616.0;  // the first that is too large
  if (!(utc > 0)) return 0;
  return utc * 1000 < kEnd ? static_cast<std::uint64_t>(utc * 1000)
                           : std::numeric_limits<std::uint64_t>::max();
}

std::uint32_t most32(std::uint64_t value) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(value, 0xffffffff));
}

template <class Domain>
WireRecord<Domain> wireRecord(const FlowRecord<Domain>& record) {
  const auto& flow = record.key.ipFlowKey;
  WireRecord<Domain> wire;
  wire.flowStartMilliseconds = milliseconds(record.counts.start);
  wire.flowEndMilliseconds = milliseconds(record.counts.end);
  wire.octetDeltaCount = record.counts.octets;
  wire.packetDeltaCount = record.counts.packets;
  wire.sourceAddress = wireAddress(flow.srcAddr);
  wire.destinationAddress = wireAddress(flow.dstAddr);
  wire.ingressInterface = record.input;
  wire.egressInterface = record.output;
  wire.samplingSize = most32(record.counts.samples);
  wire.samplingPopulation = most32(record.counts.packets);
  wire.sourceTransportPort = flow.srcPort;
  wire.destinationTransportPort = flow.dstPort;
  wire.vlanId = flow.vlan;
  wire.protocolIdentifier = static_cast<std::uint8_t>(flow.ipProto);
  wire.flowDirection = record.key.direction == Bridging::AllowedTrafficDirection::egress ? 1 : 0;
  wire.flowEndReason = static_cast<std::uint8_t>(record.reason);
  return wire;
}

}  // namespace

class IpfixEncoder::Impl {
 public:
  Impl(std::uint32_t observationDomain, Sender sender)
      : sender_(std::move(sender)), model_(fbInfoModelAlloc()) {
    fbSession_t* session = fbSessionAlloc(model_.get());
    fbSessionSetDomain(session, observationDomain);
    try {
      addFamily<IPv4>(session);
      addFamily<IPv6>(session);
    } catch (...) {
      fbSessionFree(session);
      throw;
    }
    buffer_.reset(fBufAllocForExport(session, fbExporterAllocBuffer(message_.data(), kMostBytes)));
    fBufSetAutomaticMode(buffer_.get(), FALSE);
  }

  // In a message of their own, which the library asks for by an error.
  void addTemplates() {
    flush();
    if (!appendTemplates() && !appendTemplates())
      throw std::runtime_error("IPFIX: templates find no message");
    flush();
  }

  template <class Domain>
  void add(const FlowRecord<Domain>& record) {
    WireRecord<Domain> wire = wireRecord(record);
    const bool scaled = record.counts.samples != 0;
    if (append(wire, templates<Domain>(), scaled)) return;
    flush();
    if (!append(wire, templates<Domain>(), scaled))
      throw std::runtime_error("IPFIX: a record does not fit into an empty message");
  }

  void flush() {
    if (!filled_) return;
    filled_ = false;
    Error error;
    if (fBufEmit(buffer_.get(), error.out()) == 0) error.raise("message");
    sender_({message_.data(), fbExporterGetMsgLen(fBufGetExporter(buffer_.get()))});
  }

 private:
  struct Templates {
    std::uint16_t internal = 0;
    std::uint16_t exact = 0;
    std::uint16_t scaled = 0;
  };
  template <class Domain>
  Templates& templates() {
    return templates_[FlowTracking::IpFamily<Domain>::kIndex];
  }

  template <class Domain>
  void addFamily(fbSession_t* session) {
    const auto first =
        static_cast<std::uint16_t>(FB_TID_MIN_DATA + 2 * FlowTracking::IpFamily<Domain>::kIndex);
    Templates& of = templates<Domain>();
    of.internal = addTemplate<Domain>(session, true, true, FB_TID_AUTO);
    of.exact = addTemplate<Domain>(session, false, false, first);
    of.scaled = addTemplate<Domain>(session, false, true, static_cast<std::uint16_t>(first + 1));
  }

  template <class Domain>
  std::uint16_t addTemplate(fbSession_t* session, bool internal, bool scaled, std::uint16_t id) {
    fbTemplate_t* made = fbTemplateAlloc(model_.get());
    Error error;
    const auto append = [&](const char* name, std::uint16_t bytes) {
      // The library takes names that it could change, and does not.
      fbInfoElementSpec_t spec{const_cast<char*>(name), bytes, 0};
      if (fbTemplateAppendSpec(made, &spec, 0, error.out()) != 0) return;
      fbTemplateFreeUnused(made);
      error.raise(name);
    };
    for (const Element& each : elements<Domain>()) {
      if (scaled || !each.scaledOnly) append(each.name, each.bytes);
    }
    if (internal) append("paddingOctets", sizeof(WireRecord<Domain>::padding));
    const std::uint16_t given = fbSessionAddTemplate(session, internal ? 1 : 0, id, made, error.out());
    if (given == 0) error.raise("template");
    return given;
  }

  // False when they need a new message.
  bool appendTemplates() {
    Error error;
    stamp();
    if (fbSessionExportTemplates(fBufGetSession(buffer_.get()), error.out()) == 0) {
      if (!error.isFull()) error.raise("templates");
      return false;
    }
    filled_ = true;
    return true;
  }

  // False when the message is full.
  template <class Domain>
  bool append(WireRecord<Domain>& wire, const Templates& of, bool scaled) {
    Error error;
    stamp();
    fBuf_t* buffer = buffer_.get();
    const bool done =
        fBufSetInternalTemplate(buffer, of.internal, error.out()) != 0 &&
        fBufSetExportTemplate(buffer, scaled ? of.scaled : of.exact, error.out()) != 0 &&
        fBufAppend(buffer, reinterpret_cast<std::uint8_t*>(&wire), sizeof(wire), error.out()) != 0;
    if (!done && !error.isFull()) error.raise("record");
    filled_ = filled_ || done;
    return done;
  }

  void stamp() {
    if (!filled_) fBufSetExportTime(buffer_.get(), static_cast<std::uint32_t>(Kiv::System::currentTimeUtc()));
  }

  Sender sender_;
  std::array<std::uint8_t, kMostBytes> message_{};
  std::unique_ptr<fbInfoModel_t, Freed<fbInfoModel_t, fbInfoModelFree>> model_;
  std::unique_ptr<fBuf_t, Freed<fBuf_t, fBufFree>> buffer_;  // owns session and exporter
  std::array<Templates, 2> templates_;
  bool filled_ = false;
};

IpfixEncoder::IpfixEncoder(std::uint32_t observationDomain, Sender sender)
    : impl_(std::make_unique<Impl>(observationDomain, std::move(sender))) {}

IpfixEncoder::~IpfixEncoder() = default;

void IpfixEncoder::addTemplates() {
  impl_->addTemplates();
}

template <class Domain>
void IpfixEncoder::add(const FlowRecord<Domain>& record) {
  impl_->add(record);
}

void IpfixEncoder::flush() {
  impl_->flush();
}

template void IpfixEncoder::add<IPv4>(const FlowRecord<IPv4>&);
template void IpfixEncoder::add<IPv6>(const FlowRecord<IPv6>&);

}  // namespace Tracker
