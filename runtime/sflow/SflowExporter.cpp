#include "sflow/SflowExporter.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>

#include "PexaPacket.h"

namespace Sflow {

namespace {

using Direction = Bridging::AllowedTrafficDirection;

std::vector<std::unique_ptr<DatagramChannel>> udpChannels(const std::vector<std::string>& collectors) {
  std::vector<std::unique_ptr<DatagramChannel>> channels;
  for (const std::string& each : collectors) channels.push_back(udpChannel(each));
  return channels;
}

std::uint32_t interfaceIndex(std::uint32_t portIndex) {
  return portIndex + 1;
}

const SamplerState& stateOf(const SflowSamplerHelperBase& sampler, Direction direction,
                            std::uint32_t portIndex) {
  static const SamplerState kNone;
  const auto& states = sampler.states(direction);
  return portIndex < states.size() ? states[portIndex] : kNone;
}

struct Totals {
  std::uint64_t pool = 0;
  std::uint64_t drops = 0;
};

Totals totalsOf(const SflowSamplerHelperBase& sampler, std::uint32_t portIndex) {
  const SamplerState& in = stateOf(sampler, Direction::ingress, portIndex);
  const SamplerState& out = stateOf(sampler, Direction::egress, portIndex);
  return {in.pool + out.pool, in.drops + out.drops};
}

// A tag's VLAN and priority; an untagged frame has those that its port would put into one.
struct VlanPriority {
  std::uint32_t vlan;
  std::uint32_t priority;
};
VlanPriority vlanPriority(const Pexa::ParsedPacket& parsed, const Pexa::PexaPortBase& port) {
  if (!parsed.tagged()) return {port.vlan(), 0};
  return {parsed.firstTag() & 0xfffU, static_cast<std::uint32_t>(parsed.firstTag() >> 13)};
}

}  // namespace

SflowExporter::SflowExporter(const ExporterConfig& config, const CounterSource* counters)
    : SflowExporter(config, counters, udpChannels(config.collectors)) {}

SflowExporter::SflowExporter(const ExporterConfig& config, const CounterSource* counters,
                             std::vector<std::unique_ptr<DatagramChannel>> channels)
    : started_(Kiv::System::currentTimeUtc()),
      counterInterval_(config.counterInterval),
      counters_(counters),
      writer_(config.agent, config.subAgentId) {
  collectors_.reserve(channels.size());
  for (auto& channel : channels) collectors_.push_back({std::move(channel)});
  filling_.origins.reserve(DatagramWriter::kMostSamples);
  former_.origins.reserve(DatagramWriter::kMostSamples);
}

SflowExporter::~SflowExporter() = default;

bool SflowExporter::sampleIs(const Sample& sample) {
  samplerAdded(*sample.sampler);
  if (collectors_.empty()) return true;
  const DatagramWriter::FlowSample flow = flowSample(sample);
  if (!writer_.fits(flow)) flush();
  writer_.add(flow);
  filling_.origins.push_back({sample.sampler, sample.port().portIndex(), sample.direction});
  return true;
}

DatagramWriter::FlowSample SflowExporter::flowSample(const Sample& sample) {
  const std::uint32_t portIndex = sample.port().portIndex();
  Source& from = source(portIndex);
  Totals totals{from.formerPool, from.formerDrops};
  for (const auto* sampler : samplers_) {
    const Totals more = totalsOf(*sampler, portIndex);
    totals.pool += more.pool;
    totals.drops += more.drops;
  }

  DatagramWriter::FlowSample flow;
  flow.sequence = ++from.flowSequence;
  flow.source = interfaceIndex(portIndex);
  flow.rate = sample.rate;
  flow.pool = static_cast<std::uint32_t>(totals.pool);
  flow.drops = static_cast<std::uint32_t>(totals.drops);
  flow.input = sample.input ? interfaceIndex(sample.input->portIndex()) : DatagramWriter::kInternalInterface;
  flow.output =
      sample.output ? interfaceIndex(sample.output->portIndex()) : DatagramWriter::kUnknownInterface;
  flow.frameBytes = std::max(sample.pkt.wireLength(), sample.pkt.capturedLength());
  flow.header = {sample.pkt.front(), sample.pkt.capturedLength()};

  Pexa::ParsedPacket parsed(sample.pkt);
  parsed.maybeDoFullParse();
  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): a sample has one of the two
  const VlanPriority in = vlanPriority(parsed, sample.input ? *sample.input : *sample.output);
  const VlanPriority out = vlanPriority(parsed, sample.output ? *sample.output : *sample.input);
  flow.inVlan = in.vlan;
  flow.inPriority = in.priority;
  flow.outVlan = out.vlan;
  flow.outPriority = out.priority;
  return flow;
}

