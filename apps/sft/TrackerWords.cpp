#include "TrackerWords.h"

#include <fmt/format.h>

#include "FlowWords.h"

namespace Sft {
namespace {

using Kiv::Value;

// "notIp 3, noHeader 1" of those counters that have counted; empty when none has.
std::string kindsText(const Value& counters) {
  std::string text;
  const auto* members = counters.as<Value::Object>();
  if (members == nullptr) return text;
  for (const auto& [name, value] : *members) {
    const std::uint64_t count = countAt(counters, {name});
    if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, count);
  }
  return text;
}

std::uint64_t sumOf(const Value& counters) {
  std::uint64_t sum = 0;
  if (const auto* members = counters.as<Value::Object>()) {
    for (const auto& [name, value] : *members) sum += countAt(counters, {name});
  }
  return sum;
}

std::string withKinds(const Value& counters) {
  const std::string kinds = kindsText(counters);
  return kinds.empty() ? "0" : fmt::format("{} ({})", sumOf(counters), kinds);
}

std::string familyText(const Value& all, std::string_view family, std::string_view member) {
  const auto count = [&](std::string_view name) { return countAt(all, {member, name}); };
  return fmt::format(
      "{}: {} flows wanted (at most {}), {} of them in hardware; {} sampled fewer than {} times; {} learned, "
      "{} taken over, {} withdrawn, {} idle, {} samples refused for want of room; {} records told, of {} "
      "packets and {} octets",
      family, count("flows"), countAt(all, {"limits", "maxFlows"}), count("inHardware"), count("candidates"),
      countAt(all, {"limits", "samplesToLearn"}), count("learned"), count("adopted"), count("withdrawn"),
      count("idle"), count("refused"), count("records"), count("recordPackets"), count("recordOctets"));
}

double numberOf(const Value& value) {
  const double* number = value.as<double>();
  return number != nullptr ? *number : 0;
}

}  // namespace

Value memberAt(const Value& value, std::initializer_list<std::string_view> path) {
  const Value* at = &value;
  for (const std::string_view name : path) {
    at = at->member(name);
    if (at == nullptr) return {};
  }
  return *at;
}

std::uint64_t countAt(const Value& value, std::initializer_list<std::string_view> path) {
  const Value found = memberAt(value, path);
  if (const auto* count = found.as<std::uint64_t>()) return *count;
  const auto* number = found.as<std::int64_t>();
  return number != nullptr && *number > 0 ? static_cast<std::uint64_t>(*number) : 0;
}

const Value::List& elementsOf(const Value& value) {
  static const Value::List kNone;
  const auto* list = value.as<Value::List>();
  return list != nullptr ? *list : kNone;
}

std::vector<std::string> trackerWords(const Value& all, double now) {
  std::vector<std::string> lines;
  const auto count = [&](std::string_view name) { return countAt(all, {name}); };
  lines.push_back(
      fmt::format("datagrams: {} received, {} malformed, {} missed on the way, {} dropped by the kernel",
                  count("datagrams"), withKinds(memberAt(all, {"malformed"})), count("datagramsMissed"),
                  count("datagramsDropped")));
  lines.push_back(
      fmt::format("samples: {} of packets, {} of them without a flow; {} of counters and {} of other "
                  "kinds passed over",
                  count("flowSamples"), withKinds(memberAt(all, {"samplesWithoutFlow"})),
                  count("counterSamples"), count("unknownSamples")));
  lines.push_back(familyText(all, "IPv4", "ipv4"));
  lines.push_back(familyText(all, "IPv6", "ipv6"));
  lines.push_back(fmt::format("tables: {} stores refused, {} damaged records met", count("tableRefusals"),
                              count("tableDamages")));
  const Value agents = memberAt(all, {"agents"});
  for (const Value& each : elementsOf(agents)) {
    lines.push_back(fmt::format("agent {}: {} datagrams, {} missed, last heard {} ago",
                                memberAt(each, {"agent"}).text(), countAt(each, {"datagrams"}),
                                countAt(each, {"missed"}),
                                ageText(numberOf(memberAt(each, {"lastHeard"})), now)));
  }
  const Value unmapped = memberAt(all, {"unmappedInterfaces"});
  for (const Value& each : elementsOf(unmapped)) {
    lines.push_back(fmt::format("interface index {} of agent {} has no [[interface]]: {} samples left out",
                                countAt(each, {"index"}), memberAt(each, {"agent"}).text(),
                                countAt(each, {"samples"})));
  }
  const Value collectors = memberAt(all, {"collectors"});
  for (const Value& each : elementsOf(collectors)) {
    lines.push_back(fmt::format("collector {}: {} messages sent, {} lost, {} refused",
                                memberAt(each, {"collector"}).text(), countAt(each, {"messages"}),
                                countAt(each, {"lost"}), countAt(each, {"refused"})));
  }
  if (const auto failed = count("recordsFailed"); failed != 0) {
    lines.push_back(fmt::format("records that could not be encoded: {}", failed));
  }
  return lines;
}

}  // namespace Sft
