#include "FlowArguments.h"

#include <fmt/format.h>

#include <charconv>
#include <limits>

#include "Command.h"
#include "FlowWords.h"

namespace Sft {
namespace {

using namespace FlowTracking;

constexpr std::uint64_t kMostProtocol = 255;

[[noreturn]] void misuse(std::string_view name, std::string_view given, std::string_view expected) {
  throw MisuseError(fmt::format("{} \"{}\", expected {}", name, given, expected));
}

std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t most) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > most) return std::nullopt;
  return number;
}

template <class Unsigned>
Unsigned number(std::string_view name, std::string_view text, std::uint64_t most) {
  const auto found = numberOf(text, most);
  if (!found) misuse(name, text, fmt::format("a number up to {}", most));
  return static_cast<Unsigned>(*found);
}

std::uint32_t protocol(std::string_view text) {
  if (const auto named = protocolNamed(text)) return *named;
  const auto found = numberOf(text, kMostProtocol);
  if (!found) misuse("--proto", text, fmt::format("tcp, udp or a number up to {}", kMostProtocol));
  return static_cast<std::uint32_t>(*found);
}

// One end of a flow, taken apart but not converted.
struct End {
  std::string_view name;
  std::string_view text;
  std::string_view address;
  std::string_view port;
  bool bracketed = false;
};

End endOf(std::string_view name, std::string_view text) {
  constexpr std::string_view kExpected = "ADDRESS:PORT as in 10.0.0.1:1234 or [2001:db8::1]:1234";
  End end{.name = name, .text = text, .address = {}, .port = {}, .bracketed = text.starts_with('[')};
  const std::size_t separator = end.bracketed ? text.rfind("]:") : text.find(':');
  if (separator == std::string_view::npos) misuse(name, text, kExpected);
  end.address = text.substr(0, separator);
  end.port = text.substr(separator + 1);
  if (end.bracketed) {
    end.address.remove_prefix(1);
    end.port.remove_prefix(1);
  } else if (end.port.find(':') != std::string_view::npos) {
    misuse(name, text, "an IPv6 address in brackets, as in [2001:db8::1]:1234");
  }
  return end;
}

template <class Address>
void readEnd(const End& end, Address& address, std::uint16_t& port) {
  try {
    address = Pavo::addressFromText<Address>(end.address);
  } catch (const Kiv::ValueError& error) {
    throw MisuseError(fmt::format("{} \"{}\": {}", end.name, end.text, error.what()));
  }
  const auto found = numberOf(end.port, std::numeric_limits<std::uint16_t>::max());
  if (!found) misuse(end.name, end.text, "a port up to 65535 behind the address");
  port = static_cast<std::uint16_t>(*found);
}

Pavo::IntfId interfaceOf(const std::string& text) {
  if (text.empty()) misuse("--interface", text, "the name of an interface");
  try {
    return Pavo::IntfId(text);
  } catch (const Kiv::ValueError& error) {
    throw MisuseError(fmt::format("--interface: {}", error.what()));
  }
}

template <class Domain>
HoFlowKey<Domain> keyOf(const FlowArguments& arguments, const End& source, const End& destination) {
  FlowKey<Domain> flow;
  readEnd(source, flow.srcAddr, flow.srcPort);
  readEnd(destination, flow.dstAddr, flow.dstPort);
  flow.ipProto = protocol(arguments.proto);
  flow.vlan = number<std::uint16_t>("--vlan", arguments.vlan, Bridging::VlanIdOrAnyOrNone::kMost);
  if (!arguments.vrf.empty()) {
    flow.vrfId = number<std::uint32_t>("--vrf", arguments.vrf, std::numeric_limits<std::uint32_t>::max());
  }
  const auto direction = directionNamed(arguments.direction);
  if (!direction) misuse("--direction", arguments.direction, "ingress or egress");
  return {flow, *direction, interfaceOf(arguments.interface)};
}

// --- Patterns

constexpr std::string_view kOpen = "*";

bool isOpen(std::string_view text) {
  return text.empty() || text == kOpen;
}

