#include <algorithm>
#include <cassert>
#include <random>

#include "Sflow.h"

namespace Sflow {

namespace {

__extension__ using Wide = unsigned __int128;

std::uint64_t systemSeed() {
  std::random_device device;
  return std::uint64_t{device()} << 32 | device();
}

// splitmix64: one add and a few multiplications a draw, and every seed is a good one.
std::uint64_t nextRandom(std::uint64_t& state) {
  std::uint64_t z = state += 0x9e3779b97f4a7c15;
  z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
  z = (z ^ z >> 27) * 0x94d049bb133111eb;
  return z ^ z >> 31;
}

}  // namespace

SflowSamplerHelperBase::SflowSamplerHelperBase(Kiv::String name, Kiv::Ptr<const HwStatus> sflowHwStatus,
                                               Kiv::Ptr<const Pexa::Ports> ports,
                                               Kiv::Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir)
    : Kiv::Entity(std::move(name)),
      sflowHwStatus_(std::move(sflowHwStatus)),
      ports_(std::move(ports)),
      ethIntfStatusDir_(std::move(ethIntfStatusDir)),
      random_(systemSeed()) {
  if (ports_ && ports_->sampleReceiver() != nullptr) ports_->sampleReceiver()->samplerAdded(*this);
}

SflowSamplerHelperBase::~SflowSamplerHelperBase() {
  if (ports_ && ports_->sampleReceiver() != nullptr) ports_->sampleReceiver()->samplerRemoved(*this);
}

void SflowSamplerHelperBase::kivDoZombieReactors(bool zombie) {
  zombie_ = zombie;
}

void SflowSamplerHelperBase::hasNotificationActiveIs(bool active) {
  Kiv::Entity::hasNotificationActiveIs(active);
}

// Uniform on [1, 2 rate - 1], so that the mean is the rate and no period of the traffic can hide from it.
std::uint64_t SflowSamplerHelperBase::nextSkip(std::uint32_t rate) {
  const std::uint64_t choices = std::uint64_t{2} * rate - 1;
  // cppcheck-suppress shiftTooManyBits; it takes the 128 bits of Wide for 64
  return 1 + static_cast<std::uint64_t>(Wide{nextRandom(random_)} * choices >> 64);
}

void SflowSamplerHelperBase::rateIs(std::vector<SamplerState>& states, std::uint32_t index,
                                    std::uint32_t rate) {
  if (index >=
      states.size()) {  // room for all ports at once: a port's first packet allocates, no later one does
    states.resize(std::max<std::size_t>(index + std::size_t{1}, ports_ ? ports_->all().size() : 0));
  }
  states[index].rate = rate;
  states[index].skip = nextSkip(rate);
}

void SflowSamplerHelperBase::takeSample(std::vector<SamplerState>& states, const Pexa::PexaPortBase& port,
                                        Sample sample) {
  SamplerState& state = states[port.portIndex()];
  state.skip = nextSkip(state.rate);
  ++state.samples;
  SampleReceiver* receiver = ports_ ? ports_->sampleReceiver() : nullptr;
  if (receiver == nullptr) return;
  sample.rate = state.rate;
  sample.pool = static_cast<std::uint32_t>(state.pool);
  sample.drops = static_cast<std::uint32_t>(state.drops);
  sample.serial = state.samples;
  sample.sampler = this;
  if (!receiver->sampleIs(sample)) ++state.drops;
}

void SflowSamplerHelperBase::sampleLost(Bridging::AllowedTrafficDirection direction,
                                        std::uint32_t portIndex) {
  auto& states = direction == Bridging::AllowedTrafficDirection::egress ? egress_ : ingress_;
  assert(portIndex < states.size() && states[portIndex].drops < states[portIndex].samples);
  ++states[portIndex].drops;
}

}  // namespace Sflow
