// Any bytes as an sFlow datagram: they are refused, or every sample is of them and has a flow or a reason.
#include <algorithm>
#include <memory>

#include "FuzzTarget.h"
#include "SampledFlow.h"

namespace {

using Tracker::FlowSample;

bool isWithin(FlowSample::Bytes part, FlowSample::Bytes whole) {
  return part.empty() || (part.data() >= whole.data() && part.size() <= whole.size() &&
                          part.data() + part.size() <= whole.data() + whole.size());
}

// Index 1 to 3 have names.
Tracker::Interfaces& interfaces() {
  static Tracker::Interfaces some = [] {
    Tracker::Interfaces made;
    for (std::uint32_t index = 1; index <= 3; ++index)
      made.add({std::nullopt, index, Pavo::IntfId("Ethernet" + std::to_string(index)), 1});
    return made;
  }();
  return some;
}

struct CheckFlow {
  const FlowSample& sample;

  void operator()(Tracker::NoFlow reason) const { FUZZ_REQUIRE(!nameOf(reason).empty()); }
  template <class Domain>
  void operator()(const Tracker::SampledFlow<Domain>& flow) const {
    FUZZ_REQUIRE(flow.key.ipFlowKey.vlan <= 4095);
    FUZZ_REQUIRE(flow.key.ipFlowKey.ipProto == 6 || flow.key.ipFlowKey.ipProto == 17);
    FUZZ_REQUIRE(flow.key.intfId == interfaces().find({}, sample.sourceIndex)->intfId);
    const bool in = flow.key.direction == Bridging::AllowedTrafficDirection::ingress;
    FUZZ_REQUIRE(sample.sourceIndex == (in ? flow.input : flow.output));
    FUZZ_REQUIRE(flow.rate >= 1);
  }
};

void checkSamples(const Tracker::Datagram& datagram, FlowSample::Bytes bytes) {
  FUZZ_REQUIRE(datagram.samples.size() <= bytes.size() / 40);  // the shortest one, with format and length
  for (const FlowSample& sample : datagram.samples) {
    for (const FlowSample::Bytes part : {sample.header, sample.ip4, sample.ip6})
      FUZZ_REQUIRE(isWithin(part, bytes));
    std::visit(CheckFlow{sample}, flowOf(sample, datagram.agent, interfaces()));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Tracker::SflowDecoder decoder;
  // A copy of exactly the bytes: a sanitizer sees any read behind them.
  const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[size]);
  std::copy_n(data, size, copy.get());
  const FlowSample::Bytes bytes(copy.get(), size);
  const auto wrong = decoder.decode(bytes);
  FUZZ_REQUIRE(decoder.decode(bytes) == wrong);
  if (wrong) {
    FUZZ_REQUIRE(!nameOf(*wrong).empty());
  } else {
    checkSamples(decoder.datagram(), bytes);
  }
  return 0;
}