// An end of a flow in a pattern, taken apart; what is open is empty.
struct EndPattern {
  std::string_view address;
  std::string_view port;
};

EndPattern endPatternOf(std::string_view name, std::string_view text) {
  EndPattern end{.address = text, .port = {}};
  const auto parted = [&](std::size_t separator, std::size_t port) {
    end = {.address = text.substr(0, separator), .port = text.substr(port)};
    if (end.port.empty()) misuse(name, text, "a port, or none and no colon either, behind the address");
  };
  if (text.starts_with('[')) {
    const std::size_t bracket = text.find(']');
    if (bracket == std::string_view::npos) misuse(name, text, "a ] behind the address");
    if (bracket + 1 < text.size() && text[bracket + 1] != ':')
      misuse(name, text, "nothing or :PORT behind the ]");
    if (bracket + 1 < text.size())
      parted(bracket, bracket + 2);
    else
      end.address = text.substr(0, bracket);
    end.address.remove_prefix(1);
  } else if (const std::size_t colon = text.find(':');
             colon != std::string_view::npos && text.find(':', colon + 1) == std::string_view::npos) {
    parted(colon, colon + 1);  // more than one colon: an IPv6 address without brackets and port
  }
  if (isOpen(end.address)) end.address = {};
  if (isOpen(end.port)) end.port = {};
  return end;
}

void readEnd(std::string_view name, const std::string& text, std::optional<Network>& network,
             std::optional<std::uint16_t>& port) {
  if (isOpen(text)) return;
  const EndPattern end = endPatternOf(name, text);
  try {
    if (!end.address.empty()) network.emplace(end.address);
  } catch (const Kiv::ValueError& error) {
    throw MisuseError(fmt::format("{} \"{}\": {}", name, text, error.what()));
  }
  if (end.port.empty()) return;
  const auto found = numberOf(end.port, std::numeric_limits<std::uint16_t>::max());
  if (!found) misuse(name, text, "a port up to 65535 or * behind the address");
  port = static_cast<std::uint16_t>(*found);
}

}  // namespace

FlowPattern flowPattern(const FlowArguments& arguments) {
  FlowPattern pattern;
  readEnd("SOURCE", arguments.source, pattern.source, pattern.sourcePort);
  readEnd("DESTINATION", arguments.destination, pattern.destination, pattern.destinationPort);
  if (!pattern.mayHold<Pavo::Traits::IPv4>() && !pattern.mayHold<Pavo::Traits::IPv6>()) {
    misuse("DESTINATION", arguments.destination, "an address of the family that SOURCE has");
  }
  if (!isOpen(arguments.proto)) pattern.protocol = protocol(arguments.proto);
  if (!isOpen(arguments.vlan)) {
    pattern.vlan = number<std::uint16_t>("--vlan", arguments.vlan, Bridging::VlanIdOrAnyOrNone::kMost);
  }
  if (!isOpen(arguments.vrf)) {
    pattern.vrf = number<std::uint32_t>("--vrf", arguments.vrf, std::numeric_limits<std::uint32_t>::max());
  }
  if (!isOpen(arguments.direction)) {
    pattern.direction = directionNamed(arguments.direction);
    if (!pattern.direction) misuse("--direction", arguments.direction, "ingress, egress or *");
  }
  if (!isOpen(arguments.interface)) pattern.interface = interfaceOf(arguments.interface);
  return pattern;
}

AnyHoFlowKey hoFlowKey(const FlowArguments& arguments) {
  const End source = endOf("SOURCE", arguments.source);
  const End destination = endOf("DESTINATION", arguments.destination);
  if (source.bracketed != destination.bracketed) {
    misuse("DESTINATION", arguments.destination,
           source.bracketed ? "an IPv6 address as SOURCE has" : "an IPv4 address as SOURCE has");
  }
  if (source.bracketed) return keyOf<Pavo::Traits::IPv6>(arguments, source, destination);
  return keyOf<Pavo::Traits::IPv4>(arguments, source, destination);
}

}  // namespace Sft
