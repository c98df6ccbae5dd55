#include "WhyFlow.h"

#include <fmt/format.h>

#include "Families.h"
#include "FlowWords.h"
#include "Output.h"

namespace Sft {
namespace {

using Bridging::AllowedTrafficDirection;
using FlowTracking::HoFlowState;
using Maybe = std::optional<Reason>;

std::string familyText(const WhyFlow& flow) {
  if (flow.family[0] && flow.family[1]) return "neither family";
  return std::string(kFamilies[flow.family[0] ? 0 : 1].name);
}

std::string sinceText(double time, double now) {
  if (time == 0) return "at a time that is not known";
  return fmt::format("{}, {} ago", timeText(time), ageText(time, now));
}

std::string plural(std::uint64_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

// --- Obstacles on a packet's way, in its order

Maybe otherProtocol(const WhyFlow& flow, const SystemFacts&) {
  if (!flow.protocol || protocolNamed(protocolText(*flow.protocol))) return std::nullopt;
  return Reason{"not-tcp-udp", fmt::format("It is of IP {}, and only TCP and UDP flows come into hardware.",
                                           protocolText(*flow.protocol))};
}

Maybe otherVrf(const WhyFlow& flow, const SystemFacts&) {
  if (!flow.vrf || *flow.vrf == FlowTracking::kDefaultVrfId) return std::nullopt;
  return Reason{
      "not-default-vrf",
      fmt::format("It is of VRF {}, and packets are looked up in the default VRF only.", *flow.vrf)};
}

Maybe noAgent(const WhyFlow&, const SystemFacts& system) {
  switch (system.agent.standing) {
    case Standing::answers:
      return std::nullopt;
    case Standing::absent:
      return Reason{"agent-not-running", "No agent runs, so that nothing is in hardware."};
    case Standing::silent:
      break;
  }
  return Reason{"agent-not-asked", fmt::format("The agent could not be asked: {}.", system.agent.problem)};
}

Maybe noPlugin(const WhyFlow&, const SystemFacts& system) {
  if (system.agent.standing != Standing::answers || system.agent.offloads()) return std::nullopt;
  if (system.agent.plugin == AgentFacts::Plugin::standby) {
    return Reason{"agent-in-standby", "The agent is in standby, and offloads nothing."};
  }
  return Reason{"no-plugin",
                "The agent runs without the flow tracking plugin, libPexaSampledFlowTracker.so."};
}

Maybe familyOff(const WhyFlow& flow, const SystemFacts& system) {
  if (!system.agent.offloads()) return std::nullopt;
  bool any = false;
  bool announced = false;
  for (std::size_t i = 0; i < flow.family.size(); ++i) {
    any = any || (flow.family[i] && system.agent.offloaded[i]);
    announced = announced || (flow.family[i] && system.agent.announced[i]);
  }
  if (any) return std::nullopt;
  const bool both = flow.family[0] && flow.family[1];
  std::string why = both ? "The offload of both families is off"
                         : fmt::format("The offload of {} is off", familyText(flow));
  why += " (hwOffloadIpv4 and hwOffloadIpv6 of hardware/flowtracking/config/sampled).";
  if (!announced) why += " Nor does the agent announce that it could: a feature toggle says so.";
  return Reason{"family-disabled", why};
}

Maybe regularSflow(const WhyFlow&, const SystemFacts& system) {
  if (!system.agent.offloads() || !system.agent.regularSflow) return std::nullopt;
  return Reason{"interface-not-enabled",
                "Regular sFlow is on (enabled of sflow/hwconfigdir/sflow), and flow tracking leaves every "
                "interface to it."};
}

Maybe otherInterface(const WhyFlow& flow, const SystemFacts& system) {
  if (!system.agent.offloads() || system.agent.regularSflow || !flow.interface) return std::nullopt;
  if (!system.agent.ports.contains(*flow.interface)) {
    return Reason{"interface-unknown", fmt::format("The agent has no port {}.", *flow.interface)};
  }
  const bool in = system.agent.ingress.contains(*flow.interface);
  const bool out = system.agent.egress.contains(*flow.interface);
  const bool enabled =
      !flow.direction ? in || out : (*flow.direction == AllowedTrafficDirection::egress ? out : in);
  if (enabled) return std::nullopt;
  const std::string direction = flow.direction ? directionText(*flow.direction) : "either direction";
  return Reason{
      "interface-not-enabled",
      fmt::format("{} takes no part in flow tracking in {} ({} of sflow/hwconfigdir/sampledflowtracker).",
                  *flow.interface, direction,
                  !flow.direction ? "ingressInterfaces and egressInterfaces" : direction + "Interfaces")};
}

// --- Where it stands in the tables

std::string countedText(const WhyFlow& flow, double now) {
  if (flow.packets == 0) return "None of its packets was counted yet.";
  return fmt::format("{} and {} were counted, the last one {}.", plural(flow.packets, "packet"),
                     plural(flow.bytes, "byte"), sinceText(flow.lastCounted, now));
}

std::string roomText(const WhyFlow& flow, const SystemFacts& system) {
  const std::size_t family = flow.family[0] ? 0 : 1;
  const std::uint64_t in = system.inHardware[family];
  std::string text;
  if (system.agent.offloads()) {
    text = fmt::format("{} of at most {} {} flows are in hardware, {} wait.", in, system.agent.budget,
                       kFamilies[family].name, system.waiting[family]);
    if (in < system.agent.budget) {
      return text +
             " There is room, but what appears is not given away by itself: the next withdrawal of a wanted "
             "offload lets it in, or wanting it anew.";
    }
    if (system.agent.budget == 0) {
      return text +
             " With a budget of 0 nothing comes in: raise maxInHardwareFlows of "
             "SampledFlowTracker.drovaHelper.";
    }
  } else {
    text = fmt::format("{} {} flows were in hardware, {} waited.", in, kFamilies[family].name,
                       system.waiting[family]);
  }
  return text +
         " Room is made when the wanted offload of a flow in hardware is withdrawn; a larger budget "
         "alone lets nobody in.";
}

Reason inHardware(const WhyFlow& flow, double now) {
  const std::string since =
      fmt::format("Its status says in hardware since {}.", sinceText(flow.stateSince, now));
  if (!flow.wantedSince) {
    return {"not-wanted-any-more",
            since +
                " It is not wanted any more: the agent takes it out at once, or, when none runs, with its "
                "next start."};
  }
  if (!flow.counted) {
    return {"in-hardware-unpublished",
            since +
                " There is no counter record, so that nobody publishes its counts; it comes when the offload "
                "is withdrawn and wanted anew."};
  }
  return {Verdict::kInHardware, since + ' ' + countedText(flow, now)};
}

Reason withStatus(const WhyFlow& flow, const SystemFacts& system, double now) {
  if (*flow.state == HoFlowState::inHardware) return inHardware(flow, now);
  if (!flow.wantedSince) {
    return {"not-wanted-any-more",
            fmt::format("Its status says {}, and it is not wanted any more.", stateText(*flow.state))};
  }
  if (*flow.state == HoFlowState::overflow) {
    return {"waiting-for-room", fmt::format("It waits for room since {}. {}", sinceText(flow.stateSince, now),
                                            roomText(flow, system))};
  }
  return {"other-state", fmt::format("Its status says {} since {}; the packet path samples such flows.",
                                     stateText(*flow.state), sinceText(flow.stateSince, now))};
}

Reason waitingForAgent(const WhyFlow& flow, const SystemFacts& system, double now) {
  std::string why =
      fmt::format("It is wanted since {}, and has no status yet.", sinceText(*flow.wantedSince, now));
  if (system.agent.offloads()) {
    why += system.agent.ready
               ? " The agent answers within milliseconds unless it is busy (sft tasks); when this "
                 "stays, a damaged record may keep it from being seen (sft doctor)."
               : " The agent still reconciles what an earlier run left (sft tasks).";
  }
  return {"waiting-for-agent", why};
}

Reason candidate(const WhyFlow& flow, const TrackerFacts& tracker, double now) {
  const std::string sampled = fmt::format("The flow tracker has sampled it {}, last {}",
                                          plural(*flow.samples, "time"), sinceText(flow.lastSampled, now));
  if (*flow.samples < tracker.samplesToLearn) {
    return {"candidate",
            fmt::format("{}; {} make it wanted.", sampled, plural(tracker.samplesToLearn, "sample"))};
  }
  return {"tracker-full",
          fmt::format("{}, often enough, but has no room for it: it holds at most {} of a family "
                      "(max_flows).",
                      sampled, plural(tracker.maxFlows, "flow"))};
}

Reason unseen(const WhyFlow& flow, const SystemFacts& system) {
  if (system.agent.offloads() && system.agent.sampleRate == 0) {
    return {"sampling-off",
            "Nobody wants it in hardware, and nobody learns of it: the sampling rate is 0 "
            "(sampleRate of hardware/flowtracking/config/sampled)."};
  }
  if (system.tracker.standing != Standing::answers) {
    return {
        "not-wanted",
        fmt::format("Nobody wants it in hardware: {}, and nobody has published it (sft flow want).",
                    system.tracker.standing == Standing::absent ? "no flow tracker runs that could learn it"
                                                                : "the flow tracker could not be asked")};
  }
  if (flow.interface && !system.tracker.interfaces.contains(*flow.interface)) {
    return {"interface-unmapped",
            fmt::format(
                "Nobody wants it in hardware: the flow tracker passes over samples of {}, for which it has "
                "no [[interface]].",
                *flow.interface)};
  }
  return {"not-seen",
          "Nobody wants it in hardware: the flow tracker has not sampled it, or not for so long that "
          "it has forgotten it."};
}

Reason standing(const WhyFlow& flow, const SystemFacts& system, double now) {
  if (flow.state) return withStatus(flow, system, now);
  if (flow.wantedSince) return waitingForAgent(flow, system, now);
  if (flow.samples) return candidate(flow, system.tracker, now);
  return unseen(flow, system);
}

}  // namespace

std::vector<Reason> whyFlow(const WhyFlow& flow, const SystemFacts& system, double now) {
  std::vector<Reason> reasons;
  for (const auto obstacle :
       {otherProtocol, otherVrf, noAgent, noPlugin, familyOff, regularSflow, otherInterface}) {
    if (auto met = obstacle(flow, system)) reasons.push_back(std::move(*met));
  }
  reasons.push_back(standing(flow, system, now));
  return reasons;
}

}  // namespace Sft
