#include "SamplerSteps.h"

#include <algorithm>
#include <utility>

#include "DecideOffload.h"
#include "OffloadDecision.h"
#include "TraceHandles.h"

namespace SampledFlowTracker {

namespace {
const Pavo::IntfId& intfOf(const PortPtr& port) {
  static constexpr Pavo::IntfId kNone;
  return port ? port->intfId() : kNone;
}
}  // namespace

void OutputDirection::declined(const Pavo::IntfId& intfId) {
  if (textTraced()) {
    textTrace("maybeOffload", __LINE__, Kiv::String("egress not enabled on intf ").append(intfId.name()));
  }
}

template <class Direction>
SftSampler<Direction>::SftSampler(const HelperPtr& sftSamplerHelper, const StatusPtr& hoFlowStatus,
                                  const CountersPtr& localHoCounters, const ConfigPtr& sftHwTrackingConfig)
    : Direction::Step(Kiv::String(Direction::kStepName), Direction::kPosition),
      sftSamplerHelper_(sftSamplerHelper),
      hoFlowStatus_(hoFlowStatus),
      localHoCounters_(localHoCounters),
      sftHwTrackingConfig_(sftHwTrackingConfig) {}

template <class Direction>
const Kiv::Type& SftSampler<Direction>::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<SftSampler>(Kiv::String(Direction::kTypeName))
          .attribute("sftSamplerHelper", &SftSampler::sftSamplerHelper)
          .attribute("hoFlowStatus", &SftSampler::hoFlowStatus)
          .attribute("localHoCounters", &SftSampler::localHoCounters)
          .attribute("sftHwTrackingConfig", &SftSampler::sftHwTrackingConfig)
          .handler("maybeOffload", &SftSampler::maybeOffload, "pktCtx", "srcPort", "dstPort")
          .constructor(&Kiv::makePtr<SftSampler, const HelperPtr&, const StatusPtr&, const CountersPtr&,
                                     const ConfigPtr&>,
                       "sftSamplerHelper", "hoFlowStatus", "localHoCounters", "sftHwTrackingConfig")
          .build();
  return type;
}

template <class Direction>
Pexa::StepResult SftSampler<Direction>::process(Context context) {
  const Pexa::PacketContext pktCtx = Direction::packetContext(context);
  const std::uint8_t ahead = std::exchange(pktCtx.lookAhead(Direction::kDirection), std::uint8_t{0});
  const bool offloaded = ahead != 0
                             ? decideAhead(ahead, pktCtx)
                             : maybeOffload(pktCtx, Direction::srcPort(context), Direction::dstPort(context));
  if (!offloaded) Direction::sample(*sftSamplerHelper_, context);
  return Pexa::StepResult::proceed;
}

template <class Direction>
bool SftSampler<Direction>::decideAhead(std::uint8_t number, Pexa::PacketContext pktCtx) {
  return lookAhead_.with(
      number, [&]<class Domain>(const OffloadCandidate<Domain>& candidate) __attribute__((always_inline)) {
        countOffloading<Domain>(pktCtx);
        return decideOffload(hoFlowStatus_.get(), localHoCounters_.get(), candidate, pktCtx,
                             Direction::kDirection, lookAhead_.traced());
      });
}

template <class Direction>
bool SftSampler<Direction>::maybeOffload(Pexa::PacketContext pktCtx, const PortPtr&, const PortPtr& dstPort) {
  const bool ipv4 = hwOffloadIpv4();
  const bool ipv6 = hwOffloadIpv6();
  const Pavo::IntfId& intfId = intfOf(Direction::watchedPort(pktCtx, dstPort));
  if ((!ipv4 && !ipv6) || !Direction::enabled(*sftSamplerHelper_, intfId)) {
    Direction::declined(intfId);
    return false;
  }
  return maybeOffloadCommon(hoFlowStatus_, localHoCounters_, pktCtx, Direction::kDirection,
                            Direction::decisionIntf(intfId), ipv4, ipv6);
}

template <class Direction>
void SftSampler<Direction>::lookAhead(std::span<const Context> burst) {
  const bool ipv4 = hwOffloadIpv4();
  const bool ipv6 = hwOffloadIpv6();
  if (!hoFlowStatus_ || (!ipv4 && !ipv6)) return;
  lookAhead_.begin(packetsTraced());
  const Pavo::IntfId* last = nullptr;
  bool wanted = false;
  FlowTracking::HoFlowPlace place(Direction::kDirection, {});
  for (const Context& context : burst.first(std::min(burst.size(), OffloadLookAhead::kMost))) {
    const Pexa::PacketContext pktCtx = Direction::packetContext(context);
    const Pavo::IntfId& intfId = intfOf(Direction::watchedPort(pktCtx, Direction::dstPort(context)));
    if (&intfId != last) {
      last = &intfId;
      wanted = !intfId.empty() && sftSamplerHelper_->samplingWanted(Direction::kDirection, intfId);
      place = FlowTracking::HoFlowPlace(Direction::kDirection, intfId);
    }
    pktCtx.lookAhead(Direction::kDirection) =
        wanted ? lookAhead_.prepared(*hoFlowStatus_, *localHoCounters_, pktCtx, place, ipv4, ipv6)
               : std::uint8_t{0};
  }
  lookAhead_.find(*hoFlowStatus_, *localHoCounters_);
}

template class SftSampler<InputDirection>;
template class SftSampler<OutputDirection>;

}  // namespace SampledFlowTracker
