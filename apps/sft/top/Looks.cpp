#include "top/Looks.h"

#include "RowMembers.h"

namespace Sft::Top {
namespace {

std::uint64_t number(const Kiv::Value& row, std::string_view name) {
  return memberTo<std::uint64_t>(row, name);
}
std::string text(const Kiv::Value& row, std::string_view name) {
  return memberTo<Kiv::String>(row, name);
}

SamplingCounts samplingOf(const Kiv::Value& row) {
  return {.interface = text(row, "intfId"),
          .direction = text(row, "direction"),
          .rate = number(row, "rate"),
          .pool = number(row, "pool"),
          .samples = number(row, "samples"),
          .drops = number(row, "drops")};
}

ReasonCount reasonOf(const Kiv::Value& row) {
  return {.category = text(row, "category"),
          .source = text(row, "source"),
          .reason = text(row, "reason"),
          .count = number(row, "count")};
}

PortCounts portOf(const Kiv::Value& row) {
  return {.name = text(row, "name"),
          .kind = text(row, "kind"),
          .up = memberTo<bool>(row, "up"),
          .replay = row.member("replay") != nullptr ? text(row, "replay") : "",
          .packetsIn = number(row, "packetsIn"),
          .bytesIn = number(row, "bytesIn"),
          .dropsIn = number(row, "dropsIn"),
          .packetsOut = number(row, "packetsOut"),
          .bytesOut = number(row, "bytesOut"),
          .dropsOut = number(row, "dropsOut")};
}

}  // namespace

void AgentLook::take(const std::string& request, const Kiv::Value& row) {
  if (request == "samples") {
    samplings.push_back(samplingOf(row));
  } else if (request == "reasons") {
    reasons.push_back(reasonOf(row));
  } else if (request == "ports") {
    ports.push_back(portOf(row));
  } else {
    budget = number(row, "maxInHardwareFlows");
  }
}

}  // namespace Sft::Top
