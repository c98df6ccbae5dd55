// The tables of the ten outputs: names, order, and the ready chain.
#include "SftPexa/OutputId.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "SftPexa/OutputTables.h"

namespace SampledFlowTracker {
namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;
using ::testing::ElementsAre;

TEST(OutputIdTest, NamesAreInTheOrderOfCreation) {
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < kOutputs; ++i) names.push_back(nameOf(static_cast<OutputId>(i)));
  EXPECT_THAT(names,
              ElementsAre("localCounterCounterIp6CollectionOutput", "localCounterCounterCollectionOutput",
                          "hosStateCounterHosStateIp6CounterOutput", "hoFlowStatusHoIpFlowStatusOutput",
                          "hosStateCounterHosStateIpCounterOutput", "helperOverflowEntriesOutput",
                          "hoFlowCounterHoIp6FlowCounterOutput", "hoFlowStatusHoIp6FlowStatusOutput",
                          "hoFlowCounterHoIpFlowCounterOutput", "helperOverflow6EntriesOutput"));
  EXPECT_EQ(textsOf(OutputId::helperOverflowEntries).handler, "handleHelperOverflowEntriesOutputInputReady");
}

TEST(OutputIdTest, TheChainIsAnOrderOfItsOwn) {
  std::vector<std::string_view> names;
  for (const OutputId id : kReadyChain) names.push_back(nameOf(id));
  EXPECT_THAT(names,
              ElementsAre("localCounterCounterCollectionOutput", "localCounterCounterIp6CollectionOutput",
                          "hoFlowStatusHoIpFlowStatusOutput", "hoFlowStatusHoIp6FlowStatusOutput",
                          "hoFlowCounterHoIpFlowCounterOutput", "hoFlowCounterHoIp6FlowCounterOutput",
                          "hosStateCounterHosStateIpCounterOutput", "hosStateCounterHosStateIp6CounterOutput",
                          "helperOverflowEntriesOutput", "helperOverflow6EntriesOutput"));
  EXPECT_EQ(std::set(kReadyChain.begin(), kReadyChain.end()).size(), kOutputs);
  for (std::size_t i = 0; i < kOutputs; ++i) EXPECT_EQ(chainPosition(kReadyChain[i]), i);
}

TEST(OutputIdTest, EachTableOfAFamilyIsOneOfTheTen) {
  EXPECT_EQ(HoFlowStatusTable<IPv4>::kId, OutputId::hoFlowStatusHoIpFlowStatus);
  EXPECT_EQ(HoFlowStatusTable<IPv6>::kId, OutputId::hoFlowStatusHoIp6FlowStatus);
  EXPECT_EQ(HoFlowCounterTable<IPv4>::kId, OutputId::hoFlowCounterHoIpFlowCounter);
  EXPECT_EQ(HoFlowCounterTable<IPv6>::kId, OutputId::hoFlowCounterHoIp6FlowCounter);
  EXPECT_EQ(HosStateCounterTable<IPv4>::kId, OutputId::hosStateCounterHosStateIpCounter);
  EXPECT_EQ(HosStateCounterTable<IPv6>::kId, OutputId::hosStateCounterHosStateIp6Counter);
  EXPECT_EQ(LocalCounterTable<IPv4>::kId, OutputId::localCounterCounterCollection);
  EXPECT_EQ(LocalCounterTable<IPv6>::kId, OutputId::localCounterCounterIp6Collection);
  EXPECT_EQ(OverflowTable<IPv4>::kId, OutputId::helperOverflowEntries);
  EXPECT_EQ(OverflowTable<IPv6>::kId, OutputId::helperOverflow6Entries);
}

}  // namespace
}  // namespace SampledFlowTracker
