// Classes that are built elsewhere against these headers rely on the order of the slots in the virtual
// tables.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "SftPexaPlugin/PluginInstance.h"
#include "SftPexaPlugin/SftPexaPlugin.h"

namespace SampledFlowTracker {
namespace {

// The slot of a virtual operation. In the Itanium C++ ABI a pointer to one holds 1 plus its offset in the
// table, and a virtual destructor takes two slots.
template <class Member>
std::size_t slot(Member member) {
  static_assert(sizeof(member) == 2 * sizeof(std::uintptr_t));
  std::uintptr_t parts[2];
  std::memcpy(parts, &member, sizeof parts);
  EXPECT_EQ(parts[0] & 1U, 1U) << "not virtual";
  return (parts[0] - 1) / sizeof(void*);
}

using Kiv::PtrInterface;
using Notifiee = PtrInterface::NotifieeConst;

TEST(SlotOrder, CountedObjects) {
  EXPECT_EQ(slot(&PtrInterface::notifieeList), 0U);
  EXPECT_EQ(slot(&PtrInterface::hasNotificationActiveIs), 1U);
  EXPECT_EQ(slot(&PtrInterface::zeroReferencesIs), 2U);
  EXPECT_EQ(slot(&PtrInterface::fwkType), 3U);
  // 4 and 5: the destructors.
}

TEST(SlotOrder, Notifiees) {
  EXPECT_EQ(slot(&Notifiee::onZeroReferences), 6U);
  EXPECT_EQ(slot(&Notifiee::onAttribute), 7U);
  EXPECT_EQ(slot(&Notifiee::kivDoZombieReactors), 8U);
}

TEST(SlotOrder, ConfigReactor) {
  using Reactor = SftPexaFtHoConfigReactor;
  EXPECT_EQ(slot(&Reactor::hasNotificationActiveIs), 1U);
  EXPECT_EQ(slot(&Reactor::fwkType), 3U);
  EXPECT_EQ(slot(&Reactor::kivDoZombieReactors), 6U);
  EXPECT_EQ(slot(&Reactor::KivSftHwTrackingConfig::onAttribute), 7U);
  EXPECT_EQ(slot(&Reactor::KivSftHwTrackingConfig::kivDoZombieReactors), 8U);
}

TEST(SlotOrder, RootEntity) {
  using Plugin = SftPexaPlugin;
  EXPECT_EQ(slot(&Plugin::notifieeList), 0U);
  EXPECT_EQ(slot(&Plugin::hasNotificationActiveIs), 1U);
  EXPECT_EQ(slot(&Plugin::zeroReferencesIs), 2U);
  EXPECT_EQ(slot(&Plugin::fwkType), 3U);
  EXPECT_EQ(slot(&Plugin::name), 6U);
  EXPECT_EQ(slot(&Plugin::handleParent), 7U);
  EXPECT_EQ(slot(&Plugin::doMirroMountsComplete), 8U);
  EXPECT_EQ(slot(&Plugin::doMountsComplete), 9U);
  EXPECT_EQ(slot(&Plugin::handleMountStatus), 10U);
  EXPECT_EQ(slot(&Plugin::doMounts), 11U);
  EXPECT_EQ(slot(&Plugin::mountsComplete), 12U);
  EXPECT_EQ(slot(&Plugin::setupPluginManager), 13U);
  EXPECT_EQ(slot(&Plugin::standbyInit), 14U);
  EXPECT_EQ(slot(&Plugin::switchoverInit), 15U);
  EXPECT_EQ(slot(&Plugin::activeInit), 16U);
}

TEST(SlotOrder, PluginInstance) {
  // 0 and 1: the destructors.
  EXPECT_EQ(slot(&PluginBase<Pexa::PluginContext>::init), 2U);
  EXPECT_EQ(slot(&PexaSampledFlowTrackerPluginInst::init), 2U);
}

TEST(SlotOrder, SamplerHelper) {
  using Base = Sflow::SflowSamplerHelperBase;
  EXPECT_EQ(slot(&SftSamplerHelper::fwkType), 3U);
  EXPECT_EQ(slot(&SftSamplerHelper::ingressSampleRate), 8U);
  EXPECT_EQ(slot(&SftSamplerHelper::egressSampleRate), 9U);
  EXPECT_EQ(slot(&SftSamplerHelper::kivDoZombieReactors), 10U);
  EXPECT_EQ(slot(&SftSamplerHelper::hasNotificationActiveIs), 1U);
  EXPECT_EQ(slot(&Base::ingressSampleRate), 8U);
  EXPECT_EQ(slot(&Base::egressSampleRate), 9U);
}

TEST(SlotOrder, PipelineSteps) {
  EXPECT_EQ(slot(&SftInputSampler::fwkType), 3U);
  EXPECT_EQ(slot(&SftInputSampler::process), 8U);
  EXPECT_EQ(slot(&SftOutputSampler::fwkType), 3U);
  EXPECT_EQ(slot(&SftOutputSampler::process), 8U);
  EXPECT_EQ(slot(&Pexa::InputPipelineStep::process), 8U);
  EXPECT_EQ(slot(&Pexa::OutputPipelineStep::process), 8U);
}

TEST(SlotOrder, LocalCounters) {
  using Collection = Pexa::Counter::PexaSftHoCounterCollection;
  EXPECT_EQ(slot(&Collection::fwkType), 3U);
  EXPECT_EQ(slot(&Collection::name), 6U);
  EXPECT_EQ(slot(&Collection::acrResponse), 8U);
  EXPECT_EQ(slot(&Pexa::Counter::PexaSftHoCounter::name), 6U);
}

}  // namespace
}  // namespace SampledFlowTracker
