#include "top/FlowRow.h"

#include <fmt/format.h>

#include "FlowWords.h"

namespace Sft::Top {

std::string FlowRow::stands() const {
  if (!state) return "waiting";
  if (!wanted) return "unwanted";
  return stateText(*state);
}

std::string FlowRow::name() const {
  return std::visit([](const auto& each) { return flowText(each.ipFlowKey); }, key);
}

std::string FlowRow::direction() const {
  return std::visit([](const auto& each) { return directionText(each.direction); }, key);
}

std::string FlowRow::interface() const {
  return std::visit([](const auto& each) { return std::string(each.intfId.name()); }, key);
}

std::string FlowRow::text() const {
  return fmt::format("{} {} {} {} {}", name(), direction(), interface(), stands(), ipv6() ? "IPv6" : "IPv4");
}

}  // namespace Sft::Top