void SflowExporter::samplerAdded(SflowSamplerHelperBase& sampler) {
  if (std::find(samplers_.begin(), samplers_.end(), &sampler) == samplers_.end())
    samplers_.push_back(&sampler);
}

void SflowExporter::samplerRemoved(SflowSamplerHelperBase& sampler) {
  if (std::erase(samplers_, &sampler) == 0) return;
  // Its counts stay in the sums: a pool that went back would look like one that wrapped.
  const std::size_t ports =
      std::max(sampler.states(Direction::ingress).size(), sampler.states(Direction::egress).size());
  for (std::uint32_t portIndex = 0; portIndex < ports; ++portIndex) {
    const Totals totals = totalsOf(sampler, portIndex);
    source(portIndex).formerPool += totals.pool;
    source(portIndex).formerDrops += totals.drops;
  }
  forget(sampler, filling_);
  forget(sampler, former_);
}

void SflowExporter::forget(const SflowSamplerHelperBase& sampler, Contents& contents) {
  for (Contents::Origin& origin : contents.origins) {
    if (origin.sampler == &sampler) origin.sampler = nullptr;
  }
}

void SflowExporter::flush() {
  if (writer_.samples() == 0) return;
  const auto datagram = writer_.finish(++datagramSequence_, uptime());
  using Sent = DatagramChannel::Sent;
  for (CollectorState& collector : collectors_) {
    const Sent sent = collector.channel->send(datagram);
    const bool formerRefused = sent == Sent::yesNotFormer || sent == Sent::neither;
    if (formerRefused && collector.formerSent) {
      ++collector.lost;
      missed(former_);
    }
    collector.formerSent = sent == Sent::yes || sent == Sent::yesNotFormer;
    if (collector.formerSent) {
      ++collector.datagrams;
    } else {
      ++collector.lost;
      missed(filling_);
    }
  }
  std::swap(former_, filling_);
  filling_.origins.clear();
  filling_.missedBy = 0;
}

// One collector did not get the datagram; when that was the last one, its samples are lost.
void SflowExporter::missed(Contents& contents) {
  if (++contents.missedBy < collectors_.size()) return;
  for (const Contents::Origin& origin : contents.origins) {
    if (origin.sampler != nullptr) {
      origin.sampler->sampleLost(origin.direction, origin.portIndex);
    } else {
      ++source(origin.portIndex).formerDrops;
    }
  }
}

void SflowExporter::countersDue() {
  if (counters_ == nullptr || counterInterval_ <= 0 || collectors_.empty()) return;
  const double now = Kiv::System::currentTimeUtc();
  for (std::uint32_t portIndex = 0; portIndex < counters_->ports(); ++portIndex) {
    double& due = source(portIndex).counterTime;
    if (due > now + counterInterval_) due = now + counterInterval_;  // the clock was set back
    if (due > now) continue;
    addCounters(portIndex);
    due += counterInterval_ * (1 + std::floor((now - due) / counterInterval_));
  }
}

void SflowExporter::addCounters(std::uint32_t portIndex) {
  if (!writer_.fitsCounters()) flush();
  writer_.add(DatagramWriter::CounterSample{++source(portIndex).counterSequence, interfaceIndex(portIndex),
                                            counters_->ifCounters(portIndex)});
}

double SflowExporter::nextCounters() {
  double next = std::numeric_limits<double>::infinity();
  if (counters_ == nullptr || counterInterval_ <= 0 || collectors_.empty()) return next;
  const double latest = Kiv::System::currentTimeUtc() + counterInterval_;  // the clock may have been set back
  for (std::uint32_t portIndex = 0; portIndex < counters_->ports(); ++portIndex) {
    double& due = source(portIndex).counterTime;
    due = std::min(due, latest);
    next = std::min(next, due);
  }
  return next;
}

SflowExporter::Source& SflowExporter::source(std::uint32_t portIndex) {
  while (portIndex >= sources_.size()) {
    const double ports = std::max<double>(counters_ ? counters_->ports() : 0, portIndex + 1.0);
    const auto number = static_cast<double>(sources_.size()) + 1;
    sources_.push_back({.counterTime = started_ + counterInterval_ * number / ports});
  }
  return sources_[portIndex];
}

std::uint32_t SflowExporter::uptime() const {
  const double milliseconds = std::max(0.0, (Kiv::System::currentTimeUtc() - started_) * 1000);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(milliseconds));
}

}  // namespace Sflow
