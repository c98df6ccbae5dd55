// Sampling and exporting allocate nothing once every port was sampled: every allocation of this program is
// counted.
#include <gtest/gtest.h>

#include "CountAllocations.h"
#include "SamplerThings.h"
#include "UdpReceiver.h"
#include "sflow/SflowExporter.h"

namespace Sflow {
namespace {

using namespace TestSupport;

TEST(SflowExport, AllocatesNothingPerSample) {
  FakePorts ports(2);
  UdpReceiver receiver;
  ExporterConfig config;
  config.collectors = {receiver.name(), "127.0.0.1:9"};
  SflowExporter exporter(config);
  ports.ports->sampleReceiverIs(&exporter);
  {
    const auto sampler = Kiv::makePtr<TestSampler>(ports.ports, 1U);
    const Packet packet = somePacket();
    const auto sample = [&] {
      sampler->maybeSampleIngress(packet.pkt(), ports[0]);
      sampler->maybeSampleEgress(packet.pkt(), ports[0], ports[1]);
    };
    sample();
    const std::uint64_t before = allocations;
    for (int i = 0; i < 1000; ++i) sample();
    exporter.flush();
    EXPECT_EQ(allocations, before);
    EXPECT_GT(exporter.collectors()[0].datagrams, 100U);
    const auto held = std::make_unique<int>(1);
    EXPECT_EQ(allocations, before + 1);
  }
  ports.ports->sampleReceiverIs(nullptr);
}

}  // namespace
}  // namespace Sflow
