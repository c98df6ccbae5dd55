#include "SftPexaPlugin/SamplerHelper.h"

#include "PacketPath.h"

namespace SampledFlowTracker {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The helper knows no family.
class SamplerHelper : public PacketPath<Pavo::Traits::IPv4> {
 protected:
  SamplerHelper() {
    text.levelIs(0);
    ring.packetsWanted(true);
  }
};

TEST_F(SamplerHelper, RegularSflowTakesEveryInterfaceSilently) {
  sflowHwConfig->enabledIs(true);
  for (const auto* name : {"Ethernet1", "Ethernet3"}) {
    EXPECT_FALSE(helper->ingressEnabled(IntfId(name)));
    EXPECT_FALSE(helper->egressEnabled(IntfId(name)));
    EXPECT_FALSE(helper->samplingWanted(kIngress, IntfId(name)));
    EXPECT_FALSE(helper->samplingWanted(kEgress, IntfId(name)));
  }
  EXPECT_THAT(text.texts, IsEmpty());
  EXPECT_THAT(ring.records, IsEmpty());
}

TEST_F(SamplerHelper, EachDirectionHasItsOwnInterfaces) {
  sftSflowHwConfig->ingressInterfacesIs({IntfId("Ethernet1")});
  sftSflowHwConfig->egressInterfacesIs({IntfId("Ethernet2")});
  EXPECT_TRUE(helper->ingressEnabled(IntfId("Ethernet1")));
  EXPECT_TRUE(helper->egressEnabled(IntfId("Ethernet2")));
  EXPECT_THAT(text.texts, IsEmpty());
  EXPECT_FALSE(helper->egressEnabled(IntfId("Ethernet1")));
  EXPECT_FALSE(helper->ingressEnabled(IntfId("Ethernet2")));
  EXPECT_THAT(text.texts, ElementsAre("SftSampler: egressEnabled: drop packet on Ethernet1",
                                      "SftSampler: ingressEnabled drop packet on Ethernet2"));
  EXPECT_THAT(ring.texts(), ElementsAre("Sft SftSampler: egressEnabled: drop packet on Ethernet1",
                                        "Sft SftSampler: ingressEnabled drop packet on Ethernet2"));
}

TEST_F(SamplerHelper, EachChannelIsGatedOnItsOwn) {
  text.levelIs(-1);
  EXPECT_FALSE(helper->ingressEnabled(IntfId("Ethernet3")));
  EXPECT_THAT(text.texts, IsEmpty());
  EXPECT_EQ(ring.records.size(), 1U);
  text.levelIs(0);
  ring.packetsWanted(false);
  EXPECT_FALSE(helper->ingressEnabled(IntfId("Ethernet3")));
  EXPECT_EQ(text.texts.size(), 1U);
  EXPECT_EQ(ring.records.size(), 1U);
}

TEST_F(SamplerHelper, AsAZombieItSamplesNoMore) {
  const auto received = [this] {
    const TestSupport::Packet bytes = tcpPacket();
    helper->maybeSampleIngress(bytes.pkt(), ports[0]);
    return receiver.samples.size();
  };
  EXPECT_EQ(received(), 1U);
  helper->kivDoZombieReactors(true);
  EXPECT_EQ(received(), 1U);
  helper->kivDoZombieReactors(false);
  EXPECT_EQ(received(), 2U);
}

TEST_F(SamplerHelper, SamplingWantedIsTheSameTestInSilence) {
  sftSflowHwConfig->ingressInterfacesIs({IntfId("Ethernet1")});
  sftSflowHwConfig->egressInterfacesIs({IntfId("Ethernet2")});
  EXPECT_TRUE(helper->samplingWanted(kIngress, IntfId("Ethernet1")));
  EXPECT_FALSE(helper->samplingWanted(kEgress, IntfId("Ethernet1")));
  EXPECT_FALSE(helper->samplingWanted(kIngress, IntfId("Ethernet2")));
  EXPECT_TRUE(helper->samplingWanted(kEgress, IntfId("Ethernet2")));
  EXPECT_THAT(text.texts, IsEmpty());
  EXPECT_THAT(ring.records, IsEmpty());
}

TEST_F(SamplerHelper, FollowsItsConfigurationAtOnce) {
  EXPECT_FALSE(helper->ingressEnabled(IntfId("Ethernet3")));
  sftSflowHwConfig->ingressInterfacesIs({IntfId("Ethernet3")});
  EXPECT_TRUE(helper->ingressEnabled(IntfId("Ethernet3")));
  EXPECT_FALSE(helper->ingressEnabled(IntfId("Ethernet1")));
}

TEST_F(SamplerHelper, AnAnswerIsForgottenWhenTheConfigurationChangesInEitherDirection) {
  const IntfId intf("Ethernet3");
  for (int round = 0; round < 2; ++round) {
    sftSflowHwConfig->ingressInterfacesIs({intf});
    EXPECT_TRUE(helper->ingressEnabled(intf));
    sftSflowHwConfig->egressInterfacesIs({intf});
    EXPECT_TRUE(helper->egressEnabled(intf));
    sftSflowHwConfig->ingressInterfacesIs({});
    EXPECT_FALSE(helper->ingressEnabled(intf));
    EXPECT_TRUE(helper->egressEnabled(intf));
    sftSflowHwConfig->egressInterfacesIs({});
    EXPECT_FALSE(helper->egressEnabled(intf));
  }
}

TEST_F(SamplerHelper, BothDirectionsShareTheRate) {
  config->sampleRateIs(4096);
  EXPECT_EQ(helper->ingressSampleRate(), 4096U);
  EXPECT_EQ(helper->egressSampleRate(), 4096U);
}

TEST_F(SamplerHelper, WithoutConfigurationsItTakesNoPartAtRate0) {
  const SftSamplerHelper bare({}, ports.ports, {}, {}, {}, {});
  EXPECT_EQ(bare.ingressSampleRate(), 0U);
  EXPECT_EQ(bare.egressSampleRate(), 0U);
  EXPECT_FALSE(bare.ingressEnabled(IntfId("Ethernet1")));
  EXPECT_FALSE(bare.samplingWanted(kEgress, IntfId("Ethernet1")));
  EXPECT_EQ(text.texts.size(), 1U);
}

TEST_F(SamplerHelper, IsNamedForTheFeatureAndKnowsItsType) {
  EXPECT_EQ(helper->name(), "SampledFlowTracker");
  EXPECT_EQ(helper->fwkType().name(), "SampledFlowTracker::SftSamplerHelper");
  EXPECT_EQ(helper->sftSflowHwConfig(), sftSflowHwConfig);
  helper->hasNotificationActiveIs(true);
  EXPECT_TRUE(helper->hasNotificationActive());
}

TEST_F(SamplerHelper, IsBuiltFromItsArgumentsByType) {
  const auto built = Kiv::ptrCast<SftSamplerHelper>(SftSamplerHelper::kivType().construct(
      {{},
       {},
       {},
       Kiv::ValueTraits<Kiv::Ptr<const Sflow::HwConfig>>::toValue(sflowHwConfig),
       Kiv::ValueTraits<Kiv::Ptr<const HwFlowTracking::Config>>::toValue(config),
       Kiv::ValueTraits<Kiv::Ptr<const Sflow::HwConfig>>::toValue(sftSflowHwConfig)}));
  ASSERT_TRUE(built);
  EXPECT_EQ(built->sflowHwConfig(), sflowHwConfig);
  EXPECT_EQ(built->sftHwTrackingConfig(), config);
  EXPECT_EQ(built->sftSflowHwConfig(), sftSflowHwConfig);
}

}  // namespace
}  // namespace SampledFlowTracker
